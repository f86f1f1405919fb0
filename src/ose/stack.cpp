#include "ose/kernel.h"

#include <boost/context/detail/fcontext.hpp>

#include <cxxabi.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__SANITIZE_ADDRESS__)
#define TU_ASAN 1
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#elif defined(__SANITIZE_THREAD__)
#define TU_TSAN 1
#include <sanitizer/tsan_interface.h>
#endif

namespace ose {

namespace fibres = boost::context::detail;

// ---- switch -------------------------------------------------------------------------------------

struct Context::Start {
    static void enter(fibres::transfer_t came)
    {
        auto& [from, self] = *static_cast<Route*>(came.data);
        self.arriveFrom(from, came.fctx, nullptr);
        self.entry_(self.argument_);
        std::abort();
    }
    struct Route {
        Context& from;
        Context& to;
    };
};

Context::Context(std::byte* low, std::size_t size, void (*entry)(void*), void* argument)
    : at_(fibres::make_fcontext(low + size, size, Start::enter)), low_(low), size_(size), entry_(entry),
      argument_(argument)
{
#ifdef TU_TSAN
    fibre_ = __tsan_create_fiber(0);
#endif
}

Context::~Context()
{
#ifdef TU_TSAN
    if (entry_ != nullptr) __tsan_destroy_fiber(fibre_);
#endif
}

void Context::switchTo(Context& to)
{
    static_assert(sizeof(Exceptions) == 16 || sizeof(void*) != 8);
    void* const handled = abi::__cxa_get_globals();
    std::memcpy(&exceptions_, handled, sizeof exceptions_);
    std::memcpy(handled, &to.exceptions_, sizeof exceptions_);
    void* fakeStack = nullptr;
#ifdef TU_ASAN
    __sanitizer_start_switch_fiber(&fakeStack, to.low_, to.size_);
#elif defined(TU_TSAN)
    if (entry_ == nullptr) fibre_ = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(to.fibre_, 0);
#endif
    Start::Route route{*this, to};
    const fibres::transfer_t came = fibres::jump_fcontext(to.at_, &route);
    arriveFrom(static_cast<Start::Route*>(came.data)->from, came.fctx, fakeStack);
}

/// Whoever switched to this one stands where it did so.
void Context::arriveFrom(Context& from, void* at, [[maybe_unused]] void* fakeStack)
{
    from.at_ = at;
#ifdef TU_ASAN
    __sanitizer_finish_switch_fiber(fakeStack, &from.low_, &from.size_);
#endif
}

// ---- memory -------------------------------------------------------------------------------------

namespace {
std::size_t pageSize() { return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)); }
}  // namespace

std::unique_ptr<Stack> Stack::make(std::size_t size, void (*entry)(void*))
{
    const std::size_t page = pageSize();
    size = (size + page - 1) / page * page;
    void* const memory = ::mmap(nullptr, GUARD + size, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    if (::mprotect(memory, GUARD, PROT_NONE) != 0) {
        ::munmap(memory, GUARD + size);
        return nullptr;
    }
    return std::unique_ptr<Stack>(new Stack(static_cast<std::byte*>(memory), size, entry));
}

Stack::Stack(std::byte* memory, std::size_t size, void (*entry)(void*))
    : context(memory + GUARD, size, entry, this), memory_(memory), size_(size)
{
}

Stack::~Stack()
{
#ifdef TU_ASAN
    __asan_unpoison_memory_region(memory_ + GUARD, size_);   // what is mapped there next starts clean
#endif
    ::munmap(memory_, GUARD + size_);
}

std::size_t Stack::used() const
{
    const std::size_t page = pageSize();
    std::vector<unsigned char> resident(size_ / page);
    if (::mincore(memory_ + GUARD, size_, resident.data()) != 0) return 0;
    std::size_t untouched = 0;
    while (untouched < resident.size() && (resident[untouched] & 1) == 0) ++untouched;
    return size_ - untouched * page;
}

bool Stack::guards(const void* address) const { return address >= memory_ && address < memory_ + GUARD; }

// ---- overflow -----------------------------------------------------------------------------------

namespace {

struct sigaction overflowBefore;

void onFault(int number, siginfo_t* info, void* context)
{
    const Stack* const stack = here.stack;
    if (stack != nullptr && stack->process != nullptr && stack->guards(info->si_addr)) {
        char line[256];
        const int length =
            std::snprintf(line, sizeof line, "kernel: stack of process %.100s overflowed, %zu KiB\n",
                          stack->process->name.c_str(), stack->size() / 1024);
        [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line, static_cast<std::size_t>(length));
        std::abort();
    }
    if ((overflowBefore.sa_flags & SA_SIGINFO) != 0) overflowBefore.sa_sigaction(number, info, context);
    else ::sigaction(SIGSEGV, &overflowBefore, nullptr);   // happens again, and ends as it would have
}

/// The handler can't run on the stack that has overflowed.
class SignalStack {
public:
    SignalStack()
    {
        stack_t before{};
        if (::sigaltstack(nullptr, &before) != 0 || (before.ss_flags & SS_DISABLE) == 0) return;
        memory_ = std::make_unique<std::byte[]>(SIZE);
        const stack_t own{memory_.get(), 0, SIZE};
        ::sigaltstack(&own, nullptr);
    }
    ~SignalStack()
    {
        if (memory_ == nullptr) return;
        stack_t off{};
        off.ss_flags = SS_DISABLE;
        ::sigaltstack(&off, nullptr);
    }

private:
    static constexpr std::size_t SIZE = 64 * 1024;
    std::unique_ptr<std::byte[]> memory_;
};

}  // namespace

void watchForOverflow()
{
    static thread_local const SignalStack signalStack;
    static const bool installed = [] {
        struct sigaction own{};
        own.sa_sigaction = onFault;
        own.sa_flags = SA_SIGINFO | SA_ONSTACK;
        return ::sigaction(SIGSEGV, &own, &overflowBefore) == 0;
    }();
    static_cast<void>(signalStack);
    static_cast<void>(installed);
}

}  // namespace ose
