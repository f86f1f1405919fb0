// kvd_hptsi_cmcc.h - The serial line of the time input: frames out of its bytes, and what a frame says.
// Owner   TuHptsiInt_proc runs the callbacks, owns the frame buffer and numberOfBytesRec; the rest is the
//         manager's.
// Units   s and weeks since the GPS epoch; 9600 bit/s, 8 data bits, 1 stop bit, no parity.
// Errors  a failed opening is traced; a byte that belongs to no frame is passed over.
//
// Frames of the CMCC time of day protocol, 23 octets, all numbers big-endian. The first 20 are read, so that
// the CRC-8 at the end isn't checked.
//    0  u8   'C'
//    1  u8   'M'
//    2  u8   class, 1
//    3  u8   message id: 0x20 time info, 3 time state
//    4  u16  payload length, 16
//  time info
//    6  u32  tow, seconds of the week that the last pulse began
//   10  u32  not used
//   14  u16  week
//   16  i8   leapSec
//   17  u8   pp1sState: 0 normal, 1 held by an atomic clock, 2 unavailable, 3 held by a crystal, 4 carried
//            by the transport network
//   18  u8   tacc, jitter
//   19  u24  not used
//  time state
//    6  u8   clkSource: 0 Beidou, 1 GPS, 2 PTP, 3 other
//    7  u16  state
//    9  u16  alarm, a bit each
//   11  11 octets not used
//  both
//   22  u8   CRC-8 of octets 2 to 21
#pragma once
#include "ose/types.h"

#include <array>
#include <span>

constexpr u32 CMCC_FRAME_READ = 20;       // octets of a frame that go to the manager

struct CmccTimeInfo {
    u32 tow = 0;
    u16 week = 0;
    i8  leapSec = 0;
    u8  pp1sState = 0;
    u8  tacc = 0;
};
struct CmccTimeState {
    u8  clkSource = 0;
    u16 state = 0;
    u16 alarm = 0;
};

/// What a frame turned out to be.
enum class CmccVerdict : u8 { TimeInfo, TimeState, WrongLength, UnknownId };
bool KvdLoz6TuHptsi_isFrameLength(u32 length);
CmccVerdict KvdLoz6TuHptsi_frameVerdict(std::span<const u8> frame);
/// Octets that a short frame doesn't have are read as 0.
CmccTimeInfo  KvdLoz6TuHptsi_timeInfoOf(std::span<const u8> frame);
CmccTimeState KvdLoz6TuHptsi_timeStateOf(std::span<const u8> frame);

/// Gathers a frame byte by byte. What comes between two frames falls into the buffer, too.
enum CmccFrameState : u8 { CMCC_IDLE = 0, STORE_CMCC_HEADER = 1, STORE_CMCC_DATA = 2 };
struct CmccReader {
    std::array<u8, 255> buffer{};
    u32 index = 0;
    CmccFrameState frameState = CMCC_IDLE;
    u8  previous = 0;
};
/// True when the byte ends a frame, which then stands at the buffer's beginning.
bool KvdLoz6TuHptsi_takeByte(CmccReader& reader, u8 byte);

/// Opens the line with an empty reader. 0 done, else the result of the subscription, traced.
int  KvdLoz6TuHptsi_openSerial();
/// Nothing when the line isn't this one's.
void KvdLoz6TuHptsi_closeSerial();
/// The receive callback: each frame goes to the manager.
void KvdLoz6TuHptsi_serialReceived(const u8* bytes, u32 count);
u32  KvdLoz6TuHptsi_numberOfBytesRec();
