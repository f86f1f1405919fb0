// kvd_gps_send.h - What goes to the receiver: a queue that leaves once a second, one-shot commands,
// the buffer-clearing sequence of a GPS02, restarts, changes of protocol.
// Owner   the manager process; commands of the operator call from the shell's process.
// Errors  a sentence that can't be queued or written is lost with a trace.
#pragma once
#include "ose/types.h"

struct GpsSendCounters {
    u32 numberOfBytesQueued = 0, numberOfBytesSent = 0;
    u32 numberOfPTNLQVRS = 0, numberOfPTNLQVRH = 0, numberOfPTNLQBA = 0, numberOfPNVXGPrst = 0,
        numberOfPTNLSRT = 0, numberOfPNVXGPdbgG = 0, numberOfPNVXGPdbgRI = 0, numberOfPNVXGPdbgRO = 0,
        numberOfPNVXGPdbgRS = 0;
};
const GpsSendCounters& KvdLoz6TuGps_sendCounters();
void KvdLoz6TuGps_clearSendCounters();

/// Starts sendToGpsTimer unless it runs.
void KvdLoz6TuGps_startSending();
/// Cancels the timer; queue, operator's order and reset sequence are forgotten.
void KvdLoz6TuGps_stopSending();
void KvdLoz6TuGps_onSendTimeout();
/// A whole sentence with its frame. A GPS01 gets it only on the operator's order. True queued, false lost.
bool KvdLoz6TuGps_queueSentence(const char* sentence, u32 length);
/// The same on the operator's order: what is queued may go to a GPS01, too, until it was written.
bool KvdLoz6TuGps_queueOrdered(const char* sentence, u32 length);
u32  KvdLoz6TuGps_queuedBytes();

/// A receiver is there that takes commands one by one.
bool KvdLoz6TuGps_takesOneShots();
/// A sentence's body (without "$") framed with or without a checksum, queued and counted when it is
/// one of the known commands. True queued, false lost: "GpsFwRestart not initiated!" without a receiver.
bool KvdLoz6TuGps_sendOneShot(const char* body, bool withChecksum, bool ordered = false);

constexpr u32 GPS02_CLEAR_AND_RESET = 0, GPS02_CLEAR = 1;
/// `Gps02ResetColi`: begins the sequence at that step; `debug` adds the debug sentence at its end.
void KvdLoz6TuGps_startGps02Reset(u32 step, bool debug);
/// `GpsFwRestart`: the module's restart that fits its firmware. True done, false unknown firmware or not
/// sent.
bool KvdLoz6TuGps_GpsFwRestart();
/// Reset of the receiver unit, firmware "120510" alone. True done, false not supported or not sent.
bool KvdLoz6TuGps_resetHrv();
/// 0 Norvane Combined, 1 Furuno; the answer is printed. 1 ordered or in force already, 0 refused.
constexpr u32 GPS_PROTOCOL_NORVANE = 0, GPS_PROTOCOL_FURUNO = 1;
bool KvdLoz6TuGps_changeProtocol(u32 protocol);
/// Resets a GPS01; refusals are printed. True queued, false refused.
bool KvdLoz6TuGps_resetGps01();
/// "PNVX,GPmod,1" for a fixed position, 2 for survey; the caller knows that the receiver takes it.
void KvdLoz6TuGps_queueModeSetup(bool fixedPosition);
