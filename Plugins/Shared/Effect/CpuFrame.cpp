#include "Plugins/Shared/Effect/CpuFrame.h"

#include "Plugins/Shared/Helper/HostPixels.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <cstddef>
#include <cstdint>

namespace Tessaloom::BilateralBlur {

namespace {

// Whole pixels, as the upload of a texture counts them.
std::ptrdiff_t strideOf(const PF_LayerDef& world, int pixelBytes) {
    return std::ptrdiff_t{world.rowbytes} / pixelBytes * pixelBytes;
}

template<typename Pixel>
void render(const Effect& effect, SliderValues values, PF_InData* in_data, PF_LayerDef* input,
            PF_LayerDef* output, const FrameFormat& format, ThreadPool& pool) {
    std::byte* const base = baseAddress<Pixel>(in_data, input);
    const Image source{.pixels = reinterpret_cast<const std::uint8_t*>(base),
                       .stride = strideOf(*input, format.pixelBytes),
                       .width = input->width,
                       .height = input->height,
                       .depth = format.depth,
                       .fullScale = format.fullScale};
    if (effect.isStraight && output->width == input->width && output->height == input->height) {
        std::byte* const target = baseAddress<Pixel>(in_data, output);
        if (target != base)
            return effect.filter(values, source, target, strideOf(*output, format.pixelBytes), pool);
    }
    const SuiteScoper<PF_HandleSuite1> suite(in_data, "PF Handle Suite", 2, nullptr, nullptr);
    const std::ptrdiff_t rowSize = std::ptrdiff_t{format.pixelBytes} * input->width;
    const LockedHandle image(suite,
                             static_cast<std::uint64_t>(rowSize) * static_cast<std::uint64_t>(input->height));
    effect.filter(values, source, image.data(), rowSize, pool);
    copyRows<Pixel>(in_data, output, image.data(), static_cast<std::size_t>(input->width));
}

} // namespace

void renderOnCpu(const Effect& effect, SliderValues values, PF_InData* in_data, PF_LayerDef* input,
                 PF_LayerDef* output, const FrameFormat& format, ThreadPool& pool) {
    switch (format.depth) {
    case Depth::Bits8:
        return render<PF_Pixel8>(effect, values, in_data, input, output, format, pool);
    case Depth::Bits16:
        return render<PF_Pixel16>(effect, values, in_data, input, output, format, pool);
    case Depth::Float:
        return render<PF_PixelFloat>(effect, values, in_data, input, output, format, pool);
    }
}

} // namespace Tessaloom::BilateralBlur
