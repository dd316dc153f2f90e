#include "Plugins/Shared/Effect/CpuFrame.h"

#include "Plugins/Shared/Helper/HostPixels.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <cstdint>

namespace Tessaloom::BilateralBlur {

void renderOnCpu(const Effect& effect, SliderValues values, PF_InData* in_data, PF_LayerDef* input,
                 PF_LayerDef* output, ThreadPool& pool) {
    const auto* source = reinterpret_cast<const std::uint8_t*>(baseAddress<PF_Pixel8>(in_data, input));
    const SuiteScoper<PF_HandleSuite1> suite(in_data, "PF Handle Suite", 2, nullptr, nullptr);
    constexpr std::ptrdiff_t kPixelBytes = sizeof(PF_Pixel8);
    const std::ptrdiff_t rowSize = kPixelBytes * input->width;
    const LockedHandle image(suite,
                             static_cast<std::uint64_t>(rowSize) * static_cast<std::uint64_t>(input->height));
    effect.filter(values,
                  {.source = source,
                   // Whole pixels, as the upload of a texture counts them.
                   .sourceStride = input->rowbytes / kPixelBytes * kPixelBytes,
                   .target = reinterpret_cast<std::uint8_t*>(image.data()),
                   .targetStride = rowSize,
                   .width = input->width,
                   .height = input->height},
                  pool);
    copyRows<PF_Pixel8>(in_data, output, image.data(), static_cast<std::size_t>(input->width));
}

} // namespace Tessaloom::BilateralBlur
