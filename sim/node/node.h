// node.h - The simulated node of one timing unit: its system in a world, its board, the services
// that the program uses, and the program's life.
//
//     ose::World world{1};
//     sim::Node node{world, config};
//     node.powerOn();
//     world.runFor(600 * ose::SEC);
//     node.mainProcessor().clockState();
//
// The world must outlive the node. Calls are for tests, scenarios and the console, from outside of
// any process.
#pragma once
#include "node/platform.h"
#include "ose/world.h"
#include "sim/node/bira_server.h"
#include "sim/node/cfi_server.h"
#include "sim/node/digest.h"
#include "sim/node/error_log.h"
#include "sim/node/idpi_server.h"
#include "sim/node/ipsocki_server.h"
#include "sim/node/ipsynctsi_server.h"
#include "sim/node/inrsi_server.h"
#include "sim/node/main_processor.h"
#include "sim/node/msi_server.h"
#include "sim/node/name_server.h"
#include "sim/node/ngpduhif_server.h"
#include "sim/node/node_config.h"
#include "sim/node/packet_port.h"
#include "sim/node/parameters.h"
#include "sim/node/phy_port_server.h"
#include "sim/node/pktsyncdrv_server.h"
#include "sim/node/pm_agent.h"
#include "sim/node/pri_server.h"
#include "sim/node/serial_port.h"
#include "sim/node/shell.h"
#include "sim/node/slowpi_server.h"
#include "sim/node/temi_server.h"
#include "sim/node/trace_sink.h"
#include "sim/node/volumes.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

class Board;

/// How a program's life ended.
struct ProgramEnd {
    ose::Time at = 0;
    u32 code = 0;                      // of error(), 0 for a kill of the block
    std::string text;
};

enum class Led : u8 { Unknown, RedOn, RedOff };

class Node : public node::Platform {
public:
    Node(ose::World& world, const NodeConfig& config);
    ~Node() override;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    const NodeConfig& config() const { return config_; }
    const std::string& name() const { return config_.name; }
    ose::World& world() { return world_; }
    ose::System& system() { return *system_; }
    Board& board() { return *board_; }
    /// The loaded program, nullptr while there is none.
    ose::Block* program() { return program_; }

    // ---- life of the program --------------------------------------------------------------------
    /// Board reset, program loaded, restart type of the configuration.
    void powerOn();
    /// Program gone, board without power, persistent memory lost. Volumes, EEPROM and error log stay.
    void powerOff();
    /// Program unloaded and loaded again. The board keeps its registers, but for types 0 and 1,
    /// which reset it.
    void restart(u32 restartType);
    void restartWarm() { restart(RESTART_WARM); }
    void restartCold() { restart(RESTART_COLD); }
    /// In good order: the program's shutdown callback runs as soon as the world does, then it is
    /// unloaded.
    void shutdown();
    /// Unloaded at once, without the callback.
    void kill();
    /// Those that it brought on itself.
    const std::vector<ProgramEnd>& programEnds() const { return ends_; }
    u32 programStarts() const { return starts_; }
    void onProgramEnd(std::function<void(const ProgramEnd&)> observer) { onEnd_ = std::move(observer); }

    /// Every load of the program, with its restart type.
    void onProgramStart(std::function<void(u32 restartType)> observer) { onStart_ = std::move(observer); }

    // ---- services -------------------------------------------------------------------------------
    NameServer& nameServer() { return *nameServer_; }
    MainProcessor& mainProcessor() { return *mainProcessor_; }
    PriServer& pri() { return *pri_; }
    TemiServer& temi() { return *temi_; }
    MsiServer& msi() { return *msi_; }
    ErrorLog& errorLog() { return *errorLog_; }
    PhyPortServer& phyPorts() { return *phyPorts_; }
    PmAgent& pmAgent() { return *pmAgent_; }
    BiraServer& bira() { return *bira_; }
    IdpiServer& idpi() { return *idpi_; }
    CfiServer& cfi() { return *cfi_; }
    PktsyncDrvServer& pktsyncDrv() { return *pktsyncDrv_; }
    IpsockiServer& ipsocki() { return *ipsocki_; }
    PacketPort& packetPort() { return *packetPort_; }
    IpsynctsiServer& ipsync() { return *ipsync_; }
    SlowpiServer& slowpi() { return *slowpi_; }
    NgpduhifServer& ngpduhif() { return *ngpduhif_; }
    InrsiServer& inrsi() { return *inrsi_; }
    Shell& shell() { return *shell_; }
    Parameters& parameters() { return parameters_; }
    Volumes& volumes() { return volumes_; }
    SerialPort& serial() { return *serial_; }
    TraceSink& traces() { return traces_; }

    /// Red LED as the program last asked, and how its requests are answered.
    Led led() const { return led_; }
    u32 ledRequests() const { return ledRequests_; }
    int ledResult = 0;                 // nonzero: requests fail with it

    /// Sets the node's calendar; it runs on with the world's time.
    void setCalendar(i64 seconds, u32 microseconds = 0);
    /// To what it would be had nobody set it: the configured start and the time since.
    void setCalendarTrue();
    /// Interrupt lines: whether the program has enabled a vector.
    bool interruptEnabled(u32 vector) const { return enabledVectors_.contains(vector); }
    int interruptResult = 0;           // nonzero: enable and disable fail with it
    void boardInterrupt();             // the board's line rises, whatever is pending

