// elgi.h - Client of the node's error log.
#pragma once
#include "node/platform.h"

#include <cstddef>

constexpr SIGSELECT TARSO_ELGI_WRITE2_RSP = 0x6011F;   // service -> writer: TarsoElgiWrite2Rsp

struct TarsoElgiWrite2Rsp {
    SIGSELECT sigNo;
    u8 status;           // 0 written
};
static_assert(offsetof(TarsoElgiWrite2Rsp, status) == 4);

namespace node {

/// One entry: three-character code, text. 0 for done.
inline int TarsoElgi_write2(const char* code, const char* text)
{
    return platform().elgiWrite(code, 0, 1, text, 0);
}

}  // namespace node
