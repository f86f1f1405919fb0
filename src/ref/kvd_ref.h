// kvd_ref.h - Table of supervised reference paths, its filters, inter-unit link machines.
// Owner   the manager process; the toggle monitor only reads lastToggleStatus.
// Units   timers in ms.
// Errors  a refused timer is traced; the path keeps its status and the next change tries again.
#pragma once
#include "unit/kvd_ref_table.h"

struct Signal;

bool KvdLoz6TuRef_dispatch(Signal* sig);
void KvdLoz6TuRef_restart(u32 isFirstStart);
/// Common operations of the references' supervision handlers.
void KvdLoz6TuRef_startSupervision(const Signal* sig, u32 row);
/// The board's one serial line is wanted by the front end of that row, or by the output with REF_ROWS: those
/// that went on while the main processor was away and aren't supervised any more give it up.
void KvdLoz6TuRef_freeSerialLine(u32 wantedRow);
/// A port's line ends (port service): supervision of its row ends.
void KvdLoz6TuRef_lineEnd(u32 line);
/// A supervised port has another line, or another froId: its supervision goes with it, and a selection, too.
void KvdLoz6TuRef_lineMoved(u32 fromLine, u32 toLine, u32 froId);

/// GPS out sync link: 300 s in which a deselected, locked reference still holds its loop.
void KvdLoz6TuRef_startGpsOslHoldover();
void KvdLoz6TuRef_stopGpsOslHoldover();
void KvdLoz6TuRef_clearGpsOslHoldoverTimer();

/// "turef" section of kvdinfo.
void KvdLoz6TuRef_printInfo();
