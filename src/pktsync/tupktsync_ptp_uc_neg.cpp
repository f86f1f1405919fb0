#include "pktsync/tupktsync_ptp_uc_neg.h"

#include "base/element_of.h"
#include "base/trace_groups.h"
#include "node/bytes.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "pktsync/tupktsync_ptp_clock.h"

#include <algorithm>
#include <iterator>
#include <utility>

using namespace ucneg;

namespace {

constexpr u32 REPLY_ms = 1500, RETRY_ms = 15'000, DELAYED_START_ms = 1000;
constexpr u32 RENEW_BEFORE_ms = 10'000;
constexpr u32 SHORT_s = 90, SHORTEST_GRANT_s = 59;   // a grant is above the last
constexpr u8  ATTEMPTS = 3;
constexpr i8  ANNOUNCE_LOG = 1;

struct State {
    std::array<UCnegCtrl, PTP_CLOCKS> objects{};
};
ose::ModuleData<State> s;

UCnegCtrl* find(u32 syncrefId)
{
    UCnegCtrl* const u = elementOf(s->objects, syncrefId);
    return u != nullptr && u->used ? u : nullptr;
}

u32 now_ms() { return static_cast<u32>(u64{ose::get_ticks()} * ose::system_tick() / 1000); }

const char* messageText(u32 messageType)
{
    switch (messageType) {
    case PTP_ANNOUNCE:   return "Announce";
    case PTP_SYNC:       return "Sync";
    case PTP_DELAY_RESP: return "Delay_Resp";
    default:             return "unknown";
    }
}

const char* reasonText(u32 reason)
{
    static constexpr const char* TEXTS[] = {"AWAIT_ANNOUNCE", "READY",  "NO_REPLY",
                                            "NO_AGREE",       "MC_NOK", "CANCELLED"};
    return reason < std::size(TEXTS) ? TEXTS[reason] : "UNKNOWN";
}

/// The flow that a state negotiates; nullptr in the others.
Message* negotiated(UCnegCtrl& u)
{
    switch (u.state) {
    case UC_NEG_WAIT_ANNOUNCE_GRANT:  return &u.messages[ANNOUNCE];
    case UC_NEG_WAIT_SYNC_GRANT:      return &u.messages[SYNC];
    case UC_NEG_WAIT_DELAYRESP_GRANT: return &u.messages[DELAY_RESP];
    default:                          return nullptr;
    }
}

Message* flowOf(UCnegCtrl& u, u8 messageType)
{
    for (Message& m : u.messages)
        if (m.messageType == messageType) return &m;
    return nullptr;
}

// ---- messages -----------------------------------------------------------------------------------

constexpr u8 TLV_REQUEST = 4, TLV_CANCEL = 6, TLV_ACK_CANCEL = 7;   // IEEE 1588-2008 table 34
constexpr u32 TLV_AT = 44;
constexpr u16 REQUEST_LENGTH = 54, CANCEL_LENGTH = 50;

/// Header and TLV's first octets; the rest stays 0.
void begin(const UCnegCtrl& u, u8* message, u16 length, u8 tlvType, u8 messageType)
{
    const PtpClock& c = *ptpClockOf(u.syncrefId);
    PtpHeader h;
    h.messageType = PTP_SIGNALING;
    h.versionPTP = 2;
    h.messageLength = length;
    h.domainNumber = c.setup.domainNumber;
    h.flagField = {PTP_UNICAST, c.timeProperties.flags};
    h.sourcePortIdentity = c.portIdentity;
    h.sequenceId = u.sequenceId;
    h.controlField = 5;
    h.logMessageInterval = 0x7F;
    ptpPutHeader(message, h);
    ptpPut(message + PTP_HEADER_LENGTH, u.serverPortIdentity);
    message[TLV_AT + 1] = tlvType;
    message[TLV_AT + 3] = static_cast<u8>(length - TLV_AT - 4);
    message[TLV_AT + 4] = static_cast<u8>(messageType << 4);
}

void send(UCnegCtrl& u, const u8* message, u16 length)
{
    if (!ptpSendGeneral(u.syncrefId, message, length))
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_ERROR, "Failed to allocate send buffer");
    ++u.sequenceId;
}

void sendRequest(UCnegCtrl& u, const Message& m, u32 duration)
{
    u8 message[REQUEST_LENGTH] = {};
    begin(u, message, REQUEST_LENGTH, TLV_REQUEST, m.messageType);
    message[TLV_AT + 5] = static_cast<u8>(m.logReqIval);
    node::putBe32(message + TLV_AT + 6, duration);
    send(u, message, REQUEST_LENGTH);
}

