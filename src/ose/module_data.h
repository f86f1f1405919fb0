// module_data.h - State of a module, one copy for each loaded program.
//
// A module keeps its whole state in one struct in its anonymous namespace and reaches it through
// `ose::ModuleData<State> s;`. Loading a program builds every State anew, unloading destroys it, so
// that a restart is a real restart and two units in one world share nothing.
#pragma once
#include <cstddef>
#include <new>

namespace ose {
namespace detail {

struct ModuleDataEntry {
    std::size_t size;
    std::size_t align;
    void (*build)(void*);
    void (*destroy)(void*);
};
/// Registers at static initialisation; returns the offset in a program's data image.
std::size_t registerModuleData(const ModuleDataEntry& entry);

/// Data image of the program whose process runs on this thread, nullptr outside of any.
extern constinit thread_local std::byte* programData;
/// Reports use of module state outside of a program; never returns.
[[noreturn]] void noProgram();

}  // namespace detail

template <typename State>
class ModuleData {
public:
    ModuleData()
        : offset_(detail::registerModuleData({sizeof(State), alignof(State),
                                              [](void* at) { new (at) State(); },
                                              [](void* at) { static_cast<State*>(at)->~State(); }}))
    {
    }
    ModuleData(const ModuleData&) = delete;
    ModuleData& operator=(const ModuleData&) = delete;

    State* operator->() const { return at(); }
    State& operator*() const { return *at(); }

private:
    State* at() const
    {
        if (detail::programData == nullptr) [[unlikely]] detail::noProgram();
        return std::launder(reinterpret_cast<State*>(detail::programData + offset_));
    }
    std::size_t offset_;
};

}  // namespace ose
