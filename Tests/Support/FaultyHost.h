#pragma once

#include "Host/Module.h"
#include "HostInterface/EffectHost.h"

#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur {

/// A code to inject that isn't returned: the function throws std::bad_alloc.
constexpr PF_Err kThrowBadAlloc = std::numeric_limits<PF_Err>::min();

/// The same with an exception of another type.
constexpr PF_Err kThrowOther = kThrowBadAlloc + 1;

/// Faults to inject. Left empty, everything works.
struct Faults {
    /// Codes that calls return instead of doing anything, by the name of the function or the whole text of
    /// `calls`. Functions that return an address return null. A parameter is checked out and in all the same.
    std::map<std::string, PF_Err> failing{};
    /// Tables by suite name, given out instead of the host's own; may be null.
    std::map<std::string, const void*> suites{};
    /// Worlds that the effect gets instead of the host's own; may be null. Where rows run upwards in memory,
    /// the effect gets the address of the last one in memory, which is the top row.
    std::optional<PF_LayerDef*> input{}, output{};
    /// The bits of a channel that the host states, unless it is 0.
    std::int16_t bitDepth = 0;
};

/// Between a host and an effect: passes each call of the effect on to the host, records it, and injects
/// faults. Only one object at a time, and one command at a time.
class FaultyHost {
public:
    /// For an effect that is set up through `module()`: its entry, and what its property list says.
    explicit FaultyHost(PF_EntryPointFunc entry = nullptr, Host::Resource resource = {});
    FaultyHost(const FaultyHost&) = delete;
    FaultyHost& operator=(const FaultyHost&) = delete;

    const Host::Module& module() const { return mModule; }

    /// The host's record with this object's callbacks; valid until the next call or command.
    static PF_InData* wrap(const PF_InData& host);

    Faults faults{};

    /// The calls of the last command in their order: names of functions, each with its numbers, texts and
    /// worlds. Formatting and copying of text aren't among them.
    std::vector<std::string> calls{};

    /// Where it is set, runs before each call is recorded.
    std::function<void()> before{};

private:
    Host::Module mModule;
};

} // namespace Tessaloom::BilateralBlur
