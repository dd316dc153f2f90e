#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Tessaloom::BilateralBlur {

/// A block of host memory, locked for as long as the object lives. `suite` is the host's "PF Handle Suite"
/// and must outlive the object. Throws the integer 4 where the host has no memory.
class LockedHandle {
public:
    LockedHandle(const SuiteScoper<PF_HandleSuite1>& suite, std::uint64_t bytes);
    ~LockedHandle();
    LockedHandle(const LockedHandle&) = delete;
    LockedHandle& operator=(const LockedHandle&) = delete;

    std::byte* data() const { return static_cast<std::byte*>(mData); }

private:
    // The handle goes wherever the lock fails, by a null or by an exception.
    struct NewHandle {
        NewHandle(const SuiteScoper<PF_HandleSuite1>& suite, std::uint64_t bytes);
        ~NewHandle();
        NewHandle(const NewHandle&) = delete;
        NewHandle& operator=(const NewHandle&) = delete;

        const SuiteScoper<PF_HandleSuite1>& mSuite;
        void* mHandle;
    };

    NewHandle mHandle;
    void* mData;
};

/// The address of the first pixel of a world whose pixels are `PF_Pixel8`, `PF_Pixel16` or `PF_PixelFloat`, as the
/// host gives it. Throws the integer 516 where it gives none, unless the rows are empty.
template<typename Pixel>
std::byte* baseAddress(PF_InData* in_data, PF_LayerDef* world) {
    Pixel* base = nullptr;
    if constexpr (sizeof(Pixel) == sizeof(PF_Pixel8))
        in_data->utils->get_pixel_data8(world, nullptr, &base);
    else if constexpr (sizeof(Pixel) == sizeof(PF_PixelFloat))
        in_data->utils->get_pixel_data_float(world, nullptr, &base);
    else
        in_data->utils->get_pixel_data16(world, nullptr, &base);
    if (!base && world->width > 0)
        throw int{PF_Err_BAD_CALLBACK_PARAM};
    return reinterpret_cast<std::byte*>(base);
}

/// Copies the top left of an image into all of `output`. The rows of `image` are `imageWidth` pixels
/// apart. Row y of `output` begins y times `rowbytes` behind its base, or before it where that is negative,
/// rounded towards the base to whole pixels; padding behind the rows isn't written. The host is asked for the
/// base address at each row. Throws as `baseAddress` does.
template<typename Pixel>
void copyRows(PF_InData* in_data, PF_LayerDef* output, const std::byte* image, std::size_t imageWidth) {
    constexpr std::ptrdiff_t kPixel = sizeof(Pixel);
    for (std::int32_t row = 0; row < output->height; ++row) {
        std::byte* base = baseAddress<Pixel>(in_data, output);
        if (output->width <= 0)
            continue;
        const std::ptrdiff_t offset = std::ptrdiff_t{row} * output->rowbytes / kPixel * kPixel;
        std::memcpy(base + offset, image + static_cast<std::size_t>(row) * imageWidth * sizeof(Pixel),
                    static_cast<std::size_t>(output->width) * sizeof(Pixel));
    }
}

} // namespace Tessaloom::BilateralBlur
