// Formats that modules of libvips read: they come with large libraries, and are loaded for such a file alone.

#include "Program/Files/Format.h"
#include "Program/Files/ImageLibrary.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using vips::VImage;

/// Of a file that starts with a box of this kind, the names in it.
std::string_view brandsOf(std::span<const std::byte> file) {
    constexpr std::size_t kHeader = 8;
    if (file.size() < kHeader || text(file.subspan(4, 4)) != "ftyp")
        return {};
    const std::size_t size = std::clamp<std::size_t>(bigEndian(file.first(4)), kHeader, file.size());
    return text(file.subspan(kHeader, size - kHeader));
}

bool hasBrand(std::span<const std::byte> file, std::initializer_list<std::string_view> names) {
    const std::string_view brands = brandsOf(file);
    for (std::size_t at = 0; at + 4 <= brands.size(); at += 4)
        if (std::find(names.begin(), names.end(), brands.substr(at, 4)) != names.end())
            return true;
    return false;
}

/// Calls `take` with the name and the content of each box of a file.
template<class Take>
void walkBoxes(std::span<const std::byte> file, const Take& take) {
    while (file.size() >= 8) {
        std::uint64_t size = bigEndian(file.first(4));
        std::size_t header = 8;
        if (size == 1 && file.size() >= 16) {
            size = std::uint64_t{bigEndian(file.subspan(8, 4))} << 32 | bigEndian(file.subspan(12, 4));
            header = 16;
        }
        if (size == 0 || size > file.size())
            size = file.size();
        if (size < header)
            return;
        take(text(file.subspan(4, 4)), file.subspan(header, size - header));
        file = file.subspan(size);
    }
}

std::span<const std::byte> blobOf(const VImage& image, const char* name) {
    if (!image.get_typeof(name))
        return {};
    std::size_t size = 0;
    const auto* data = static_cast<const std::byte*>(image.get_blob(name, &size));
    return {data, size};
}

/// Takes size, depth and orientation from what the library says of the image.
void takeHeader(const VImage& image, Image& head, FoundMetadata& found) {
    Page page;
    page.width = image.width();
    page.height = image.height();
    page.bits = image.format() == VIPS_FORMAT_USHORT ? 16 : image.format() == VIPS_FORMAT_FLOAT ? 32 : 8;
    head.pages.push_back(std::move(page));
    found.orientation = image.get_typeof(VIPS_META_ORIENTATION) ? image.get_int(VIPS_META_ORIENTATION) : 1;
    if (const int count = image.get_typeof(VIPS_META_N_PAGES) ? image.get_int(VIPS_META_N_PAGES) : 1;
        count > 1)
        head.notes.push_back("its main image is filtered, the other " + std::to_string(count - 1) +
                             " in the file aren't kept");
}

VImage headerOf(std::span<const std::byte> file, VImage (*load)(VipsBlob*, vips::VOption*)) {
    VipsBlob* blob = vips_blob_new(nullptr, file.data(), file.size());
    const std::unique_ptr<VipsArea, decltype(&vips_area_unref)> owner(VIPS_AREA(blob), vips_area_unref);
    try {
        return load(blob, VImage::option());
    } catch (const vips::VError& error) {
        throw std::runtime_error(reason(error, "its header is damaged"));
    }
}

} // namespace

bool matchesAvif(std::span<const std::byte> file) {
    return hasBrand(file, {"avif", "avis"});
}

bool matchesHeic(std::span<const std::byte> file) {
    return hasBrand(file, {"heic", "heix", "heim", "heis", "mif1"}) && !matchesAvif(file);
}

bool matchesJxl(std::span<const std::byte> file) {
    return text(file).starts_with("\xFF\x0A") ||
           text(file).starts_with(std::string_view("\0\0\0\xCJXL \r\n\x87\n", 12));
}

void inspectHeif(std::span<const std::byte> file, Image& head, FoundMetadata& found) {
    const VImage image = headerOf(file, loadHeif);
    takeHeader(image, head, found);
    const auto exif = blobOf(image, VIPS_META_EXIF_NAME), packet = blobOf(image, VIPS_META_XMP_NAME);
    constexpr std::size_t kPrefix = 6; // "Exif" and two zeros
    found.block.assign(exif.begin(), exif.end());
    found.exif = found.block;
    found.packet = text(packet);
    if (exif.size() > kPrefix)
        found.count.addDirectories(exif.subspan(kPrefix));
    found.count.addPacket(packet);
}

void inspectJxl(std::span<const std::byte> file, Image& head, FoundMetadata& found) {
    takeHeader(headerOf(file, loadJxl), head, found);
    if (text(file).starts_with("\xFF\x0A")) // pixels alone
        return;
    bool isPacked = false;
    walkBoxes(file, [&](std::string_view name, std::span<const std::byte> content) {
        constexpr std::size_t kOffset = 4; // in front of EXIF
        if (name == "Exif" && content.size() > kOffset) {
            found.exif = content.subspan(kOffset);
            found.count.addDirectories(found.exif);
        } else if (name == "xml ") {
            found.packet = text(content);
            found.count.addPacket(content);
        }
        isPacked = isPacked || name == "brob";
    });
    if (isPacked)
        head.notes.push_back("EXIF and XMP that are compressed in a JPEG XL aren't kept");
}

VImage loadHeif(VipsBlob* blob, vips::VOption* options) {
    std::unique_ptr<vips::VOption> owner(options);
    loadModule("vips-heif", "VipsForeignLoadHeif", "HEIC and AVIF");
    VImage image = VImage::heifload_buffer(blob, owner.release());
    if (image.format() != VIPS_FORMAT_USHORT)
        return image;
    // The library shifts samples of 10 or 12 bits up, so that white isn't white.
    const int bits = image.get_typeof("heif-bitdepth") ? image.get_int("heif-bitdepth") : 16;
    return (image * (65535.0 / (65536 - std::exp2(16 - bits)))).rint().cast(VIPS_FORMAT_USHORT);
}

VImage loadJxl(VipsBlob* blob, vips::VOption* options) {
    std::unique_ptr<vips::VOption> owner(options);
    loadModule("vips-jxl", "VipsForeignLoadJxl", "JPEG XL");
    return VImage::jxlload_buffer(blob, owner.release());
}

} // namespace Tessaloom::BilateralBlur::Program
