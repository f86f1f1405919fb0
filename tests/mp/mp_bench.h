// mp_bench.h - A unit that is connected to its main processor; nothing has been told yet but the answer.
#pragma once
#include "tests/iif/iif_bench.h"

namespace bench {

struct Connected : IifBench {
    explicit Connected(Negotiated n = {}, const std::vector<u8>& selected = {}) : IifBench(n)
    {
        connect();
        for (const u8 refType : selected) select(refType);
    }
    explicit Connected(std::initializer_list<u8> selected) : Connected(Negotiated{}, std::vector(selected)) {}
    std::size_t statuses() { return sent(KVD_TUIIF_BVQ_STATUS_IND); }
    KvdTuiifBvqStatusInd lastStatus()
    {
        return *mp().last(KVD_TUIIF_BVQ_STATUS_IND)->as<KvdTuiifBvqStatusInd>();
    }
    void threshold(u32 holdoverClass, u32 minutes)
    {
        in([=] { KvdLoz6TuIifAdm_setHoldoverThreshold(holdoverClass, minutes); });
    }
};

}  // namespace bench
