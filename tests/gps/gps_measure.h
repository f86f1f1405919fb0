// gps_measure.h - The measurement core with GPS selected: pulses by hand, and the receiver's time
// for each.
#pragma once
#include "reg/support/measure_bench.h"

#include "gps/kvd_gps.h"
#include "gps/kvd_gps_receiver.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_gps_state.h"

namespace bench {

struct GpsMeasure : regtest::MeasureBench {
    double edgeTime = 200.0;
    double gpsTime = 1'357'776'000.0;      // 2245 weeks

    explicit GpsMeasure(u32 ref = TU_SR_GPS_REF, bool isStarted = true)
    {
        if (isStarted) settle();
        select(ref);
        gpsState(GPS_OPERATIONAL_WITH_VALID_TIME);
    }
    void gpsState(u32 state) { in([&] { KvdLoz6TuGps_storeGpsState(state); }); }
    void kind(u32 gpssType) { in([&] { KvdLoz6TuGps_setGpssType(gpssType); }); }
    /// The next pulse, with the receiver's time for it; `off` seconds wrong.
    void second(double off = 0.0)
    {
        edgeTime += 1.0;
        gpsTime += 1.0;
        in([&] { KvdLoz6TuGps_receiverRecord().gpsCurrentTime = gpsTime + off; });
        edge(edgeTime);
    }
    void delay(u16 delay_ns)
    {
        in([&] {
            KvdTuiifSetDelayInd ind{KVD_TUIIF_SET_DELAY_IND, delay_ns};
            Signal* sig = ose::alloc(sizeof ind, KVD_TUIIF_SET_DELAY_IND);
            std::memcpy(static_cast<void*>(sig), &ind, sizeof ind);
            EXPECT_EQ(KvdLoz6TuGps_dispatch(sig), 1);
            ose::free_buf(&sig);
        });
    }
    u32 left()
    {
        ose::DataScope scope(*block);
        return KvdLoz6TuGps_preTimeOffset();
    }
    double offset() { return meas().delta0_c + meas().delta0_f; }
};

}  // namespace bench
