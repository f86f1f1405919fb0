// tupktsync_coli.h - Commands of the packet process: "kvdtupktsync" prints, "genann" injects.
#pragma once
#include "pktsync/tupktsync_ptp_protocol.h"

/// "acde48fffe010203-1".
std::array<char, 24> TuPktsync_portIdentityText(const PtpPortIdentity& port);
/// "192.168.0.1", or eight groups of IPv6.
std::array<char, 40> TuPktsync_ipAddressText(const PktIpAddress& address);
void TuPktsync_registerColiCmds();