void sendAckCancel(UCnegCtrl& u, u8 messageType)
{
    u8 message[CANCEL_LENGTH] = {};
    begin(u, message, CANCEL_LENGTH, TLV_ACK_CANCEL, messageType);
    send(u, message, CANCEL_LENGTH);
}

void sendCancel(UCnegCtrl& u, u8 messageType)
{
    u8 message[CANCEL_LENGTH] = {};
    begin(u, message, CANCEL_LENGTH, TLV_CANCEL, messageType);
    if (!ptpSendGeneral(u.syncrefId, message, CANCEL_LENGTH))
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_1, "Failed to allocate send buffer for syncrefId %d!",
                  u.syncrefId);
    ++u.sequenceId;
}

// ---- machine ------------------------------------------------------------------------------------

void report(UCnegCtrl& u, u32 reason)
{
    u.last_report = reason;
    PtpClock& c = *ptpClockOf(u.syncrefId);
    switch (reason) {
    case UC_AWAIT_ANNOUNCE: return ptpStartAnnounceTimer(c);
    case UC_READY:          return ptpFaults(c, 0, FAULTS_UNICAST);
    case UC_NO_REPLY:       return ptpFaults(c, FAULT_UC_NO_REPLY, 0);
    case UC_NO_AGREE:       return ptpFaults(c, FAULT_UC_NO_AGREE, 0);
    case UC_MC_NOK:         return ptpFaults(c, FAULT_UC_MC_NOK, 0);
    case UC_CANCELLED: ptpPortEvent(c, SYNCHRONIZATION_FAULT); return ptpFaults(c, FAULT_UC_CANCELLED, 0);
    default:                return;
    }
}

void fail(UCnegCtrl& u, u32 reason)
{
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_4,
              "Unicast Negotiation failed (reason=%s) for syncrefId %d in state %s; will retry in %u "
              "seconds",
              reasonText(reason), u.syncrefId, ptpUcNegStateText(u.state), RETRY_ms / 1000);
    TuPktsync_timerStop(u.reply_timer);
    TuPktsync_timerStop(u.duration_timer);
    TuPktsync_timerStop(u.delayed_timer);
    u.state = UC_NEG_FAILED;
    TuPktsync_timerStart(u.retry_timer, RETRY_ms);
    report(u, reason);
}

void request(UCnegCtrl& u, Message& m)
{
    m.logReqIval = m.messageType == PTP_ANNOUNCE ? ANNOUNCE_LOG : u.log_msg_interval;
    sendRequest(u, m, u.requestedDuration);
    m.request_attempts = 1;
    m.state = UC_MSG_NEG_WAIT_GRANT;
    TuPktsync_timerStart(u.reply_timer, REPLY_ms);
}

void startCycle(UCnegCtrl& u)
{
    TuPktsync_timerStop(u.duration_timer);
    TuPktsync_timerStop(u.retry_timer);
    TuPktsync_timerStop(u.delayed_timer);
    for (Message& m : u.messages) {
        m.state = UC_MSG_NEG_IDLE;
        m.request_attempts = 0;
    }
    request(u, u.messages[ANNOUNCE]);
    u.state = UC_NEG_WAIT_ANNOUNCE_GRANT;
}

/// The earliest end of the three grants rules.
void renewInTime(UCnegCtrl& u, u32 duration)
{
    // A grant may be for more than the 24 days that ms of kernel time tell apart.
    const u32 renew = static_cast<u32>(std::min(u64{duration} * 1000, u64{INT32_MAX})) - RENEW_BEFORE_ms;
    const i32 left = static_cast<i32>(u.dur_expire_time - now_ms());
    if (u.state == UC_NEG_WAIT_ANNOUNCE_GRANT || std::cmp_less(renew, left)) {
        TuPktsync_timerStart(u.duration_timer, renew);
        u.dur_expire_time = now_ms() + renew;
    }
}

void step(UCnegCtrl& u, u32 duration)
{
    if (negotiated(u) != nullptr) renewInTime(u, duration);
    TuPktsync_timerStop(u.reply_timer);
    switch (u.state) {
    case UC_NEG_WAIT_ANNOUNCE_GRANT:
        report(u, UC_AWAIT_ANNOUNCE);
        u.state = UC_NEG_WAIT_ANNOUNCE_MSG;
        break;
    case UC_NEG_WAIT_ANNOUNCE_MSG:
        request(u, u.messages[SYNC]);
        u.state = UC_NEG_WAIT_SYNC_GRANT;
        break;
    case UC_NEG_WAIT_SYNC_GRANT:
        request(u, u.messages[DELAY_RESP]);
        u.state = UC_NEG_WAIT_DELAYRESP_GRANT;
        break;
    case UC_NEG_WAIT_DELAYRESP_GRANT:
        u.state = UC_NEG_READY;
        report(u, UC_READY);
        u.negotiation_retries = 0;
        break;
    default: break;
    }
}

