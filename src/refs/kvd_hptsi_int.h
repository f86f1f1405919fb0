// kvd_hptsi_int.h - What the sources of the time input share: clients and lifecycle (kvd_hptsi.cpp), the
// machine of frames and timers (kvd_hptsi_machine.cpp), the measurement (kvd_hptsi_measure.cpp).
// Owner   kvd_hptsi*.cpp. Nobody else includes it, but for the tests.
// Units   s; timers in ms.
#pragma once
#include "base/kvd_timer.h"
#include "ose/ose.h"
#include "refs/kvd_hptsi.h"
#include "refs/kvd_hptsi_cmcc.h"
#include "reg/kvd_reg_time_of_day.h"
#include "sig/hptsi_sig.h"

namespace hptsi {

enum HptsiState : u32 {
    ILLEGAL_STATE = 0,
    UN_INIT = 1,
    INIT_SERIAL_PORT = 2,
    WAIT_FOR_FRAMES = 3,
    OPERATIONAL = 4,
    OPERATIONAL_WITH_VALID_TIME = 5,
};
enum NextFrame : u32 { NEXT_NONE = 0, NEXT_INFO_CAME = 1, NEXT_STATE_CAME = 2, NEXT_COMPLETE = 3 };
enum TimerId : u32 {
    T_OPERATIONAL, T_VALID, T_ALARM_SUPRESSION, T_NO_VALID, T_MONITOR, T_RECEIVE_FRAMES, TIMERS,
};
constexpr u8 QUALITY_UNTOLD = 99;

struct State {
    u32 hptsiState = UN_INIT;
    CmccTimeInfo  timeInfo;                 // of the last frame
    CmccTimeState timeState;
    double hptsiCurrentTime = 0.0;          // s since the GPS epoch at the next pulse, 0 none
    u32 timeInfoValid = 0, timeStateValid = 0;
    u32 nextFrame = NEXT_NONE;
    TimeOfDayGate gate;
    double hptsiCompensationDelay = 0.0;    // s
    u32 noValid = 0, monitor = 0;           // their timers ended
    bool forceStatus = false;               // the next OK goes while alarms are suppressed, too
    u32 toggle = 0;                         // 1PPS present
    u32 supervised = 0;
    u8  selectionProcessMode = 0;
    u8  qualityType = QUALITY_UNTOLD;       // clkSource told last
    u32 overrideEnabled = 0;                // a clkSource that the operator wants
    u8  overrideValue = 0;
    u32 numberOfTimeInfoMsg = 0, numberOfTimeStateMsg = 0;
    KvdTimer timers[TIMERS];
};
State& state();
const char* stateText(u32 hptsiState);

// ---- kvd_hptsi.cpp ----
void reportStatus();
void sendQualityLevel();

// ---- kvd_hptsi_machine.cpp ----
void onFrame(std::span<const u8> frame);
void onWrongLength(u32 length);
void changeState(u32 to);
void startTimer(TimerId id);
void cancelAllTimers();
bool runs(TimerId id);
void onTimeout(TimerId id);

// ---- kvd_hptsi_measure.cpp ----
void setCompensationDelay(u16 delay_ns);

}  // namespace hptsi
