// tupktsync_timestamp_server.h - Hands finished exchanges to the one process that asked for them, and
// takes what comes back.
// Owner   Kvd_loz6_tupktsync_proc.
// Errors  an exchange without a consumer is traced and lost.
#pragma once
#include "pktsync/tupktsync_ptp_protocol.h"

struct Signal;

/// Forgets the consumer, unless the services alone are being started again.
void TuPktsync_Timestamp_server_init();
/// The next initiation keeps the consumer.
void TuPktsync_Timestamp_reInit();
bool TuPktsync_Timestamp_server_dispatch(Signal* sig);

void TuPktsync_Timestamp_server_handle_ts_ptp(const PtpExchange& exchange);
/// Two stamps of a peer delay exchange, s and ns.
void TuPktsync_Timestamp_server_handle_ts_ptpPeerDelay(u32 froId, u32 froClassNo, u64 T1s, u32 T1f, u64 T2s,
                                                       u32 T2f);
/// Seconds and 2^-32 s of T1 to T4 in turn.
void TuPktsync_Timestamp_server_handle_ts_ntp(u32 froId, u32 froClassNo, const std::array<u32, 8>& T);

/// 0 while there is none.
PROCESS TuPktsync_Timestamp_server_consumer();
