// trace.h - The trace front end: groups, levels, a mask a process, one macro.
// Owner   trace.cpp; sinks belong to the platform (platform.h).
// Units   none.
// Errors  none reach the caller: code behaves the same with tracing on or off.
#pragma once
#include "ose/types.h"

namespace node {

/// Levels of a trace call. 5 to 16 are the modules' own.
enum TraceLevel : u8 {
    TRACE_CHECK = 0,
    TRACE_ERROR = 1,
    TRACE_ENTER = 2,
    TRACE_RETURN = 3,
    TRACE_INFO = 4,
    TRACE_1 = 5, TRACE_2, TRACE_3, TRACE_4, TRACE_5, TRACE_6,
    TRACE_7, TRACE_8, TRACE_9, TRACE_10, TRACE_11, TRACE_12,
    TRACE_REC_SIG = 17,
    TRACE_SEND_SIG = 18,
};
constexpr u32 TRACE_LEVELS = 19;

/// Bit n switches level n on; the word that each process starts with.
constexpr u32 TRACE_MASK_DEFAULT = 0x00300013;

constexpr u32 TRACE_GROUPS_MAX = 64;

/// Registers the next group of the calling program; groups count from 0 in order of registration.
void traceRegisterGroup(const char* name);
/// Name of a group of the calling program, "" when it isn't registered.
const char* traceGroupName(u32 group);

/// Gives the calling process its trace block: the mask starts at the default, the status word at 0.
void traceAttachProcess();
u32  traceMask();                 // mask of the calling process
void traceSetMask(u32 mask);      // of the calling process
/// Lets every process of the calling program trace with this mask from now on (operator's wish).
void traceSetProgramMask(u32 mask);

/// Error status word of the calling process: counts texts that the service could not take whole.
u32  traceErrorStatus();
void traceClearErrorStatus();

bool traceIsOn(u8 level);
void traceWrite(u32 group, u8 level, const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

/// Source file name without its path.
constexpr const char* traceFileName(const char* path)
{
    const char* name = path;
    for (const char* p = path; *p != '\0'; ++p)
        if (*p == '/') name = p + 1;
    return name;
}

}  // namespace node

using node::TRACE_CHECK;
using node::TRACE_ERROR;
using node::TRACE_ENTER;
using node::TRACE_RETURN;
using node::TRACE_INFO;
using node::TRACE_1; using node::TRACE_2; using node::TRACE_3; using node::TRACE_4;
using node::TRACE_5; using node::TRACE_6; using node::TRACE_7; using node::TRACE_8;
using node::TRACE_9; using node::TRACE_10; using node::TRACE_11; using node::TRACE_12;
using node::TRACE_REC_SIG;
using node::TRACE_SEND_SIG;

/// One trace. Nothing is evaluated or formatted while the level is off, so no argument may have a side
/// effect; the format is checked at compile time.
#define KVD_TRACE(group, level, ...)                                                                \
    do {                                                                                            \
        if (node::traceIsOn(level))                                                                 \
            node::traceWrite(static_cast<u32>(group), (level), node::traceFileName(__FILE__),       \
                             __LINE__, __VA_ARGS__);                                                \
    } while (0)
