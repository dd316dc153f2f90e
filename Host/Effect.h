#pragma once

#include "Host/Module.h"
#include "Host/Services.h"
#include "Host/World.h"
#include "HostInterface/EffectHost.h"

#include <cstddef>
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

/// An effect from global setup to global setdown. Its state is the module's, so a process has one of each
/// module at a time.
///
/// Every command is sent under a lock, since an effect that doesn't declare itself thread-safe gets one at a
/// time; any thread may ask for frames.
class Effect {
public:
    /// Sends global setup and parameters setup. `module` must outlive the effect. Throws ModuleError where a
    /// command fails, the effect declares something else than its property list, or the process has this
    /// effect already.
    explicit Effect(const Module& module);
    explicit Effect(const Module&& module) = delete;

    /// Sends global setdown.
    ~Effect();
    Effect(const Effect&) = delete;
    Effect& operator=(const Effect&) = delete;

    /// The about text of the effect, empty if it fails. Lines are separated by carriage returns.
    std::string about();

    /// Filters a frame: smart pre-render, then smart render into a world of the host's own, which is swapped
    /// with `output` if all went well. `output` then has the size and format of `input` and other pixels, else
    /// it is untouched. The effect has to take the format, see Resource::takes. The two may be one world. A
    /// further frame takes no memory where `output` has the size of `input` already. Exhausted memory is a
    /// result with the code `PF_Err_OUT_OF_MEMORY`.
    ///
    /// The effect has to promise the whole of `input`, to leave both worlds' records and the padding of their
    /// rows alone, and not to write to `input`, of which some 64 rows are checked, others in each frame.
    ///
    /// @param values for the sliders of the property list, in its order, each within the slider's range.
    ///               Sliders without one have their default.
    Result render(World& input, World& output, std::span<const std::int32_t> values, Time time = {});

private:
    struct Callbacks;

    /// Marks an entry as in use.
    class Claim {
    public:
        explicit Claim(const Module& module);
        ~Claim();
        Claim(const Claim&) = delete;
        Claim& operator=(const Claim&) = delete;

    private:
        const PF_EntryPointFunc mEntry;
    };

    void addParameter(const PF_ParamDef& parameter);
    void setUp();
    std::string setValues(std::span<const std::int32_t> values);
    Result renderInto(World& output);
    Result preRender();
    Result smartRender();
    std::size_t rowsOfInput() const;
    Result send(PF_Cmd cmd, void* extra = nullptr);

    const Module& mModule;
    const Claim mClaim{mModule};
    Services mServices{mModule.scriptEngine()};
    std::mutex mMutex;
    PF_InData mInData{};
    PF_OutData mOutData{};
    std::vector<PF_ParamDef> mParameters;     ///< the input layer, then the sliders with their present values
    std::vector<PF_ParamDef*> mParameterList; ///< their addresses, made early: a setdown takes no memory
    bool mTakesParameters = false;
    World* mInput = nullptr;          ///< of the frame being rendered, if any
    std::set<std::int32_t> mLayers{}; ///< checkout ids of pre-render
    int mFrames = 0;
    World mSpare{0, 0};
};

} // namespace Tessaloom::BilateralBlur::Host
