// kvd_gps_out_int.h - What the sources of the GPS output share: state machine (kvd_gps_out.cpp), the pulse
// (kvd_gps_out_pulse.cpp), what it says (kvd_gps_out_sentence.cpp), the way to the driver
// (kvd_gps_out_writer.cpp).
// Owner   kvd_gps_out*.cpp. Nobody else includes it, but for the tests.
#pragma once
#include "base/kvd_timer.h"
#include "gps/kvd_gps_out.h"
#include "ose/ose.h"
#include "sig/gps_sig.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace gpsout {

enum GpsOutState : u32 {
    OUT_UN_INIT = 1,
    OUT_INIT_SERIAL_PORT = 2,      // the grace timer may run
    OUT_NOTHING_LOCKED = 3,
    OUT_FREQ_LOCKED = 4,           // 1PPS aligned, frequency good
    OUT_TIMEOFFSET_LOCKED = 5,     // time offset good, 1PPS not aligned yet
    OUT_TIME_LOCKED = 6,           // 1PPS aligned, time good
};
enum GpsOutEvent : u32 {
    EV_STOP = 1, EV_START = 2, EV_LOST = 3, EV_FREQUENCY = 4, EV_TIME = 5, EV_ALIGNED = 6,
};
constexpr u8 PROTOCOL_NORVANE = 1, PROTOCOL_CMCC_TOD = 2;
constexpr u32 DRIVER_NONE = 0, DRIVER_RUNNING = 2, DRIVER_FAILED = 3;
constexpr u32 SEND_QUEUE_MAX = 939;                   // bytes that may wait
constexpr u32 CMCC_FRAME = 23;

/// Time data of the master, as a slave is told them.
struct MasterData {
    u8 regState = 0, rcState = 0;
    u32 selectedRef = 0;
    u8 gpsState = 0;
    u32 jumpIndication = 0;
    double t_c = 0;                // s
    u32 received = 0;
};

struct Counters {
    u32 numberOfBytesSent = 0, numberOfNmeaMsgs = 0, numberOfPNVXGPpprMsgs = 0, numberOfPNVXGPGGAMsgs = 0,
        numberOfPNVXGPoutMsgs = 0, numberOfCmccMsgs = 0, numberOfCmccTodTimeMsgs = 0,
        numberOfCmccTodStateMsg = 0, numberOfHwInterrupts = 0;
};

/// Characters in a room of its own: no heap where something goes out each second.
template <u32 ROOM>
class Text {
public:
    operator std::string_view() const { return {text_.data(), size_}; }
    u32  size() const { return size_; }
    bool fits(std::string_view more) const { return size_ + more.size() <= ROOM; }
    void append(std::string_view more)               // which fits
    {
        std::copy(more.begin(), more.end(), text_.begin() + size_);
        size_ += static_cast<u32>(more.size());
    }
    void clear() { size_ = 0; }                      // the characters stay until the next ones

private:
    std::array<char, ROOM> text_{};
    u32 size_ = 0;
};
using Sentence = Text<128>;

struct State {
    u32 gpsOutState = OUT_UN_INIT;
    u32 gpsOutDriver = DRIVER_NONE;
    u8  protocol = PROTOCOL_NORVANE;
    u32 gpsTimeWeek = 0, gpsTimeTOW = 0;              // of the second that the sentence speaks of
    u64 gpsTime = 0;                                  // whole s since the GPS epoch
    u32 gpsTimeLocked = 0, pp1sAligned = 0, adjustArmed = 0;
    u32 dropped = 0;                                  // fell back, until it locks again
    MasterData master;                                // a master keeps its own regState here
    u16 boardDelay_ns = 40;                           // from the counter to the connector
    Text<SEND_QUEUE_MAX> sendQueue;
    u32 driverBusy = 0;
    KvdTimer gppprTimer, gpggaTimer, cmccTimeTimer, cmccStateTimer, simIntTmoRef, graceTimer, gpoutTimer;
    Counters counters;
};
State& state();

/// Regulator states 5, 10 and 11, or clock states 3 and 4.
bool classTest(u8 regState, u8 rcState);
void changeState(u32 event);
/// On a master the regulator's lock; on a slave what the master said of itself.
bool isTimeUsable();
bool hasValidLoop();
/// Something is known of the time, if only that nothing is aligned.
bool speaks();
const char* stateText(u32 gpsOutState);

// ---- kvd_gps_out_pulse.cpp ----
/// The pulse's interrupt, and the time-outs of what it says: true when it was one of them.
bool takePulseSignal(Signal* sig);
/// Week and second of the week of the whole second next to this time, s since the GPS epoch: the pulse leaves
/// the counter before its second by the way to the connector.
void setTime(double gpsTime);
/// To the whole second at the connector; the next pulse shows what became of a failure.
void adjustCounter();
/// Told when it is refused.
void restart(KvdTimer& timer, OSTIME time_ms, SIGSELECT sigNo, const char* name);
void restartGpgga();
/// What the protocol would have said yet.
void cancelSentences();

// ---- kvd_gps_out_sentence.cpp ----
/// Framed, empty when it is longer than the receiving end takes.
Sentence gppprSentence(u32 tow, u32 week, u32 gpsOutState);
Sentence gpoutSentence(u8 radioClockState, bool jump, u8 gnssTimePresent, bool isSlave);
Sentence gpggaSentence();
u8 gppprStatus(u32 gpsOutState);                      // 0 locked, 1 free running, 3 not aligned
u8 remoteStateOf(u8 radioClockState);
/// 1 satellites or a time input behind it, 2 packets, 0 none; `shown` of a master's client view.
u8 gnssTimePresent(u32 selectedRef, bool isMaster, u8 shown);
std::array<u8, CMCC_FRAME> cmccTimeFrame(u32 tow, u32 week, u8 radioClockState);
std::array<u8, CMCC_FRAME> cmccStateFrame();

// ---- kvd_gps_out_writer.cpp ----
/// A sentence goes now, or waits for the driver behind what waits.
void write(std::string_view sentence);
void writeFrame(const std::array<u8, CMCC_FRAME>& frame);
/// Expiry of the 20 ms timer that kicks the driver on.
void onSimInterrupt();

}  // namespace gpsout
