// gps_receiver.h - A GPS receiver at the unit: sentences and commands on its serial line, 1PPS at
// its reference input.
//
// The pulse of whole second n of true time begins second `start` + n. The timing sentence (GPtps,
// GPppr) follows a pulse and names the second that the next pulse begins, as a unit's own GPS
// output does; the other sentences follow it on the line. The reader holds a time valid for 800 ms,
// so the last byte must come between 200 ms after the one pulse and the next: GPtps (82 ms long)
// may start 120 to 915 ms after its pulse, GPppr (44 ms) 160 to 955 ms; others give no time.
//
// One event of the world a sentence, at the end of its transmission.
#pragma once
#include "sim/board/edge_source.h"
#include "sim/clock/random.h"
#include "sim/node/serial_port.h"
#include "sim/refs/gps_receiver_config.h"
#include "sim/refs/gps_receiver_sentences.h"
#include "sim/refs/gps_receiver_sky.h"

#include <array>
#include <functional>
#include <memory>

namespace sim {

class GpsReceiver : public EdgeSource {
public:
    /// Both must outlive it.
    GpsReceiver(ose::World& world, SerialPort& serial, const GpsReceiverConfig& config, u64 seed,
                const std::string& name);
    ~GpsReceiver() override;

    // ---- script: each takes effect at once ------------------------------------------------------
    void setPowered(bool on);                      // on: a cold start
    void replace(GpsModel model, GpsProtocol protocol, const std::string& firmware);
    void restart(GpsRestart kind);
    void setProtocol(GpsProtocol protocol);
    void setSentenceDelay(ose::Time delay);        // below 2 s
    void setWeekBase(i32 weekBase) { config_.weekBase = weekBase; }
    void setFault(const GpsFaultOrder& order);
    void moveNextPulse(double move_s) { pps_.moveNextEdge(move_s); }

    // ---- queries --------------------------------------------------------------------------------
    const GpsReceiverConfig& config() const { return config_; }
    GpsProtocol protocol() const { return protocol_; }
    bool hasFix() const { return fix_; }
    bool holdsPosition() const { return fix_ && wantsHold_ && surveyed_ >= config_.surveyTime; }
    bool faulty(GpsFault fault) const { return faults_[static_cast<u32>(fault)].on; }
    u32  moduleRestarts() const { return moduleRestarts_; }
    u32  unitResets() const { return unitResets_; }
    u32  commands() const { return commands_; }            // taken
    u32  refusedCommands() const { return refused_; }      // unknown here, or a wrong checksum
    u64  sentences() const { return sentences_; }          // that went out

    // ---- EdgeSource -----------------------------------------------------------------------------
    bool present() const override { return pulses_ && !faulty(GpsFault::NoPps); }
    ose::Time nextEdge(ose::Time now) override;

private:
    struct Fault {
        bool on = false;
        double amount = 0;
        GpsHealedBy healedBy = GpsHealedBy::Nothing;
        u32 restarts = 0;                          // still to come
        u32 order = 0;                             // number of the last order
    };

    double amount(GpsFault fault) const { return faults_[static_cast<u32>(fault)].amount; }
    void endFault(GpsFault fault);
    void heal(GpsHealedBy by);

    // Reception and time.
    i64  secondAt(ose::Time now) const { return firstSecond_ + now / ose::SEC; }
    i64  utcOf(i64 gpsSecond) const;
    void look();
    bool canFix() const;
    void update();
    void startDrift();
    void endDrift();
    void setPulses(bool on);
    void goSilent(ose::Time span);

    // The line.
    void scheduleTick();
    void tick();
    std::string timingSentence();
    void others(std::vector<std::string>& texts);
    void satellites(std::vector<std::string>& texts) const;
    void transmit(const std::string& text);
    void deliver(std::string text);
    void after(ose::Time when, std::function<void()> action);

    // Commands (gps_receiver_commands.cpp).
    void onBytes(const std::vector<u8>& bytes);
    void onCommand(const std::string& sentence);
    bool obey(const std::string& body);
    bool obeyRestart(const std::string& body);
    bool obeyQuery(const std::string& body);
    bool twoProtocols() const;

    ose::World& world_;
    SerialPort& serial_;
    GpsReceiverConfig config_;
    LineSource pps_;
    Random garble_;
    GpsSky sky_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    i64 firstSecond_;                              // of the GPS epoch, at the world's beginning
    GpsProtocol protocol_;

    bool powered_ = false;
    u32  life_ = 0;                                // sentences of an earlier one don't go out
    ose::Time silentUntil_ = 0;
    ose::Time updatedAt_ = 0;
    bool fix_ = false;
    bool everFix_ = false;                         // in this life: 1PPS can be held over
    bool almanac_ = false;                         // the next fix is a warm one
    ose::Time searchingSince_ = 0;
    ose::Time lostAt_ = 0;
    ose::Time surveyed_ = 0;
    bool wantsHold_ = true;
    bool pulses_ = false;
    bool drifting_ = false;
    ose::Time driftingSince_ = 0;

    std::vector<nmea::Shown> gps_, glonass_;
    std::vector<u8> used_;                         // GPS satellites
    u32 usedGlonass_ = 0;
    i64 lookedAt_ = -1;                            // GPS second

    i64  nextTick_ = 0;                            // pulse that it follows
    ose::EventId tickEvent_ = 0;
    u32  talk_ = 0;                                // seconds since it began to talk
    ose::Time lineFree_ = 0;
    u64  sentences_ = 0;

    std::array<Fault, GPS_FAULTS> faults_{};
    std::string received_;
    u32  fillers_ = 0;
    bool halfRestart_ = false;                     // "r,i" has come, "r,o" is missing
    u32  commands_ = 0, refused_ = 0;
    u32  moduleRestarts_ = 0, unitResets_ = 0;
};

}  // namespace sim
