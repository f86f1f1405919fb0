// hali.h - Hardware operations of the logic: the thin layer over the hardware interface.
// Owner   stateless; forwards to kvd_hwif.
// Units   seconds, volts, selectors of ref_types.h.
// Errors  0 is success, any other value failure, unless an operation says otherwise.
#pragma once
#include "node/platform.h"
#include "ose/types.h"

/// Finds the board type, then the FPGA base addresses; without them every hardware read fails.
int  HALI_init();
int  HALI_readTime(double& period, double& time);
/// 1 when performed, 0 when not needed or failed.
int  HALI_adjustTime(double ext_t, double t);
int  HALI_subscribeRefTime(u32 selector);
int  HALI_unSubscribeRefTime(u32 selector);
/// Toggle status word: bits 0 to 4 lines, 5 1PPS, 6 external reference, 7 raw activity, 8 to 10
/// Ethernet.
u32  HALI_readToggleStatus();

struct OcxoParams {
    double nominalFrequency;      // Hz
    double drift;
    char calibrationDate[11];     // "%Y-%m-%d", empty on board type 1
    double a0, a1, a2, a3;        // ppb against volts
    double tempMin, tempMax;      // volts
};
int  HALI_getOcxoParams(OcxoParams& params);
/// 0 good, 1 no register, 2 out of range, 3 no data.
int  HALI_getOcxoTemp(double& volts);
int  HALI_readOcxoSerial(char serial[18], u8& version, u8& manufacturer);

int  HALI_enableTuOut(int enable, int frequency);
int  HALI_muteTuOut(int mute);

/// Serial port of a client: configuration pairs up to key 0xFFFFFFFF, callbacks, interrupt process.
/// received and transmitted run in that process, or in the caller of simSerialInterrupt; the others
/// in the caller of subscribe and close. Any of them may be nullptr.
struct SerialPortDescriptor {
    const node::SerialSetting* settings;     // ended by key 0xFFFFFFFF
    void (*received)(const u8* bytes, u32 count);
    void (*transmitted)(u32 count);
    void (*error)(u32 code);
    void (*opened)();
    void (*closed)();
    u32 stack;
    u32 priority;
    u32 vector;
    const char* processName;                 // of the interrupt process to create
};
int  HALI_subscribeSerialPort(const SerialPortDescriptor& descriptor);
int  HALI_closeSerialPort(u32 killProcess);
int  HALI_writeSerialPort(const u8* bytes, u32 count);
void HALI_simSerialInterrupt();

int  HALI_getPowerOnTime(u32& time);
/// Contact with the persistent memory service: 0 done, 4 busy, -1 none.
int  HALI_msiInitiate();
int  HALI_msiAllocate(const char* region, u32 size, u32 clientRef, u32 clear);
/// "tuhwif related data" section.
void HALI_printInfo();
