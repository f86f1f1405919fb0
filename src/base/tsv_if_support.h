// tsv_if_support.h - Directory of platform services on behalf of the program's client proxies.
// Owner   the process Tsv_IfSupport_proc.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT TSV_IF_LOOKUP_REQ  = 0x100C3;   // proxy -> directory and back: TsvIfLookup
constexpr SIGSELECT TSV_IF_SERVER_DEAD = 0x100C4;   // attach signal: TsvIfServerDead

struct TsvIfLookup {
    SIGSELECT sigNo;
    u32 serverPid;       // answer: the server's process, 0 while there is none
    u32 attached;        // answer: 1 while the server is supervised
    char service[48];    // name of the server's process, terminated
};
static_assert(offsetof(TsvIfLookup, service) == 12 && sizeof(TsvIfLookup) == 60);

struct TsvIfServerDead {
    SIGSELECT sigNo;
    u32 entry;           // its number in the list
};

/// Entry point.
void TsvIfSupport_proc();
