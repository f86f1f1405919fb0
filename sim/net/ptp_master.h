// ptp_master.h - A PTP grandmaster, or a boundary clock that looks like one: Announce, Sync and
// Delay_Resp in a multicast group of Ethernet, or by contract to unicast slaves (IEEE 1588-2008 clause
// 16, ITU-T G.8265.1).
//
// Its time is true TAI, unless the scenario makes it wrong. Everything may change while it runs.
// Units   s, ns where a name says so; intervals as log2 of s.
#pragma once
#include "sim/net/network.h"
#include "sim/net/ptp_wire.h"

#include <map>
#include <optional>

namespace sim {

struct PtpMasterConfig {
    std::string name = "gm1";
    bool unicast = false;
    NetAddress address;              // of a unicast master
    MacAddress mac{2, 0, 0, 0, 1, 1};
    std::array<u8, 8> identity{0x00, 0x1B, 0x19, 0xFF, 0xFE, 0x00, 0x00, 0x01};
    u16 portNumber = 1;
    bool nonForwardable = false;     // which multicast group
    u8  domain = 24;
    u8  priority1 = 128, priority2 = 128;
    u8  clockClass = 6, accuracy = 0x21;
    u16 variance = 0x4E5D;
    u16 steps = 0;
    u8  flags = 0x3C;                // second octet: UTC offset valid, PTP timescale, both traceable
    i16 utcOffset = 37;
    u8  timeSource = 0x20;           // GPS
    i8  logAnnounce = -3, logSync = -4, logDelayReq = -4;
    bool twoStep = true;
    bool alternateMaster = false;
    u8  version = 2;
    double correction_ns = 0;        // of a boundary clock: said in Sync, and true
    double stampResolution_ns = 8;
    i64 epoch = 1'704'067'237;       // TAI at the beginning of the world, s since 1970
    double offset_s = 0;             // of its time from the truth
    double frequency_ppb = 0;
    bool announces = true, syncs = true, responds = true;
    // Contracts of a unicast master.
    i8  fastest = -7;                // grants no shorter interval
    u32 longest_s = 300;             // nor a longer duration
    bool grants = true;              // refuses with a duration of 0 otherwise
    bool answers = true;             // says nothing otherwise
};

class PtpMaster : public NetHost {
public:
    PtpMaster(ose::World& world, Network& network, const PtpMasterConfig& config);
    ~PtpMaster() override { *alive_ = false; }
    PtpMaster(const PtpMaster&) = delete;
    PtpMaster& operator=(const PtpMaster&) = delete;

    PtpMasterConfig config;          // the script
    /// A step of its time, now.
    void stepTime(double s);
    void setFrequency(double ppb);
    /// Ends its contracts, telling the slaves.
    void cancelContracts();
    std::size_t contracts() const { return contracts_.size(); }
    u32 requests() const { return requests_; }       // Delay_Req taken

    // ---- NetHost --------------------------------------------------------------------------------
    void onPacket(const NetPacket& packet) override;
    NetAddress netAddress() const override { return config.address; }
    const std::string& netName() const override { return config.name; }

private:
    struct Contract {
        ose::Time until = 0;
        i8 logInterval = 0;
        u32 life = 0;                // its present run of messages
    };
    using ContractKey = std::pair<std::array<u8, 16>, u8>;   // slave, message type

    ptp::Message message(u8 type) const;
    ptp::Stamp stampOf(ose::Time t, double later_s = 0) const;
    void every(i8 PtpMasterConfig::*log, void (PtpMaster::*what)());
    void announce();
    void sync();
    void sendAnnounce(const NetAddress* to);
    void sendSync(const NetAddress* to, i8 logInterval);
    static void leaveOrigin(ptp::Message& m, i64 card_ns);
    void onDelayReq(const ptp::Message& m, const NetPacket& packet);
    void onSignaling(const ptp::Message& m, const NetPacket& packet);
    void onRequest(const NetAddress& slave, const std::vector<u8>& value);
    void onCancel(const NetAddress& slave, const std::vector<u8>& value);
    void runContract(const NetAddress& slave, u8 type);
    void tell(const NetAddress& slave, u16 tlv, std::vector<u8> value);
    void send(const ptp::Message& m, const NetAddress* to, bool isEvent, const Left& left = {});
    void after(double s, std::function<void()> action);

    ose::World& world_;
    Network& network_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    double driftSince_s_ = 0, drifted_s_ = 0;
    std::map<u8, u16> sequence_;     // by message type
    std::map<ContractKey, Contract> contracts_;
    std::map<std::array<u8, 16>, NetAddress> slaves_;
    u32 requests_ = 0;
};

}  // namespace sim
