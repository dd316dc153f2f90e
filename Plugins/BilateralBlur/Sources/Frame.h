#pragma once

#include "HostInterface/EffectHost.h"

namespace Tessaloom::BilateralBlur {

class BilateralBlurRender;
class CpuFilter;

/// Renders `input` into `output`, which `checkWorlds` has found to fit, with the blur scale that the host
/// gives for the frame's time.
///
/// A frame is filtered by `render` where the effect's data context is on a GPU, otherwise, and without any GL
/// context, by `cpuFilter`. The host sees the same calls in the same order either way, and both give the same
/// picture: premultiplied bytes differ by 1 at most.
///
/// Returns the code of the parameter's checkout, or else of its checkin; the frame is rendered whatever they
/// are. Every other failure is a thrown integer, or std::bad_alloc, with a message in `out_data` where the
/// user can do something about it. The host's GL context is current again at the end, thrown or not.
PF_Err renderFrame(PF_InData* in_data, PF_OutData* out_data, PF_LayerDef* input, PF_LayerDef* output,
                   BilateralBlurRender& render, CpuFilter& cpuFilter);

} // namespace Tessaloom::BilateralBlur
