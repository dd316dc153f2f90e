#pragma once

#include "HostInterface/EffectHost.h"

/// The one function that the module exports: a host calls it with a command number for everything that it
/// wants of the effect. `params` and `output` are never read; `extra` is read by the two render commands
/// alone. Commands that the effect doesn't know return 0 and touch nothing.
///
/// The host sends one render command at a time, from whichever threads it likes; global setup and setdown
/// must not overlap any other command. A setup may follow a setdown.
///
/// Returns 0 or an error code; no exception comes out. A frame that can't be rendered sets
/// `PF_OutFlag_DISPLAY_ERROR_MESSAGE` and says why in `out_data->return_msg`, where the reason is one that a
/// user can do something about.
extern "C" __attribute__((visibility("default"))) PF_Err EntryPointFunc(PF_Cmd cmd, PF_InData* in_data,
                                                                        PF_OutData* out_data,
                                                                        PF_ParamDef* params[],
                                                                        PF_LayerDef* output, void* extra);