    /// From now on: calls by which the program drives what is outside of it, and their digest with times:
    /// registers, interrupt lines, LED, error log, files, persistent memory, sockets, serial line.
    void countDrives() { countsDrives_ = true; }
    u64 drivenCalls() const { return drivenCalls_; }
    u64 drivenDigest() const { return driven_.value(); }

    /// Looks at `accessor` with the program's module data in place.
    template <typename F>
    auto inProgram(F accessor)
    {
        ose::DataScope scope{*program_};
        return accessor();
    }
    /// Runs `action` after `span`, unless the node is gone by then.
    void after(ose::Time span, std::function<void()> action);

    // ---- node::Platform -------------------------------------------------------------------------
    u32  mmioRead(u32 address) override;
    void mmioWrite(u32 address, u32 value) override;
    void ioBarrier() override;
    int adiBoardCode(u32& code) override;
    int adiEnableExtInt(u32 vector) override;
    int adiDisableExtInt(u32 vector) override;
    int boardParameter(const char* name, char* text, std::size_t size) override;
    int bootParameter(const char* name, char* text, std::size_t size) override;
    int visualIndication(u32 request) override;
    int elgiWrite(const char* code, u32 severity, u32 count, const char* text, u32 last) override;
    int registerShutdown(void (*callback)()) override;
    node::CalendarTime calendar() override;
    int fileExists(const char* path) override;
    int fileRead(const char* path, std::string& content) override;
    int fileWrite(const char* path, const std::string& content) override;
    int fileAppend(const char* path, const std::string& content) override;
    int fileRemove(const char* path) override;
    int msiState() override;
    int msiRead(u32 address, u8* bytes, std::size_t count) override;
    int msiWrite(u32 address, const u8* bytes, std::size_t count) override;
    int ipState() override;
    int ipSocket(u32 family, u32 type) override;
    int ipOption(int socket, u32 option, u32 value, u32 low) override;
    int ipBind(int socket, const u8* octets, u32 port) override;
    int ipSend(int socket, const u8* bytes, std::size_t count, const u8* octets, u32 port) override;
    int ipClose(int socket) override;
    int ipError() override;
    int serialOpen(const char* device, u32 vector, const node::SerialSetting* settings,
                   std::size_t count) override;
    int serialClose(const char* device) override;
    int serialWrite(const char* device, const u8* bytes, std::size_t count) override;
    std::size_t serialRead(const char* device, u8* bytes, std::size_t room) override;
    int  registerCommand(const node::ShellCommand& command) override;
    void shellPrint(const char* text) override;
    void trace(const node::TraceRecord& record) override;

private:
    void load(u32 restartType);
    void unload();
    void forgetProgram();
    void programEnded(ose::Block& block, u32 code, const std::string& text);
    void makeBoard();

    enum class Drive : u8 {
        Register,
        InterruptOn,
        InterruptOff,
        Led,
        ErrorLog,
        FileWrite,
        FileAppend,
        FileRemove,
        Memory,
        Socket,
        Option,
        Bind,
        Send,
        CloseSocket,
        OpenLine,
        CloseLine,
        Line
    };
    /// Counts a call, before it is carried out, refused ones too.
    template <typename... Values>
    void drives(Drive what, const Values&... values)
    {
        if (!countsDrives_) return;
        ++drivenCalls_;
        driven_.add(world_.now());
        driven_.add(what);
        (driven_.add(values), ...);
    }

    ose::World& world_;
    NodeConfig config_;
    ose::System* system_;
    std::shared_ptr<bool> alive_;
    std::unique_ptr<Board> board_;
    ose::Block* program_ = nullptr;
    bool powered_ = false;

    Parameters parameters_;
    Volumes volumes_;
    TraceSink traces_;
    std::unique_ptr<SerialPort> serial_;
    std::unique_ptr<NameServer> nameServer_;
    std::unique_ptr<PriServer> pri_;
    std::unique_ptr<TemiServer> temi_;
    std::unique_ptr<MsiServer> msi_;
    std::unique_ptr<ErrorLog> errorLog_;
    std::unique_ptr<PhyPortServer> phyPorts_;
    std::unique_ptr<PmAgent> pmAgent_;
    std::unique_ptr<BiraServer> bira_;
    std::unique_ptr<IdpiServer> idpi_;
    std::unique_ptr<PacketPort> packetPort_;
    std::unique_ptr<CfiServer> cfi_;
    std::unique_ptr<PktsyncDrvServer> pktsyncDrv_;
    std::unique_ptr<IpsockiServer> ipsocki_;
    std::unique_ptr<IpsynctsiServer> ipsync_;
    std::unique_ptr<SlowpiServer> slowpi_;
    std::unique_ptr<NgpduhifServer> ngpduhif_;
    std::unique_ptr<InrsiServer> inrsi_;
    std::unique_ptr<Shell> shell_;
    std::unique_ptr<MainProcessor> mainProcessor_;
    PROCESS shutdownProcess_ = 0;

    void (*shutdownCallback_)() = nullptr;
    std::set<u32> enabledVectors_;
    bool countsDrives_ = false;        // a tenth of a run's time, for who asks
    u64 drivenCalls_ = 0;
    Digest driven_;
    Led led_ = Led::Unknown;
    u32 ledRequests_ = 0;
    i64 calendarOffset_us_ = 0;        // calendar minus world time
    u32 starts_ = 0;
    std::vector<ProgramEnd> ends_;
    std::function<void(const ProgramEnd&)> onEnd_;
    std::function<void(u32)> onStart_;
};

}  // namespace sim
