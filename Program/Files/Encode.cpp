#include "Program/Files/Encode.h"

#include "Host/Pixels.h"
#include "Program/Errors.h"
#include "Program/Files/Format.h"
#include "Program/Files/ImageLibrary.h"

#include <algorithm>
#include <memory>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using vips::VImage;

[[noreturn]] void fail(const std::string& name, const std::string& why) {
    throw Failure(name + ": " + why);
}

template<class Sample>
void pack(const Page& page, int y, int left, int width, void* samples) {
    const auto packPixels = [&](const auto* row) {
        Host::packRow(row + left, width, page.channels, static_cast<Sample*>(samples));
    };
    if (page.world.format() == PF_PixelFormat_ARGB128)
        packPixels(page.world.row<PF_PixelFloat>(y));
    else
        packPixels(page.world.row(y));
}

/// Packs the rows of a page when the library asks for them, so that no second copy of the pixels exists.
int packRegion(VipsRegion* region, void*, void* page, void*, gboolean*) {
    const VipsRect& area = region->valid;
    const auto packSamples =
        region->im->BandFmt == VIPS_FORMAT_USHORT ? pack<std::uint16_t> : pack<std::uint8_t>;
    for (int y = area.top; y < area.top + area.height; ++y)
        packSamples(*static_cast<const Page*>(page), y, area.left, area.width,
                    VIPS_REGION_ADDR(region, area.left, y));
    return 0;
}

} // namespace

void checkHolds(const Format& format, const Image& image, const std::string& name) {
    const bool hasAlpha = std::any_of(image.pages.begin(), image.pages.end(), [](const Page& page) {
        return page.channels == 2 || page.channels == 4;
    });
    const std::string formatName = format.name;
    if (hasAlpha && !format.hasAlpha)
        fail(name, formatName + " can't hold the image's alpha channel; use " +
                       formatNames([](const Format& other) { return other.hasAlpha && other.encode; }));
    if (image.pages.size() > 1 && &format != image.format)
        fail(name, formatName + " can't hold the " + std::to_string(image.pages.size()) +
                       " pages of the input; use " + image.format->name + ", or choose one with --page N");
    for (const Page& page : image.pages) {
        const int side = std::max(page.width, page.height);
        if (side <= format.largestSide)
            continue;
        const std::string larger = formatNames([&](const Format& other) {
            return other.encode && other.largestSide >= side && (other.hasAlpha || !hasAlpha);
        });
        fail(name, formatName + " holds images of " + std::to_string(format.largestSide) + " x " +
                       std::to_string(format.largestSide) + " pixels at most" +
                       (larger.empty() ? "" : "; use " + larger));
    }
}

std::vector<std::string> lossesIn(const Format& format, const Image& image, bool keepsDepth) {
    std::vector<std::string> notes =
        &format == image.format ? std::vector<std::string>() : image.notesElsewhere;
    if (format.losses)
        for (std::string& note : format.losses(image))
            notes.push_back(std::move(note));
    if (keepsDepth && std::any_of(image.pages.begin(), image.pages.end(),
                                  [&](const Page& page) { return page.bits > format.mostBits; }))
        notes.push_back(std::string(format.name) + " holds " + std::to_string(format.mostBits) +
                        " bits per channel at most, so samples are reduced to that");
    return notes;
}

VImage imageOf(const Page& page, bool deep) {
    const bool grey = page.channels < 3;
    VipsImage* image = vips_image_new();
    vips_image_init_fields(image, page.world.width, page.world.height, page.channels,
                           deep ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR, VIPS_CODING_NONE,
                           grey ? (deep ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W)
                                : (deep ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB),
                           1, 1);
    VImage owner(image);
    if (vips_image_pipelinev(image, VIPS_DEMAND_STYLE_THINSTRIP, nullptr) != 0 ||
        vips_image_generate(image, nullptr, packRegion, nullptr, const_cast<Page*>(&page), nullptr) != 0)
        throw vips::VError();
    return owner;
}

void packRow(const Page& page, int y, int bits, void* samples) {
    const auto packSamples = bits == 32 ? pack<float> : bits == 16 ? pack<std::uint16_t> : pack<std::uint8_t>;
    packSamples(page, y, 0, page.world.width, samples);
}

Bytes encodePlain(const VImage& image, const char* extension, vips::VOption* options) {
    void* buffer = nullptr;
    std::size_t size = 0;
    image.write_to_buffer(extension, &buffer, &size, options->set("strip", true));
    const std::unique_ptr<void, decltype(&g_free)> owner(buffer, g_free);
    const auto* bytes = static_cast<const std::byte*>(buffer);
    return {bytes, bytes + size};
}

Bytes encodeImage(const Image& image, const Format& format, const std::string& name, WriteOptions options) {
    checkHolds(format, image, name);
    try {
        return format.encode(image, options, &format == image.format);
    } catch (const vips::VError& error) {
        fail(name, reason(error, "the image can't be encoded"));
    } catch (const std::runtime_error& error) {
        fail(name, std::string("the image can't be encoded: ") + error.what());
    }
}

} // namespace Tessaloom::BilateralBlur::Program
