#include "Program/Files/ImageFile.h"

#include "Host/Pixels.h"
#include "Program/Errors.h"
#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/ImageLibrary.h"
#include "Program/Files/InputFile.h"
#include "Program/Files/Metadata.h"
#include "Program/Memory.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;
using vips::VImage;

[[noreturn]] void fail(const std::string& name, const std::string& why) {
    throw Failure(name + ": " + why);
}

// What a float world takes more than one of 8 bits, for each pixel: at the peak there are two, the frame's and the
// effect's result.
constexpr std::uint64_t kDeepWaiting = sizeof(PF_PixelFloat) - sizeof(PF_Pixel8),
                        kDeepPeak = 2 * kDeepWaiting;

constexpr const char* kDamaged = "the image is damaged or cut short";

VImage open(const Image& head, const Bytes& file, std::size_t first, int count) {
    vips::VOption* options =
        VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL)->set("fail_on", VIPS_FAIL_ON_WARNING);
    if (head.format->hasPages)
        options->set("page", static_cast<int>(first))->set("n", count);
    VipsBlob* blob = vips_blob_new(nullptr, file.data(), file.size());
    const std::unique_ptr<VipsArea, decltype(&vips_area_unref)> owner(VIPS_AREA(blob), vips_area_unref);
    return head.format->load(blob, options);
}

void checkAccepted(const VImage& image, const Page& page, std::size_t pages, bool keepsDepth,
                   const std::string& name) {
    if (image.width() != page.width || image.height() != page.height * static_cast<int>(pages))
        fail(name, "its header says two different sizes");
    const std::string kAccepted = std::string("; grey and RGB images with 8 or 16 bits a channel") +
                                  (keepsDepth ? " or floats" : "") + " are accepted";
    const auto nick = [](GType type, int value) { return std::string(vips_enum_nick(type, value)); };
    if (image.format() != VIPS_FORMAT_UCHAR && image.format() != VIPS_FORMAT_USHORT &&
        !(keepsDepth && image.format() == VIPS_FORMAT_FLOAT))
        fail(name, "its samples are of type " + nick(VIPS_TYPE_BAND_FORMAT, image.format()) + kAccepted);
    const VipsInterpretation colours = image.interpretation();
    const bool grey = colours == VIPS_INTERPRETATION_B_W || colours == VIPS_INTERPRETATION_GREY16;
    const bool rgb = colours == VIPS_INTERPRETATION_sRGB || colours == VIPS_INTERPRETATION_RGB16 ||
                     colours == VIPS_INTERPRETATION_RGB || colours == VIPS_INTERPRETATION_scRGB;
    if (!grey && !rgb)
        fail(name, "its colours are " + nick(VIPS_TYPE_INTERPRETATION, colours) + kAccepted);
    const int colourChannels = grey ? 1 : 3;
    if (image.bands() != colourChannels && image.bands() != colourChannels + 1)
        fail(name, "it has " + std::to_string(image.bands()) + " channels" + kAccepted);
}

std::uint64_t pixelsOf(const Page& page) {
    return std::uint64_t(page.width) * static_cast<std::uint64_t>(page.height);
}

std::int32_t worldFormat(const Page& page, bool keepsDepth) {
    return keepsDepth && page.bits > 8 ? PF_PixelFormat_ARGB128 : PF_PixelFormat_ARGB32;
}

/// The bytes that the pages take at most, all but those of the file.
std::uint64_t memoryOf(const std::vector<Page>& pages, bool keepsDepth, const Format& from,
                       const Format& to) {
    std::uint64_t largest = 0, all = 0;
    const std::uint64_t toEncode = pages.size() > 1 ? to.bytesToAnimate : to.bytesToEncode;
    for (const Page& page : pages) {
        const bool isDeep = worldFormat(page, keepsDepth) == PF_PixelFormat_ARGB128;
        const std::uint64_t peak = std::max(from.bytesToDecode, toEncode) + (isDeep ? kDeepPeak : 0);
        const std::uint64_t waiting = to.bytesWaiting + (isDeep ? kDeepWaiting : 0);
        largest = std::max(largest, (peak - waiting) * pixelsOf(page));
        all += waiting * pixelsOf(page);
    }
    return largest + all;
}

