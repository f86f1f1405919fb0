// tupktsync_ptp_uc_neg.h - The contract with a unicast master (IEEE 1588-2008 clause 16, ITU-T G.8265.1
// 6.6): asks for Announce, looks at the first one, asks for Sync and Delay_Resp, keeps the grants alive.
// Owner   Kvd_loz6_tupktsync_proc; one object for each clock on UDP_UC, none for others.
// Units   timers in ms, durations of grants in s.
#pragma once
#include "pktsync/tupktsync_ptp_msg.h"
#include "pktsync/tupktsync_timer.h"

#include <array>

enum UcNegState : u32 {
    UC_NEG_IDLE = 0, UC_NEG_WAIT_ANNOUNCE_GRANT, UC_NEG_WAIT_ANNOUNCE_MSG, UC_NEG_WAIT_SYNC_GRANT,
    UC_NEG_WAIT_DELAYRESP_GRANT, UC_NEG_READY, UC_NEG_FAILED,
};
enum UcNegReport : u32 {
    UC_AWAIT_ANNOUNCE = 0, UC_READY, UC_NO_REPLY, UC_NO_AGREE, UC_MC_NOK, UC_CANCELLED,
};

namespace ucneg {

constexpr u32 LONG_s = 300;            // asked for at first

enum MsgState : u32 { UC_MSG_NEG_IDLE = 0, UC_MSG_NEG_WAIT_GRANT, UC_MSG_NEG_GRANTED, UC_MSG_NEG_FAILED };

struct Message {
    u8  messageType = 0;
    u32 state = UC_MSG_NEG_IDLE;
    i8  logReqIval = 0;
    u8  request_attempts = 0;
    i8  granted_log_ival = 0;
    u32 granted_duration = 0;          // s
};
enum Flow : std::size_t { ANNOUNCE, SYNC, DELAY_RESP, FLOWS };

struct UCnegCtrl {
    bool used = false;
    u32 syncrefId = 0;
    PtpPortIdentity serverPortIdentity = PTP_ANY_PORT;
    i8  log_msg_interval = 0;
    u16 sequenceId = 0;
    u32 state = UC_NEG_IDLE;
    u32 last_report = UC_AWAIT_ANNOUNCE;
    PktsyncTimer reply_timer, duration_timer, retry_timer, delayed_timer;
    u32 requestedDuration = LONG_s;
    u32 negotiation_retries = 0;       // cycles of the retry timer since the last contract
    u32 dur_expire_time = 0;           // ms of kernel time
    std::array<Message, FLOWS> messages{};
};
const UCnegCtrl* controlOf(u32 syncrefId);     // nullptr for a clock that has none

}  // namespace ucneg

void TuPktsyncPTP_new_UCnegCtrl(u32 syncrefId);
void TuPktsyncPTP_delete_UCnegCtrl(u32 syncrefId);
/// Begins a second later with the wanted log interval of Sync and Delay_Resp.
void TuPktsyncPTP_start_UCnegotiation(u32 syncrefId, i8 log_msg_interval);
/// Before a clock goes away: cancels all three flows.
void TuPktsyncPTP_cancel_UCtrans(u32 syncrefId);
/// The first Announce's verdict; nothing in a state that doesn't wait for it.
void TuPktsyncPTP_UCneg_notify_announce(u32 syncrefId, u32 ok);
/// Time-out of one of its timers.
void TuPktsyncPTP_UCtimeout(u32 syncrefId, u32 timerId);
/// TLVs of a Signaling message to a clock that negotiates; messageType as it stands in the TLV. True when the
/// contract was moved by it.
bool TuPktsyncPTP_UCgrant(u32 syncrefId, const PtpHeader& header, u8 messageType, i8 logInterval,
                          u32 duration);
bool TuPktsyncPTP_UCcancel(u32 syncrefId, const PtpHeader& header, u8 messageType);
void TuPktsyncPTP_UCackCancel(u32 syncrefId, u8 messageType);

bool ptpHasUcNeg(u32 syncrefId);
/// Granted log interval of Sync or Delay_Resp, of a clock that negotiates.
i8   ptpGrantedLog(u32 syncrefId, u32 messageType);
u32  ptpUcNegState(u32 syncrefId);           // UcNegState
/// Where the negotiation stands, what it told last, its retries, and the times granted for Announce, Sync and
/// Delay_Resp, in the order that they were asked for; nothing for a clock that has none.
void TuPktsyncPTP_UCneg_print(u32 syncrefId);
const char* ptpUcNegStateText(u32 state);    // "UC_NEG_IDLE"
