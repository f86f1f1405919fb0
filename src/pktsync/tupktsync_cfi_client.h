// tupktsync_cfi_client.h - Ethernet frames of the packet process: connection to the node's frame
// service, membership in the two multicast groups of PTP (IEEE 1588-2008 annex F), frames out and in.
// Owner   Kvd_loz6_tupktsync_proc.
// Errors  a service that suspends or rejects leaves the client without it, and the chain of starts goes
//         on; a refused request is traced.
#pragma once
#include "ose/types.h"

#include <array>

struct Signal;

enum TuPktsyncCfiState : u32 {
    CFI_NOT_AVAILABLE = 0, CFI_WAIT_FOR_SERVER_UP, CFI_WAIT_FOR_INIT_RESPONS, CFI_AVAILABLE,
    CFI_WAIT_FOR_ATTACH_CFM, CFI_ATTACHED,
};

enum TuPktsyncGroupState : u32 { GROUP_NONE = 0, GROUP_JOIN_PENDING, GROUP_LEAVE_PENDING, GROUP_JOINED };

constexpr u32 TUPKTSYNC_GROUPS = 2;
/// Group 0 forwardable, group 1 not.
constexpr std::array<std::array<u8, 6>, TUPKTSYNC_GROUPS> TUPKTSYNC_GROUP_MAC{
    {{0x01, 0x1B, 0x19, 0, 0, 0}, {0x01, 0x80, 0xC2, 0, 0, 0x0E}}};
constexpr u32 PTP_ETHERTYPE = 0x88F7, VLAN_ETHERTYPE = 0x8100;

struct TuPktsyncGroup {
    u32 groupType = 0;
    u32 state = GROUP_NONE;
    u32 users = 0;                   // syncrefs that want it
    std::array<u8, 6> mac{};
    u32 joinNeeded = 0, leaveNeeded = 0;   // waits for the other one's confirmation
    bool isAsked = false;            // a join or leave is out; one that was refused leaves its state
};

void TuPktsync_CFI_client_init();
/// The proxy's memory goes, the client is without service.
void TuPktsync_CFI_client_reset();
bool TuPktsync_CFI_client_dispatch(Signal* sig);
constexpr u32 GROUP_NO_SERVICE = 2;
/// 1 when the caller must wait for TuPktsync_SyncrefCtrl_CfiSetupReady or _CfiSetupRefused, or for
/// _CfiRemoveReady; GROUP_NO_SERVICE, and no user more, while the client can't ask.
u32  TuPktsync_CFI_client_addMCgroupUser(u32 groupType);
u32  TuPktsync_CFI_client_removeMCgroupUser(u32 groupType);
/// A buffer of `frameLength` octets, metadata counted; nullptr without one.
u8*  TuPktsync_CFI_client_getSendBuffer(u32 frameLength, u32 metadataLength);
/// 1 when it left.
u32  TuPktsync_CFI_client_sendFrame(u8* buffer);

u32  TuPktsync_CFI_client_state();
const TuPktsyncGroup& TuPktsync_CFI_client_group(u32 groupType);
const char* TuPktsync_cfiStateText(u32 state);
