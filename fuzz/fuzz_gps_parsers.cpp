// Sentences of a GPS receiver, good ones and what a bad line or receiver makes of them: refused or
// taken, nothing else; and the next good one is taken.
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_osl.h"
#include "gps/kvd_gps_trimble.h"
#include "tests/support/idle_node.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// One for each parser, without checksum.
constexpr const char* GOOD[] = {
    "GPGGA,123519,4807.0380,N,01131.0000,E,1,08,000.9,000545.4,M,0046.9,M,12,0123",
    "GPGSA,A,3,04,05,,09,12,,,24,,,,,002.5,001.3,002.1",
    "GPGSV,1,1,04,01,40,083,46,02,17,308,41,12,07,344,39,14,22,228,45",
    "GLGSV,3,2,12,65,40,083,46,66,17,308,41",
    "PFEC,GPanc,230115120000,00000000000000000000000000000000",
    "PFEC,GPtps,230115120000,2,1,2,000000000000,18,18,230115120000,2245,043200",
    "PNVX,GPppr,123456,01234,00000,00,0,0",
    "PNVX,GPsts,2,1,0,00001",
    "PNVX,GPavp,4807.0380,N,01131.0000,E,000545.4,0",
    "PNVX,GPver,GPS02,KDU123,R1A,120510",
    "PNVX,GPout,05,0,1,0,1",
    "PTNLRBA,1,0",
    "PTNLRVR,H,ABCD,xx,12345678,01,31,2010",
    "PTNLRVR,S,01.02.03,04,05,2010",
};
constexpr std::size_t LONGEST = 600;       // beyond any that the line delivers

void addChecksum(std::string& text)
{
    u8 sum = 0;
    for (const char c : text.substr(0, text.find('*'))) sum ^= static_cast<u8>(c);
    char digits[4];
    std::snprintf(digits, sizeof digits, "*%02X", sum);
    text += digits;
}

/// Three bytes a change: what, where, with what.
void mutate(std::string& text, const unsigned char* data, std::size_t size)
{
    for (std::size_t i = 0; i + 2 < size; i += 3) {
        const std::size_t at = text.empty() ? 0 : data[i + 1] % text.size();
        const char c = static_cast<char>(data[i + 2]);
        switch (data[i] % 7) {
        case 0: if (!text.empty()) text[at] = c; break;
        case 1: if (!text.empty()) text[at] = ",*.$\r9 -"[data[i + 2] % 8]; break;
        case 2: text.insert(at, static_cast<std::size_t>(data[i + 2] % 20), '7'); break;
        case 3: text.insert(at, 1, ','); break;
        case 4: text.erase(at, data[i + 2] % 6u); break;
        case 5: text += text.substr(at); break;
        case 6: return;                     // the rest of the input stays unused: few changes, too
        }
        if (text.size() > LONGEST) text.resize(LONGEST);
    }
}

[[noreturn]] void fail(const char* what, const std::string& text)
{
    std::fprintf(stderr, "\n%s after \"%s\"\n", what, text.c_str());
    std::abort();
}

void checkState(const std::string& text)
{
    if (KvdLoz6TuGps_gpgsvFillIndex() > 32 || KvdLoz6TuGps_gpgsvFillIndex() % 4 != 0)
        fail("fill index", text);
    const auto& merged = KvdLoz6TuGps_mergedSatellites();
    const auto weaker = [](const GpsSatellite& a, const GpsSatellite& b) { return a.SNR > b.SNR; };
    if (!std::is_sorted(merged.begin(), merged.end(), weaker)) fail("table not sorted", text);
    const GpsNorvane& norvane = KvdLoz6TuGps_norvane();
    const GpsModule& module = KvdLoz6TuGps_module();
    if (std::strlen(norvane.additionalInformation) >= GPVER_TEXT || std::strlen(norvane.capabilities) > 5
        || std::strlen(module.manufactureDate) >= MODULE_TEXT
        || std::strlen(module.firmwareVersion) >= MODULE_TEXT)
        fail("text without an end", text);
    if (KvdLoz6TuGps_antennaFeedline() > FEEDLINE_UNKNOWN || KvdLoz6GpsOsl_remoteState() > 18
        || norvane.glonassCapability > 2)
        fail("value out of range", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static IdleNode bench;
    if (size < 2) return 0;
    const std::string good = GOOD[data[0] % std::size(GOOD)];
    std::string text = good;
    mutate(text, data + 2, size - 2);
    if (data[1] % 4 != 0) addChecksum(text);
    if (data[1] % 16 != 1) text += '\r';
    bench.in([&] {
        GpsSentenceType type;
        KvdLoz6TuGps_parseSentence(text.c_str(), type);
        checkState(text);
        std::string next = good;
        addChecksum(next);
        next += '\r';
        if (KvdLoz6TuGps_parseSentence(next.c_str(), type) != 1) fail("good sentence refused", text);
        checkState(text);
    });
    return 0;
}
