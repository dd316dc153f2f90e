#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/Metadata.h"

#include <algorithm>
#include <functional>
#include <stdexcept>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using vips::VImage;

constexpr std::size_t kHeader = 12; ///< bytes: "RIFF", a size, "WEBP"
constexpr int kQuality = 85;        ///< of files with loss: a file doesn't say which one it was made with

void walk(std::span<const std::byte> chunks,
          const std::function<void(std::string_view, std::span<const std::byte>)>& take) {
    while (chunks.size() >= 8) {
        const std::size_t size = std::min<std::size_t>(littleEndian(chunks.subspan(4, 4)), chunks.size() - 8);
        take(text(chunks.first(4)), chunks.subspan(8, size));
        chunks = chunks.subspan(std::min(chunks.size(), 8 + size + size % 2));
    }
}

/// Takes the size of the image out of one of the three chunks that can have it.
void takeSize(std::string_view name, std::span<const std::byte> content, Page& page) {
    if (content.size() < 10)
        return;
    if (name == "VP8X") {
        page.width = static_cast<int>(littleEndian(content.subspan(4, 3))) + 1;
        page.height = static_cast<int>(littleEndian(content.subspan(7, 3))) + 1;
    } else if (name == "VP8 " && page.width == 0) {
        page.width = static_cast<int>(littleEndian(content.subspan(6, 2)) & 0x3FFF);
        page.height = static_cast<int>(littleEndian(content.subspan(8, 2)) & 0x3FFF);
    } else if (name == "VP8L" && page.width == 0) {
        const std::uint32_t sides = littleEndian(content.subspan(1, 4));
        page.width = static_cast<int>(sides & 0x3FFF) + 1;
        page.height = static_cast<int>(sides >> 14 & 0x3FFF) + 1;
    }
}

} // namespace

bool matchesWebp(std::span<const std::byte> file) {
    return file.size() >= kHeader && text(file).starts_with("RIFF") &&
           text(file).substr(8).starts_with("WEBP");
}

void inspectWebp(std::span<const std::byte> file, Image& head, Metadata& metadata) {
    if (littleEndian(file.subspan(4, 4)) > file.size() - 8)
        throw std::runtime_error("the file is cut short");
    constexpr std::size_t kFrameHeader = 16;
    const auto isLossy = [&](std::string_view name, auto) { head.compression.lossy |= name == "VP8 "; };
    Page canvas;
    walk(file.subspan(kHeader), [&](std::string_view name, std::span<const std::byte> content) {
        isLossy(name, content);
        takeSize(name, content, canvas);
        if (name == "ANIM" && content.size() >= 6)
            head.loops = static_cast<int>(littleEndian(content.subspan(4, 2)));
        if (name != "ANMF" || content.size() < kFrameHeader)
            return;
        Page& page = head.pages.emplace_back();
        page.delay = static_cast<int>(littleEndian(content.subspan(12, 3)));
        walk(content.subspan(kFrameHeader), isLossy);
    });
    if (head.pages.empty())
        head.pages.emplace_back();
    for (Page& page : head.pages) {
        page.width = canvas.width;
        page.height = canvas.height;
        page.density = densityOf(metadata.exif);
    }
}

Bytes encodeWebp(const Image& image, WriteOptions options, bool) {
    const Page& first = image.pages.front();
    VImage pixels = imageOf(image.pages, false);
    if (image.pages.size() > 1) {
        std::vector<int> delays;
        for (const Page& page : image.pages)
            delays.push_back(page.delay);
        pixels.set(VIPS_META_PAGE_HEIGHT, first.world.height);
        pixels.set("loop", image.loops);
        pixels.set("delay", delays);
    }
    const bool isLossy = options.quality > 0 || image.compression.lossy;
    const Bytes plain = encodePlain(pixels, ".webp",
                                    VImage::option()
                                        ->set("lossless", !isLossy)
                                        ->set("Q", options.quality > 0 ? options.quality : kQuality));
    Metadata metadata = *image.metadata;
    if (first.density.unit != Density::Unit::Unknown && densityOf(metadata.exif).x == 0)
        setDensity(metadata.exif, first.density);
    return withMetadata(plain, metadata, first.profile);
}

} // namespace Tessaloom::BilateralBlur::Program
