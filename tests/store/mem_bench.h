// mem_bench.h - The persistent memory client in a process of its own, beside the node's service.
#pragma once
#include "store/kvd_mgr_mem.h"
#include "support/idle_node.h"

struct MemBench : IdleNode {
    sim::MsiServer& msi() { return node.msi(); }

    /// What has come to the calling process goes through the client.
    static void serve(OSTIME wait = 0)
    {
        while (Signal* sig = ose::receive_w_tmo(wait, ose::ANY_SIGNAL)) {
            KvdLoz6TuMem_dispatch(sig);
            ose::free_buf(&sig);
        }
    }
    /// Runs `body` in a client that has negotiated and allocated all its regions.
    void withRegions(const std::function<void()>& body, u32 clear = 0)
    {
        in([&] {
            KvdLoz6TuMem_initiate();
            KvdLoz6TuMem_allocate(MEM_REG_HIST, clear);
            KvdLoz6TuMem_allocate(MEM_GPS_OUT, clear);
            serve();
            body();
            serve();
        });
    }
    std::vector<u8> bytes(const std::string& region)
    {
        const sim::MsiRegion* const r = msi().region(region);
        return r != nullptr ? r->bytes : std::vector<u8>{};
    }
};
