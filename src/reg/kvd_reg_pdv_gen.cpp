// Test generator: delay variation of a file, added to the stamps of a time exchange.
#include "reg/kvd_reg_pdv_gen.h"

#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/reg_sig.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr const char* UPLINK_FILE   = "/d/genPdvUplink.txt";
constexpr const char* DOWNLINK_FILE = "/d/genPdvDownlink.txt";
constexpr const char* AUTOMATIC_FILE = "/d/genPdvAutomatic";
constexpr u32 SAMPLES = 1000;
constexpr double NS_PER_SECOND = 1e9;

struct State {
    u32 directionMask = 0;
    u32 type = PDV_NTP;
    u32 enabled = 0;                       // a table is loaded
    u32 readIndex = 0;                     // next entry, modulo SAMPLES
    std::array<u32, SAMPLES> seconds{};
    std::array<u32, SAMPLES> nanoseconds{};
    std::array<double, SAMPLES> read{};    // s, of the file that is being read
};
ose::ModuleData<State> s;

const char* typeText(u32 type)
{
    constexpr const char* TEXTS[] = {"NTP", "PTP_FREQ", "PTP_TIME"};
    return type < std::size(TEXTS) ? TEXTS[type] : "<Unknown>";
}

const char* directionText(u32 direction)
{
    if (direction == PDV_UPLINK) return "UPLINK";
    return direction == PDV_DOWNLINK ? "DOWNLINK" : "<Unknown>";
}

/// Numbers from the file's beginning, at most SAMPLES; what isn't a delay that the table can hold
/// ends the reading.
u32 readValues(const std::string& content)
{
    constexpr double SECONDS_END = 4294967296.0;
    u32 count = 0;
    const char* at = content.c_str();
    while (count < SAMPLES) {
        char* end = nullptr;
        const double v = std::strtod(at, &end);
        if (end == at || !(v >= 0.0 && v < SECONDS_END)) break;
        s->read[count++] = v;
        at = end;
    }
    return count;
}

void takeTable(u32 type, u32 direction)
{
    double sum = 0.0;
    for (u32 i = 0; i < SAMPLES; ++i) {
        const double v = s->read[i];
        s->seconds[i] = static_cast<u32>(v);
        s->nanoseconds[i] = static_cast<u32>((v - s->seconds[i]) * NS_PER_SECOND);
        sum += v;
    }
    const double mean = sum / SAMPLES;
    double squares = 0.0;
    for (const double v : s->read) squares += (v - mean) * (v - mean);
    const double dev = std::sqrt(squares / SAMPLES);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO,
              "generating pdv (sum= %lf, mean=%lf, dev=%lf) on type= %s and direction= %s", sum, mean, dev,
              typeText(type), directionText(direction));
}

struct Sample { u32 seconds, nanoseconds; };

/// The sum goes through a double, which holds a present time to 0.2 us.
void add(i64& stamp_s, i32& stamp_ns, Sample sample)
{
    const double s1 = static_cast<double>(stamp_s) + stamp_ns * 1e-9;
    const double s2 = sample.seconds + sample.nanoseconds * 1e-9;
    const double v = s1 + s2;
    if (!isWithin(v, 9.2e9)) return;   // beyond 63 bits of ns: no time of this world
    const i64 n = static_cast<i64>(std::copysign(std::fabs(v) * NS_PER_SECOND + 0.5, v));
    stamp_s = n / 1000000000;
    stamp_ns = static_cast<i32>(n % 1000000000);
}

/// The stamps as a trace argument.
struct StampsText {
    char text[96];
    explicit StampsText(const PktTimeMsg& m)
    {
        std::snprintf(text, sizeof text, "T1=%08X.%08X T2=%08X.%08X T3=%08X.%08X T4=%08X.%08X", low(m.T1_s),
                      low(m.T1_ns), low(m.T2_s), low(m.T2_ns), low(m.T3_s), low(m.T3_ns), low(m.T4_s),
                      low(m.T4_ns));
    }
    static u32 low(i64 value) { return static_cast<u32>(value); }
};

}  // namespace

void KvdLoz6TuReg_genPdv(u32 type, u32 direction, u32 enable)
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s:: type= %s, direction= %s, enable= %s", __func__, typeText(type),
              directionText(direction), enable != 0 ? "True" : "False");
    s->type = type;
    if (enable != 0) s->directionMask |= direction;
    else             s->directionMask &= ~direction;
    if (s->directionMask == 0) {
        s->enabled = 0;
        return;
    }
    std::string content;
    const char* const file = s->directionMask == PDV_UPLINK ? UPLINK_FILE : DOWNLINK_FILE;
    if (node::platform().fileRead(file, content) != 0) return;
    if (readValues(content) < SAMPLES) return;
    s->enabled = 1;
    takeTable(type, direction);
}

void KvdLoz6TuReg_onGenPdvReq(const Signal* sig)
{
    const auto* req = as<KvdTuhwifGenPdvReq>(sig);
    if (req != nullptr) KvdLoz6TuReg_genPdv(req->type, req->direction, req->enable);
}

void KvdLoz6TuReg_genPdvAutomatic()
{
    node::Platform& files = node::platform();
    if (files.fileExists(AUTOMATIC_FILE) == 0) return;
    if (files.fileExists(UPLINK_FILE) != 0) KvdLoz6TuReg_genPdv(PDV_PTP_TIME, PDV_UPLINK, 1);
    if (files.fileExists(DOWNLINK_FILE) != 0) KvdLoz6TuReg_genPdv(PDV_PTP_TIME, PDV_DOWNLINK, 1);
}

void KvdLoz6TuReg_addPdv(PktTimeMsg& msg)
{
    if (s->type != PDV_PTP_TIME || s->enabled != 1) return;
    s->readIndex %= SAMPLES;
    const Sample sample = {s->seconds[s->readIndex], s->nanoseconds[s->readIndex]};
    KVD_TRACE(TRACE_TUREG, TRACE_3, "[genpdv pre] PTP: %s", StampsText(msg).text);
    if ((s->directionMask & PDV_UPLINK) != 0) add(msg.T4_s, msg.T4_ns, sample);
    if ((s->directionMask & PDV_DOWNLINK) != 0) add(msg.T2_s, msg.T2_ns, sample);
    KVD_TRACE(TRACE_TUREG, TRACE_3, "[genpdv post] PTP: %s", StampsText(msg).text);
    ++s->readIndex;
}
