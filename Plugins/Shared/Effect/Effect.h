#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Cpu/Pixels.h"
#include "Plugins/Shared/Cpu/ThreadPool.h"
#include "Plugins/Shared/Effect/Declaration.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace Tessaloom::BilateralBlur {

/// A value for each slider, in the order of their declaration. The host's, so it may be beyond a slider's range.
using SliderValues = std::span<const std::int32_t>;

/// Whether an effect has had its global setup and setdown.
struct EffectState {
    bool isSetUp = false, isSetDown = false;
};

/// What an effect does itself; the commands and all else are what effects share. A module has one effect. Those that
/// are linked into one program share the contexts and the threads, from the first setup to the last setdown.
struct Effect {
    const EffectDeclaration& declaration;
    EffectState& state;

    /// What `draw` and `filter` give is the result, at the depth of the frame. Otherwise the pass gives premultiplied
    /// red, green, blue, alpha of 8 bits, which the screen pass turns into the result.
    bool isStraight;

    /// How far the neighbourhood of a pixel extends to each side, in pixels.
    int (*reach)(SliderValues values);

    /// Draws the effect's pass with `texture`, the host's alpha, red, green, blue, as its input into the framebuffer that
    /// is bound. Texture and viewport have the same size, and so has the main framebuffer where the result isn't
    /// straight; `multiplier16bit` is that of the texture's upload. Makes the pass where there is none.
    void (*draw)(SliderValues values, unsigned texture, float multiplier16bit);

    /// Deletes the pass, if there is one. If it has drawn, a context of the share group is current.
    void (*releasePass)();

    /// Filters a frame of at least one pixel on the CPU, on the pool's threads, into memory of the same size and depth
    /// that doesn't overlap the source. Gives the image that the GPU gives. Throws std::bad_alloc where there is no
    /// memory for that.
    void (*filter)(SliderValues values, const Image& source, void* target, std::ptrdiff_t targetStride,
                   ThreadPool& pool);
};

/// Runs a command of the host's for an effect: all that its entry has to do. Commands that effects don't know
/// return 0 and touch nothing.
///
/// Returns 0 or an error code; no exception comes out. A frame that can't be rendered sets
/// `PF_OutFlag_DISPLAY_ERROR_MESSAGE` and says why in `out_data->return_msg`, where the reason is one that a user can
/// do something about.
PF_Err runCommand(const Effect& effect, PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, void* extra);

} // namespace Tessaloom::BilateralBlur
