#pragma once

#include "Host/Module.h"
#include "Host/Services.h"
#include "Host/World.h"
#include "HostInterface/EffectHost.h"

#include <mutex>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Host {

/// The outcome of a command.
struct Result {
    PF_Err code = PF_Err_NONE;
    /// The text of `return_msg`, if the effect set `PF_OutFlag_DISPLAY_ERROR_MESSAGE`.
    std::string message;
    /// Misuses of the host, and what the effect didn't release.
    std::vector<std::string> mistakes;

    bool ok() const { return code == PF_Err_NONE && mistakes.empty(); }

    /// What went wrong, in one line.
    std::string text() const;
};

/// Moments in units of 1 / scale seconds.
struct Time {
    std::int32_t current = 0, step = 1;
    std::uint32_t scale = 1;
};

/// An effect from global setup to global setdown.
///
/// Every command is sent under a lock, since an effect that doesn't declare itself thread-safe gets one at a
/// time; any thread may ask for frames.
class Effect {
public:
    /// Sends global setup and parameters setup. `module` must outlive the effect. Throws ModuleError where a
    /// command fails or the effect declares something else than its property list.
    explicit Effect(const Module& module);

    /// Sends global setdown.
    ~Effect();
    Effect(const Effect&) = delete;
    Effect& operator=(const Effect&) = delete;

    /// The about text of the effect, empty if it fails. Lines are separated by carriage returns.
    std::string about();

    /// Filters a frame: smart pre-render, then smart render into a world of the host's own, which is swapped
    /// with `output` if all went well. `output` then has the size of `input` and other pixels, else it is
    /// untouched. An effect that promises a smaller rectangle gets a world of that size, and the rest of
    /// `output` is 0. The effect must not write to `input`. The two may be one world. A further frame takes
    /// no memory where `output` has the size of `input` already. Exhausted memory is a result with the code
    /// `PF_Err_OUT_OF_MEMORY`.
    ///
    /// @param values one for each slider of the property list, in its order; each within the slider's range.
    Result render(World& input, World& output, std::span<const std::int32_t> values, Time time = {});

private:
    struct Callbacks;

    /// The frame being rendered, if any.
    struct Frame {
        World* input = nullptr;
        std::set<std::int32_t> layers{}; ///< checkout ids of pre-render
    };

    void setUp();
    Result renderInto(World& output);
    Result preRender(PF_LRect& promised);
    Result smartRender(PF_LRect promised);
    Result send(PF_Cmd cmd, void* extra = nullptr);

    const Module& mModule;
    Services mServices;
    std::mutex mMutex;
    PF_InData mInData{};
    PF_OutData mOutData{};
    std::vector<PF_ParamDef> mParameters; ///< the input layer, then the sliders with their present values
    Frame mFrame;
    World mSpare{0, 0};
};

} // namespace Tessaloom::BilateralBlur::Host
