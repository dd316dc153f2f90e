#pragma once

#include "HostInterface/EffectHost.h"

#include <cstddef>
#include <memory>

namespace Tessaloom::BilateralBlur::Host {

/// A world that owns its pixels. Rows start on 64-byte boundaries and always end in padding, so an effect
/// that assumes packed rows fails at any width.
///
/// The host must find the pixels by the bare record, so it keeps the addresses of all living worlds. A world
/// therefore stays where it was made; `swap` and moves exchange what two worlds hold.
class World : public PF_LayerDef {
public:
    static constexpr std::size_t kAlignment = 64;

    /// All pixels start as 0. `format` is one of the three tags `PF_PixelFormat_...`. Throws
    /// std::length_error where a size is negative or a row has more bytes than `rowbytes` can hold,
    /// std::invalid_argument for another format, std::bad_alloc where memory is exhausted.
    World(int width, int height, std::int32_t format = PF_PixelFormat_ARGB32);
    ~World();

    /// The other world is left empty, 0 by 0.
    World(World&& other);
    World& operator=(World&& other);

    std::int32_t format() const { return mFormat; }

    /// Address of a row's first pixel; never null.
    template<class Pixel = PF_Pixel8>
    Pixel* row(int y) {
        return reinterpret_cast<Pixel*>(mPixels.get() + static_cast<std::ptrdiff_t>(y) * rowbytes);
    }
    template<class Pixel = PF_Pixel8>
    const Pixel* row(int y) const {
        return reinterpret_cast<const Pixel*>(mPixels.get() + static_cast<std::ptrdiff_t>(y) * rowbytes);
    }

    bool sameShape(const World& other) const;

    /// Sets all pixels to 0.
    void clear();

    /// Exchanges size, format and pixels.
    void swap(World& other);

    /// True as long as nobody has written to the padding of the rows.
    bool paddingIntact() const;

    /// The living world whose record this is; null for any other record, a copy of a world's among them.
    static World* of(const PF_LayerDef* record);

private:
    struct Free {
        void operator()(std::byte* pixels) const;
    };

    std::size_t rowLength() const; ///< bytes of a row without its padding

    std::int32_t mFormat;
    std::unique_ptr<std::byte[], Free> mPixels;
};

/// Bits of a channel of a format.
constexpr std::int16_t bitsOf(std::int32_t format) {
    return format == PF_PixelFormat_ARGB32 ? 8 : format == PF_PixelFormat_ARGB64 ? 16 : 32;
}

/// Bytes of a pixel of a format; 0 for a tag that isn't one of the three.
int bytesPerPixel(std::int32_t format);

} // namespace Tessaloom::BilateralBlur::Host
