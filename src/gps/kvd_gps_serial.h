// kvd_gps_serial.h - The serial line to the receiver: opening, framing of sentences, counts.
// Owner   the line's client process, such as TuGpsInt_proc, runs the callbacks, owns the assembly buffer and
//         numberOfBytesRec; the rest is the manager's.
// Units   9600 bit/s, 8 data bits, 1 stop bit, no parity.
// Errors  a failed opening is traced, the caller stays where it is.
#pragma once
#include "ose/types.h"

/// Who has the board's one line: the front end of a receiver, the sync link's input, the output.
enum GpsLine : u8 { GPS_LINE_RECEIVER, GPS_LINE_SYNC_LINK, GPS_LINE_OUTPUT, GPS_LINES };

struct GpsSerialCounters {
    u32 numberOfBytesRec = 0, numberOfTooLongMsgs = 0;
};
/// Opens the line. 0 done, else the result of the subscription, traced. The assembly begins empty.
int  KvdLoz6TuGps_openSerial(GpsLine line = GPS_LINE_RECEIVER);
/// Nothing when the line isn't this one's.
void KvdLoz6TuGps_closeSerial(GpsLine line = GPS_LINE_RECEIVER);
bool KvdLoz6TuGps_serialIsOpen(GpsLine line = GPS_LINE_RECEIVER);
/// The receive callback: frames sentences and posts each to the manager. The output takes none.
void KvdLoz6TuGps_serialReceived(const u8* bytes, u32 count, GpsLine line = GPS_LINE_RECEIVER);
const GpsSerialCounters& KvdLoz6TuGps_serialCounters(GpsLine line = GPS_LINE_RECEIVER);
void KvdLoz6TuGps_clearSerialCounters(GpsLine line = GPS_LINE_RECEIVER);
