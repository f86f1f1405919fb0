// pcap_live.h - Records an interface of the machine for a while, in place of a file.
#pragma once
#include "app/pcap_file.h"

namespace app {

bool isInterface(const std::string& name);
/// What of PTP, ESMC and NTP comes and goes there within the time, or until an interrupt (SIGINT). Throws
/// PcapError.
std::vector<PcapPacket> recordLive(const std::string& interface, double seconds);

}  // namespace app
