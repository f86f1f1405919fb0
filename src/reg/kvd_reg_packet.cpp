// Packet measurements and the supervision of frequency and delay aren't part of this load yet.
#include "reg/kvd_reg_packet.h"

void KvdLoz6TuReg_handlePktFreqMsg(const double (&)[8]) {}
void KvdLoz6TuReg_handlePktTimeMsg(const PktTimeMsg&) {}
int KvdLoz6TuReg_packetDispatch(Signal*) { return 0; }
void KvdLoz6TuReg_onPktTimeRefInit() {}
void KvdLoz6TuReg_onPktTimeRefTerm() {}
void KvdLoz6TuReg_restartPdvHistory(u32, u32) {}
void KvdLoz6TuReg_supervisionRestart() {}
void KvdLoz6TuReg_supervision(u32, double, double, u32, u32) {}
void KvdLoz6TuReg_supervisionPhaseJump() {}
void KvdLoz6TuReg_reportPhaseJumpRate() {}
void KvdLoz6TuReg_registerPacketRef(u32, u32) {}
void KvdLoz6TuReg_deregisterPacketRef(u32, u32) {}
u32 KvdLoz6TuReg_pdvHistoryText(char* text, u32 room)
{
    if (room > 0) text[0] = '\0';
    return 0;
}
