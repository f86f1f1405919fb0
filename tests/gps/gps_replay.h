// gps_replay.h - The GPS front end by itself, one signal at a time, as check values tell them.
#pragma once
#include "base/tu_common.h"
#include "gps/kvd_gps.h"
#include "sig/gps_sig.h"
#include "tests/iif/iif_bench.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace bench {

/// "$body*XX\r\n" without the "$" and the line feed, as the serial process hands it over.
inline std::string sentence(const std::string& body)
{
    char sum[8];
    std::snprintf(sum, sizeof sum, "*%02X\r", TuCommon_nmeaChecksum(body.data(), body.size()));
    return body + sum;
}

struct GpsReplay : IifBench {
    std::string written;

    GpsReplay()
    {
        connect();
        in([] { KvdLoz6TuGps_initiate(); });
        node.serial().onSent(
            [this](const std::vector<u8>& bytes) { written.append(bytes.begin(), bytes.end()); });
        pktsyncInbox().clear();
    }

    void dispatch(SIGSELECT sigNo, const void* data = nullptr, std::size_t size = 0)
    {
        IifBench::dispatch(KvdLoz6TuGps_dispatch, sigNo, data, size);
    }
    void sentenceCame(const std::string& text)
    {
        std::vector<char> data(text.size() + 10, '\0');   // length, text, NUL
        const u32 length = static_cast<u32>(text.size());
        std::memcpy(data.data(), &length, 4);
        std::memcpy(data.data() + 4, text.data(), text.size());
        dispatch(KVD_TUGPS_NMEA_MSG_REC, data.data(), data.size());
    }
    /// Texts of the GPS traces since the log was emptied, in order.
    std::vector<std::string> traceTexts()
    {
        std::vector<std::string> texts;
        for (const sim::TraceLine& line : node.traces().find({"", "KVD_BVQ_LOZ6_TUGPS"}))
            texts.push_back(line.text);
        for (const sim::TraceLine& line : node.traces().find({"", "KVD_BVQ_LOZ6_TUREF"}))
            texts.push_back(line.text);
        return texts;
    }
};

}  // namespace bench
