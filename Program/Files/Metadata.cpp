#include "Program/Files/Metadata.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using vips::VImage;

constexpr std::string_view kPrefix("Exif\0\0", 6);
constexpr std::size_t kLargestBlock = 0xFFFF - 2 - kPrefix.size(); // what a JPEG segment holds
constexpr std::byte kMarker{0xFF}, kExifSegment{0xE1}, kPixelsFollow{0xDA};
constexpr std::size_t kStart = 2; // bytes of the marker that begins a JPEG file

constexpr std::string_view kNotCarried[] = {
    "bits-per-sample", "jpeg-thumbnail-data", "n-pages",     "n-subifds",
    "page-height",     "palette-bit-depth",   "vips-loader", "vips-sequential",
};

std::vector<std::byte> jpegOf(const VImage& image) {
    void* buffer = nullptr;
    std::size_t size = 0;
    image.write_to_buffer(".jpg", &buffer, &size);
    const std::unique_ptr<void, decltype(&g_free)> owner(buffer, g_free);
    const auto* bytes = static_cast<const std::byte*>(buffer);
    return {bytes, bytes + size};
}

/// The EXIF block among the segments before the pixels of a JPEG file.
std::vector<std::byte> exifOfJpeg(std::span<const std::byte> jpeg) {
    std::size_t at = kStart;
    while (at + 4 + kPrefix.size() <= jpeg.size() && jpeg[at] == kMarker && jpeg[at + 1] != kPixelsFollow) {
        const std::size_t size =
            std::to_integer<std::size_t>(jpeg[at + 2]) << 8 | std::to_integer<std::size_t>(jpeg[at + 3]);
        const auto segment = jpeg.subspan(at + 4, std::min(size - 2, jpeg.size() - at - 4));
        if (jpeg[at + 1] == kExifSegment && segment.size() > kPrefix.size() &&
            std::memcmp(segment.data(), kPrefix.data(), kPrefix.size()) == 0)
            return {segment.begin() + kPrefix.size(), segment.end()};
        at += 2 + size;
    }
    return {};
}

} // namespace

VImage metadataOfExif(std::span<const std::byte> exif) {
    std::vector<std::byte> jpeg = jpegOf(VImage::black(1, 1));
    if (exif.size() <= kLargestBlock) {
        const std::size_t size = 2 + kPrefix.size() + exif.size();
        std::vector<std::byte> segment{kMarker, kExifSegment, static_cast<std::byte>(size >> 8),
                                       static_cast<std::byte>(size)};
        const auto* prefix = reinterpret_cast<const std::byte*>(kPrefix.data());
        segment.insert(segment.end(), prefix, prefix + kPrefix.size());
        segment.insert(segment.end(), exif.begin(), exif.end());
        jpeg.insert(jpeg.begin() + kStart, segment.begin(), segment.end());
    }
    VImage metadata = VImage::black(1, 1).copy();
    copyMetadata(VImage::new_from_buffer(jpeg.data(), jpeg.size(), ""), metadata);
    return metadata;
}

std::vector<std::byte> exifOfMetadata(const VImage& metadata, int width, int height) {
    if (!metadata.get_typeof(VIPS_META_EXIF_NAME) && !metadata.get_typeof(VIPS_META_ORIENTATION))
        return {};
    const VImage image =
        VImage::black(width, height)
            .copy(VImage::option()->set("xres", metadata.xres())->set("yres", metadata.yres()));
    copyMetadata(metadata, image);
    return exifOfJpeg(jpegOf(image));
}

void copyMetadata(const VImage& from, const VImage& to) {
    vips_image_map(
        from.get_image(),
        [](VipsImage*, const char* name, GValue* value, void* target) -> void* {
            auto* image = static_cast<VipsImage*>(target);
            if (vips_image_get_typeof(image, name) == 0 &&
                std::count(std::begin(kNotCarried), std::end(kNotCarried), name) == 0)
                vips_image_set(image, name, value);
            return nullptr;
        },
        to.get_image());
}

} // namespace Tessaloom::BilateralBlur::Program
