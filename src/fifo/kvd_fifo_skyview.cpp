#include "fifo/kvd_fifo_skyview.h"

#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "fifo/kvd_fifo_dump.h"
#include "fifo/kvd_fifo_record.h"
#include "fifo/kvd_fifo_upcalls.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "sig/fifo_sig.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace {

using fifo::SkyView;

constexpr u16 RECORDS = 1440;                  // a day, a record a minute
constexpr OSTIME DAY_ms = 86400000;
constexpr u8 TICKS_A_RECORD = 60;
constexpr const char* FILE_NAME = "/gzip/c/logfiles/kvdFifoSkyView.gz";

/// Collecting from the start of the timer on, Ended by an order to stop that isn't carried out yet.
enum class Phase : u8 { Idle, Collecting, Ended };

struct State {
    std::array<std::unique_ptr<SkyView>, RECORDS> element;
    u16 index = 0;
    u16 highWater = 0;                         // elements reached since the start
    u8  tick = 0;
    Phase phase = Phase::Idle;
    KvdTimer recordingIntervalTimer;           // of Kvd_loz6_fifo_proc
};
ose::ModuleData<State> s;

void order(SIGSELECT sigNo)
{
    Signal* sig = ose::alloc(sizeof(Signal), sigNo);
    ose::send(&sig, KvdLoz6TuFifo_pid());
}

void forgetElements()
{
    for (std::unique_ptr<SkyView>& e : s->element) e.reset();
    s->index = 0;
    s->highWater = 0;
}

void writeElement(const SkyView& e)
{
    fifo::filePrint("################################################### \n"
                    "Time\t\t\t\t\t:\t%s \n",
                    e.time);
    fifo::fileText("\nGPGGA data received \n");
    fifo::writePosition("GPGGA", e.GPGGA.latitude, e.GPGGA.longitude, e.GPGGA.altitude);
    fifo::fileText("\nGPavp data received \n");
    fifo::writePosition("GPavp", e.GPavp.latitude, e.GPavp.longitude, e.GPavp.altitude);
    fifo::writeSatellites(e.satellites);
}

void writeFile()
{
    if (!fifo::fileOpen(FILE_NAME)) return;
    fifo::filePrint("\n Dump started: %s\n\n", fifo::dateNow().text);
    const u32 oldest = s->highWater == RECORDS ? s->index : 0;
    for (u32 i = 0; i < s->highWater; ++i) {
        const SkyView* const e = s->element[(oldest + i) % RECORDS].get();
        if (e != nullptr) writeElement(*e);
    }
    fifo::filePrint("\n Dump finished: %s\n\n", fifo::dateNow().text);
    fifo::fileClose();
}

}  // namespace

// ---- orders -------------------------------------------------------------------------------------

void KvdLoz6FifoSkyView_start()
{
    forgetElements();
    order(KVD_FIFO_SKYVIEW_START_TIMER_IND);
}

void KvdLoz6FifoSkyView_stop()
{
    if (s->phase != Phase::Collecting) return;
    s->phase = Phase::Ended;                   // the timer is cancelled by the process that owns it
    order(KVD_FIFO_DUMP_SKYVIEW_FIFO_TO_FILE_IND);
}

bool KvdLoz6FifoSkyView_isRunning() { return s->phase == Phase::Collecting; }

void KvdLoz6FifoSkyView_tick()
{
    if (s->phase != Phase::Collecting) return;
    if (s->tick % TICKS_A_RECORD == 0) {
        order(KVD_FIFO_SKYVIEW_FIFO_WRITE_DATA_IND);
        s->tick = 0;
    }
    ++s->tick;
}

// ---- Kvd_loz6_fifo_proc -------------------------------------------------------------------------

void fifo::onSkyViewStartTimer()
{
    const bool runs = KvdTimer_restart(s->recordingIntervalTimer, DAY_ms,
                                       KVD_FIFO_DUMP_SKYVIEW_FIFO_TO_FILE_IND);
    s->phase = runs ? Phase::Collecting : Phase::Idle;
    if (!runs) KVD_TRACE(TRACE_FIFO, TRACE_ERROR, "24h recordingIntervalTimer failed to start!");
}

void fifo::onSkyViewWriteData()
{
    if (s->phase == Phase::Idle) return;       // the day has just ended
    const u16 at = s->index;
    s->index = static_cast<u16>((s->index + 1) % RECORDS);
    s->highWater = std::max<u16>(s->highWater, static_cast<u16>(at + 1));
    std::unique_ptr<SkyView>& e = s->element[at];
    if (e == nullptr) e.reset(new (std::nothrow) SkyView{});
    if (e == nullptr) {
        KVD_TRACE(TRACE_FIFO, TRACE_ERROR, "Failed to allocate memory for the skyview buffer");
        return;
    }
    const GpsReceiver& receiver = FIFO_UPCALLS.receiver();
    TuCommon_timeStamp(e->time);
    e->GPGGA = fifo::positionOf(receiver.instantaneous);
    e->GPavp = fifo::positionOf(receiver.averaged);
    const auto& table = FIFO_UPCALLS.satellites();
    std::copy_n(table.begin(), e->satellites.size(), e->satellites.begin());
}

void fifo::onSkyViewDump()
{
    // The day's end and the order to stop come by one signal; who orders has ended it.
    KvdTimer& timer = s->recordingIntervalTimer;
    if (s->phase != Phase::Collecting && timer.stale == 0)
        KvdTimer_cancel(timer);
    else if (!KvdTimer_expired(timer))
        return;
    s->tick = 0;
    if (std::exchange(s->phase, Phase::Idle) == Phase::Idle) return;
    KVD_TRACE(TRACE_FIFO, TRACE_1, "Dump of skyView fifo buffer started!");
    writeFile();
    KVD_TRACE(TRACE_FIFO, TRACE_1, "Dump of skyView fifo buffer ended!");
    forgetElements();
    KVD_TRACE(TRACE_FIFO, TRACE_1, "Memory freed!");
}
