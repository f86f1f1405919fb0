// tupktsync_ipsocki_client.h - UDP of the packet process: connection to the node's socket service, the
// sockets of PTP's event and general port (IEEE 1588-2008 annex D) which syncrefs share, datagrams out
// and in.
// Owner   Kvd_loz6_tupktsync_proc.
// Errors  as in tupktsync_cfi_client.h; a failing socket call frees the socket.
#pragma once
#include "pktsync/tupktsync_ptp_protocol.h"

struct Signal;

enum TuPktsyncIpsockiState : u32 {
    IPSOCKI_NOT_AVAILABLE = 0, IPSOCKI_WAIT_FOR_SERVER_DOWN, IPSOCKI_WAIT_FOR_INIT_RESPONS,
    IPSOCKI_WAIT_FOR_TERMINATE_CONFIRM, IPSOCKI_WAIT_FOR_ACREDIT_IND, IPSOCKI_AVAILABLE,
};

constexpr u32 SOCKET_GENERAL = 1, SOCKET_EVENT = 2;   // port kinds
constexpr u32 PTP_GENERAL_PORT = 320, PTP_EVENT_PORT = 319;
constexpr u32 SOCKET_RESOURCES = 16;
enum TuPktsyncSocketState : u32 { SOCKET_FREE = 0, SOCKET_READY = 1, SOCKET_BUFFER_OUT = 2 };

struct TuPktsyncSocket {
    PktIpAddress own;
    u32 portKind = 0;
    u32 state = SOCKET_FREE;
    u8* sendBuffer = nullptr;
    u32 size = 0;
    u32 addressFamily = 0;           // IPSOCKI_AF_...
    u32 socketType = 0;
    i32 socketId = -1;
    u32 users = 0;                   // syncrefs
    i32 tos = -1;                    // dscp * 4; -1 until set
};

void TuPktsync_IPSOCKI_client_init();
bool TuPktsync_IPSOCKI_client_dispatch(Signal* sig);
/// A resource number, shared by syncrefs of one address; -1 without one, -2 when the host isn't
/// available.
i32  TuPktsync_IPSOCKI_client_createSocketAndBind(const PktIpAddress& own, u32 portKind);
void TuPktsync_IPSOCKI_client_removeResourceUser(i32 resource);
/// Room for a payload, nullptr without. The eight octets of metadata, where given on the event socket,
/// come back with the egress stamp.
u8*  TuPktsync_IPSOCKI_client_getPayloadPointer(i32 resource, u32 length, u32 metadataLength,
                                                const u8* metadata, u8 dscp);
/// Sends what was put there; true when it left.
bool TuPktsync_IPSOCKI_client_sendPayload(i32 resource, const PktIpAddress& server);

u32  TuPktsync_IPSOCKI_client_state();
const TuPktsyncSocket& TuPktsync_IPSOCKI_client_socket(u32 resource);
const char* TuPktsync_ipsockiStateText(u32 state);
