#include "Plugins/BilateralBlur/Sources/Cpu/CpuFilter.h"

#include "Plugins/Shared/Cpu/Kernel.h"
#include "Plugins/Shared/Helper/HostPixels.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <cstdint>

namespace Tessaloom::BilateralBlur {

void CpuFilter::render(PF_InData* in_data, PF_LayerDef* input, PF_LayerDef* output, int blurScale) {
    if (!mPool)
        mPool.emplace();
    const auto* source = reinterpret_cast<const std::uint8_t*>(baseAddress<PF_Pixel8>(in_data, input));
    const SuiteScoper<PF_HandleSuite1> suite(in_data, "PF Handle Suite", 2, nullptr, nullptr);
    constexpr std::ptrdiff_t kPixelBytes = sizeof(PF_Pixel8);
    const std::ptrdiff_t rowSize = kPixelBytes * input->width;
    const LockedHandle picture(suite, static_cast<std::uint64_t>(rowSize) *
                                          static_cast<std::uint64_t>(input->height));
    // Whole pixels, as the upload of a texture counts them.
    const std::ptrdiff_t sourceStride = input->rowbytes / kPixelBytes * kPixelBytes;
    bilateralBlur(source, sourceStride, reinterpret_cast<std::uint8_t*>(picture.data()), rowSize,
                  input->width, input->height, blurScale, *mPool);
    copyRows<PF_Pixel8>(in_data, output, picture.data(), static_cast<std::size_t>(input->width));
}

} // namespace Tessaloom::BilateralBlur
