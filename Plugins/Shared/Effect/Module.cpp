#include "Plugins/Shared/Effect/LinkedEffect.h"

/// The one function that a module exports.
extern "C" __attribute__((visibility("default"))) PF_Err EntryPointFunc(PF_Cmd cmd, PF_InData* in_data,
                                                                        PF_OutData* out_data,
                                                                        PF_ParamDef* params[],
                                                                        PF_LayerDef* output, void* extra) {
    return Tessaloom::BilateralBlur::linkedEffect().entry(cmd, in_data, out_data, params, output, extra);
}
