#include "ref/kvd_phyadm.h"

#include "base/kvd_answer.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/phyport.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ref/kvd_ref.h"
#include "sig/ref_sig.h"
#include "sig/ref_types.h"

#include <array>

namespace {

/// What a port info wants with its port.
enum StateControl : u32 { STATE_ADD = 0, STATE_DELETE = 1, STATE_CHANGE = 2 };

/// Status control of KVD_TUIIF_ET_FROID_IND.
constexpr u32 ET_FROID_REMOVE = 0;
constexpr u32 ET_FROID_ADD = 1;

constexpr KvdAnswerOf ANSWER{TRACE_TUPHYADM, "PHY_PORTINFO", KVD_TUPHYADM_ANSWER_TMO};

struct State {
    std::array<PhyPortInfo, PHY_PORTS> portInfoTable;
    KvdTimer answerTimer;
};
ose::ModuleData<State> s;

bool inUse(const PhyPortInfo& row) { return row.line != PHY_LINE_NONE; }

PhyPortInfo* rowOfLine(u32 line)
{
    for (PhyPortInfo& row : s->portInfoTable)
        if (inUse(row) && row.line == line) return &row;
    return nullptr;
}

PhyPortInfo* rowOfFroId(u32 froId)
{
    for (PhyPortInfo& row : s->portInfoTable)
        if (inUse(row) && row.froId == froId) return &row;
    return nullptr;
}

/// The first row that has the line or the froId.
PhyPortInfo* rowOfEither(u32 line, u32 froId)
{
    for (PhyPortInfo& row : s->portInfoTable)
        if (inUse(row) && (row.line == line || row.froId == froId)) return &row;
    return nullptr;
}

PhyPortInfo* freeRow()
{
    for (PhyPortInfo& row : s->portInfoTable)
        if (!inUse(row)) return &row;
    return nullptr;
}

void reportPort(const PhyPortInfo& row, u32 statusControl)
{
    KvdLoz6TuIifAdm_sendEtFroidInd(row.line, row.froId, statusControl);
}

void reportStates(const PhyPortInfo& row)
{
    KvdLoz6TuIifAdm_sendRefStatusChangeInd(row.froId, row.adState, row.opState, row.syncState);
}

/// Frees a row and tells the main processor that its port is gone.
void removePort(PhyPortInfo& row)
{
    const PhyPortInfo old = row;
    row = PhyPortInfo{};
    reportPort(old, ET_FROID_REMOVE);
}

void storeStates(PhyPortInfo& row, const node::PhyPort& port)
{
    row.opState = port.opState;
    row.adState = port.adState;
    row.cepId = port.cepId;
}

void storePort(PhyPortInfo& row, const node::PhyPort& port)
{
    row.line = port.line;
    row.froId = port.froId;
    storeStates(row, port);
    reportPort(row, ET_FROID_ADD);
}

void deletePort(const node::PhyPort& port)
{
    PhyPortInfo* const row = rowOfLine(port.line);
    if (row == nullptr || row->froId != port.froId) {
        KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR,
                  "Failed to delete entry in portInfoTable (lineNo=%u, froId=%u not found)", port.line,
                  port.froId);
        return;
    }
    KVD_TRACE(TRACE_TUPHYADM, TRACE_INFO, "Deleting port info from portInfoTable (lineNo=%u, froId=%u)",
              port.line, port.froId);
    row->isSupervised = 0;
    KvdLoz6TuRef_lineEnd(port.line);
    removePort(*row);
}

/// A supervised port keeps its place as a reference: its line or its froId may change, unless
/// another port has the new one.
void changeSupervisedPort(PhyPortInfo& row, const node::PhyPort& port)
{
    if (row.froId == port.froId && row.line != port.line) {
        if (const PhyPortInfo* other = rowOfLine(port.line)) {
            KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR, "lineNo: %u is not available, used by froId=%u ",
                      port.line, other->froId);
            return;
        }
    } else if (row.line == port.line && row.froId != port.froId) {
        if (const PhyPortInfo* other = rowOfFroId(port.froId)) {
            KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR, "froId: %u is not available, used by lineNo=%u",
                      port.froId, other->line);
            return;
        }
    }
    KVD_TRACE(TRACE_TUPHYADM, TRACE_INFO, "Changing port info in portInfoTable (lineNo=%u->%u, froId=%u->%u)",
              row.line, port.line, row.froId, port.froId);
    const u32 fromLine = row.line;
    row.line = port.line;
    row.froId = port.froId;
    storeStates(row, port);
    reportStates(row);
    KvdLoz6TuRef_lineMoved(fromLine, port.line, port.froId);
}

