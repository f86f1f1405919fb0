// tuiif_gps_sig.h - The main processor's signals about satellite and time inputs and GPS output:
// layouts. Their numbers stand in tuiif_sig.h, which includes this file.
#pragma once
#include "ose/types.h"

#include <cstddef>

struct KvdTuiifGpsStatusInd {
    SIGSELECT sigNo;
    u8   gpsStatus;
    char text[131];
};
static_assert(offsetof(KvdTuiifGpsStatusInd, text) == 5 && sizeof(KvdTuiifGpsStatusInd) == 136);

struct KvdTuiifHptsiStatusInd {           // also KVD_TUIIF_GPSOSL_STATUS_IND
    SIGSELECT sigNo;
    u32  reserved;
    u8   status;
    char text[131];
};
static_assert(offsetof(KvdTuiifHptsiStatusInd, status) == 8);
static_assert(offsetof(KvdTuiifHptsiStatusInd, text) == 9 && sizeof(KvdTuiifHptsiStatusInd) == 140);
using KvdTuiifGpsoslStatusInd = KvdTuiifHptsiStatusInd;

/// Latitude or longitude.
struct TuiifCoordinate {
    u8  deg, min;
    u16 fractMin;              // 1/10000 min
    u8  dir;                   // 0 N, 1 E, 2 S, 3 W
    u8  spare;
};
static_assert(offsetof(TuiifCoordinate, fractMin) == 2 && offsetof(TuiifCoordinate, dir) == 4);
static_assert(sizeof(TuiifCoordinate) == 6);

struct TuiifSatellite {
    u8  svNo;                  // 0: empty
    u8  elevation;             // degrees
    u16 azimuth;               // degrees
    u8  snr;                   // dB
    u8  spare;
};
static_assert(offsetof(TuiifSatellite, azimuth) == 2 && sizeof(TuiifSatellite) == 6);
constexpr u32 TUIIF_SATELLITES = 12;

struct KvdTuiifGpsAttribCfm {
    SIGSELECT sigNo;
    u32 froId;
    u16 gpsCompensationDelay;  // ns
    u8  satellitesInView;
    TuiifSatellite satellite[TUIIF_SATELLITES];
    TuiifCoordinate latitude, longitude;
    u32 altitude[2];           // m; this and the next two are doubles as they lie in memory
    u32 hdop[2];
    u32 vdop[2];
    u8  observationMode;
    u8  reserved[7];
};
static_assert(offsetof(KvdTuiifGpsAttribCfm, satellitesInView) == 10);
static_assert(offsetof(KvdTuiifGpsAttribCfm, satellite) == 12);
static_assert(offsetof(KvdTuiifGpsAttribCfm, latitude) == 84);
static_assert(offsetof(KvdTuiifGpsAttribCfm, longitude) == 90);
static_assert(offsetof(KvdTuiifGpsAttribCfm, altitude) == 96);
static_assert(offsetof(KvdTuiifGpsAttribCfm, observationMode) == 120);
static_assert(sizeof(KvdTuiifGpsAttribCfm) == 128);

struct KvdTuiifGpsAttribReq {             // also the HPTSI and the GPS OSL request
    SIGSELECT sigNo;
    u32 froId;
};
static_assert(sizeof(KvdTuiifGpsAttribReq) == 8);
using KvdTuiifHptsiAttribReq = KvdTuiifGpsAttribReq;
using KvdTuiifGpsoslAttribReq = KvdTuiifGpsAttribReq;

struct KvdTuiifSetDelayInd {              // also KVD_TUIIF_SET_HPTSI_DELAY_IND and the GPS OSL one
    SIGSELECT sigNo;
    u16 delay;                 // ns
};
static_assert(offsetof(KvdTuiifSetDelayInd, delay) == 4);
using KvdTuiifSetHptsiDelayInd = KvdTuiifSetDelayInd;
using KvdTuiifSetGpsoslDelayInd = KvdTuiifSetDelayInd;

struct KvdTuiifSetFixedPositionInd {
    SIGSELECT sigNo;
    u32 wanted;                // 1 fixed position
};
static_assert(sizeof(KvdTuiifSetFixedPositionInd) == 8);

struct KvdTuiifFixedPositionInd {
    SIGSELECT sigNo;
    u32 froId;                 // 0 on apn 1, 1 on apn 2
    TuiifCoordinate latitude, longitude;
    u32 altitude[2];           // m, a double as it lies in memory
};
static_assert(offsetof(KvdTuiifFixedPositionInd, latitude) == 8);
static_assert(offsetof(KvdTuiifFixedPositionInd, altitude) == 20);
static_assert(sizeof(KvdTuiifFixedPositionInd) == 28);

struct KvdTuiifSetGpsoutInd {             // also KVD_TUIIF_SET_HPTSIOUT_IND
    SIGSELECT sigNo;
    u32 enable;                // 1 on, other off
};
static_assert(sizeof(KvdTuiifSetGpsoutInd) == 8);
using KvdTuiifSetHptsioutInd = KvdTuiifSetGpsoutInd;

struct KvdTuiifGpsOutTimeDataInd {
    SIGSELECT sigNo;
    u32 apn;
    u8  regState;
    u16 mfc, sfc;
    u32 inc;
    double t_gps;              // s
};
static_assert(offsetof(KvdTuiifGpsOutTimeDataInd, mfc) == 10);
static_assert(offsetof(KvdTuiifGpsOutTimeDataInd, inc) == 16);
static_assert(offsetof(KvdTuiifGpsOutTimeDataInd, t_gps) == 24);
static_assert(sizeof(KvdTuiifGpsOutTimeDataInd) == 32);

struct KvdTuiifHptsiAttribCfm {
    SIGSELECT sigNo;
    u32 froId;
    u16 hptsiCompensationDelay;   // ns
    i16 leapSec;                  // s
    u8  ppsState;
    u16 stateOfClockSource;
    u16 monitorAlarm;
    u16 jitterLevel;
    u8  clockSource;
};
static_assert(offsetof(KvdTuiifHptsiAttribCfm, leapSec) == 10);
static_assert(offsetof(KvdTuiifHptsiAttribCfm, stateOfClockSource) == 14);
static_assert(offsetof(KvdTuiifHptsiAttribCfm, clockSource) == 20);
static_assert(sizeof(KvdTuiifHptsiAttribCfm) == 24);

struct KvdTuiifGpsoslAttribCfm {
    SIGSELECT sigNo;
    u32 froId;
    u16 gpsOslCompensationDelay;  // ns
    u8  gpsOslState;
};
static_assert(offsetof(KvdTuiifGpsoslAttribCfm, gpsOslState) == 10);
static_assert(sizeof(KvdTuiifGpsoslAttribCfm) == 12);
