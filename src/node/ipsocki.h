// ipsocki.h - Client of the node's socket service (IPSOCKI): UDP sockets of the host that carries the
// unit's IP traffic, with a receive stamp beside each datagram of the event port.
// The connection's answers and the datagrams come as signals to the process that initiated the service;
// the socket calls answer at once.
// Errors  0 done unless a call says otherwise; a socket call answers -1, socketError() tells why.
#pragma once
#include "node/service_proxy.h"

#include <array>
#include <cstddef>

constexpr SIGSELECT TARSO_IPSOCKI_FD_READ_DATA           = 0x111100;   // TarsoIpsockiFdReadData
constexpr SIGSELECT TARSO_IPSOCKI_SERVER_UP_IND          = 0x111101;   // no data; for the proxy alone
constexpr SIGSELECT TARSO_IPSOCKI_INITIATE_SERVICE_CFM   = 0x111103;   // node::ProxyInitiateAnswer
constexpr SIGSELECT TARSO_IPSOCKI_INITIATE_SERVICE_SUS   = 0x111104;   // node::ProxyInitiateAnswer
constexpr SIGSELECT TARSO_IPSOCKI_INITIATE_SERVICE_REJ   = 0x111105;   // node::ProxyInitiateAnswer
constexpr SIGSELECT TARSO_IPSOCKI_SERVER_DOWN_IND        = 0x111106;   // no data
constexpr SIGSELECT TARSO_IPSOCKI_ACREDIT_IND            = 0x11110A;   // TarsoIpsockiAcreditInd
constexpr SIGSELECT TARSO_IPSOCKI4_TERMINATE_SERVICE_CFM = 0x11110C;   // no data

struct TarsoIpsockiAcreditInd {
    SIGSELECT sigNo;
    u32 credit;
};
static_assert(sizeof(TarsoIpsockiAcreditInd) == 8);

// Address families and socket type of the service.
constexpr u32 IPSOCKI_AF_INET = 2, IPSOCKI_AF_INET6 = 24, IPSOCKI_DGRAM = 2;

/// A datagram and what is known of it; `length` octets follow.
struct TarsoIpsockiFdReadData {
    SIGSELECT sigNo;
    i32 socketId;
    u32 localPort;
    u32 saFamily;                    // of the sender
    std::array<u8, 16> address;      // an IPv4 address fills the first four
    u32 controlLevel, controlType;   // of the control data
    std::array<u8, 8> control;
    u32 length;
};
static_assert(offsetof(TarsoIpsockiFdReadData, address) == 16);
static_assert(offsetof(TarsoIpsockiFdReadData, control) == 40);
static_assert(sizeof(TarsoIpsockiFdReadData) == 52);

/// Control data that is a receive stamp: s and 2^-32 s.
constexpr u32 IPSOCKI_STAMP_LEVEL = 0xFFFF, IPSOCKI_STAMP_TYPE = 2048;

enum IpsockiOption : u32 {
    TARSO_IPSOCKI_SO_REUSEADDR = 1,
    TARSO_IPSOCKI_SO_SNDBUF,
    TARSO_IPSOCKI_SO_RCVBUF,
    TARSO_IPSOCKI__IP_RECVSRCADDR,
    TARSO_IPSOCKI_SO_TIMESTAMPING_ZFB,
    TARSO_IPSOCKI_SO_IP_TOS,
    TARSO_IPSOCKI_IPV6_TCLASS,
    TARSO_IPSOCKI_SO_METADATA_ZFB,   // high and low word of the next message's metadata
};

/// Why a socket call failed.
enum IpsockiError : i32 {
    IPSOCKI_E_NONE = 0,
    IPSOCKI_E_BADF,                  // no such socket
    IPSOCKI_E_ACCES,
    IPSOCKI_E_ADDRINUSE,
    IPSOCKI_E_ADDRNOTAVAIL,
    IPSOCKI_E_AFNOSUPPORT,
    IPSOCKI_E_BOUND,
    IPSOCKI_E_FAULT,
    IPSOCKI_E_INVAL,
    IPSOCKI_E_NOBUFS,
    IPSOCKI_E_HOST,                  // the host of the sockets isn't available
};

namespace node {

struct IpsockiProxy;                 // of one client

/// Address of a host and a port on it.
struct IpsockiAddress {
    u32 family = IPSOCKI_AF_INET;
    std::array<u8, 16> octets{};
    u32 port = 0;
};

/// Results of initiating the service, beside 0.
constexpr u32 IPSOCKI_NOT_YET_AVAILABLE = 4;

IpsockiProxy* TarsoIpsocki_initiateMemory();
void TarsoIpsocki_freeMemory(IpsockiProxy* proxy);
/// The sockets are those of this unit of the node.
u32  TarsoIpsocki_initiateHostPID(IpsockiProxy* proxy, u32 apn, u32 piuInstanceId);
/// Its answer comes once the service is there; IPSOCKI_NOT_YET_AVAILABLE while it is busy.
u32  TarsoIpsocki_initiateService(IpsockiProxy* proxy, u32 firstPv, u32 secondPv, u32 thirdPv);
/// Takes one of the service's own signals.
u32  TarsoIpsocki_internal(IpsockiProxy* proxy, const Signal* sig);
/// Repeats the initiation to a server that said nothing to it; nothing while there is none.
void TarsoIpsocki_askAgain(const IpsockiProxy* proxy);
u32  TarsoIpsocki_terminateService(IpsockiProxy* proxy);
/// Datagrams that the service may have on their way, and those that it keeps for later.
u32  TarsoIpsocki_creditWindowReq(IpsockiProxy* proxy, u32 credit, u32 maxUndelivered);

/// Number of a socket, or -1.
i32  TarsoIpsocki_socket(IpsockiProxy* proxy, u32 family, u32 type);
i32  TarsoIpsocki_setsockopt(IpsockiProxy* proxy, i32 socketId, IpsockiOption option, u32 value,
                             u32 low = 0);
i32  TarsoIpsocki_bind(IpsockiProxy* proxy, i32 socketId, const IpsockiAddress& own);
/// A buffer of `size` octets for one datagram, nullptr without one.
u8*  TarsoIpsocki_getSendBuffer(IpsockiProxy* proxy, u32 size);
void TarsoIpsocki_freeSendBuffer(IpsockiProxy* proxy, u8* buffer);
i32  TarsoIpsocki_send(IpsockiProxy* proxy, i32 socketId, u8* buffer, u32 size,
                       const IpsockiAddress& to);
i32  TarsoIpsocki_close(IpsockiProxy* proxy, i32 socketId);
/// One more datagram may come.
i32  TarsoIpsocki_giveCredit(IpsockiProxy* proxy);
i32  TarsoIpsocki_socketError(IpsockiProxy* proxy);

/// The datagram's octets; nullptr with `result` set when the signal doesn't hold what it says.
const u8* TarsoIpsocki_readData(const TarsoIpsockiFdReadData& ind, u32 signalSize, i32& result);

}  // namespace node