void addOrChangePort(const node::PhyPort& port)
{
    // Both the line and the froId may have been another port's, which isn't there any more.
    PhyPortInfo* known = rowOfEither(port.line, port.froId);
    const PhyPortInfo* const ofLine = rowOfLine(port.line);
    const PhyPortInfo before = ofLine != nullptr ? *ofLine : known != nullptr ? *known : PhyPortInfo{};
    for (; known != nullptr && known->isSupervised == 0; known = rowOfEither(port.line, port.froId))
        removePort(*known);
    if (known != nullptr) return changeSupervisedPort(*known, port);
    PhyPortInfo* const row = freeRow();
    if (row == nullptr) {
        KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR, "Failed to insert new entry in portInfoTable (no space left)");
        return;
    }
    row->syncState = before.syncState;       // which is told when it changes alone
    storePort(*row, port);
}

// ---- callbacks of the port service --------------------------------------------------------------

void onConnected(u32 cepId)
{
    KVD_TRACE(TRACE_TUPHYADM, TRACE_INFO, "Connected to PHY_PORTINFO (cepId=%u)", cepId);
}

void onDisconnected(u32 cepId)
{
    KVD_TRACE(TRACE_TUPHYADM, TRACE_INFO, "Disonnected from PHY_PORTINFO (cepId=%u)", cepId);
    for (PhyPortInfo& row : s->portInfoTable) {
        if (!inUse(row) || row.isSupervised == 0 || row.cepId != cepId) continue;
        KvdLoz6TuRef_lineEnd(row.line);
        removePort(row);
    }
}

void onSyncStateChange(u32 line, u32 syncState)
{
    PhyPortInfo* const row = rowOfLine(line);
    if (row == nullptr) {
        KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR,
                  "Failed to update entry in portInfoTable (lineNo %u not found)", line);
        return;
    }
    if (syncState <= PHY_SYNC_DEAD)
        row->syncState = static_cast<u8>(syncState);
    else
        KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR, "Unexpected syncState=%u received for froId=%u", syncState,
                  row->froId);
    if (row->isSupervised != 0) reportStates(*row);
}

void onPortInfo(const node::PhyPort& port)
{
    switch (port.stateControl) {
    case STATE_DELETE: deletePort(port); break;
    case STATE_ADD:
    case STATE_CHANGE: addOrChangePort(port); break;
    default: KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR, "Received unknown stateControl value"); break;
    }
}

constexpr node::PhyPortCallbacks CALLBACKS = {onConnected, onDisconnected, onSyncStateChange, onPortInfo};

void onAnswerTimeout()
{
    if (!KvdAnswer_isLate(s->answerTimer, ANSWER)) return;
    node::PhyPortInfo_askAgain();
    KvdAnswer_await(s->answerTimer, ANSWER);
}

// ---- printout -----------------------------------------------------------------------------------

const char* opStateText(u16 opState)
{
    switch (opState) {
    case PHY_DISABLED: return "DISABLED";
    case PHY_ENABLED:  return "ENABLED";
    default:           return "UNKNOWN";
    }
}

const char* adStateText(u16 adState)
{
    switch (adState) {
    case PHY_LOCKED:       return "LOCKED";
    case PHY_UNLOCKED:     return "UNLOCKED";
    case PHY_SHUTTINGDOWN: return "SHUTTINGDOWN";
    default:               return "UNKNOWN";
    }
}

