// fifo_bench.h - The process of the rolling logs in an otherwise idle program.
#pragma once
#include "fifo/kvd_fifo_proc.h"
#include "frame/kvd_mgr_proc.h"
#include "gps/kvd_gps_receiver.h"
#include "ref/kvd_ref.h"
#include "tests/support/idle_node.h"
#include "tests/support/unit_bench.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_process.h"

#include <gmock/gmock.h>

struct FifoBench : IdleNode {
    FifoBench()
    {
        bench::failOnMisuse(world);
        in([] {
            const PROCESS fifo = ose::create_process(ose::KIND_PRIORITISED, "Kvd_loz6_fifo_proc",
                                                     KvdLoz6Fifo_proc, 16384, 31, 0, 0);
            KvdLoz6TuMgr_setPids(0, fifo, 0);
            ose::start(fifo);
        });
    }
    /// A supervised GPS reference with that kind of receiver.
    void receiver(u32 gpssType)
    {
        in([gpssType] {
            KvdLoz6TuRef_table().refDescTable[ROW_GPS].supervisionStatus = 1;
            KvdLoz6TuGps_receiverRecord().gpssType = gpssType;
        });
    }
    void dump()
    {
        in([] { KvdLoz6Fifo_dump(); });
        world.runFor(ose::MS);
    }
    std::string file(const std::string& name)
    {
        std::string content;
        node.volumes().read("/gzip/c/logfiles/" + name + ".gz", content);
        return content;
    }
};

inline std::size_t occurrences(const std::string& text, const std::string& part)
{
    std::size_t n = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++n;
    return n;
}
