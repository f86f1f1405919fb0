// bench_gps.cpp - Bytes a second from the serial line's callback to what the sentences store.
//
// A second of a receiver's sentences is framed, posted and parsed again and again by one process of
// an otherwise idle node. A 9600 bit/s line delivers 960 bytes a second.
#include "frame/kvd_mgr_proc.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_serial.h"
#include "sig/gps_sig.h"
#include "support/idle_node.h"
#include "unit/kvd_unit_process.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

namespace {

std::string framed(const char* body)
{
    char text[128];
    const u32 length = KvdLoz6TuGps_frameSentence(text, sizeof text, body, NMEA_CHECKSUM);
    return {text, length};
}

/// What a receiver with both satellite systems says in a second, and once in a while.
std::string busySecond()
{
    std::string bytes;
    for (const char* body : {
             "PNVX,GPppr,123456,02245,00000,00,0,0", "PNVX,GPsts,2,1,0,00001",
             "GPGGA,123519,4807.0380,N,01131.0000,E,1,08,000.9,000545.4,M,0046.9,M,,",
             "GPGSA,A,3,04,05,,09,12,,,24,,,,,002.5,001.3,002.1",
             "GPGSV,3,1,11,01,40,083,46,02,17,308,41,12,07,344,39,14,22,228,45",
             "GPGSV,3,2,11,15,41,183,36,17,57,208,44,19,17,044,31,22,62,128,48",
             "GPGSV,3,3,11,24,04,283,27,25,27,008,33,32,77,144,47",
             "GLGSV,2,1,07,65,40,083,42,66,17,308,38,72,07,344,30,74,22,228,40",
             "GLGSV,2,2,07,81,41,183,36,82,57,208,44,88,17,044,31",
             "PNVX,GPavp,4807.0380,N,01131.0000,E,000545.4,0",
                 "PNVX,GPver,GPS02,KDU123,R1A,120510"})
        bytes += framed(body);
    return bytes;
}

/// The manager's part: parses what was posted.
u32 parsePosted()
{
    u32 taken = 0;
    while (Signal* sig = ose::receive_w_tmo(0, ose::ANY_SIGNAL)) {
        GpsSentenceType type;
        taken += static_cast<u32>(
            KvdLoz6TuGps_parseSentence(reinterpret_cast<const KvdTugpsNmeaMsgRec*>(sig)->text, type));
        ose::free_buf(&sig);
    }
    return taken;
}

void framingAndParsers(benchmark::State& state)
{
    constexpr u32 ROUNDS = 1000;               // a call, so that its own cost doesn't count
    const std::string second = busySecond();
    IdleNode b;
    for (auto _ : state)
        b.in([&] {
            KvdLoz6TuMgr_setPids(ose::current_process(), 0, 0);
            for (u32 i = 0; i < ROUNDS; ++i) {
                KvdLoz6TuGps_serialReceived(reinterpret_cast<const u8*>(second.data()),
                                            static_cast<u32>(second.size()));
                if (parsePosted() != 11) std::abort();
            }
        });
    state.SetBytesProcessed(state.iterations() * ROUNDS * static_cast<i64>(second.size()));
}
BENCHMARK(framingAndParsers)->UseRealTime()->Unit(benchmark::kMillisecond);

/// The parsers alone, sentence after sentence.
void parsersAlone(benchmark::State& state)
{
    constexpr u32 ROUNDS = 1000;
    const std::string second = busySecond();
    std::vector<std::string> sentences;
    for (std::size_t at = 0; at < second.size();) {
        const std::size_t end = second.find('\n', at);
        sentences.push_back(second.substr(at + 1, end - at - 1));      // without "$" and LF
        at = end + 1;
    }
    IdleNode b;
    for (auto _ : state)
        b.in([&] {
            GpsSentenceType type;
            for (u32 i = 0; i < ROUNDS; ++i)
                for (const std::string& text : sentences)
                    benchmark::DoNotOptimize(KvdLoz6TuGps_parseSentence(text.c_str(), type));
        });
    state.SetBytesProcessed(state.iterations() * ROUNDS * static_cast<i64>(second.size()));
}
BENCHMARK(parsersAlone)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
