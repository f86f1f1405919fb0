// kvd_gps_recovery.h - Restarts a GPS02 module whose sentences show one of its known failures.
// Owner   the manager process. State, timers and counters outlive a stop of supervision.
// Errors  a timer that can't start is traced; the machine stays in the state that it entered.
#pragma once
#include "ose/types.h"

struct Signal;

enum RecoveryState : u32 {
    RECOVERY_STATE_NOT_AVAILABLE = 0,
    RECOVERY_STATE_GPVER_WAITING = 1,
    RECOVERY_STATE_GPGSV_WAITING = 2,
    RECOVERY_STATE_GRM_RECOVERY = 3,
    RECOVERY_STATE_GRM_RECOVERY_CYCLE_HYSTERESIS = 4,
    RECOVERY_STATE_NOGPGSV_OR_UNRESOLVABLE_OUTAGE = 5,
    RECOVERY_STATE_GRM_RECOVERY_EXPIRED = 6,
    RECOVERY_STATE_HRV_SW_RESET = 7,
};
enum RecoverySubState : u32 {
    RECOVERY_SUBSTATE_GPGSV_WAITING = 0,
    RECOVERY_SUBSTATE_GPSTS_WAITING = 1,
    RECOVERY_SUBSTATE_INITIAL = 2,
    RECOVERY_SUBSTATE_FINAL = 3,
};
enum RecoveryEvent : u32 {
    RECOVERY_EVENT_GPVER_OK = 0,
    RECOVERY_EVENT_GRM_OK = 1,
    RECOVERY_EVENT_GPSTS_OK = 2,
    RECOVERY_EVENT_GPSTS_NOK = 3,
    RECOVERY_EVENT_GPGSV_TIMER_ELAPSED = 4,
    RECOVERY_EVENT_GPVER_TIMER_ELAPSED = 5,
    RECOVERY_EVENT_GPSTS_TIMER_ELAPSED = 6,
    RECOVERY_EVENT_RECOVERY_TIMER_ELAPSED = 7,
    RECOVERY_EVENT_HYSTERESIS_TIMER_ELAPSED = 8,
    RECOVERY_EVENT_HRVSW_TIMER_ELAPSED = 9,
    RECOVERY_EVENT_NO_EL_AZ = 10,
    RECOVERY_EVENT_GPGSV_RECEIVED = 11,
    RECOVERY_EVENT_NULL = 12,
    RECOVERY_EVENT_SUB_INIT = 13,
};
/// `EnhancedGps02SupervisionStatus`: the verdict on the module.
enum EnhancedGps02SupervisionStatus : u32 {
    GPS02_NOT_AVAILABLE = 0, GPS02_OK = 1, GPS02_CASE_1 = 2, GPS02_CASE_2 = 3, GPS02_UNRESOLVABLE_OUTAGE = 4,
};
struct RecoveryCounters {
    u8 currentAttemptedRecoveries = 0;       // module restarts in this cycle
    u8 totalAttemptedRecoveries = 0;
    u8 unsuccessfulRecoveryCycles = 0;
    u8 HrvSwRestartsCounter = 0;             // 0 to 2
    u8 HrvSwRestartsCounterTotal = 0;
};

void KvdLoz6TuGps_onRecoverySMEvent(u32 event);
/// A sentence that was taken, by its kind: what it means to the machine is told to it.
void KvdLoz6TuGps_recoverySentence(u8 kind);
/// The six time-outs: true when it was one of them.
bool KvdLoz6TuGps_recoveryDispatch(Signal* sig);
u32  KvdLoz6TuGps_recoveryState();
u32  KvdLoz6TuGps_recoverySubState();
u32  KvdLoz6TuGps_supervisionStatus();       // EnhancedGps02SupervisionStatus
const RecoveryCounters& KvdLoz6TuGps_recoveryCounters();
const char* KvdLoz6TuGps_recoveryStateText(u32 state);
const char* KvdLoz6TuGps_supervisionStatusText(u32 status);
void KvdLoz6TuGps_clearRecoveryHistory();
void KvdLoz6TuGps_printRecoveryHistory();
