#pragma once

#include "HostInterface/EffectHost.h"

namespace Tessaloom::BilateralBlur {

/// The entry of "Bilateral Smooth": a host calls it with a command number for everything that it wants of the effect.
/// `params` and `output` are never read; `extra` is read by the two render commands alone. Commands that the
/// effect doesn't know return 0 and touch nothing.
///
/// The host sends one command at a time to all effects that are linked into a program or module, from whichever
/// threads it likes. A setup may follow a setdown.
///
/// Returns 0 or an error code; no exception comes out. A frame that can't be rendered sets
/// `PF_OutFlag_DISPLAY_ERROR_MESSAGE` and says why in `out_data->return_msg`, where the reason is one that a
/// user can do something about.
PF_Err bilateralSmoothCommand(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                              PF_LayerDef* output, void* extra);

} // namespace Tessaloom::BilateralBlur
