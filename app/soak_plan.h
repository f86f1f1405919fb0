// soak_plan.h - The scenario that a seed draws, as it is being drawn: units, what connects them, and rounds
// of disturbances with an hour of quiet behind each, in which everything has to come back.
#pragma once
#include "sim/clock/random.h"

#include <string>
#include <vector>

namespace app {

/// A unit of the plan: what it has that can be disturbed.
struct Drawn {
    std::string name;
    bool gps = false, ptp = false, frequency = false;   // ptp: packet time, frequency: packet frequency
    bool cmcc = false, ntp = false, socpri = false;
    bool follows = false;                       // the time of another unit, over a link
    std::vector<std::string> inputs, esmc, references, masters;
    std::vector<std::string> services;          // of its node, beside those that every unit uses
    std::string ptpReference = "", path = "";   // words of its own that events put back
    // on the serial line: the reference in use, another for a while
    std::string onLine = "", offLine = "";
    bool hasSpareLine = false;                  // its PDH reference may move there
    int log = -4;                               // interval of its masters, log2 of s
    bool hasTime() const { return gps || ptp || cmcc || socpri || follows; }
};

class Plan {
public:
    Plan(double hours, unsigned long long seed);
    std::string text() const { return text_ + "\n" + net_ + events_; }

private:
    unsigned below(unsigned count) { return static_cast<unsigned>(random_.bits() % count); }
    double between(double low, double high) { return low + random_.uniform() * (high - low); }
    template <std::size_t N>
    const char* oneOf(const char* const (&words)[N]) { return words[below(N)]; }
    const std::string& oneOf(const std::vector<std::string>& words)
    {
        return words[below(static_cast<unsigned>(words.size()))];
    }

    // soak_plan.cpp: units
    void drawSingles();
    void drawChain();
    void drawPair();
    void drawOutput();
    void drawRadio();
    Drawn& beginUnit(bool time, const char* role, unsigned apn, const std::string& more = "");
    void addReceiver(Drawn& u);
    void addOtherReferences(Drawn& u);
    void addPacketTime(Drawn& u);
    void addPacketFrequency(Drawn& u);
    void addMaster(Drawn& u, const std::string& words);
    void addInput(Drawn& u, const char* at, double white_ns);
    void addReference(Drawn& u, const char* name, const char* type, unsigned froId, unsigned froClass);
    void addSerialLine(Drawn& u, const char* user, const char* other, const char* type, unsigned froClass);
    void addLink(const char* type, const Drawn& from, const Drawn& to, const std::string& more = "");
    std::string intervals(int log) const;

    // soak_draw.cpp, _packets, _node: disturbances; each returns how long it lasts, s
    void drawRounds();
    void drawRound(const Drawn& u, double from_s);
    void drawNodeFailures(unsigned long long seed);
    void volumeFails(const Drawn& u, double at_s);
    void nameServerFails(const Drawn& u, double at_s);
    void drawCrossing(const Drawn& u, double from_s);
    void add(const Drawn& u, double at_s, const char* what, const std::string& with = "");
    void addOfLink(double at_s, const char* what, const std::string& with);
    double lasting(double at_s, double low, double high);
    double drawEvent(const Drawn& u, double at_s);
    double reference(const Drawn& u, double at_s);
    double source(const Drawn& u, double at_s);
    double portMoves(const Drawn& u, double at_s);
    double lineChangesHands(const Drawn& u, double at_s);
    double network(const Drawn& u, double at_s);
    double radio(const Drawn& u, double at_s);
    double link(double at_s);
    double unstable(double at_s, const std::string& name);
    double turn(double at_s);
    void takesRole(const Drawn& u, double at_s, const char* role);
    double service(const Drawn& u, double at_s);
    void serviceFails(const Drawn& u, double at_s, const std::string& which, double lasts);
    double oven(const Drawn& u, double at_s);
    double packets(const Drawn& u, double at_s);
    void standby(const Drawn& u, double at_s, double lasts);
    void masterFails(const Drawn& u, double at_s, double lasts);
    void masterErrs(const Drawn& u, double at_s, double lasts);
    void route(const Drawn& u, double at_s, double lasts);
    void routeDown(const Drawn& u, double at_s, double lasts);
    void packetServices(const Drawn& u, double at_s, double lasts);
    void packetServiceMute(const Drawn& u, double at_s, double lasts, const std::string& service);
    double restart(const Drawn& u, double at_s);
    double power(const Drawn& u, double at_s);
    double mainProcessor(const Drawn& u, double at_s);
    void ask(const Drawn& u, double at_s);
    double selection(const Drawn& u, double at_s);
    double boardFault(const Drawn& u, double at_s);
    double memory(const Drawn& u, double at_s);
    double jump(const Drawn& u, double at_s);
    double command(const Drawn& u, double at_s);
    void orderRadio(const Drawn& u, double at_s);

    sim::Random random_;
    double end_s_;
    std::vector<std::pair<double, double>> rounds_;   // from, until, s
    double until_s_ = 0;               // of the present round: what is disturbed is taken back by then
    std::string text_, net_, events_;
    std::size_t masters_ = 0;
    std::vector<Drawn> units_;
    std::vector<std::string> links_;
    std::string linkType_ = "";        // of all of them
};

/// printf into a string of at most 511 characters.
std::string format(const char* text, ...) __attribute__((format(printf, 1, 2)));
/// The words of a service's event.
inline std::string does(const char* deed) { return format("does = \"%s\"\n", deed); }

/// What a service does, and how it is put right: it is gone, it hears everything and says nothing, it keeps
/// everything and answers all of it late.
inline constexpr const char* SERVICE_FAILS[][2] = {{"die", "start"}, {"mute", "speak"}, {"hold", "answer"}};

}  // namespace app
