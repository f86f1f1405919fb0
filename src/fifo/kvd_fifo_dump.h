// kvd_fifo_dump.h - Files of the rolling logs: writing of text, and the dump of each log. Nobody
// outside of src/fifo includes it.
// Owner   Kvd_loz6_fifo_proc, which writes one file at a time.
// Errors  a file that can't be opened is traced and the dump left out; a write that fails is traced
//         once and the rest of that file is lost.
#pragma once
#include "base/tu_common.h"
#include "fifo/kvd_fifo_record.h"
#include "ose/types.h"

namespace fifo {

/// Replaces the file. False, with a trace, when it can't be opened.
bool fileOpen(const char* path);
void filePrint(const char* format, ...) __attribute__((format(printf, 1, 2)));
void fileText(const char* text);
void fileClose();

struct DateText { char text[TIME_STAMP_SIZE]; };
DateText dateNow();

// Blocks that more than one log has.
void writePosition(const char* name, const Coordinate& latitude, const Coordinate& longitude, float altitude);
void writeSatellites(const Satellites& satellites);

void dumpGps();            // kvd_fifo_gps.cpp
void dumpRegulator();      // kvd_fifo_reg.cpp

// kvd_fifo_skyview.cpp: the signals of Kvd_loz6_fifo_proc
void onSkyViewStartTimer();
void onSkyViewWriteData();
void onSkyViewDump();

}  // namespace fifo
