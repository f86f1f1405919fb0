// pcap_analysis.h - What a capture tells without a unit: how regularly each port speaks, how far the
// recorder's clock is from each master's and how much that varies, the path delay of each slave's exchanges,
// what transparent clocks have added, and the ESMC and NTP beside.
//
// The recorder stands where it stands: a path delay is that between it and the master, an offset is its clock
// less the master's. Recorded at a slave's port both are the slave's.
// Units   s of the capture since its first packet; ns where a name says so.
#pragma once
#include "app/pcap_file.h"
#include "sim/net/ptp_wire.h"

#include <cmath>
#include <deque>
#include <limits>
#include <map>

namespace app {

/// A value over time; what it varies by is told about the straight line through it, since two clocks drift.
struct PcapSeries {
    i64 base_ns = 0;                   // of the first; the points are relative to it
    std::vector<std::pair<double, double>> points;   // s, ns
    void take(double t_s, i64 value_ns);
};
struct PcapSpread {
    u64 count = 0;
    double mean_ns = 0, min_ns = 0, max_ns = 0;      // of the value itself
    double slope_ppb = 0;              // how it drifts
    double deviation_ns = 0, peak_ns = 0;            // about the line: standard deviation, peak to peak
};
PcapSpread spreadOf(const PcapSeries& series);

/// One port's messages of a type.
struct PcapFlow {
    u64 count = 0;
    double first_s = 0, last_s = 0;
    std::optional<double> told_s;      // interval, by the message's own word
    double longest_s = 0, longestAt_s = 0;
    u64 gaps = 0;                      // intervals of more than 2.5 times the told one, or the mean
    u64 lost = 0, repeated = 0;        // by sequenceId
    double mean_s() const { return count > 1 ? (last_s - first_s) / static_cast<double>(count - 1) : NAN; }

    std::optional<u16> sequence;       // the last
    std::vector<float> intervals_s;
};

struct PcapMasterDelays {
    PcapSeries sync;                   // arrival of a Sync less its origin: offset and delay in one
    PcapSeries correction;             // of Sync and Follow_Up
};
struct PcapExchanges {                 // of a slave with a master
    PcapSeries path, offset, correction;             // correction: of Delay_Resp
};
struct PcapEsmc {                      // of a sender
    u64 count = 0, events = 0, gaps = 0;             // gaps: more than 5 s (ITU-T G.8264 11.3.2.1)
    double first_s = 0, last_s = 0;
    std::vector<std::pair<double, u8>> levels;       // SSM code at each change
};
struct PcapNtp {                       // of a server and a client
    u64 requests = 0, answers = 0;
    u32 stratum = 0;
    PcapSeries path, offset;           // offset: the recorder's clock less the server's
};

class PcapAnalysis {
public:
    /// In the capture's order.
    void take(const PcapPacket& packet, const std::optional<PtpCarrier>& ptp);
    void finish();

    std::map<std::string, PcapFlow> flows;           // "L2 domain 24 001B19.FFFE.000001-1 Sync"
    std::map<std::string, PcapMasterDelays> masters;
    std::map<std::string, PcapExchanges> exchanges;  // "<master> with <slave>"
    std::map<std::string, PcapEsmc> esmc;
    std::map<std::string, PcapNtp> ntp;
    double duration_s = 0;

private:
    struct Sync { u16 sequence; i64 at_ns; i64 correction; };
    struct Request { std::string slave; u16 sequence; i64 at_ns; i64 correction; };
    struct NtpRequest { std::string way; u64 stamp; i64 at_ns; };
    void takePtp(const PtpCarrier& ptp, i64 at_ns);
    void takeFlow(const std::string& key, const sim::ptp::Message& m, double t_s);
    void takeOrigin(const std::string& master, const Sync& sync, const sim::ptp::Message& origin,
                    i64 correction);
    void takeResponse(const std::string& master, const std::string& slave, const sim::ptp::Message& m,
                      i64 at_ns);
    void takeEsmc(std::span<const u8> frame, double t_s);
    void takeNtp(const PcapPacket& packet);

    std::optional<i64> began_ns_;
    std::map<std::string, std::deque<Sync>> syncs_;  // without their Follow_Up yet
    std::deque<Request> requests_;
    std::deque<NtpRequest> ntpRequests_;
    std::map<std::string, i64> lastDown_ns_;         // of each master
    double seconds(i64 at_ns) const { return static_cast<double>(at_ns - *began_ns_) * 1e-9; }
};

}  // namespace app
