// main_processor.h - The node's main processor as a timing unit meets it: publishes the service,
// confirms the connection, asks for supervision, selects a reference, records all that it is told.
//
// Calls are for tests and scenarios, from outside of any process (also from a world event).
#pragma once
#include "sim/node/digest.h"
#include "sim/node/main_processor_config.h"
#include "sim/node/server.h"

#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace sim {

/// One signal that came from the unit.
struct MpRecord {
    ose::Time at = 0;
    SIGSELECT sigNo = 0;
    PROCESS from = 0;
    std::vector<std::byte> bytes;      // whole signal, number first

    /// The signal as layout T; nothing when it is too short.
    template <typename T>
    std::optional<T> as() const
    {
        if (bytes.size() < sizeof(T)) return std::nullopt;
        T layout;
        std::memcpy(static_cast<void*>(&layout), bytes.data(), sizeof(T));
        return layout;
    }
};

/// A received clock status.
struct ClockStatus {
    ose::Time at = 0;
    u32 smn = 0, apn = 0;
    u8  radioClockState = 7;           // 7 unknown
    u32 refState = 0;                  // usable references, a bit each
    u8  ltrStatus = 0, degrStatus = 0;
    u32 froId = 0xFFFFFFFF, froClassNo = 0xFFFFFFFF;
};

/// "FREQUENCY_LOCKED" for 3, "UNKNOWN" beyond the known.
const char* clockStateName(u8 radioClockState);
/// "KVD_TUIIF_BVQ_STATUS_IND", "" when it isn't one of the interface.
const char* tuiifSignalName(SIGSELECT sigNo);
/// "GPS_REF" for 6.
const char* refTypeName(u8 refType);

class MainProcessor : public Server {
public:
    MainProcessor(Node& node, const MainProcessorConfig& config);

    MainProcessorConfig config;        // the script, with setAnswer and delay_ms of Server

    // ---- life -----------------------------------------------------------------------------------
    void start() override;             // also: come back
    void die() override;
    /// Dies now and comes back after `gone`.
    void restart(ose::Time gone);
    /// Connected: this side has confirmed with an acceptable revision, and the unit lives.
    bool connected() const;

    // ---- orders to the unit ---------------------------------------------------------------------
    void supervise(const MpReference& reference, bool on);
    void select(u8 refType, u32 froId, u32 froClassNo);
    void selectNone();
    void selectByName(const std::string& name);      // of config.references
    void superviseByName(const std::string& name, bool on);
    /// Any signal of the interface, number in the first word.
    void send(std::span<const std::byte> signal);
    template <typename T>
    void sendLayout(const T& layout)
    {
        send(std::as_bytes(std::span<const T, 1>(&layout, 1)));
    }
    /// Also what the next connection is told.
    void changeMaster(u8 timeMode, u8 masterSlaveMode);
    void boardFailure(bool raised);                  // the fault alarm and its recovery
    void setTestMode(bool on);
    void setSelectionMode(u8 selectionProcessMode);
    void setGpsDelay(u16 delay_ns);                  // of the antenna's cable
    void setFixedPosition(bool on);
    void askGpsAttributes();
    void askGpsOslAttributes();
    void askRntToSfc();
    void askRntForSfn(u32 sfn);
    void askSyncInfo(u8 option);                     // 1 all texts, 2 to 4 one of them
    /// Whether the unit keeps the delays of an NTP or packet reference.
    void registerByName(const std::string& name, bool on);
    /// The node's time is to be the frame counter's: the unit steps its counters 4 s later.
    void orderJump();
    /// The unit's own time on its output, as a receiver's sentences or as binary frames.
    void setGpsOut(bool on);
    void setHptsiOut(bool on);
    void setHptsiDelay(u16 delay_ns);                // of the time input's cable
    void askHptsiAttributes();
    void setGpsOslDelay(u16 delay_ns);               // of the sync link's cable

    // Packet references: the configured list is what an audit is answered with.
    void createPacketRef(const MpPacketRef& ref);    // adds it, or replaces it, and asks for it
    void deletePacketRef(u32 froId, u32 froClassNo);
    void setPacketRef(const MpPacketRef& ref);
    void askPacketRefAttributes(u32 froId, u32 froClassNo);
    /// The unit has confirmed it.
    bool packetRefCreated(u32 froId, u32 froClassNo) const;

