// kvd_gps_receiver.h - What the receiver has told of itself: kind, time, observation mode, position.
// Owner   the manager process. Detection, the sentence parsers and the state machines of the receivers, which
//         forget the time, write; everybody reads.
// Units   GPS time in s since 1980-01-06; week and second of the week.
// Errors  none.
#pragma once
#include "sig/gps_types.h"

const GpsReceiver& KvdLoz6TuGps_receiver();
/// The one record, for its writers.
GpsReceiver& KvdLoz6TuGps_receiverRecord();

/// Both types at once, as detection and the dialects do.
void KvdLoz6TuGps_setGpssType(u32 gpssType);
/// "Norvane Combined"; a type 6 is "Furuno (GPS02)" or "Furuno (GPS03)" by its firmware field.
const char* KvdLoz6TuGps_gpssTypeText(u32 gpssType);
/// Position for the client: the averaged one in position hold with any type but GPS01, else the
/// instantaneous one.
const GpsPosition& KvdLoz6TuGps_shownPosition();
/// Type, mode, week, TOW and both positions as before any sentence. Flags, time and backup stay.
void KvdLoz6TuGps_resetReceiver();