Bytes profileOf(const VImage& image) {
    if (!image.get_typeof(VIPS_META_ICC_NAME))
        return {};
    std::size_t size = 0;
    const auto* data = static_cast<const std::byte*>(image.get_blob(VIPS_META_ICC_NAME, &size));
    return {data, data + size};
}

template<class Sample, class Pixel>
void unpackRows(const VImage& image, int firstRow, Host::World& world) {
    constexpr int kStripHeight = 64;
    const vips::VRegion region = image.region();
    for (int top = 0; top < world.height; top += kStripHeight) {
        const int height = std::min(kStripHeight, world.height - top);
        region.prepare(0, firstRow + top, world.width, height);
        for (int y = top; y < top + height; ++y)
            Host::unpackRow(reinterpret_cast<const Sample*>(region.addr(0, firstRow + y)), image.bands(),
                            world.width, world.row<Pixel>(y));
    }
}

void readPage(const VImage& image, int firstRow, bool keepsDepth, Page& page, Host::World spare) {
    page.bits = image.format() == VIPS_FORMAT_FLOAT    ? 32
                : image.format() == VIPS_FORMAT_USHORT ? 16
                                                       : std::min(page.bits, 8);
    const std::int32_t format = worldFormat(page, keepsDepth);
    if (spare.width == image.width() && spare.height == page.height && spare.format() == format)
        page.world.swap(spare);
    else
        page.world = Host::World(image.width(), page.height, format);
    page.channels = image.bands();
    page.profile = profileOf(image);
    const auto unpackSamples = page.bits == 32                    ? unpackRows<float, PF_PixelFloat>
                               : format == PF_PixelFormat_ARGB128 ? unpackRows<std::uint16_t, PF_PixelFloat>
                               : page.bits == 16                  ? unpackRows<std::uint16_t, PF_Pixel8>
                                                                  : unpackRows<std::uint8_t, PF_Pixel8>;
    unpackSamples(image, firstRow, page.world);
}

/// The encoder makes one frame of several that are equal.
void noteEqualFrames(Image& image) {
    int equal = 0;
    for (std::size_t i = 1; i < image.pages.size(); ++i) {
        const Host::World &before = image.pages[i - 1].world, &world = image.pages[i].world;
        bool isEqual = true;
        for (int y = 0; y < world.height && isEqual; ++y)
            isEqual = std::memcmp(before.row(y), world.row(y), sizeof(PF_Pixel8) * world.width) == 0;
        equal += isEqual;
    }
    if (equal > 0)
        image.notes.push_back("frames that equal the one before, " + std::to_string(equal) +
                              " of them, become one with it, shown as long as both");
}

/// Takes one page out of a file's, or all.
void choosePage(Image& head, int wanted, const std::string& name) {
    const std::size_t count = head.pages.size();
    if (head.unreadableFrames > 0 && wanted == 0)
        fail(name, "this is an animated PNG; only its still image can be read, with --page 1");
    if (wanted > static_cast<int>(count))
        fail(name, "there is no page " + std::to_string(wanted) + "; it has " + std::to_string(count));
    if (wanted == 0)
        return;
    Page page = std::move(head.pages[static_cast<std::size_t>(wanted) - 1]);
    page.delay = 0;
    head.pages.clear();
    head.pages.push_back(std::move(page));
}

} // namespace

ImageFile::ImageFile(const path& path, ReadOptions options)
    : mName(inputName(path)),
      mOptions(options),
      mBytes(readInput(path, [](auto start) { return formatOfContent(start) != nullptr; })) {
    const Format& format = *formatOfContent(mBytes);
    mHead.format = &format;
    FoundMetadata found;
    try {
        format.inspect(mBytes, mHead, found);
    } catch (const std::runtime_error& error) {
        fail(mName, std::string("the image can't be read: ") + error.what());
    }
    for (const Page& page : mHead.pages)
        if (page.width <= 0 || page.height <= 0)
            fail(mName, "the image can't be read: its header is damaged");
    choosePage(mHead, options.page, mName);
    for (const Page& page : mHead.pages)
        if (!page.refusal.empty())
            fail(mName, page.refusal);
    takeMetadata(std::move(found));
}

