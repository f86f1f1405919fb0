// tupktsync_genann.h - Test injection into received Announce messages: by sender, what their fields are
// to say instead, and which of them are to be lost. Takes no part until the command "genann" is used.
// Owner   Kvd_loz6_tupktsync_proc; the command writes.
#pragma once
#include "pktsync/tupktsync_ptp_msg.h"

/// Applies the sender's entry; false when the message is to be dropped.
bool TuPktsync_genAnn(const PtpHeader& header, u8& flags, PtpAnnounce& announce);
/// The command.
int  TuPktsync_genannCommand(int argc, char** argv);
