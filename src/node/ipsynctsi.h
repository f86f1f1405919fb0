// ipsynctsi.h - Client of the node's IP sync service (IPSYNCTSI), which exchanges NTP packets with a
// server and hands on their stamps. A proxy hunts for the service, asks it for a protocol version and
// is given each of the service's signals, which go to the process that initiated the service.
// Owner   the process that created the proxy.
// Errors  every call answers an IpsynctsiResult; a service that isn't there is waited for, which is
//         no failure.
#pragma once
#include "ose/types.h"

#include <cstddef>

// All go from the service to its client.
constexpr SIGSELECT IPSYNCTSI_SERVER_DOWN_IND      = 0x9E901;   // attach signal, no data
constexpr SIGSELECT IPSYNCTSI_INITIATE_SERVICE_CFM = 0x9E904;   // IpsynctsiInitiateServiceCfm
constexpr SIGSELECT IPSYNCTSI_INITIATE_SERVICE_SUS = 0x9E905;   // IpsynctsiInitiateServiceSus
constexpr SIGSELECT IPSYNCTSI_INITIATE_SERVICE_REJ = 0x9E906;   // IpsynctsiInitiateServiceRej
constexpr SIGSELECT IPSYNCTSI_NTP_PACKET_IND       = 0x9E907;   // IpsynctsiNtpPacketInd
/// Hunt signal, no data; a service that was suspended sends it itself when it serves again.
constexpr SIGSELECT IPSYNCTSI_SERVER_UP_IND        = 0x9E908;

struct IpsynctsiInitiateServiceCfm {
    SIGSELECT sigNo;
    u32 selectedPv;
};
static_assert(sizeof(IpsynctsiInitiateServiceCfm) == 8);

struct IpsynctsiInitiateServiceSus {      // also IPSYNCTSI_INITIATE_SERVICE_REJ
    SIGSELECT sigNo;
    u32 highestAvailablePv;
};
static_assert(sizeof(IpsynctsiInitiateServiceSus) == 8);
using IpsynctsiInitiateServiceRej = IpsynctsiInitiateServiceSus;

/// One exchange with an NTP server. Stamps in the NTP timestamp format (RFC 5905 clause 6): seconds
/// in the upper, their fraction in the lower 32 bits. T1 and T4 are this node's, T2 and T3 the
/// server's.
struct IpsynctsiNtpPacketInd {
    SIGSELECT sigNo;
    u32 froId;
    u64 serverData[3];                    // of the service; no measurement reads them
    u64 T1, T2, T3, T4;
};
static_assert(offsetof(IpsynctsiNtpPacketInd, serverData) == 8);
static_assert(offsetof(IpsynctsiNtpPacketInd, T1) == 32 && sizeof(IpsynctsiNtpPacketInd) == 64);

namespace node {

enum IpsynctsiResult : u32 {
    IPSYNCTSI_DONE = 0,
    IPSYNCTSI_NO_PROXY_FREE = 1,
    IPSYNCTSI_NO_PROXY = 2,               // the handle is none
    IPSYNCTSI_ALREADY_ASKED = 3,
    IPSYNCTSI_NOT_ASKED = 4,              // an answer that nobody awaits
    IPSYNCTSI_OTHER_SERVER = 5,           // a second server under the name
};

struct IpsynctsiProxy;

/// The program's one proxy in `handle`, which stays as it is when it is in use.
u32 Ipsynctsi_createProxy(IpsynctsiProxy*& handle);
/// Lets go of the service and clears `handle`.
u32 Ipsynctsi_freeProxy(IpsynctsiProxy*& handle);
/// Asks for the service as soon as it is there, by the first version that it speaks; 0 is none.
u32 Ipsynctsi_initiateService(IpsynctsiProxy* handle, u32 pvFirst, u32 pvSecond, u32 pvThird);
/// Repeats the request to a server that said nothing to it.
u32 Ipsynctsi_askAgain(IpsynctsiProxy* handle);
/// Lets the proxy take one of the service's signals.
u32 Ipsynctsi_internal(IpsynctsiProxy* handle, const Signal* sig);

}  // namespace node
