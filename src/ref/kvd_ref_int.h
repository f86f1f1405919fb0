// kvd_ref_int.h - Shared between the sources of reference management; nobody else includes it.
#pragma once
#include "ref/kvd_ref.h"
#include "sig/ref_sig.h"
#include "sig/tuiif_sig.h"

constexpr u32 ROW_PDH_FIRST = 0, ROW_SDH = 4;

/// State of an Ethernet path in its row's stateBits: the line's clock is usable.
constexpr u32 ETH_STATE_DETECTED = 0x2;

/// tuiifRefState to the main processor, if it differs from what it has or is marked as not sent.
void KvdLoz6TuRef_report();
// ---- supervision --------------------------------------------------------------------------------
void KvdLoz6TuRef_onPathSupervision(const KvdTuiifSynchPathSupInd* ind);
void KvdLoz6TuRef_onToggleStatus();
/// The toggle filter, and the start of a row's supervision, for a status word as the hardware gives
/// it.
void KvdLoz6TuRef_filterToggles(u32 status);
void KvdLoz6TuRef_startWithStatus(u32 row, u32 status);
void KvdLoz6TuRef_onFilterTimeout(const KvdTurefTimeoutInd* ind);

// ---- GPS out sync link --------------------------------------------------------------------------
void KvdLoz6TuRef_onGpsOslHoldoverTimeout();
bool KvdLoz6TuRef_gpsOslHoldoverTimerRuns();
/// The end of a loop as SoCPRI's log tells it.
void KvdLoz6TuRef_logLoopEnd(u32 event);
