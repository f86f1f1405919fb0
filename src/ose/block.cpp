// block.cpp - Loaded programs: module data, configuration, environment, their end.
#include "ose/kernel.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace ose {
namespace detail {
namespace {

constexpr std::size_t IMAGE_ALIGN = 64;

struct Registry {
    std::vector<ModuleDataEntry> entries;
    std::vector<std::size_t> offsets;
    std::size_t size = 0;
};

/// Filled by static initialisers of the modules, so it can't be a plain global.
Registry& registry()
{
    static Registry r;
    return r;
}

std::byte* buildImage()
{
    const Registry& r = registry();
    auto* image = static_cast<std::byte*>(
        ::operator new(r.size + IMAGE_ALIGN, std::align_val_t{IMAGE_ALIGN}));
    std::byte* const before = programData;
    programData = image;
    for (std::size_t i = 0; i < r.entries.size(); ++i) r.entries[i].build(image + r.offsets[i]);
    programData = before;
    return image;
}

void destroyImage(std::byte* image)
{
    const Registry& r = registry();
    std::byte* const before = programData == image ? nullptr : programData;
    programData = image;
    for (std::size_t i = r.entries.size(); i-- > 0;) r.entries[i].destroy(image + r.offsets[i]);
    programData = before;
    ::operator delete(image, std::align_val_t{IMAGE_ALIGN});
}

}  // namespace

constinit thread_local std::byte* programData = nullptr;

std::size_t registerModuleData(const ModuleDataEntry& entry)
{
    Registry& r = registry();
    if (entry.align > IMAGE_ALIGN) {
        std::fprintf(stderr, "kernel: module data aligned to more than %zu bytes\n", IMAGE_ALIGN);
        std::abort();
    }
    const std::size_t offset = (r.size + entry.align - 1) / entry.align * entry.align;
    r.entries.push_back(entry);
    r.offsets.push_back(offset);
    r.size = offset + entry.size;
    return offset;
}

void noProgram()
{
    std::fprintf(stderr, "kernel: module data used outside of any program\n");
    std::abort();
}

}  // namespace detail

namespace {

const char* configured(const Program& program, const std::string& key, const char* otherwise)
{
    for (const ConfigLine& line : program.config)
        if (key == line.key) return line.value;
    return otherwise;
}

u32 configuredNumber(const Program& program, const char* key, const char* otherwise)
{
    const char* text = configured(program, key, otherwise);
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (end == text || *end != '\0' || *text == '-' || value > 0xFFFF'FFFFul)
        throw std::invalid_argument(std::string(program.name) + ": " + key + "=" + text + " is no number");
    return static_cast<u32>(value);
}

}  // namespace

// ---- block --------------------------------------------------------------------------------------

Block::Block() : impl_(std::make_unique<Impl>()) {}
Block::~Block() = default;

Block::Impl::~Impl()
{
    if (data != nullptr) detail::destroyImage(data);
}

BLOCK Block::id() const { return impl_->id; }
const std::string& Block::name() const { return impl_->name; }
System& Block::system() { return impl_->system->system; }
u32 Block::poolUsed() const { return impl_->pool->used(); }
u32 Block::poolPeak() const { return impl_->pool->peak(); }
std::size_t Block::dataSize() const { return detail::registry().size; }

Block& System::load(const Program& program)
{
    const std::string sizesText = configured(program, "OSE_LM_SIGNAL_SIZES",
                                             "31,63,127,255,1023,4095,16383,65535");
    const std::vector<u32> sizes = parseSizes(sizesText);
    if (sizes.empty())
        throw std::invalid_argument(std::string(program.name) + ": OSE_LM_SIGNAL_SIZES=" + sizesText
                                    + " is no ascending list of sizes from 4 to 65535");
    const u32 poolSize = configuredNumber(program, "OSE_LM_POOL_SIZE", "300000");
    const u32 priority = configuredNumber(program, "OSE_LM_MAIN_PRIORITY", "31");
    if (poolSize == 0 || priority >= PRIORITIES)
        throw std::invalid_argument(std::string(program.name) + ": pool size or main priority out of range");

    std::unique_ptr<Block> block(new Block);
    BlockImpl& b = block->impl();
    b.name = program.name;
    b.block = block.get();
    b.system = impl_.get();
    b.pool.reset(new Pool(poolSize, sizes));
    b.pool->registry = &impl_->pools;
    impl_->pools.push_back(b.pool.get());
    b.data = detail::buildImage();
    b.id = impl_->newSlot(SlotKind::Block, &b);
    impl_->blocks.push_back(std::move(block));

    Process& main = impl_->create(&b, KIND_PRIORITISED, configured(program, "OSE_LM_MAIN_NAME", program.name),
                                  priority);
    main.entry = program.main;
    const PROCESS pid = main.pid;
    if (!impl_->startProcess(main)) {
        impl_->w.kill(*impl_->process(pid));
        unload(*b.block);
        throw std::runtime_error(std::string(program.name) + ": no room for the main thread's stack");
    }
    return *b.block;
}

void System::unload(Block& block)
{
    BlockImpl& b = block.impl();
    if (b.unloading) return;
    b.unloading = true;
    impl_->killIn(b);
    Process* const self = here.current;
    if (self == nullptr) return;
    if (self->dead && !self->unwinding) unwind(*self);
    impl_->w.preempt();
}

void System::Impl::finishUnload(BlockImpl& b)
{
    freeSlot(b.id);
    std::erase_if(blocks, [&b](const std::unique_ptr<Block>& other) { return other.get() == b.block; });
}

void System::Impl::endProgram(BlockImpl& b, u32 code, const std::string& text)
{
    if (b.ended || b.unloading) return;
    b.ended = true;
    killIn(b);
    w.at(w.now, [this, id = b.id, code, text] {
        const Slot* s = slot(id);
        if (s == nullptr || s->kind != SlotKind::Block) return;   // unloaded by now
        BlockImpl& ended = *static_cast<BlockImpl*>(s->item);
        if (ended.unloading) return;
        if (programEnd) {
            programEnd(*ended.block, code, text);
            return;
        }
        std::fprintf(stderr, "kernel: program %s ended: %s\n", ended.name.c_str(), text.c_str());
    });
}

// ---- looking at a program from outside ----------------------------------------------------------

DataScope::DataScope(Block& block) : before_(detail::programData), systemBefore_(here.scope)
{
    detail::programData = block.impl().data;
    here.scope = &block.system();
}

DataScope::~DataScope()
{
    detail::programData = before_;
    here.scope = systemBefore_;
}

// ---- operations ---------------------------------------------------------------------------------

BLOCK get_bid(PROCESS pid)
{
    const Process* p = caller("get_bid", Place::current()).system->process(pid);
    return p == nullptr || p->block == nullptr ? 0 : p->block->id;
}

namespace {

BlockImpl* blockOf(BLOCK bid, const char* operation)
{
    const Slot* s = caller(operation, Place::current()).system->slot(bid);
    return s != nullptr && s->kind == SlotKind::Block ? static_cast<BlockImpl*>(s->item) : nullptr;
}

}  // namespace

const char* get_env(BLOCK bid, const char* name)
{
    const BlockImpl* b = blockOf(bid, "get_env");
    if (b == nullptr) return nullptr;
    const auto found = b->environment.find(name);
    return found == b->environment.end() ? nullptr : found->second.c_str();
}

void set_env(BLOCK bid, const char* name, const char* value)
{
    BlockImpl* b = blockOf(bid, "set_env");
    if (b != nullptr) b->environment[name] = value;
}

}  // namespace ose
