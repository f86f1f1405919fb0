// kvd_slave_int.h - What the sources of the inter-unit measurements share: state, histories, the
// arithmetic as functions of their arguments, and the neighbours' operations. Nobody else includes
// it, but for the tests.
// Owner   kvd_slave*.cpp.
// Units   seconds, increments of 1/122880000 s where told.
// Errors  none here; failures are traced where a measurement is dropped.
#pragma once
#include "base/tu_common.h"
#include "refs/kvd_slave.h"
#include "sig/tuiif_sig.h"

#include <array>

namespace slave {

// ---- the extended counter of IDL1 ---------------------------------------------------------------

/// Turns of the 1024 s counter as the sender tells them. Its coarse time moves only with a sample
/// and so lags behind a wrap.
struct EsfcSend {
    u32 lastEsfc = 0;
    u16 lastMfn = 0;
    u8  eSfcClosed = 0;          // the lag at mfn 0 has ended
};
/// What a master sends; `eSfc` is what its coarse time says.
u32 esfcToSend(EsfcSend& state, u32 eSfc, bool readOk, u16 mfn);

/// A new value counts when it comes twice running; a single odd one cancels what is pending.
struct EsfcFollow {
    u32 lastEsfc = 0;
    u32 updateEsfc = 0;
};
/// True when the slave's coarse time is to follow now.
bool esfcFollow(EsfcFollow& state, u32 e_sfc);
/// Whole turns of a coarse time; 0 for one that isn't known.
u32 turns(double t_c_last);

/// Puts a phase difference on the side of the counter's wrap on which the local counter stands.
double neutralizeWraparound(double phase, double counter, double period);

// ---- delays of IDL2 -----------------------------------------------------------------------------

struct DelayWords { u32 T1C1High, T1C1Low, C4T1High, C4T1Low; };
/// T1 to C1 less C4 to T1, within half a turn of the frame number.
double singleMeasurement(const DelayWords& words);
double phaseDifference(const DelayWords& masterDu, const DelayWords& slaveDu);

/// The slave's end of the link, from the port server.
struct PortData {
    DelayWords delay;
    u8 linkMode, linkStability;
};

// ---- histories ----------------------------------------------------------------------------------

struct Idl1Record {
    u32 used = 0;                        // 1 once written
    u32 currSlavePllState = 0;
    u32 m = 0;
    double phaseDiff = 0;                // s
    double targetDiff = 0;               // s
    double extAccFreqOffset = 0;
    u32 currSlavePllEvent = 0;
    char time[TIME_STAMP_SIZE] = "";
};

struct Idl2Record {
    u32 used = 0;
    u32 currSlavePllState = 0;
    DelayWords masterDu{}, slaveDu{};
    u32 jumpPend = 0, jumpInd = 0;
    u8  nearEndportNo = 0, farEndportNo = 0, synchPortNo = 0;
    u32 directConn = 0;
    u8  linkMode = 0, linkStability = 0;             // at the far end
    u32 master_esfc = 0;
    u16 master_mfc = 0, master_sfc = 0;
    u32 master_inc = 0;
    u32 slave_esfc = 0;
    u16 slave_mfc = 0, slave_sfc = 0;
    u32 slave_inc = 0;
    u32 m = 0;
    u32 intermediaryDuFineTimeSynching = 0;
    double intermediaryDuPhaseDiff = 0;              // s
    double phaseDiff = 0, totalPhaseDiff = 0;        // s
    double extAccFreqOffset = 0;
    u32 idl2FineTuning = 0, repeatFineSyncIndDueTojump = 0;
    u8  instabilityCntNe = 0, instabilityCntFe = 0;
    u32 iterationIsRegulated = 0, postponeTimeTuning = 0;
    char time[TIME_STAMP_SIZE] = "";
};

/// Ring without a count: a slot that hasn't been written isn't used.
template <typename Record, u16 CAPACITY>
struct HistoryRing {
    std::array<Record, CAPACITY> slot{};
    u16 next = 0;
    void write(const Record& record)
    {
        slot[next] = record;
        next = static_cast<u16>(next + 1 < CAPACITY ? next + 1 : 0);
    }
    const Record& oldest(u32 i) const { return slot[(next + i) % CAPACITY]; }
};

struct History {
    HistoryRing<Idl1Record, 3000> idl1, idl1Snapshot;   // five minutes at 10 a second
    HistoryRing<Idl2Record, 300> idl2, idl2Snapshot;
    u32 currSlavePllEvent = EV_SLAVE_PLL_UNEVENTFUL_MEASUREMENT;
};
History& history();
/// Writes a record of this instant; the loop's fields and the event are taken from where they are.
void writeIdl1History(double phaseDiff);
void writeIdl2History(const Idl2Record& record);

// ---- state --------------------------------------------------------------------------------------

struct Idl2State {
    u32 idl2SyncDataStopped = 0;
    u32 idl2FineTuning = 0;              // 0 coarse stage, 1 fine stage
    u32 repeatFineSyncIndDueTojump = 0;  // a jump restarted the stages
    u8  instabilityCntNe = 0, instabilityCntFe = 0;
    u32 iterationIsRegulated = 0;        // the loop got a sample
    u32 postponeTimeTuning = 0;
};
Idl2State& idl2State();
EsfcSend& esfcSend();
EsfcFollow& esfcFollowState();

/// Composes the IDL1 word and writes it. A master tells its own jump flag in place of `jump`.
void sendIdl(u32 localInc, u32 jump, u32 cold);
void handleIdl1IntMaster();
void handleIdl1IntSlave();

// ---- neighbours ---------------------------------------------------------------------------------

/// Tests of the flow put their own in place.
struct Needs {
    u32  (*timeTuningOngoing)();
    u32  (*hasHwControl)();
    int  (*unableToTimeLock)();              // 0 sent
    int  (*sendClkStatus)(u8 clkStatus);     // 0 sent
    void (*portData)(u32 port, PortData& data);
    u32  (*slavePllState)();
    void (*slavePllControl)(double phaseDiff);
};
const Needs& needs();
/// For tests; nullptr puts the program's own back.
void setNeeds(const Needs* replacement);

}  // namespace slave