void ImageFile::takeMetadata(FoundMetadata found) {
    // The library has its own copy of the file, and some of each field.
    constexpr std::uint64_t kCopiesOfFile = 2, kCopiesOfField = 6;
    const Format& format = *mHead.format;
    mMemory = kCopiesOfFile * mBytes.size() + found.buffers;
    if (found.count.isAcceptable())
        mMemory += kCopiesOfField * found.count.bytes();
    else if (format.mixesTags)
        removeOtherTags(mBytes);
    requireMemory(mName + ": the file and its metadata", mMemory);
    auto metadata = std::make_shared<Metadata>();
    const std::span<const std::byte> file = format.hasMetadata ? std::span(mBytes) : std::span<std::byte>();
    for (std::string& note : readMetadata(file, format.mixesTags, std::move(found), *metadata))
        mHead.notes.push_back(std::move(note));
    for (Page& page : mHead.pages)
        if (page.density.x == 0)
            page.density = densityOf(metadata->exif);
    mHead.metadata = std::move(metadata);
    if (format.reduce)
        format.reduce(mBytes);
}

std::uint64_t ImageFile::checkFor(const Format* output, const std::string& name) const {
    const Format& format = output ? *output : *mHead.format;
    if (!format.encode)
        fail(mName, std::string(format.name) + " can be read, but not written; name a format with --format");
    checkHolds(format, mHead, name);
    const Page& largest =
        *std::max_element(mHead.pages.begin(), mHead.pages.end(),
                          [](const Page& a, const Page& b) { return pixelsOf(a) < pixelsOf(b); });
    const std::uint64_t needed = mMemory + memoryOf(mHead.pages, mOptions.keepsDepth, *mHead.format, format);
    requireMemory(mName + ": " + std::to_string(largest.width) + " x " + std::to_string(largest.height) +
                      " pixels",
                  needed);
    return needed;
}

Image ImageFile::decode(Host::World spare) {
    try {
        Image image = std::move(mHead);
        const Format& format = *image.format;
        if (format.verify)
            format.verify(mBytes, image.notes);
        const std::size_t first = mOptions.page > 0 ? static_cast<std::size_t>(mOptions.page) - 1 : 0;
        const std::size_t count = image.pages.size();
        if (format.isAnimated && count > 1) {
            const VImage all = open(image, mBytes, 0, -1);
            checkAccepted(all, image.pages.front(), count, mOptions.keepsDepth, mName);
            for (std::size_t i = 0; i < count; ++i)
                readPage(all, static_cast<int>(i) * image.pages[i].height, mOptions.keepsDepth,
                         image.pages[i], {0, 0});
            noteEqualFrames(image);
        } else {
            for (std::size_t i = 0; i < count; ++i) {
                if (format.isolate)
                    format.isolate(mBytes, image.pages[i]);
                const VImage decoded = open(image, mBytes, format.isolate ? 0 : first + i, 1);
                checkAccepted(decoded, image.pages[i], 1, mOptions.keepsDepth, mName);
                readPage(decoded, 0, mOptions.keepsDepth, image.pages[i],
                         std::exchange(spare, Host::World(0, 0)));
            }
        }
        if (format.rewrites)
            image.source = std::make_shared<const Bytes>(std::move(mBytes));
        if (!mOptions.keepsDepth && std::any_of(image.pages.begin(), image.pages.end(),
                                                [](const Page& page) { return page.bits == 16; }))
            image.notes.push_back("16-bit input is reduced to 8 bits per channel");
        return image;
    } catch (const Failure&) {
        throw;
    } catch (const vips::VError& error) {
        fail(mName, reason(error, kDamaged));
    } catch (const std::runtime_error&) {
        fail(mName, kDamaged);
    }
}

} // namespace Tessaloom::BilateralBlur::Program
