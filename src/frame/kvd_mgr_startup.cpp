// Start-up of the manager process, before its first receive.
#include "base/trace_groups.h"
#include "frame/kvd_mgr_int.h"
#include "frame/tu_coli.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_osl.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "iif/kvd_biraiifadm.h"
#include "iif/kvd_iifadm_orders.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/trace.h"
#include "pktsync/tupktsyncadm.h"
#include "refs/kvd_hptsi.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_slowpi.h"
#include "reg/kvd_reg_pdv_gen.h"
#include "socpri/kvd_socpri.h"
#include "store/kvd_mgr_mem.h"

#include <array>
#include <cstring>
#include <string>

namespace {

constexpr u32 REFERENCE_INTERRUPTS = TU_BFN_IN_INT | TU_100MS_INT | TU_INT_REF_CLK_INT;

void onShutdown()
{
    if (KvdLoz6BiraIifAdm_hasHwControl() != 0) {
        tuHwIf_disableIsr(REFERENCE_INTERRUPTS);
        tuHwIf_disableExtInt();
    }
    KvdLoz6TuGps_closePort();
    KvdLoz6GpsOsl_closePort();
    KvdLoz6TuHptsi_closePort();
}

/// Words of a kvdsetfsyncreg command that is to be repeated at each start.
struct StoredCommand {
    static constexpr std::size_t WORDS_MAX = 7;
    static constexpr std::size_t WORD_ROOM = 16;   // a word is under 10 characters
    std::array<std::array<char, WORD_ROOM>, WORDS_MAX> text{};
    std::array<char*, WORDS_MAX> argv{};
    int argc = 0;
    bool repeat = false;                           // one of the words is "true"
};

/// False when the content is no command of ours: too many words, or a word that is too long.
bool splitWords(const std::string& content, StoredCommand& command)
{
    constexpr const char* BLANKS = " \t\r\n";
    std::size_t at = content.find_first_not_of(BLANKS);
    while (at != std::string::npos) {
        const std::size_t end = std::min(content.find_first_of(BLANKS, at), content.size());
        const std::size_t length = end - at;
        if (command.argc == static_cast<int>(StoredCommand::WORDS_MAX)) return false;
        if (length >= StoredCommand::WORD_ROOM) return false;
        auto& word = command.text[static_cast<std::size_t>(command.argc)];
        std::memcpy(word.data(), content.data() + at, length);
        command.argv[static_cast<std::size_t>(command.argc)] = word.data();
        ++command.argc;
        if (std::strcmp(word.data(), "true") == 0) command.repeat = true;
        at = content.find_first_not_of(BLANKS, end);
    }
    return true;
}

}  // namespace

void KvdLoz6TuMgr_repeatFsyncSetting()
{
    std::string content;
    if (node::platform().fileRead(FSYNC_SETTING, content) != 0) return;
    StoredCommand command;
    if (!splitWords(content, command)) {
        KVD_TRACE(TRACE_TUMGR_PROC, TRACE_ERROR, "%s holds no setting of this program, removed",
                  FSYNC_SETTING);
        node::platform().fileRemove(FSYNC_SETTING);
        return;
    }
    if (command.repeat)
        TuColi_setFsyncReg(command.argc, command.argv.data());
    else
        node::platform().fileRemove(FSYNC_SETTING);
}

void KvdLoz6TuMgr_startUp()
{
    node::traceAttachProcess();
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "PROCESS started: Kvd_tumgr_proc");
    TuColi_registerCommands();
    node::platform().registerShutdown(onShutdown);
    KvdLoz6TuMem_initiate();
    HALI_init();
    KvdLoz6Idpi_initiate();
    KvdLoz6TuSoCpri_initiate();
    TuPktsyncAdm_initiate();
    KvdLoz6TuSlowpi_initiate();
    KvdLoz6TuGps_initiate();
    KvdLoz6TuIifAdm_setSocpriMarker(KvdLoz6TuIifAdm_hasSocpriMarkerFile());
    KvdLoz6TuIifAdm_initiate();
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "KVDLOZ6 - QMT5583016: STARTED");
    KvdLoz6TuMgr_repeatFsyncSetting();
    KvdLoz6TuReg_genPdvAutomatic();
}
