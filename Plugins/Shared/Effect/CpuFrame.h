#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Effect/Effect.h"
#include "Plugins/Shared/Effect/FrameFormat.h"

namespace Tessaloom::BilateralBlur {

/// A frame without a GPU: filters `input` into a handle of the host's, and copies that into `output`, which must be no
/// larger; padding behind its rows stays as it is. Straight results for an output of the same size, in memory of its own,
/// go there at once. Both worlds have the format, and `input` isn't empty.
///
/// Makes no GL call. For 8 bits and a handle, the host sees the calls of AEOpenGLUtilities::UploadTexture and
/// DownloadTexture, and the same integers are thrown; std::bad_alloc where the filter has no memory.
void renderOnCpu(const Effect& effect, SliderValues values, PF_InData* in_data, PF_LayerDef* input,
                 PF_LayerDef* output, const FrameFormat& format, ThreadPool& pool);

} // namespace Tessaloom::BilateralBlur
