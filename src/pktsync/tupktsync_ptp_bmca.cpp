#include "pktsync/tupktsync_ptp_bmca.h"

#include "base/trace_groups.h"
#include "node/trace.h"

#include <compare>
#include <tuple>

namespace {

bool isVoid(const PtpDataset& d) { return d.quality.clockClass == 0 || d.quality.clockAccuracy == 0; }

}  // namespace

bool bmcaPart2Algorithm(const PtpDataset& present, const PtpDataset& candidate)
{
    // What is stored counts the own step too; 0 stands before the first Announce.
    const u32 presentSteps = present.stepsRemoved == 0 ? 1 : static_cast<u32>(present.stepsRemoved - 1);
    const u32 candidateSteps = candidate.stepsRemoved;
    if (candidateSteps == presentSteps && candidate.port == present.port) {
        KVD_TRACE(TRACE_TUPKTSYNC_BMCA, TRACE_2,
                  "Error-2 Messages are duplicates or they are earlier or later messages from the "
                  "same grandmaster");
        return false;
    }
    return std::tie(candidateSteps, candidate.port.clockIdentity, candidate.port.portNumber)
           < std::tie(presentSteps, present.port.clockIdentity, present.port.portNumber);
}

bool dataSetBmcaComparison(const PtpDataset& present, const PtpDataset& candidate)
{
    if (isVoid(candidate)) return false;
    if (isVoid(present)) return true;
    if (candidate.grandmasterIdentity == present.grandmasterIdentity)
        return bmcaPart2Algorithm(present, candidate);
    const auto rank = [](const PtpDataset& d) {
        return std::tie(d.priority1, d.quality.clockClass, d.quality.clockAccuracy,
                        d.quality.offsetScaledLogVariance, d.priority2, d.grandmasterIdentity);
    };
    return std::is_lt(rank(candidate) <=> rank(present));
}

bool dataSetAbmcaComparison(const PtpDataset& present, const PtpDataset& candidate)
{
    if (isVoid(candidate)) return false;
    if (isVoid(present)) return true;
    const auto rank = [](const PtpDataset& d) {
        return std::tie(d.quality.clockClass, d.quality.clockAccuracy, d.quality.offsetScaledLogVariance,
                        d.priority2);
    };
    if (const auto order = rank(candidate) <=> rank(present); order != 0) return std::is_lt(order);
    // A class below 128 may have several grandmasters at once: there the nearer one serves.
    constexpr u8 FIRST_SINGLE_CLASS = 128;
    const auto byIdentity = candidate.grandmasterIdentity <=> present.grandmasterIdentity;
    if (candidate.quality.clockClass >= FIRST_SINGLE_CLASS && byIdentity != 0) return std::is_lt(byIdentity);
    return bmcaPart2Algorithm(present, candidate);
}
