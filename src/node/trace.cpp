#include "node/trace.h"

#include "node/platform.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <cstdarg>
#include <cstdio>

namespace {

constexpr u32 PROCESSES_MAX = 32;      // trace blocks of one program
constexpr u32 TEXT_MAX = 1024;   // bytes of one text that the service takes, terminator included

struct ProcessBlock {
    PROCESS pid;
    u32 mask;
    u32 errorStatus;
};

struct State {
    const char* group[node::TRACE_GROUPS_MAX] = {};
    u32 groups = 0;
    ProcessBlock block[PROCESSES_MAX] = {};
    u32 blocks = 0;
    u32 lastHit = 0;                                  // most traces follow one of the same process
    u32 programMask = node::TRACE_MASK_DEFAULT;       // of processes without a block of their own
};
ose::ModuleData<State> s;

/// Traces come from a process of a loaded program; anything else is silent.
bool insideProgram() { return ose::detail::programData != nullptr && ose::current_process() != 0; }

ProcessBlock* findBlock(PROCESS pid)
{
    if (s->lastHit < s->blocks && s->block[s->lastHit].pid == pid) return &s->block[s->lastHit];
    for (u32 i = 0; i < s->blocks; ++i) {
        if (s->block[i].pid != pid) continue;
        s->lastHit = i;
        return &s->block[i];
    }
    return nullptr;
}

/// A new slot, or that of a process that is gone; nullptr when all are taken.
ProcessBlock* freeBlock()
{
    if (s->blocks < PROCESSES_MAX) return &s->block[s->blocks++];
    for (ProcessBlock& b : s->block)
        if (ose::process_name(b.pid) == nullptr) return &b;
    return nullptr;
}

}  // namespace

namespace node {

void traceRegisterGroup(const char* name)
{
    if (s->groups < TRACE_GROUPS_MAX) s->group[s->groups++] = name;
}

const char* traceGroupName(u32 group) { return group < s->groups ? s->group[group] : ""; }

void traceAttachProcess()
{
    const PROCESS pid = ose::current_process();
    ProcessBlock* b = findBlock(pid);
    if (b == nullptr) b = freeBlock();
    if (b != nullptr) *b = {pid, s->programMask, 0};
}

u32 traceMask()
{
    const ProcessBlock* b = findBlock(ose::current_process());
    return b != nullptr ? b->mask : s->programMask;
}

void traceSetMask(u32 mask)
{
    ProcessBlock* b = findBlock(ose::current_process());
    if (b == nullptr) {
        traceAttachProcess();
        b = findBlock(ose::current_process());
    }
    if (b != nullptr) b->mask = mask;
}

void traceSetProgramMask(u32 mask)
{
    s->programMask = mask;
    for (u32 i = 0; i < s->blocks; ++i) s->block[i].mask = mask;
}

u32 traceErrorStatus()
{
    const ProcessBlock* b = findBlock(ose::current_process());
    return b != nullptr ? b->errorStatus : 0;
}

void traceClearErrorStatus()
{
    ProcessBlock* b = findBlock(ose::current_process());
    if (b != nullptr) b->errorStatus = 0;
}

bool traceIsOn(u8 level)
{
    if (level >= TRACE_LEVELS || !insideProgram()) return false;
    return (traceMask() >> level & 1) != 0;
}

void traceWrite(u32 group, u8 level, const char* file, int line, const char* format, ...)
{
    if (!insideProgram()) return;
    char text[TEXT_MAX];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    const PROCESS pid = ose::current_process();
    if (length < 0 || length >= static_cast<int>(sizeof text)) {
        if (length < 0) text[0] = '\0';
        ProcessBlock* b = findBlock(pid);
        if (b != nullptr) ++b->errorStatus;
    }
    const char* process = ose::process_name(pid);
    platform().trace({traceGroupName(group), level, process != nullptr ? process : "", file, line, text});
}

}  // namespace node
