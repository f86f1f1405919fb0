// platform.h - What the node and the board offer to a loaded program by plain calls: registers,
// interrupt lines, calendar clock, board parameters, error log, LED, volumes, serial line, shell.
// Services that answer by signals stand in headers of their own (pri.h, temi.h, msi.h).
//
// A port implements Platform once for its board; the simulated node is one such implementation.
// Owner   the node; a program calls, it never stores what it is given.
// Errors  0 is done, any other value is the service's refusal, unless a call says otherwise.
#pragma once
#include "ose/types.h"

#include <cstddef>
#include <string>

namespace node {

/// Time of day of the node. Not monotonic: it can be set while the program runs.
struct CalendarTime {
    i64 seconds;       // since 1970-01-01 00:00:00 UTC
    u32 microseconds;  // 0 to 999999
};

/// A command of the program in the platform's shell. All texts live as long as the program.
struct ShellCommand {
    const char* name;
    const char* usage;
    const char* help;
    int (*handler)(int argc, char** argv);   // result code, 0 is done
};

/// One written trace.
struct TraceRecord {
    const char* group;
    u8 level;
    const char* process;
    const char* file;   // without path
    int line;
    const char* text;
};

/// Callbacks and settings of the board's UART, see Platform::serialOpen.
struct SerialSetting { u32 key; u32 value; };

class Platform {
public:
    virtual ~Platform() = default;

    // ---- memory-mapped I/O: aligned 32-bit words ---------------------------------------------------
    virtual u32  mmioRead(u32 address) = 0;
    virtual void mmioWrite(u32 address, u32 value) = 0;
    virtual void ioBarrier() = 0;

    // ---- board data (ADI), interrupt lines, parameters ---------------------------------------------
    /// Board code of the hardware information: 7, 9 or other.
    virtual int adiBoardCode(u32& code) = 0;
    virtual int adiEnableExtInt(u32 vector) = 0;
    virtual int adiDisableExtInt(u32 vector) = 0;
    /// Text of a board parameter into `text` of `size` bytes, terminated. Nonzero when absent or longer.
    virtual int boardParameter(const char* name, char* text, std::size_t size) = 0;
    /// One attempt to read a boot parameter through NVPI: 0 done, 1 server not there, 2 no such
    /// parameter, 3 longer than `size` allows, 4 an answer that makes no sense.
    virtual int bootParameter(const char* name, char* text, std::size_t size) = 0;

    // ---- visual indication, error log, shutdown ------------------------------------------------------
    /// 1 red LED on, 2 red LED off.
    virtual int visualIndication(u32 request) = 0;
    /// One entry of the node's error log; TARSO_ELGI_WRITE2_RSP (elgi.h) comes back to the caller.
    virtual int elgiWrite(const char* code, u32 severity, u32 count, const char* text, u32 last) = 0;
    /// Runs `callback` in the program when the node shuts down in good order.
    virtual int registerShutdown(void (*callback)()) = 0;

    // ---- calendar clock, file volumes --------------------------------------------------------------------
    virtual CalendarTime calendar() = 0;
    /// 1 when the file is there.
    virtual int fileExists(const char* path) = 0;
    // A failing call answers the reason as an error number of the C library (ENOENT, EIO, ...).
    // What goes to a path below /gzip/ is stored compressed (RFC 1952); it is read back as written.
    /// Whole file. 0 done; nonzero when it isn't there.
    virtual int fileRead(const char* path, std::string& content) = 0;
    /// Replaces the file.
    virtual int fileWrite(const char* path, const std::string& content) = 0;
    virtual int fileAppend(const char* path, const std::string& content) = 0;
    virtual int fileRemove(const char* path) = 0;

    // ---- persistent memory (MSI); negotiation and allocation go by signals, see msi.h ----------------
    // A platform without the service leaves these as they are.
    /// 0 it takes requests, 1 it isn't there, 4 it is busy.
    virtual int msiState() { return 1; }
    /// Bytes of allocated regions. A write holds at once; TARSO_MSI_MEM_S_WRITE_CFM or _REJ goes to
    /// the process that allocated the region.
    virtual int msiRead(u32 /*address*/, u8* /*bytes*/, std::size_t /*count*/) { return 1; }
    virtual int msiWrite(u32 /*address*/, const u8* /*bytes*/, std::size_t /*count*/) { return 1; }

    // ---- UDP sockets (IPSOCKI); connection and datagrams come as signals, see ipsocki.h ----------------
    // A platform without the service leaves these as they are. -1 is a failure, ipError tells which.
    /// 0 it takes requests, 1 it isn't there, 4 it is busy.
    virtual int ipState() { return 1; }
    virtual int ipSocket(u32 /*family*/, u32 /*type*/) { return -1; }
    virtual int ipOption(int /*socket*/, u32 /*option*/, u32 /*value*/, u32 /*low*/) { return -1; }
    virtual int ipBind(int /*socket*/, const u8* /*octets*/, u32 /*port*/) { return -1; }
    virtual int ipSend(int /*socket*/, const u8* /*bytes*/, std::size_t /*count*/, const u8* /*octets*/,
                       u32 /*port*/) { return -1; }
    virtual int ipClose(int /*socket*/) { return -1; }
    virtual int ipError() { return 0; }

    // ---- serial line -------------------------------------------------------------------------------------
    /// Opens the UART of that device name. Received bytes raise interrupt `vector`; serialRead takes them.
    /// 0 done, 8 no such device, other: the driver's code.
    virtual int serialOpen(const char* device, u32 vector, const SerialSetting* settings,
                           std::size_t count) = 0;
    virtual int serialClose(const char* device) = 0;
    virtual int serialWrite(const char* device, const u8* bytes, std::size_t count) = 0;
    /// Takes up to `room` received bytes; returns how many.
    virtual std::size_t serialRead(const char* device, u8* bytes, std::size_t room) = 0;

    // ---- shell, trace -------------------------------------------------------------------------------------
    virtual int  registerCommand(const ShellCommand& command) = 0;
    /// Text of a running command to the shell's standard output.
    virtual void shellPrint(const char* text) = 0;
    virtual void trace(const TraceRecord& record) = 0;
};

/// Platform of the calling process's system. Never null inside a process.
Platform& platform();

/// Formats to the shell's standard output.
void shellPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// What the calling process prints from now on goes to `sink`, until it asks for the shell again
/// with nullptr. One process of a program at a time.
void shellRedirect(void (*sink)(const char* text));

}  // namespace node
