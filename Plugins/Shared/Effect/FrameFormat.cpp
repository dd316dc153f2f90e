#include "Plugins/Shared/Effect/FrameFormat.h"

#include "Plugins/Shared/Effect/FrameChecks.h"

namespace Tessaloom::BilateralBlur {

namespace {

constexpr FrameFormat kBits8{PF_PixelFormat_ARGB32, sizeof(PF_Pixel8), Depth::Bits8, 255};
constexpr FrameFormat kBits16{PF_PixelFormat_ARGB64, sizeof(PF_Pixel16), Depth::Bits16, 32768};
constexpr FrameFormat kFloat{PF_PixelFormat_ARGB128, sizeof(PF_PixelFloat), Depth::Float, 1};

} // namespace

const FrameFormat& frameFormat(const EffectDeclaration& effect, PF_OutData* out_data,
                               const PF_SmartRenderExtra& extra) {
    const bool takes16 = effect.outFlags & PF_OutFlag_DEEP_COLOR_AWARE;
    const bool takesFloat = effect.outFlags2 & PF_OutFlag2_FLOAT_COLOR_AWARE;
    if (!takes16 && !takesFloat)
        return kBits8;
    const int bits = extra.input ? extra.input->bitdepth : 0;
    if (bits == 8)
        return kBits8;
    if (bits == 16 && takes16)
        return kBits16;
    if (bits == 32 && takesFloat)
        return kFloat;
    showMessage(out_data, "%s doesn't take frames of %d bits a channel.", effect.name, bits);
    throw int{PF_Err_BAD_CALLBACK_PARAM};
}

} // namespace Tessaloom::BilateralBlur