    /// Own selection on or off; on looks at the references at once.
    void setSelects(bool on);
    /// What it knows of a reference from elsewhere than the unit has changed.
    void lookAgain() { applyPolicy(); }
    const MpReference* reference(const std::string& name) const;
    /// What the policy takes for usable now.
    bool usable(const MpReference& reference) const;
    bool suitsRole(const MpReference& reference) const;
    bool supervises(const MpReference& reference) const;

    // ---- what the unit said ---------------------------------------------------------------------
    /// The latest of this connection; clock state 7 before the first.
    const ClockStatus& status() const { return status_; }
    const std::vector<ClockStatus>& statuses() const { return statuses_; }
    u8  clockState() const { return status_.radioClockState; }
    /// Last selection sent.
    u8  selectedRefType() const { return selected_.refType; }
    u32 selectedFroId() const { return selected_.froId; }
    u32 connections() const { return connections_; }   // confirmations sent and acceptable

    std::size_t count(SIGSELECT sigNo, ose::Time since = 0) const;
    const MpRecord* last(SIGSELECT sigNo) const;
    std::vector<MpRecord> all(SIGSELECT sigNo) const;
    const std::deque<MpRecord>& log() const { return log_; }     // newest 100'000
    void clearLog() { log_.clear(); }
    /// Of all that the unit ever sent, each with its time: what an interface has to keep.
    u64 toldSignals() const { return toldSignals_; }
    u64 toldDigest() const { return told_.value(); }
    /// One line: name and fields of the signals that a reader follows, number and size of others.
    static std::string describe(const MpRecord& record);

    void onRecord(std::function<void(const MpRecord&)> observer) { onRecord_ = std::move(observer); }
    /// The other unit's main processor, or the same one in its part for the other unit, to which this
    /// part hands on what it is told.
    void onForward(std::function<void(const MpRecord&)> peer) { onForward_.push_back(std::move(peer)); }
    void onStatus(std::function<void(const ClockStatus&)> observer) { onStatus_ = std::move(observer); }
    /// Before each signal that goes to the unit.
    void onOrder(std::function<void(std::span<const std::byte>)> observer) { onOrder_ = std::move(observer); }
    /// After each selection that goes out, whoever made it.
    void onSelect(std::function<void(const MpReference&)> observer) { onSelect_ = std::move(observer); }

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void onInitiate(const MpRecord& received);
    void onStatusInd(const MpRecord& received);
    void onReceiverStatus(const MpRecord& received);
    void onRefState(const MpRecord& received);
    void onEtFroid(const MpRecord& received);
    void onPacketRefSignal(const MpRecord& received);
    void answerAudit();
    void packetRefResult(u32 froId, u32 froClassNo, u32 result);
    void packetRefDeleted(u32 froId, u32 froClassNo);
    const MpPacketRef* wantedPacketRef(u32 froId, u32 froClassNo) const;
    void sendPacketRef(SIGSELECT sigNo, const MpPacketRef& ref);
    void onPktRate(const MpRecord& received);
    void onQualityLevel(const MpRecord& received);
    bool hasUsableLevel(u32 froId) const;
    void record(Signal* sig, PROCESS from);
    void superviseConfigured();
    void applyPolicy();
    void sendSelection(const MpReference& reference);

    struct Reported {                  // of packet and Ethernet references
        u32 froId, froClassNo, refState, additional;
    };
    struct Level {                     // quality of an Ethernet reference
        u32 froId, clockQuality;
    };
    struct Line {                      // announced by the unit
        u32 line, froId;
    };

    PROCESS unit_ = 0;
    bool confirmed_ = false;
    u32 connections_ = 0;
    MpReference selected_;
    std::vector<MpReference> supervised_;
    std::vector<Reported> reported_;
    std::vector<Line> lines_;
    std::vector<std::pair<u32, u32>> created_;       // packet references: froId, froClassNo
    std::vector<std::pair<u32, u32>> deleting_;      // those whose end the unit hasn't confirmed
    std::vector<Level> levels_;
    // Of the last reports of this connection, 0 before them.
    u8 gpsStatus_ = 0, gpsOslStatus_ = 0, hptsiStatus_ = 0;
    ClockStatus status_;
    std::vector<ClockStatus> statuses_;
    std::deque<MpRecord> log_;
    Digest told_;
    u64 toldSignals_ = 0;
    std::function<void(const MpRecord&)> onRecord_;
    std::vector<std::function<void(const MpRecord&)>> onForward_;
    std::function<void(const ClockStatus&)> onStatus_;
    std::function<void(std::span<const std::byte>)> onOrder_;
    std::function<void(const MpReference&)> onSelect_;
};

}  // namespace sim
