// kvd_hptsi.h - Dedicated time input.
#pragma once
#include "ose/types.h"

struct Signal;

int  KvdLoz6TuHptsi_dispatch(Signal* sig);
void KvdLoz6TuHptsi_handleInt();
void KvdLoz6TuHptsi_clearPreTimeOffset();
void KvdLoz6TuHptsi_serverGone();
/// The stored status of bit 9 differs: the owner reports again.
void KvdLoz6TuHptsi_statusChange(u32 present);
void KvdLoz6TuHptsi_closePort();
void KvdLoz6TuHptsi_selectionMode(u8 selectionProcessMode);
bool KvdLoz6TuHptsi_isOperational();
/// Supervision of its path by the main processor: 1 on, 0 off.
void KvdLoz6TuHptsi_supervision(const Signal* sig, u32 row);
void KvdLoz6TuHptsi_printInfo();