const char* syncStateText(u8 syncState)
{
    switch (syncState) {
    case PHY_SYNC_OK:       return "OK";
    case PHY_SYNC_DEGRADED: return "DEGRADED";
    case PHY_SYNC_DEAD:     return "DEAD";
    default:                return "UNKNOWN";
    }
}

}  // namespace

bool KvdLoz6TuPhyAdm_dispatch(Signal* sig)
{
    if (sig->sigNo == KVD_TUPHYADM_ANSWER_TMO) {
        onAnswerTimeout();
        return true;
    }
    if (node::PhyPortInfo_dispatch(sig) == 0) return false;
    if (!node::PhyPortInfo_owesAnswer())          KvdTimer_cancel(s->answerTimer);
    else if (sig->sigNo == PHYPORT_SERVER_UP_IND) KvdAnswer_await(s->answerTimer, ANSWER);
    return true;
}

void KvdLoz6TuPhyAdm_restart(u32 isFirstStart)
{
    if (isFirstStart == 1) {
        s->portInfoTable.fill(PhyPortInfo{});
        if (node::PhyPortInfo_attach(PHY_PORTINFO_SERVICE_NAME, PHY_PORTINFO_INTERFACE, 1, 2, CALLBACKS) == 0)
            KVD_TRACE(TRACE_TUPHYADM, TRACE_INFO, "Successfully registered to PHYPORTINFO IF");
        else
            KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR, "Failed to register to PHYPORTINFO IF");
    }
    for (const PhyPortInfo& row : s->portInfoTable)
        if (inUse(row) && row.cepId != 0) reportPort(row, ET_FROID_ADD);
}

void KvdLoz6TuPhyAdm_stop()
{
    for (PhyPortInfo& row : s->portInfoTable)
        if (inUse(row)) row.isSupervised = 0;
}

u32 KvdLoz6TuPhyAdm_lineOfFroId(u32 froId)
{
    // Free rows count too: they hold FRO_NONE, and their line is out of every range that callers
    // accept.
    for (const PhyPortInfo& row : s->portInfoTable)
        if (row.froId == froId) return row.line;
    KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR,
              "Failed to return port line number (froId %u not found in portInfoTable)", froId);
    return 0;
}

bool KvdLoz6TuPhyAdm_knowsFroId(u32 froId) { return froId != FRO_NONE && rowOfFroId(froId) != nullptr; }

void KvdLoz6TuPhyAdm_setSupervised(u32 froId, u32 isSupervised)
{
    PhyPortInfo* const row = rowOfFroId(froId);
    if (row == nullptr) {
        KVD_TRACE(TRACE_TUPHYADM, TRACE_ERROR,
                  "Failed to set syncRef flag (froId %u not found in portInfoTable)", froId);
        return;
    }
    if (row->isSupervised == isSupervised) {
        KVD_TRACE(TRACE_TUPHYADM, TRACE_INFO, "For froId=%u the isSupervised flag is already set to %u",
                  froId, isSupervised);
        return;
    }
    row->isSupervised = isSupervised;
    if (isSupervised == 1) reportStates(*row);
}

const PhyPortInfo& KvdLoz6TuPhyAdm_row(u32 row) { return s->portInfoTable[row]; }

void KvdLoz6TuPhyAdm_printInfo()
{
    node::shellPrintf("\n***** KVD LOZ6 tuphyadm related data *****\n");
    node::shellPrintf("   portInfoTable (%u rows)\n", PHY_PORTS);
    node::shellPrintf("   row  line   froId       opState   adState       syncState  supervised  cepId\n");
    u32 used = 0;
    for (u32 i = 0; i < PHY_PORTS; ++i) {
        const PhyPortInfo& row = s->portInfoTable[i];
        if (!inUse(row)) continue;
        ++used;
        node::shellPrintf("   %-3u  %-5u  %-10u  %-8s  %-12s  %-9s  %-10s  %u\n", i, row.line, row.froId,
                          opStateText(row.opState), adStateText(row.adState), syncStateText(row.syncState),
                          row.isSupervised != 0 ? "yes" : "no", row.cepId);
    }
    if (used == 0) node::shellPrintf("   no port announced\n");
}
