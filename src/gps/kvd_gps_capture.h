// kvd_gps_capture.h - The last sentences to and from the receiver, caught on the operator's order.
// Owner   the manager process fills; commands start, stop and print from the shell's process.
#pragma once
#include "ose/types.h"

enum GpsCaptureDirection : u32 { GPS_CAPTURE_RECEIVED = 0, GPS_CAPTURE_SENT = 1, GPS_CAPTURE_BOTH = 2 };
constexpr u32 GPS_CAPTURE_MAX = 100;

/// Clears the buffer; `filter` is a direction or both, `limit` 1 to 100 sentences.
void KvdLoz6TuGps_startCapture(u32 filter, u32 limit);
void KvdLoz6TuGps_stopCapture();
void KvdLoz6TuGps_clearCapture();
/// One sentence that went by; taken when capture is on and the direction wanted.
void KvdLoz6TuGps_capture(const char* text, u32 length, u32 direction);
void KvdLoz6TuGps_printCapture();
