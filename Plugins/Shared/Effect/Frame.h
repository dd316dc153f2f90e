#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Effect/Effect.h"
#include "Plugins/Shared/Effect/FrameFormat.h"

namespace Tessaloom::BilateralBlur {

/// Renders `input` into `output`, which `checkWorlds` has found to fit, with the values that the host
/// gives the sliders for the frame's time.
///
/// A frame is drawn where the effect's data context is on a GPU. Otherwise, without any GL context, and where the
/// GPU can't draw it, it is filtered on the CPU, on the threads of `pool()`. The host sees the same calls in the same
/// order either way, and both give the same image: premultiplied bytes differ by 1 at most. A frame that the GPU
/// gives up starts again on the CPU, before a pixel is written, and one line on standard output says why.
///
/// Returns the first code of a parameter's checkout or checkin that isn't 0; the frame is rendered whatever they
/// are. Every other failure is a thrown integer, or std::bad_alloc, with a message in `out_data` where the
/// user can do something about it. The host's GL context is current again at the end, thrown or not.
PF_Err renderFrame(const Effect& effect, PF_InData* in_data, PF_OutData* out_data, PF_LayerDef* input,
                   PF_LayerDef* output, const FrameFormat& format, ThreadPool& (*pool)());

} // namespace Tessaloom::BilateralBlur
