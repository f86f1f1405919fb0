#include "sim/node/node.h"

#include "frame/kvd_load.h"
#include "node/trace.h"
#include "sim/board/board.h"

namespace sim {

namespace {

constexpr i64 US_PER_S = 1'000'000;
constexpr u32 RED_LED_ON = 1, RED_LED_OFF = 2;
constexpr int BAD_REQUEST = 22;
constexpr u32 SHUTDOWN_PRIORITY = 10;

std::string_view bytesOf(const u8* bytes, std::size_t count)
{
    return {reinterpret_cast<const char*>(bytes), count};
}

const char* uartOf(u32 boardType) { return boardType == 1 ? "UART750" : "UART"; }

}  // namespace

Node::Node(ose::World& world, const NodeConfig& config)
    : world_(world), config_(config), system_(&world.createSystem(config.name)),
      alive_(std::make_shared<bool>(true)), parameters_(config), traces_(config.name)
{
    setCalendarTrue();
    makeBoard();
    serial_ = std::make_unique<SerialPort>(*this, uartOf(config.boardType));
    nameServer_ = std::make_unique<NameServer>(*this);
    pri_ = std::make_unique<PriServer>(*this, config.smn, config.apn, config.piuInstanceId);
    temi_ = std::make_unique<TemiServer>(*this);
    msi_ = std::make_unique<MsiServer>(*this);
    errorLog_ = std::make_unique<ErrorLog>(*this);
    phyPorts_ = std::make_unique<PhyPortServer>(*this, config.ports);
    pmAgent_ = std::make_unique<PmAgent>(*this);
    bira_ = std::make_unique<BiraServer>(*this, config.bira);
    idpi_ = std::make_unique<IdpiServer>(*this, config.idpi);
    packetPort_ = std::make_unique<PacketPort>(*this, config.packetPort);
    cfi_ = std::make_unique<CfiServer>(*this);
    pktsyncDrv_ = std::make_unique<PktsyncDrvServer>(*this);
    ipsocki_ = std::make_unique<IpsockiServer>(*this);
    ipsync_ = std::make_unique<IpsynctsiServer>(*this, config.ntp);
    ipsync_->onReachable([this] { mainProcessor_->lookAgain(); });
    slowpi_ = std::make_unique<SlowpiServer>(*this);
    ngpduhif_ = std::make_unique<NgpduhifServer>(*this, config.syncGroup);
    inrsi_ = std::make_unique<InrsiServer>(*this, config.inrsi);
    shell_ = std::make_unique<Shell>(*this);
    mainProcessor_ = std::make_unique<MainProcessor>(*this, config.mainProcessor);

    system_->setPlatform(static_cast<node::Platform*>(this));
    system_->onProgramEnd(
        [this](ose::Block& block, u32 code, const std::string& text) { programEnded(block, code, text); });
    shutdownProcess_ = system_->spawn("Tsv_shutdown_proc", SHUTDOWN_PRIORITY, [] {
        for (;;) {
            Signal* sig = ose::receive(ose::ANY_SIGNAL);
            ose::free_buf(&sig);
        }
    });
    nameServer_->start();
    pri_->start();
    temi_->start();
    msi_->start();
    errorLog_->start();
    phyPorts_->start();
    pmAgent_->start();
    cfi_->start();
    pktsyncDrv_->start();
    ipsocki_->start();
    if (config.slowpi) slowpi_->start();
    shell_->start();
    if (config.bira.present) bira_->start();
    if (config.idpi.present) idpi_->start();
    if (config.ntp.present) ipsync_->start();
    if (config.syncGroup.present) ngpduhif_->start();
    if (config.inrsi.present) inrsi_->start();
    if (config.mainProcessor.present) mainProcessor_->start();
}

Node::~Node()
{
    unload();
    *alive_ = false;
    system_->kill(shutdownProcess_);
    mainProcessor_->die();
    shell_->die();
    ipsocki_->die();
    pktsyncDrv_->die();
    cfi_->die();
    ipsync_->die();
    slowpi_->die();
    ngpduhif_->die();
    inrsi_->die();
    idpi_->die();
    bira_->die();
    pmAgent_->die();
    phyPorts_->die();
    errorLog_->die();
    msi_->die();
    temi_->die();
    pri_->die();
    nameServer_->die();
    system_->onProgramEnd(nullptr);
    system_->setPlatform(nullptr);
}

void Node::after(ose::Time span, std::function<void()> action)
{
    world_.after(span, [alive = alive_, action = std::move(action)] {
        if (*alive) action();
    });
}

// ---- life of the program ------------------------------------------------------------------------

void Node::powerOn()
{
    if (powered_) return;
    powered_ = true;
    board_->powerOn(true);
    load(config_.restartType);
}

void Node::powerOff()
{
    unload();
    if (powered_) board_->powerOff();
    msi_->losePower();
    powered_ = false;
}

void Node::restart(u32 restartType)
{
    unload();
    if (!powered_) board_->powerOn(true);
    else if (restartType <= RESTART_COLDWTEST) board_->reset();
    powered_ = true;
    load(restartType);
}

void Node::shutdown()
{
    if (program_ == nullptr || shutdownCallback_ == nullptr) return unload();
    system_->launch(*program_, "shutdown_call", SHUTDOWN_PRIORITY,
                    [this, callback = shutdownCallback_, program = program_] {
                        callback();
                        after(0, [this, program] {
                            if (program_ == program) unload();
                        });
                    });
}

void Node::kill() { unload(); }

void Node::load(u32 restartType)
{
    ++starts_;
    if (onStart_) onStart_(restartType);
    temi_->programStarted(restartType);
    program_ = &system_->load(config_.program != nullptr ? *config_.program : KvdLoz6_program());
    constexpr u32 EVERY_LEVEL = 0xFFFFFFFF;
    if (config_.tracesEveryLevel) inProgram([] { node::traceSetProgramMask(EVERY_LEVEL); });
}

void Node::unload()
{
    if (program_ == nullptr) return;
    ose::Block& gone = *program_;
    program_ = nullptr;
    forgetProgram();
    system_->unload(gone);
}

/// The kernel has stopped a program that called error, or whose block was killed from within.
void Node::programEnded(ose::Block& block, u32 code, const std::string& text)
{
    ends_.push_back({world_.now(), code, text});
    if (program_ == &block) {
        program_ = nullptr;
        forgetProgram();
    }
    system_->unload(block);
    if (onEnd_) onEnd_(ends_.back());
    if (config_.reloadAfter_ms < 0) return;
    after(config_.reloadAfter_ms * ose::MS, [this] {
        if (program_ == nullptr && powered_) restart(config_.restartAfterEnd);
    });
}

void Node::forgetProgram()
{
    shutdownCallback_ = nullptr;
    enabledVectors_.clear();
    serial_->programGone();
    shell_->programGone();
}

// ---- node::Platform -----------------------------------------------------------------------------

int Node::adiBoardCode(u32& code) { return parameters_.boardCode(code); }

int Node::boardParameter(const char* name, char* text, std::size_t size)
{
    return parameters_.board(name, text, size);
}

int Node::bootParameter(const char* name, char* text, std::size_t size)
{
    return parameters_.boot(name, text, size);
}

int Node::visualIndication(u32 request)
{
    drives(Drive::Led, request);
    ++ledRequests_;
    if (ledResult != 0) return ledResult;
    if (request != RED_LED_ON && request != RED_LED_OFF) return BAD_REQUEST;
    led_ = request == RED_LED_ON ? Led::RedOn : Led::RedOff;
    return 0;
}

int Node::elgiWrite(const char* code, u32 severity, u32 count, const char* text, u32 last)
{
    drives(Drive::ErrorLog, std::string_view(code), severity, count, std::string_view(text), last);
    return errorLog_->write(code, severity, count, text, last);
}

int Node::registerShutdown(void (*callback)())
{
    if (!system_->alive(shutdownProcess_)) return 1;
    shutdownCallback_ = callback;
    return 0;
}

void Node::setCalendar(i64 seconds, u32 microseconds)
{
    calendarOffset_us_ = seconds * US_PER_S + microseconds - world_.now() / ose::US;
}

void Node::setCalendarTrue()
{
    setCalendar(config_.calendarStart + world_.now() / ose::SEC,
                static_cast<u32>(world_.now() % ose::SEC / ose::US));
}

node::CalendarTime Node::calendar()
{
    const i64 now_us = world_.now() / ose::US + calendarOffset_us_;
    const i64 seconds = now_us >= 0 ? now_us / US_PER_S : (now_us - US_PER_S + 1) / US_PER_S;
    return {seconds, static_cast<u32>(now_us - seconds * US_PER_S)};
}

int Node::fileExists(const char* path) { return volumes_.exists(path); }
int Node::fileRead(const char* path, std::string& content) { return volumes_.read(path, content); }
int Node::fileWrite(const char* path, const std::string& content)
{
    drives(Drive::FileWrite, std::string_view(path), content);
    return volumes_.write(path, content);
}
int Node::fileAppend(const char* path, const std::string& content)
{
    drives(Drive::FileAppend, std::string_view(path), content);
    return volumes_.append(path, content);
}
int Node::fileRemove(const char* path)
{
    drives(Drive::FileRemove, std::string_view(path));
    return volumes_.remove(path);
}

int Node::msiState() { return msi_->state(); }
int Node::msiRead(u32 address, u8* bytes, std::size_t count) { return msi_->read(address, bytes, count); }
int Node::msiWrite(u32 address, const u8* bytes, std::size_t count)
{
    drives(Drive::Memory, address, bytesOf(bytes, count));
    return msi_->write(address, bytes, count);
}

int Node::ipState() { return ipsocki_->state(); }
int Node::ipSocket(u32 family, u32 type)
{
    drives(Drive::Socket, family, type);
    return ipsocki_->socket(family, type);
}
int Node::ipOption(int socket, u32 option, u32 value, u32 low)
{
    drives(Drive::Option, socket, option, value, low);
    return ipsocki_->option(socket, option, value, low);
}
int Node::ipBind(int socket, const u8* octets, u32 port)
{
    drives(Drive::Bind, socket, port);
    return ipsocki_->bind(socket, octets, port);
}
int Node::ipSend(int socket, const u8* bytes, std::size_t count, const u8* octets, u32 port)
{
    drives(Drive::Send, socket, bytesOf(bytes, count), port);
    return ipsocki_->send(socket, bytes, count, octets, port);
}
int Node::ipClose(int socket)
{
    drives(Drive::CloseSocket, socket);
    return ipsocki_->close(socket);
}
int Node::ipError() { return ipsocki_->error(); }

int Node::serialOpen(const char* device, u32 vector, const node::SerialSetting* settings, std::size_t count)
{
    drives(Drive::OpenLine, std::string_view(device), vector);
    for (const node::SerialSetting& setting : std::span(settings, count))
        drives(Drive::OpenLine, setting.key, setting.value);
    return serial_->open(device, vector, settings, count);
}
int Node::serialClose(const char* device)
{
    drives(Drive::CloseLine, std::string_view(device));
    return serial_->close(device);
}
int Node::serialWrite(const char* device, const u8* bytes, std::size_t count)
{
    drives(Drive::Line, std::string_view(device), bytesOf(bytes, count));
    return serial_->write(device, bytes, count);
}
std::size_t Node::serialRead(const char* device, u8* bytes, std::size_t room)
{
    return serial_->read(device, bytes, room);
}

int Node::registerCommand(const node::ShellCommand& command) { return shell_->registerCommand(command); }
void Node::shellPrint(const char* text) { shell_->print(text); }
void Node::trace(const node::TraceRecord& record) { traces_.write(world_.now(), record); }

}  // namespace sim
