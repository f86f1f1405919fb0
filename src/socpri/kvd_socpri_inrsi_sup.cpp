// Supervision of the ports that nobody synchronises to: five phases 100 ms apart, once a minute.
#include "socpri/kvd_socpri_inrsi_int.h"

#include "base/assert.h"
#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm_send.h"
#include "node/trace.h"
#include "reg/kvd_reg_socpri.h"

#include <utility>

namespace inrsi {

namespace {

constexpr double GOOD_s = 1e-07;
constexpr u8 SAMPLES = 5;
constexpr u8 GOOD_ABOVE = 2;                   // of the samples

/// nullptr for port X and for none, which nobody supervises.
Supervision* supervisionOf(Client& c, u8 port) { return isPort(port) ? &c.supervision[port] : nullptr; }

void conclude(Client& c, u8 port)
{
    tuAssert(isPort(port));
    Supervision& sup = c.supervision[port];
    const u32 syncStatus = sup.validCount > GOOD_ABOVE ? OK_TIME_LOCKED : PHASE_MEAS_PROBLEM;
    const bool isNews = syncStatus != std::exchange(sup.concluded, static_cast<u8>(syncStatus))
                        && syncStatus != OK_TIME_LOCKED;
    KVD_TRACE(TRACE_INRSI, isNews ? TRACE_INFO : TRACE_3,                         // each minute
              "Supervised port: %u concluded syncStatus=%d, with validCount=%u ", port,
              static_cast<int>(syncStatus), sup.validCount);
    sendSupervisionStatus(port, syncStatus);
    superviseIfLinked(c, port);
}

}  // namespace

void sendSupervisionStatus(u8 port, u32 syncStatus)
{
    KvdLoz6TuIifAdm_sendSocpriSupervisionStatusInd(static_cast<u8>(port + 1), static_cast<u8>(syncStatus));
}

void startSupervision(Client& c, u8 port)
{
    Supervision* const sup = supervisionOf(c, port);
    if (sup == nullptr) return;
    *sup = {.started = true, .concluded = sup->concluded};
    startTimer(SUPERVISION, port, SUPERVISION_ms);
}

void superviseIfLinked(Client& c, u8 port)
{
    if (firstUnit(c, port, LINK_AVAILABLE) != nullptr) startSupervision(c, port);
}

/// A sample that is open stays so: its answer is then the focus's.
void stopSupervision(Client& c, u8 port)
{
    Supervision* const sup = supervisionOf(c, port);
    if (sup == nullptr) return;
    cancelTimer(SUPERVISION, port);
    suspendSupervision(port);
    *sup = {.supMeasOngoing = sup->supMeasOngoing};
}

/// A request of the round's would meet the order's own at the server.
void suspendSupervision(u8 port)
{
    if (!isPort(port)) return;
    cancelTimer(PHASE_DATA, port);
    cancelTimer(MEAS_RETRIEVE, port);
}

void resumeSupervision(Client& c, u8 port)
{
    if (!isPort(port) || !c.subscribed[port]) return;
    if (!runs(SUPERVISION, port)) superviseIfLinked(c, port);
}

void requestSupervision(Client& c, u8 port)
{
    Supervision* const sup = supervisionOf(c, port);
    if (sup == nullptr) return;
    const Slot* const unit = firstUnit(c, port, LINK_AVAILABLE);
    if (unit == nullptr || sup->supMeasOngoing) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "Port supervision on port= %d ended since link not in adequate state", port);
        return;
    }
    requestMeasurement(c, INRSI_GET_PHASE_DIFF2_REQ, unit->sharedUnitId);
    sup->supMeasOngoing = true;
    startTimer(MEAS_RETRIEVE, port, c.role->retrieveTime());
}

void onSupervisionSample(Client& c, u8 port, u32 trpDiffHigh, u32 trpDiffLow, u32 trpDiffValid)
{
    Supervision* const sup = supervisionOf(c, port);
    if (sup == nullptr) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "phase of a unit that no port has, dropped");
        return;
    }
    sup->supMeasOngoing = false;
    ++sup->supCount;
    cancelTimer(MEAS_RETRIEVE, port);
    const double phaseDiff = KvdLoz6TuReg_soCpriPhase(trpDiffHigh, trpDiffLow);
    if (trpDiffValid != 0) {
        if (isWithin(phaseDiff, GOOD_s)) ++sup->validCount;
        KVD_TRACE(TRACE_INRSI, TRACE_3, "Supervision phaseDiff= %-17.16g [s]", phaseDiff);
    }
    c.role->supervised(port, phaseDiff, trpDiffValid);
    if (sup->supCount < SAMPLES)       startTimer(PHASE_DATA, port, REQUEST_ms);
    else if (sup->supCount == SAMPLES) conclude(c, port);
}

}  // namespace inrsi
