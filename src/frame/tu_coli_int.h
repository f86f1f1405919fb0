// tu_coli_int.h - Handlers of the commands. Argument 0 is the command's name, so argc 2 is one argument.
#pragma once
#include "frame/tu_coli.h"

#include <cstring>

namespace coli {

/// Arguments are compared as exact strings.
inline bool is(const char* argument, const char* word) { return std::strcmp(argument, word) == 0; }
/// A decimal number taken whole; false for anything else.
bool number(const char* text, i64& value);

// tu_coli_info.cpp
int kvdinfo(int argc, char** argv);
int kvdhist(int argc, char** argv);

// tu_coli_reg.cpp: the regulator and its view to the client
int freerunning(int argc, char** argv);
int kvdwritehist(int argc, char** argv);
int kvdreadhist(int argc, char** argv);
int kvdselectregref(int argc, char** argv);
int kvdfixfrequency(int argc, char** argv);
int kvdconfigtimeacc(int argc, char** argv);
int kvdsetfastlock(int argc, char** argv);
int genpdv(int argc, char** argv);
int kvdholdoverthr(int argc, char** argv);
int kvdremovetime(int argc, char** argv);
int kvddegraderef(int argc, char** argv);
int kvdsetcallimit(int argc, char** argv);
int kvdpdvthr(int argc, char** argv);
int socpritogreg(int argc, char** argv);
int socprireadsfc(int argc, char** argv);

// tu_coli_hw.cpp: the board
int kvdsetfsyncreg(int argc, char** argv);
int kvdprodtest(int argc, char** argv);
int genwander(int argc, char** argv);

// tu_coli_gps.cpp: the GPS receiver
int gpsprot(int argc, char** argv);
int gpscapture(int argc, char** argv);
int gps01reset(int argc, char** argv);
int gps02reset(int argc, char** argv);
int gpsstatus(int argc, char** argv);
int gpssend(int argc, char** argv);
int genhptsisource(int argc, char** argv);
int gengpssstatus(int argc, char** argv);
int kvdgpstrace(int argc, char** argv);
int gpsskyview(int argc, char** argv);
int gentimestandard(int argc, char** argv);
int kvdgpsreset(int argc, char** argv);

}  // namespace coli
