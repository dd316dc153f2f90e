#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Cpu/Pixels.h"
#include "Plugins/Shared/Effect/Declaration.h"

#include <cstdint>

namespace Tessaloom::BilateralBlur {

/// How the pixels of a frame's worlds are stored.
struct FrameFormat {
    std::int32_t tag; ///< of PF_PixelFormat
    int pixelBytes;
    Depth depth;
    double fullScale; ///< the value of a channel that is 1
};

/// The format of a frame's worlds by the bits of a channel that the host states, which an effect that declares no more
/// than 8 doesn't look at. Throws the integer 516, with a message, where the effect doesn't take as many.
const FrameFormat& frameFormat(const EffectDeclaration& effect, PF_OutData* out_data,
                               const PF_SmartRenderExtra& extra);

} // namespace Tessaloom::BilateralBlur
