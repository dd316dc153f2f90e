#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Cpu/ThreadPool.h"

#include <optional>

namespace Tessaloom::BilateralBlur {

/// Frames without a GPU. Threads and scratch memory are made by the first frame and stay until the object
/// goes.
class CpuFilter {
public:
    /// Filters `input` into a handle of the host's, and copies that into `output`, which must be no larger;
    /// padding behind its rows stays as it is. Both are worlds of 8 bits a channel, and `input` isn't empty.
    /// A blur scale beyond 0 to 60 works as the nearest of the two.
    ///
    /// Makes no GL call. The host sees the calls of AEOpenGLUtilities::UploadTexture and DownloadTexture, and
    /// the same integers are thrown; std::bad_alloc where there is no memory for the threads or their scratch
    /// memory.
    void render(PF_InData* in_data, PF_LayerDef* input, PF_LayerDef* output, int blurScale);

private:
    std::optional<ThreadPool> mPool;
};

} // namespace Tessaloom::BilateralBlur
