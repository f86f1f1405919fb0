// packet_bench.h - The regulator's process with the packet measurements' neighbours played by a test.
#pragma once
#include "reg/support/measure_bench.h"

#include "reg/kvd_reg_packet_int.h"

#include <optional>

namespace regtest {

struct PacketBench;
inline PacketBench* self = nullptr;

/// With the estimator, the packet clock's profile and the counters' difference played by the test.
struct PacketBench : MeasureBench {
    std::optional<MeasRefData> estimated;
    std::vector<u8> refStates;
    std::optional<i64> offsetFromMaster, meanPathDelay;
    TimePair diff{0, 0};
    double sfcPtpOffset = 0, R_est = 1e-9;
    u8 profile = 0;
    bool hasClock = true;

    explicit PacketBench(u32 z_i)
    {
        self = this;
        connect();
        settle();
        launch();
        inManager([z_i] {
            packet::setNeeds(&NEEDS);
            measure::state().var.selectedRef = z_i == Z_NTP_REF        ? TU_SR_NTP_REF
                                               : z_i == Z_PKT_FREQ_REF ? TU_SR_PKT_FREQ_REF
                                                                       : TU_SR_PKT_TIME_REF;
            node::traceSetProgramMask(0xFFFFFFFF);
        });
        bus.traces.clear();
    }

    static const packet::Needs NEEDS;
    std::size_t traced(const std::string& text) const
    {
        const auto begins = [&](const auto& t) { return t.second.starts_with(text); };
        return static_cast<std::size_t>(std::ranges::count_if(bus.traces, begins));
    }
};

inline const packet::Needs PacketBench::NEEDS = {
    .ptpProfile = [](u32) -> const u8* { return self->hasClock ? &self->profile : nullptr; },
    .estimate = [](const MeasRefData& data) {
        self->estimated = data;
        return self->R_est;
    },
    .setRefState = [](u8 degrState) { self->refStates.push_back(degrState); },
    .refState = []() -> u8 { return self->refStates.empty() ? 1 : self->refStates.back(); },
    .restartEstimate = [] {},
    .tellPacketSync = [](i64 offsetFromMaster, i64 meanPathDelay) {
        self->offsetFromMaster = offsetFromMaster;
        self->meanPathDelay = meanPathDelay;
    },
    .packetCounterDiff = [] { return self->diff; },
    .sfcPtpOffset = [] { return self->sfcPtpOffset; },
};

}  // namespace regtest
