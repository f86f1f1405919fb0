// pcap_report.h - What a capture has shown, for the terminal, as JSON, and as plots.
#pragma once
#include "app/pcap.h"
#include "app/pcap_analysis.h"

namespace app {

void printPcapAnalysis(const PcapAnalysis& analysis, std::FILE* out);
std::string pcapJson(const PcapResult& result, const PcapAnalysis& analysis, const std::string& name);
/// report.html and a series of each exchange; why it can't, or nothing.
std::string writePcapReport(const PcapResult& result, const PcapAnalysis& analysis, const std::string& name,
                            const std::string& folder);

}  // namespace app
