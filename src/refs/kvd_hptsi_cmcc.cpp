#include "refs/kvd_hptsi_cmcc.h"

#include "base/trace_groups.h"
#include "hw/kvd_serial_line.h"
#include "node/bytes.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "sig/hptsi_sig.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr u32 INDEX_END = 254;              // between frames the index runs round
constexpr u32 HEADER_END = 5;

constexpr u32 LENGTH_LEAST = 8, LENGTH_MOST = 24;
constexpr u32 ID_AT = 3;
constexpr u8  ID_TIME_INFO = 0x20, ID_TIME_STATE = 3;

constexpr auto SETTINGS = serialSettings(5, 0xFFFFFFFF);

struct State {
    bool open = false;
    CmccReader reader;
    u32 numberOfBytesRec = 0;
};
ose::ModuleData<State> s;

void onError(u32 code) { KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "Error from serial port (err = 0x%x)", code); }

void onData(const SerialBuffer* buffer, u32 count)
{
    KvdLoz6TuHptsi_serialReceived(buffer != nullptr ? buffer->bytes : nullptr, count);
}

constexpr SerialPortDescriptor PORT = serialPort(SETTINGS, onError, onData, "TuHptsiInt_proc");

void postFrame(const CmccReader& reader)
{
    Signal* sig = ose::alloc(offsetof(KvdTuhptsiCmccFrameRec, bytes) + CMCC_FRAME_READ,
                             KVD_TUHPTSI_CMCC_FRAME_REC);
    auto* rec = reinterpret_cast<KvdTuhptsiCmccFrameRec*>(sig);
    rec->length = CMCC_FRAME_READ;
    std::memcpy(reinterpret_cast<u8*>(sig) + offsetof(KvdTuhptsiCmccFrameRec, bytes), reader.buffer.data(),
                CMCC_FRAME_READ);
    ose::send(&sig, KvdLoz6TuMgr_pid());
}

std::array<u8, LENGTH_MOST> padded(std::span<const u8> frame)
{
    std::array<u8, LENGTH_MOST> bytes{};
    std::copy_n(frame.begin(), std::min<std::size_t>(frame.size(), bytes.size()), bytes.begin());
    return bytes;
}

}  // namespace

bool KvdLoz6TuHptsi_takeByte(CmccReader& r, u8 byte)
{
    if (r.index == INDEX_END) {
        r.index = 0;
        r.frameState = CMCC_IDLE;
    }
    r.buffer[r.index++] = byte;
    if (byte == 'M' && r.frameState == CMCC_IDLE && r.previous == 'C') {
        r.buffer[0] = 'C';
        r.buffer[1] = 'M';
        r.index = 2;
        r.frameState = STORE_CMCC_HEADER;
        KVD_TRACE(TRACE_TUHPTSI, TRACE_9, "frame detected IDLE -> STORE_CMCC_HEADER");
    }
    bool complete = false;
    if (r.frameState == STORE_CMCC_HEADER && r.index == HEADER_END) {
        r.frameState = STORE_CMCC_DATA;
        KVD_TRACE(TRACE_TUHPTSI, TRACE_9, "frame detected STORE_CMCC_HEADER -> STORE_CMCC_DATA");
    } else if (r.frameState == STORE_CMCC_DATA && r.index == CMCC_FRAME_READ) {
        complete = true;
        r.index = 0;
        r.frameState = CMCC_IDLE;
        KVD_TRACE(TRACE_TUHPTSI, TRACE_9, "frame detected STORE_CMCC_DATA -> IDLE");
    }
    r.previous = byte;
    return complete;
}

bool KvdLoz6TuHptsi_isFrameLength(u32 length) { return length >= LENGTH_LEAST && length <= LENGTH_MOST; }

CmccVerdict KvdLoz6TuHptsi_frameVerdict(std::span<const u8> frame)
{
    if (!KvdLoz6TuHptsi_isFrameLength(static_cast<u32>(frame.size()))) return CmccVerdict::WrongLength;
    switch (frame[ID_AT]) {
    case ID_TIME_INFO:  return CmccVerdict::TimeInfo;
    case ID_TIME_STATE: return CmccVerdict::TimeState;
    default:            return CmccVerdict::UnknownId;
    }
}

CmccTimeInfo KvdLoz6TuHptsi_timeInfoOf(std::span<const u8> frame)
{
    const auto bytes = padded(frame);
    return {node::be32(&bytes[6]), node::be16(&bytes[14]), static_cast<i8>(bytes[16]), bytes[17], bytes[18]};
}

CmccTimeState KvdLoz6TuHptsi_timeStateOf(std::span<const u8> frame)
{
    const auto bytes = padded(frame);
    return {bytes[6], node::be16(&bytes[7]), node::be16(&bytes[9])};
}

int KvdLoz6TuHptsi_openSerial()
{
    if (!s->open) s->reader = {};
    const int result = HALI_subscribeSerialPort(PORT);
    if (result != 0) {
        KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "Unsuccessful call to HALI_subscribeSerialPort");
        return result;
    }
    s->open = true;
    return 0;
}

void KvdLoz6TuHptsi_closeSerial()
{
    if (!s->open) return;                // the line may be another client's
    s->open = false;
    HALI_closeSerialPort(1);
}

void KvdLoz6TuHptsi_serialReceived(const u8* bytes, u32 count)
{
    if (bytes == nullptr) {
        KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "Null pointer passed");
        return;
    }
    s->numberOfBytesRec += count;
    for (const u8 byte : std::span(bytes, count))
        if (KvdLoz6TuHptsi_takeByte(s->reader, byte)) postFrame(s->reader);
}

u32 KvdLoz6TuHptsi_numberOfBytesRec() { return s->numberOfBytesRec; }
