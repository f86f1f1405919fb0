#include "sim/refs/esmc_peer.h"

#include "sim/node/node.h"

namespace sim {

namespace {

constexpr std::size_t VLAN_AT = 12, UNTAGGED_MIN = 32, PADDED = 60, TAG = 4;
constexpr std::size_t SLOW_SUBTYPE_AT = 14, OUI_AT = 17, ITU_SUBTYPE_AT = 19, VERSION_AT = 20,
                      TLV_TYPE_AT = 24, TLV_LENGTH_AT = 26, SSM_AT = 27, BEHIND_TLV_AT = 28;
constexpr u8 EVENT_FLAG = 0x08, TCU = 16;

/// Untagged and right.
std::vector<u8> plainFrame(const EsmcPeerConfig& c, bool event)
{
    std::vector<u8> f = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x02, 0x02, 0x00, 0x00, 0x00, 0xEE,
                         static_cast<u8>(c.port), 0x88, 0x09, 0x0A, 0x00, 0x19, 0xA7, 0x00, 0x01,
                         static_cast<u8>(0x10 | (event ? EVENT_FLAG : 0)), 0, 0, 0, 1, 0, 4, c.ssm};
    f.resize(PADDED);
    if (c.tcu) f[BEHIND_TLV_AT] = TCU;
    return f;
}

void damage(std::vector<u8>& f, EsmcFault fault, std::size_t tag)
{
    switch (fault) {
    case EsmcFault::None:                                            break;
    case EsmcFault::Empty:       f.clear();                          break;
    case EsmcFault::NoEtherType: f.resize(13);                       break;
    case EsmcFault::EtherType:   f[12] = 0x88, f[13] = 0xF7;         break;
    case EsmcFault::SlowSubtype: f[SLOW_SUBTYPE_AT + tag] = 3;       break;
    case EsmcFault::Oui:         f[OUI_AT + tag] = 0xA6;             break;
    case EsmcFault::OneShort:    f.resize(UNTAGGED_MIN + tag - 1);   break;
    case EsmcFault::ItuSubtype:  f[ITU_SUBTYPE_AT + tag] = 2;        break;
    case EsmcFault::TlvType:     f[TLV_TYPE_AT + tag] = 2;           break;
    case EsmcFault::TlvLength:   f[TLV_LENGTH_AT + tag] = 5;         break;
    case EsmcFault::Unpadded:    f.resize(SSM_AT + 1 + tag);         break;
    }
}

}  // namespace

EsmcPeer::EsmcPeer(Node& node, const EsmcPeerConfig& config)
    : node_(node), config_(config), silent_(!config.present)
{
    node_.slowpi().connect(config_.port, [this](std::span<const u8> frame) { take(frame); });
    node_.after(static_cast<ose::Time>(config_.phase_s * static_cast<double>(ose::SEC)),
                [this] { second(); });
}

void EsmcPeer::setQuality(u8 ssm, bool tells)
{
    config_.ssm = ssm;
    if (tells && !silent_) send(true);
}

void EsmcPeer::setSilent(bool silent) { silent_ = silent; }

void EsmcPeer::second()
{
    if (!silent_) send(false);
    node_.after(ose::SEC, [this] { second(); });
}

void EsmcPeer::send(bool event) { node_.slowpi().receive(config_.port, frame(event)); }

std::vector<u8> EsmcPeer::frame(bool event) const
{
    std::vector<u8> f = plainFrame(config_, event);
    if (config_.vlan) {
        constexpr u8 VLAN_100[] = {0x81, 0x00, 0x00, 0x64};
        f.insert(f.begin() + VLAN_AT, std::begin(VLAN_100), std::end(VLAN_100));
    }
    damage(f, fault_, config_.vlan ? TAG : 0);
    return f;
}

void EsmcPeer::take(std::span<const u8> frame)
{
    ++received_;
    lastFrame_.assign(frame.begin(), frame.end());
    if (frame.size() <= SSM_AT) return;
    if ((frame[VERSION_AT] & EVENT_FLAG) != 0) ++events_;
    lastSsm_ = frame[SSM_AT];
}

}  // namespace sim