void refused(UCnegCtrl& u, Message& m)
{
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Grant unacceptable!!!");
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_4,
              "ucNegDurationTimeStateMachine entered Unicast Negotiation failed for syncrefId %d in "
              "state %s; will retry in %u seconds",
              u.syncrefId, ptpUcNegStateText(u.state), RETRY_ms / 1000);
    if (u.requestedDuration == LONG_s) {
        u.requestedDuration = SHORT_s;
        TuPktsync_timerStop(u.reply_timer);
        TuPktsync_timerStop(u.duration_timer);
        TuPktsync_timerStop(u.delayed_timer);
        TuPktsync_timerStart(u.retry_timer, RETRY_ms);
    } else {
        u.requestedDuration = LONG_s;
        fail(u, UC_NO_AGREE);
    }
    m.state = UC_MSG_NEG_FAILED;
}

// ---- time-outs ----------------------------------------------------------------------------------

void TuPktsyncPTP_UCreply_timeout(UCnegCtrl& u)
{
    Message* const m = negotiated(u);
    if (m == nullptr) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
                  "TuPktsyncPTP_UCreply_timeout: for syncrefId %d - not relevant in state %s", u.syncrefId,
                  ptpUcNegStateText(u.state));
        return;
    }
    if (m->request_attempts != ATTEMPTS) {
        sendRequest(u, *m, LONG_s);
        ++m->request_attempts;
        TuPktsync_timerStart(u.reply_timer, REPLY_ms);
        return;
    }
    m->state = UC_MSG_NEG_FAILED;
    fail(u, UC_NO_REPLY);
    u.serverPortIdentity = PTP_ANY_PORT;
}

void TuPktsyncPTP_UCduration_timeout(UCnegCtrl& u)
{
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_4,
              "TuPktsyncPTP_UCduration_timeout: Unicast grant about to expire for syncrefId %d, "
              "starting re-negotiation",
              u.syncrefId);
    startCycle(u);
}

void TuPktsyncPTP_UCretry_timeout(UCnegCtrl& u)
{
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_4,
              "TuPktsyncPTP_UCretry_timeout: retrying Unicast negotiation for syncrefId %d", u.syncrefId);
    ++u.negotiation_retries;
    startCycle(u);
}

void TuPktsyncPTP_delay_start_UCnegotiation(UCnegCtrl& u)
{
    u.negotiation_retries = 0;
    startCycle(u);
}

}  // namespace

const UCnegCtrl* ucneg::controlOf(u32 syncrefId) { return find(syncrefId); }

void TuPktsyncPTP_new_UCnegCtrl(u32 syncrefId)
{
    UCnegCtrl& u = s->objects[syncrefId];
    u = {};
    u.used = true;
    u.syncrefId = syncrefId;
    u.messages[ANNOUNCE].messageType = PTP_ANNOUNCE;
    u.messages[SYNC].messageType = PTP_SYNC;
    u.messages[DELAY_RESP].messageType = PTP_DELAY_RESP;
    TuPktsync_timerInit(u.reply_timer, syncrefId, PTP_TMO_UC_REPLY);
    TuPktsync_timerInit(u.duration_timer, syncrefId, PTP_TMO_UC_DURATION);
    TuPktsync_timerInit(u.retry_timer, syncrefId, PTP_TMO_UC_RETRY);
    TuPktsync_timerInit(u.delayed_timer, syncrefId, PTP_TMO_UC_DELAYED_START);
}

void TuPktsyncPTP_delete_UCnegCtrl(u32 syncrefId)
{
    UCnegCtrl* const u = find(syncrefId);
    if (u == nullptr) return;
    TuPktsync_timerStop(u->reply_timer);
    TuPktsync_timerStop(u->duration_timer);
    TuPktsync_timerStop(u->retry_timer);
    TuPktsync_timerStop(u->delayed_timer);
    *u = {};
}

void TuPktsyncPTP_start_UCnegotiation(u32 syncrefId, i8 log_msg_interval)
{
    UCnegCtrl* const u = find(syncrefId);
    if (u == nullptr) return;
    u->log_msg_interval = log_msg_interval;
    TuPktsync_timerStart(u->delayed_timer, DELAYED_START_ms);
}

void TuPktsyncPTP_cancel_UCtrans(u32 syncrefId)
{
    UCnegCtrl* const u = find(syncrefId);
    if (u == nullptr) return;
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
              "TuPktsyncPTP_cancel_UCtrans: cancelling UC for syncrefId %d", syncrefId);
    if (u->state == UC_NEG_IDLE) return;
    for (const Message& m : u->messages) sendCancel(*u, m.messageType);
}

