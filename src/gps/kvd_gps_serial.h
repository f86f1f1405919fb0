// kvd_gps_serial.h - The serial line to the receiver: opening, framing of sentences, counts.
// Owner   the line's client process TuGpsInt_proc runs the callbacks, owns the assembly buffer and
//         numberOfBytesRec; the rest is the manager's.
// Units   9600 bit/s, 8 data bits, 1 stop bit, no parity.
// Errors  a failed opening is traced, the caller stays where it is.
#pragma once
#include "ose/types.h"

struct GpsSerialCounters {
    u32 numberOfBytesRec = 0, numberOfTooLongMsgs = 0;
};
/// Opens the line. 0 done, else the result of the subscription, traced. The assembly begins empty.
int  KvdLoz6TuGps_openSerial();
void KvdLoz6TuGps_closeSerial();
bool KvdLoz6TuGps_serialIsOpen();
/// The receive callback: frames sentences and posts each to the manager.
void KvdLoz6TuGps_serialReceived(const u8* bytes, u32 count);
const GpsSerialCounters& KvdLoz6TuGps_serialCounters();
void KvdLoz6TuGps_clearSerialCounters();
