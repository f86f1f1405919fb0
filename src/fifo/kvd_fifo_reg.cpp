#include "fifo/kvd_fifo_reg.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "fifo/kvd_fifo_dump.h"
#include "fifo/kvd_fifo_record.h"
#include "fifo/kvd_fifo_upcalls.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/reg_types.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

using fifo::Regulator;

constexpr u16 RECORDS = 5400;
constexpr const char* FILE_NAME = "/gzip/c/logfiles/kvdFifoKalman.gz";

struct State {
    std::array<Regulator, RECORDS> ring{};
    u16 index = 0;                 // the newest record
    float latchedTime = 0.0f;      // s, waits for its record
};
ose::ModuleData<State> s;

void timeAndFrequency(const std::array<double, 6>& x, float (&out)[2])
{
    out[0] = static_cast<float>(x[0]);
    out[1] = static_cast<float>(x[1]);
}

void timeAndFrequency(const std::array<double, 36>& P, float (&out)[4])
{
    out[0] = static_cast<float>(P[0]);
    out[1] = static_cast<float>(P[1]);
    out[2] = static_cast<float>(P[6]);
    out[3] = static_cast<float>(P[7]);
}

}  // namespace

// ---- filling ------------------------------------------------------------------------------------

void KvdLoz6FifoReg_setLatchedTime(double latchedTime) { s->latchedTime = static_cast<float>(latchedTime); }

void KvdLoz6FifoReg_add(const FifoRegStep& step)
{
    s->index = static_cast<u16>((s->index + 1) % RECORDS);
    Regulator& r = s->ring[s->index] = {};
    std::copy_n(step.time, TIME_STAMP_SIZE, r.time);
    r.Ref = step.z_i;
    if (step.z_i != Z_TEMP_REF) r.latchedTime = std::exchange(s->latchedTime, 0.0f);
    r.sfcTime_c = static_cast<float>(step.c);
    r.sfcTime_f = step.f;
    r.z = static_cast<float>(step.z);
    r.R = static_cast<float>(step.R);
    r.m = static_cast<float>(step.m);
    timeAndFrequency(step.x_pred, r.x_pred);
    timeAndFrequency(step.P_pred, r.P_pred);
    timeAndFrequency(step.K, r.Kgain);
    timeAndFrequency(step.x_est, r.x_est);
    timeAndFrequency(step.P_est, r.P_est);
    r.Uf = step.Uf;
    r.duf = static_cast<float>(step.duf);
}

// ---- the file -----------------------------------------------------------------------------------

namespace {

const char* refText(u32 z_i)
{
    static constexpr const char* TEXTS[] = {
        "<Unknown>",     "IDL1_LOZ6 (1)",     "EXT_REF (2)",       "PDH_REF1 (3)",      "PDH_REF2 (4)",
        "PDH_REF3 (5)",  "PDH_REF4 (6)",      "SDH_REF (7)",       "GPS_REF (8)",       "NTP_REF (9)",
        "SOFT_REF (10)", "TEMP_REF (11)",     "PKT_FREQ_REF (12)", "PKT_TIME_REF (13)", "NO_REF (14)",
        "ETH_REF (15)",  "EXT_1PPS_REF (16)", "IDL2_LOZ6 (17)",    "HPTSI_REF (18)",    "GPS_OUT_REF (19)",
    };
    return TEXTS[z_i < std::size(TEXTS) ? z_i : 0];
}

void writeRecord(const Regulator& r)
{
    fifo::filePrint("################################################### \n"
                    "Time\t\t\t\t:\t%s \n"
                    "Ref\t\t\t\t\t:\t%s \n",
                    r.time, refText(r.Ref));
    fifo::filePrint("latchedTime\t\t\t:\t%-10.10g \n"
                    "sfcTime c & f\t\t:\t%-10.10g \t%-17.16g \n",
                    r.latchedTime, r.sfcTime_c, r.sfcTime_f);
    fifo::filePrint("z\t\t\t\t\t:\t%-10.10g \n"
                    "R\t\t\t\t\t:\t%-5.5g \n"
                    "m\t\t\t\t\t:\t%-17.1f \n",
                    r.z, r.R, r.m);
    fifo::filePrint("x_pred[1-2] \t\t:\t%-5.5g \t %-5.5g\n"
                    "P_pred[11 12 21 22]\t:\t%-5.5g \t %-5.5g \t %-5.5g \t %-5.5g\n",
                    r.x_pred[0], r.x_pred[1], r.P_pred[0], r.P_pred[1], r.P_pred[2], r.P_pred[3]);
    fifo::filePrint("Kgain[1-2] \t\t\t:\t%-5.5g \t %-5.5g\n"
                    "x_est[1-2] \t\t\t:\t%-5.5g \t %-5.5g\n",
                    r.Kgain[0], r.Kgain[1], r.x_est[0], r.x_est[1]);
    fifo::filePrint("P_est[11 12 21 22]\t:\t%-5.5g \t %-5.5g \t %-5.5g \t %-5.5g\n"
                    "Uf\t\t\t\t\t:\t%-17.16g \n"
                    "duf\t\t\t\t\t:\t%-5.5g \n",
                    r.P_est[0], r.P_est[1], r.P_est[2], r.P_est[3], r.Uf, r.duf);
}

void writePrintouts()
{
    fifo::fileText("********************************************************************\n");
    fifo::fileText("\n***** Current state of LOZ6 from the kvdinfo all coli printout *****\n");
    fifo::filePrint("\n Date and Time for kvdinfo print: %s", fifo::dateNow().text);
    node::shellRedirect(fifo::fileText);
    FIFO_UPCALLS.printAll();
    node::shellRedirect(nullptr);
}

}  // namespace

void fifo::dumpRegulator()
{
    KVD_TRACE(TRACE_FIFO, TRACE_1, "Dump of reg fifo buffer started!");
    if (fifo::fileOpen(FILE_NAME)) {
        fifo::filePrint("Dump of data started:\n%s\n\n", fifo::dateNow().text);
        for (u32 i = 1; i <= RECORDS; ++i) writeRecord(s->ring[(s->index + i) % RECORDS]);
        writePrintouts();
        fifo::filePrint("\n\nDump of data finished:\n%s\n\n", fifo::dateNow().text);
        fifo::fileClose();
    }
    KVD_TRACE(TRACE_FIFO, TRACE_1, "Dump of reg fifo buffer ended!");
}
