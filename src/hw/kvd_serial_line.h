// kvd_serial_line.h - How each client sets the board's one serial line up: settings, buffers of the driver.
// Owner   none: constants, and callbacks without a state, which run in the client's interrupt process.
// Units   9600 bit/s, 8 data bits, 1 stop bit, no parity.
// Errors  none.
#pragma once
#include "hw/hali.h"
#include "node/platform.h"
#include "ose/ose.h"

#include <array>

/// Keys 0x1001, 0x1002 and 0x1006 are the driver's own; the latter two differ by what the client reads.
constexpr std::array<node::SerialSetting, 8> serialSettings(u32 key1002, u32 key1006)
{
    return {{
        {0x1000, 9600},          // bit/s
        {0x1001, 3000},
        {0x1002, key1002},
        {0x1003, 8},             // data bits
        {0x1004, 1},             // stop bits
        {0x1005, 'N'},           // parity
        {0x1006, key1006},
        {0xFFFFFFFF, 0},
    }};
}

/// Receive buffers are signal buffers.
inline SerialBuffer* serialAllocate(u32 bytes)
{
    return reinterpret_cast<SerialBuffer*>(ose::alloc(sizeof(SIGSELECT) + bytes, 0));
}
inline void serialFree(SerialBuffer* buffer)
{
    Signal* sig = reinterpret_cast<Signal*>(buffer);
    ose::free_buf(&sig);
}

/// A client's port. `settings` stay the client's.
constexpr SerialPortDescriptor serialPort(const std::array<node::SerialSetting, 8>& settings,
                                          void (*error)(u32 code),
                                          void (*deliver)(const SerialBuffer* buffer, u32 count),
                                          const char* processName)
{
    constexpr u32 STACK = 2048, PRIORITY = 10;
    return {settings, {serialAllocate, serialFree, error, deliver, serialFree}, STACK, PRIORITY,
            UART_VECTOR, processName};
}