void TuPktsyncPTP_UCneg_notify_announce(u32 syncrefId, u32 ok)
{
    UCnegCtrl* const u = find(syncrefId);
    if (u == nullptr || u->state != UC_NEG_WAIT_ANNOUNCE_MSG) return;
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
              "TuPktsyncPTP_UCneg_notify_announce: Announce notified for syncrefId %d; clock %s ok",
              syncrefId, ok != 0 ? "is" : "is not");
    if (ok == 0) fail(*u, UC_MC_NOK);
    else step(*u, 0);
}

void TuPktsyncPTP_UCtimeout(u32 syncrefId, u32 timerId)
{
    UCnegCtrl* const u = find(syncrefId);
    if (u == nullptr) return;
    switch (timerId) {
    case PTP_TMO_UC_REPLY:         return TuPktsyncPTP_UCreply_timeout(*u);
    case PTP_TMO_UC_DURATION:      return TuPktsyncPTP_UCduration_timeout(*u);
    case PTP_TMO_UC_RETRY:         return TuPktsyncPTP_UCretry_timeout(*u);
    case PTP_TMO_UC_DELAYED_START: return TuPktsyncPTP_delay_start_UCnegotiation(*u);
    default:                       return;
    }
}

bool TuPktsyncPTP_UCgrant(u32 syncrefId, const PtpHeader& h, u8 messageType, i8 logInterval, u32 duration)
{
    UCnegCtrl& u = s->objects[syncrefId];
    Message* const m = negotiated(u);
    if (m == nullptr || m->messageType != messageType) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_4,
                  "Unexpected Unicast_Grant for messageType %s received for syncrefId %d in state %s",
                  messageText(messageType), syncrefId, ptpUcNegStateText(u.state));
        return false;
    }
    u.serverPortIdentity = h.sourcePortIdentity;
    m->granted_log_ival = logInterval;
    m->granted_duration = duration;
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
              "Unicast_Grant received for syncrefId %d, messageType %s, granted duration %u, "
              "log_interval %d",
              syncrefId, messageText(messageType), duration, logInterval);
    if (logInterval != m->logReqIval || duration <= SHORTEST_GRANT_s) {
        refused(u, *m);
        return false;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Grant accepted");
    step(u, duration);
    m->state = UC_MSG_NEG_GRANTED;
    return true;
}

bool TuPktsyncPTP_UCcancel(u32 syncrefId, const PtpHeader&, u8 messageType)
{
    UCnegCtrl& u = s->objects[syncrefId];
    const Message* const m = flowOf(u, messageType);
    const bool expected = m != nullptr && m->state == UC_MSG_NEG_GRANTED;
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_4,
              "%sUnicast_Cancel for messageType %s received for syncrefId %d in state %s",
              expected ? "" : "Unexpected ", messageText(messageType), syncrefId, ptpUcNegStateText(u.state));
    if (!expected) return false;
    sendAckCancel(u, messageType);
    fail(u, UC_CANCELLED);
    return true;
}

void TuPktsyncPTP_UCackCancel(u32 syncrefId, u8 messageType)
{
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
              "Unicast_Cancel_Acknowledge for messageType %s received for syncrefId %d in state %s",
              messageText(messageType), syncrefId, ptpUcNegStateText(s->objects[syncrefId].state));
}

bool ptpHasUcNeg(u32 syncrefId) { return find(syncrefId) != nullptr; }

i8 ptpGrantedLog(u32 syncrefId, u32 messageType)
{
    return flowOf(s->objects[syncrefId], static_cast<u8>(messageType))->granted_log_ival;
}

u32 ptpUcNegState(u32 syncrefId)
{
    const UCnegCtrl* const u = find(syncrefId);
    return u != nullptr ? u->state : u32{UC_NEG_IDLE};
}

void TuPktsyncPTP_UCneg_print(u32 syncrefId)
{
    const UCnegCtrl* const u = find(syncrefId);
    if (u == nullptr) return;
    node::shellPrintf("   negotiation          : %s, told %s, %u retries, granted %u, %u, %u s\n",
                      ptpUcNegStateText(u->state), reasonText(u->last_report), u->negotiation_retries,
                      u->messages[ANNOUNCE].granted_duration, u->messages[SYNC].granted_duration,
                      u->messages[DELAY_RESP].granted_duration);
}

const char* ptpUcNegStateText(u32 state)
{
    static constexpr const char* TEXTS[] = {
        "UC_NEG_IDLE",            "UC_NEG_WAIT_ANNOUNCE_GRANT",  "UC_NEG_WAIT_ANNOUNCE_MSG",
        "UC_NEG_WAIT_SYNC_GRANT", "UC_NEG_WAIT_DELAYRESP_GRANT", "UC_NEG_READY",
        "UC_NEG_FAILED"};
    return state < std::size(TEXTS) ? TEXTS[state] : "UNKNOWN";
}
