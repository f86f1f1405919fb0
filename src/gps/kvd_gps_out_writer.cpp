// The way to the serial driver, which has to be kicked on while it transmits: a count of its chunks, a
// timer that takes them off, and a queue of what can't go meanwhile.
#include "base/trace_groups.h"
#include "gps/kvd_gps_out_int.h"
#include "hw/hali.h"
#include "node/trace.h"

namespace {

using gpsout::state;

constexpr OSTIME SIM_INTERRUPT_ms = 20;
constexpr u32 CHUNK = 16;                      // bytes that the driver transmits at once

void startSimInterrupt()
{
    KvdTimer_start(state().simIntTmoRef, SIM_INTERRUPT_ms, KVD_TUGPS_OUT_SIM_INTERRUPT_TIMEOUT);
}

bool send(const u8* bytes, u32 count)
{
    state().driverBusy += 1 + count / CHUNK;
    startSimInterrupt();
    if (HALI_writeSerialPort(bytes, count) == 0) return true;
    KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "Failed to send");
    return false;
}

/// What waits goes first, unless it doesn't fit with what has come. The queue is empty then; its characters
/// are there for as long as nobody adds any.
std::string_view takeQueue(std::string_view sentence)
{
    auto& queue = state().sendQueue;
    if (queue.size() == 0) return sentence;
    std::string_view text = sentence;
    if (queue.fits(sentence)) {
        queue.append(sentence);
        text = queue;
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_3, "Added sendToGpsBuffer to send string");
    } else {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO,
                  "Not enough space to send sendToGpsBuffer, only GPppr is sent");
    }
    queue.clear();
    return text;
}

void writeNow(std::string_view sentence)
{
    const std::string_view text = takeQueue(sentence);
    if (state().gpsOutState == gpsout::OUT_UN_INIT) {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "Driver is not ready for receiving");
        return;
    }
    const u32 length = static_cast<u32>(text.size());
    if (!send(reinterpret_cast<const u8*>(text.data()), length)) return;
    ++state().counters.numberOfNmeaMsgs;
    state().counters.numberOfBytesSent += length;
}

}  // namespace

void gpsout::write(std::string_view sentence)
{
    if (state().driverBusy == 0) return writeNow(sentence);
    if (!state().sendQueue.fits(sentence)) {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "Not enough space left in send to GPS buffer");
        return;
    }
    state().sendQueue.append(sentence);
    KVD_TRACE(TRACE_TUGPS_OUT, TRACE_3, "Add to send queue: %.*s", static_cast<int>(sentence.size()),
              sentence.data());
}

void gpsout::writeFrame(const std::array<u8, CMCC_FRAME>& frame)
{
    if (state().gpsOutState == OUT_UN_INIT) {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "Driver is not ready for receiving");
        return;
    }
    if (!send(frame.data(), CMCC_FRAME)) return;
    ++state().counters.numberOfCmccMsgs;
    state().counters.numberOfBytesSent += CMCC_FRAME;
}

void gpsout::onSimInterrupt()
{
    if (!KvdTimer_expired(state().simIntTmoRef)) return;
    HALI_simSerialInterrupt();
    if (state().driverBusy != 0) {
        startSimInterrupt();
        --state().driverBusy;
    } else if (state().sendQueue.size() != 0) {
        writeNow("");
    }
}
