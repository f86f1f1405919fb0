// kvd_reg_mtie.h - Maximum time interval error of a locked packet reference against a mask, for the
// trace: nothing in the regulator acts on it.
// Owner   the manager process; only kvd_reg_mtie.cpp writes this module's state.
// Units   seconds; rates in packets per second.
// Errors  a handle that isn't the object's is ignored.
#pragma once
#include "ose/types.h"

#include <array>

constexpr u32 MTIE_RATE_MAX = 256;     // packets/s; more than that shortens the windows

/// Handle of the open mask, the one object's address.
struct MtieMask;
MtieMask* KvdLoz6TuReg_openMtieMask();
void      KvdLoz6TuReg_closeMtieMask(MtieMask* handle);
/// Closes and opens it: windows and results begin anew.
MtieMask* KvdLoz6TuReg_resetMtieMask(MtieMask* handle);
/// One packet's phase. 1 when an interval's error is above the mask, else 0.
u32       KvdLoz6TuReg_addMtieMask(MtieMask* handle, double z, u16 rate);

namespace mtie {

constexpr u32 INTERVALS = 6;
constexpr std::array<double, INTERVALS> TAU = {1.5, 2.0, 2.5, 10.0, 50.0, 100.0};   // s
constexpr u32 WINDOW_MAX = 100 * MTIE_RATE_MAX;      // samples of the longest interval

/// The mask, s; not defined above tau = 275 s.
double mtieLimit(double tau);
/// One low-pass step, time constant 10 s; at rate 0 the sample itself.
double filter(double filtered, double z, u16 rate);

/// A queue of numbers in a piece of memory that its owner hands in at each use.
struct Queue {
    u32 first = 0;       // place of the oldest
    u32 count = 0;
};

/// Sliding minimum and maximum of the last n samples. The lists hold the candidates: for the
/// minimum rising from oldest to newest, for the maximum falling.
struct TauRecord {
    u32 samples = 0;     // in the window
    Queue minList, maxList;
    u16 rate = 0;
    double tau = 0;      // s
    double mtie = 0;     // s, largest range since the beginning
};

/// Takes sample x; `leaving` is the window's oldest, used when the window is full. `minPlaces` and
/// `maxPlaces` hold `room` numbers each, at least the window's. Returns the record's mtie.
double mtieAdd(TauRecord& record, double x, double leaving, double* minPlaces, double* maxPlaces, u32 room);
/// Samples in a full window.
u32 windowSize(const TauRecord& record);

}  // namespace mtie

/// Every window sees the same samples and differs in its length alone, so one ring of the longest keeps
/// them for all.
struct MtieMask {
    u16 rate = 0;                          // packets per second, 0 after opening
    std::array<mtie::TauRecord, mtie::INTERVALS> tauRecord{};
    double filtered = 0;                   // s
    u32 next = 0;                          // place of the next sample in the ring
};
