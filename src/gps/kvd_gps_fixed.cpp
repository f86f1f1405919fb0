// The position that the receiver holds, as the main processor is told it: once a hold, and to each main
// processor.
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_receiver.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "sig/tuiif_gps_sig.h"

#include <cstring>

namespace {

struct State {
    bool told = false;
};
ose::ModuleData<State> s;

/// Its sentence comes at another time than the mode's.
bool isKnown(const GpsPosition& p)
{
    const auto isZero = [](const GpsCoordinate& c) { return c.deg == 0 && c.min == 0 && c.fractMin == 0; };
    return !isZero(p.latitude) || !isZero(p.longitude);
}

void send(const GpsPosition& position)
{
    constexpr u32 SECOND_UNIT = 2;        // apn
    auto* ind = node::make<KvdTuiifFixedPositionInd>(KVD_TUIIF_FIXED_POSITION_IND);
    ind->froId = KvdLoz6TuIifAdm_apn() == SECOND_UNIT ? 1 : 0;
    ind->latitude = gps::coordinateOf(position.latitude);
    ind->longitude = gps::coordinateOf(position.longitude);
    std::memcpy(ind->altitude, &position.altitude, sizeof ind->altitude);
    Signal* sig = reinterpret_cast<Signal*>(ind);
    KvdLoz6TuIifAdm_send(&sig);
}

}  // namespace

TuiifCoordinate gps::coordinateOf(const GpsCoordinate& from)
{
    return {from.deg, from.min, from.fractMin, from.dir, 0};
}

void gps::tellFixedPosition()
{
    if (KvdLoz6TuGps_receiver().observationMode != GPS_POSITION_HOLD) {
        s->told = false;
        return;
    }
    if (s->told || KvdLoz6TuIifAdm_startState() != TUIIF_START_RESTART_READY) return;
    const GpsPosition& position = KvdLoz6TuGps_shownPosition();
    if (!isKnown(position)) return;
    send(position);
    s->told = true;
}

void gps::forgetFixedPosition() { s->told = false; }
