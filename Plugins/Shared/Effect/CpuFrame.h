#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Effect/Effect.h"

namespace Tessaloom::BilateralBlur {

/// A frame without a GPU: filters `input` into a handle of the host's, and copies that into `output`, which must be no
/// larger; padding behind its rows stays as it is. Both are worlds of 8 bits a channel, and `input` isn't empty.
///
/// Makes no GL call. The host sees the calls of AEOpenGLUtilities::UploadTexture and DownloadTexture, and the same
/// integers are thrown; std::bad_alloc where the filter has no memory.
void renderOnCpu(const Effect& effect, SliderValues values, PF_InData* in_data, PF_LayerDef* input,
                 PF_LayerDef* output, ThreadPool& pool);

} // namespace Tessaloom::BilateralBlur
