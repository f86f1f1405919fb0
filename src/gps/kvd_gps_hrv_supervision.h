// kvd_gps_hrv_supervision.h - Restarts the receiver when its 1PPS stays away for half an hour.
// Owner   the manager process. State and counter outlive a stop of supervision.
// Errors  a timer that can't start is traced; the machine stays in the state that it entered.
#pragma once
#include "ose/types.h"

struct Signal;

enum HRVSupervisionState : u32 {
    HRV_SUPERVISION_STATE_IDLE = 0,
    HRV_SUPERVISION_STATE_HRV_WAITING_RESTART = 1,
    HRV_SUPERVISION_STATE_HRV_RESTART = 2,
};
enum HRVSupervisionEvent : u32 {
    HRV_SUPERVISION_EVENT_1PPS_OK = 0,
    HRV_SUPERVISION_EVENT_1PPS_NOK = 1,
    HRV_SUPERVISION_EVENT_1PPS_TIMER_ELAPSE = 2,
    HRV_SUPERVISION_EVENT_TIMER_ELAPSE = 3,
    HRV_SUPERVISION_EVENT_INIT_SM = 4,
};

void KvdLoz6TuGps_onHRVSupervisionEvent(u32 event);
/// The two time-outs: true when it was one of them.
bool KvdLoz6TuGps_hrvDispatch(Signal* sig);
u32  KvdLoz6TuGps_hrvState();
const char* KvdLoz6TuGps_hrvStateText(u32 state);
u8   KvdLoz6TuGps_hrvResetAttempts();
void KvdLoz6TuGps_clearHrvHistory();
void KvdLoz6TuGps_printHrvHistory();
