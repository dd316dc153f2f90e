#include "Program/Files/Image.h"

#include "Host/Pixels.h"
#include "Program/Errors.h"
#include "Program/Files/Format.h"
#include "Program/Files/InputFile.h"
#include "Program/Files/Metadata.h"
#include "Program/Memory.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;
using vips::VImage;

constexpr Format kFormats[] = {
    {.name = "JPEG",
     .extensions = {".jpg", ".jpeg"},
     .hasAlpha = false,
     .hasPages = false,
     .largestSide = 65500,
     .matches = matchesJpeg,
     .inspect = inspectJpeg,
     .load = VImage::jpegload_buffer,
     .verify = verifyJpeg,
     .encode = encodeJpeg},
    {.name = "PNG",
     .extensions = {".png", ".png"},
     .hasAlpha = true,
     .hasPages = false,
     .largestSide = 1'000'000,
     .matches = matchesPng,
     .inspect = inspectPng,
     .load = VImage::pngload_buffer,
     .encode = encodePng},
    {.name = "TIFF",
     .extensions = {".tif", ".tiff"},
     .hasAlpha = true,
     .hasPages = true,
     .largestSide = 1'000'000,
     .matches = matchesTiff,
     .inspect = inspectTiff,
     .load = VImage::tiffload_buffer,
     .encode = encodeTiff},
    {.name = "WebP",
     .extensions = {".webp", ".webp"},
     .hasAlpha = true,
     .hasPages = true,
     .isAnimated = true,
     .largestSide = 16383,
     .matches = matchesWebp,
     .inspect = inspectWebp,
     .load = VImage::webpload_buffer,
     .encode = encodeWebp},
};

template<class Condition>
const Format* firstFormat(Condition condition) {
    const auto* format = std::find_if(std::begin(kFormats), std::end(kFormats), condition);
    return format != std::end(kFormats) ? format : nullptr;
}

const Format* formatWithExtension(std::string extension) {
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return firstFormat([&](const Format& format) {
        return std::count(format.extensions.begin(), format.extensions.end(), extension) != 0;
    });
}

const Format* formatOfContent(std::span<const std::byte> file) {
    return firstFormat([&](const Format& format) { return format.matches(file); });
}

/// "a, b or c".
std::string alternatives(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 < words.size() ? ", " : " or ") + words[i];
    return text;
}

template<class Condition>
std::string namesOfFormats(Condition condition) {
    std::vector<std::string> names;
    for (const Format& format : kFormats)
        if (condition(format))
            names.push_back(format.name);
    return alternatives(names);
}

[[noreturn]] void fail(const std::string& name, const std::string& why) {
    throw Failure(name + ": " + why);
}

/// The library's own words name its functions and lines of samples; only this of them helps a user.
std::string reason(const vips::VError& error, const char* otherwise) {
    vips_error_clear();
    const std::string_view text = error.what();
    if (text.find("out of memory") != std::string_view::npos)
        return "out of memory";
    if (const std::string busy = std::strerror(EAGAIN); text.find(busy) != std::string_view::npos)
        return "can't start a thread: " + busy;
    return otherwise;
}

// Reading

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

void checkAccepted(const VImage& image, const Page& page, std::size_t pages, const std::string& name) {
    if (image.width() != page.width || image.height() != page.height * static_cast<int>(pages))
        fail(name, "its header says two different sizes");
    const char* kAccepted = "; grey and RGB images with 8 or 16 bits a channel are accepted";
    const auto nick = [](GType type, int value) { return std::string(vips_enum_nick(type, value)); };
    if (image.format() != VIPS_FORMAT_UCHAR && image.format() != VIPS_FORMAT_USHORT)
        fail(name, "its samples are of type " + nick(VIPS_TYPE_BAND_FORMAT, image.format()) + kAccepted);
    const VipsInterpretation colours = image.interpretation();
    const bool grey = colours == VIPS_INTERPRETATION_B_W || colours == VIPS_INTERPRETATION_GREY16;
    const bool rgb = colours == VIPS_INTERPRETATION_sRGB || colours == VIPS_INTERPRETATION_RGB16 ||
                     colours == VIPS_INTERPRETATION_RGB;
    if (!grey && !rgb)
        fail(name, "its colours are " + nick(VIPS_TYPE_INTERPRETATION, colours) + kAccepted);
    const int colourChannels = grey ? 1 : 3;
    if (image.bands() != colourChannels && image.bands() != colourChannels + 1)
        fail(name, "it has " + std::to_string(image.bands()) + " channels" + kAccepted);
}

std::uint64_t pixelsOf(const Page& page) {
    return std::uint64_t(page.width) * page.height;
}

/// Refuses images by their sizes, before anything of those sizes is allocated. Gives the bytes that they
/// need.
std::uint64_t checkFits(const std::vector<Page>& pages, const std::string& name) {
    // The peak of a run, measured on images of 2000 x 2000 to 6000 x 6000 pixels: 13 to 26 bytes, most for
    // TIFF with 16 bits and alpha. And a page that waits.
    constexpr std::uint64_t kBytesPerPixel = 30, kBytesPerWaitingPixel = 8;
    const Page& largest = *std::max_element(
        pages.begin(), pages.end(), [](const Page& a, const Page& b) { return pixelsOf(a) < pixelsOf(b); });
    std::uint64_t waiting = 0;
    for (const Page& page : pages)
        waiting += pixelsOf(page);
    waiting -= pixelsOf(largest);
    const std::uint64_t needed = kBytesPerPixel * pixelsOf(largest) + kBytesPerWaitingPixel * waiting;
    requireMemory(name + ": " + std::to_string(largest.width) + " x " + std::to_string(largest.height) +
                      " pixels",
                  needed);
    return needed;
}

Bytes profileOf(const VImage& image) {
    if (!image.get_typeof(VIPS_META_ICC_NAME))
        return {};
    std::size_t size = 0;
    const auto* data = static_cast<const std::byte*>(image.get_blob(VIPS_META_ICC_NAME, &size));
    return {data, data + size};
}

template<class Sample>
void unpackRows(const VImage& image, int firstRow, Host::World& world) {
    constexpr int kStripHeight = 64;
    const vips::VRegion region = image.region();
    for (int top = 0; top < world.height; top += kStripHeight) {
        const int height = std::min(kStripHeight, world.height - top);
        region.prepare(0, firstRow + top, world.width, height);
        for (int y = top; y < top + height; ++y)
            Host::unpackRow(reinterpret_cast<const Sample*>(region.addr(0, firstRow + y)), image.bands(),
                            world.width, world.row(y));
    }
}

void readPage(const VImage& image, int firstRow, Page& page, Host::World spare) {
    const int height = page.height;
    if (spare.width == image.width() && spare.height == height)
        page.world.swap(spare);
    else
        page.world = Host::World(image.width(), height);
    page.channels = image.bands();
    page.bits = image.format() == VIPS_FORMAT_USHORT ? 16 : std::min(page.bits, 8);
    page.profile = profileOf(image);
    if (image.format() == VIPS_FORMAT_USHORT)
        unpackRows<std::uint16_t>(image, firstRow, page.world);
    else
        unpackRows<std::uint8_t>(image, firstRow, page.world);
}

void takeMetadata(const Bytes& file, Image& head, Metadata& metadata) {
    try {
        readMetadata(file, std::string_view(head.format->name) == "TIFF", metadata);
    } catch (const std::exception&) {
        metadata = {};
        head.notes.push_back("its metadata is damaged, or of a kind that can't be read, and isn't kept");
    }
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

// Writing

template<class Sample>
void pack(const Page& page, int y, int left, int width, void* samples) {
    Host::packRow(page.world.row(y) + left, width, page.channels, static_cast<Sample*>(samples));
}

/// Packs the rows of worlds when the library asks for them, so that no second copy of the pixels exists.
int packRegion(VipsRegion* region, void*, void* first, void*, gboolean*) {
    const auto& pages = *static_cast<const std::vector<Page>*>(first);
    const VipsRect& area = region->valid;
    const int height = pages.front().world.height;
    for (int y = area.top; y < area.top + area.height; ++y) {
        const Page& page = pages[static_cast<std::size_t>(y / height)];
        const auto packSamples =
            region->im->BandFmt == VIPS_FORMAT_USHORT ? pack<std::uint16_t> : pack<std::uint8_t>;
        packSamples(page, y % height, area.left, area.width, VIPS_REGION_ADDR(region, area.left, y));
    }
    return 0;
}

void checkHolds(const Format& format, const Image& image, const std::string& name) {
    const bool hasAlpha = std::any_of(image.pages.begin(), image.pages.end(), [](const Page& page) {
        return page.channels == 2 || page.channels == 4;
    });
    const std::string formatName = format.name;
    if (hasAlpha && !format.hasAlpha)
        fail(name, formatName + " can't hold the image's alpha channel; use " +
                       namesOfFormats([](const Format& other) { return other.hasAlpha; }));
    if (image.pages.size() > 1 && &format != image.format)
        fail(name, formatName + " can't hold the " + std::to_string(image.pages.size()) +
                       " pages of the input; use " + image.format->name + ", or choose one with --page N");
    for (const Page& page : image.pages) {
        const int side = std::max(page.width, page.height);
        if (side <= format.largestSide)
            continue;
        const std::string larger = namesOfFormats(
            [&](const Format& other) { return other.largestSide >= side && (other.hasAlpha || !hasAlpha); });
        fail(name, formatName + " holds images of " + std::to_string(format.largestSide) + " x " +
                       std::to_string(format.largestSide) + " pixels at most" +
                       (larger.empty() ? "" : "; use " + larger));
    }
}

} // namespace

std::string formatNames() {
    return namesOfFormats([](const Format&) { return true; });
}

std::string formatChoices() {
    std::string choices;
    for (const Format& format : kFormats)
        choices.append(choices.empty() ? "" : "|").append(format.extensions.back() + 1);
    return choices;
}

std::string formatExtensions() {
    std::vector<std::string> extensions;
    for (const Format& format : kFormats)
        for (const char* extension : format.extensions)
            if (extensions.empty() || extensions.back() != extension)
                extensions.push_back(extension);
    return alternatives(extensions);
}

ImageFile::ImageFile(const path& path, ReadOptions options)
    : mName(inputName(path)),
      mOptions(options),
      mBytes(readInput(path, [](auto start) { return formatOfContent(start) != nullptr; })) {
    mHead.format = formatOfContent(mBytes);
    auto metadata = std::make_shared<Metadata>();
    takeMetadata(mBytes, mHead, *metadata);
    try {
        mHead.format->inspect(mBytes, mHead, *metadata);
    } catch (const std::runtime_error& error) {
        fail(mName, std::string("the image can't be read: ") + error.what());
    }
    for (Page& page : mHead.pages) {
        if (page.width <= 0 || page.height <= 0)
            fail(mName, "the image can't be read: its header is damaged");
        if (page.density.x == 0)
            page.density = densityOf(metadata->exif);
    }
    mHead.metadata = std::move(metadata);
    choosePage(mHead, options.page, mName);
    mMemory = checkFits(mHead.pages, mName);
}

void ImageFile::checkHeldBy(const Format& format, const std::string& name) const {
    checkHolds(format, mHead, name);
}

Image ImageFile::decode(Host::World spare) {
    try {
        Image image = std::move(mHead);
        if (image.format->verify)
            image.format->verify(mBytes);
        const std::size_t first = mOptions.page > 0 ? static_cast<std::size_t>(mOptions.page) - 1 : 0;
        const std::size_t count = image.pages.size();
        if (image.format->isAnimated && count > 1) {
            const VImage all = open(image, mBytes, 0, -1);
            checkAccepted(all, image.pages.front(), count, mName);
            for (std::size_t i = 0; i < count; ++i)
                readPage(all, static_cast<int>(i) * image.pages[i].height, image.pages[i], {0, 0});
        } else {
            for (std::size_t i = 0; i < count; ++i) {
                const VImage decoded = open(image, mBytes, first + i, 1);
                checkAccepted(decoded, image.pages[i], 1, mName);
                readPage(decoded, 0, image.pages[i], std::exchange(spare, Host::World(0, 0)));
            }
        }
        if (std::any_of(image.pages.begin(), image.pages.end(),
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

const Format& formatOf(const path& path) {
    const Format* format = formatWithExtension(path.extension().string());
    if (!format)
        throw WrongUse(path.string() + ": the extension names no format that can be written; use " +
                       formatExtensions());
    return *format;
}

const Format* formatNamed(const std::string& name) {
    return formatWithExtension("." + name);
}

VImage imageOf(const std::vector<Page>& pages, bool deep) {
    const Page& page = pages.front();
    const bool grey = page.channels < 3;
    VipsImage* image = vips_image_new();
    vips_image_init_fields(image, page.world.width, page.world.height * static_cast<int>(pages.size()),
                           page.channels, deep ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR, VIPS_CODING_NONE,
                           grey ? (deep ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W)
                                : (deep ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB),
                           1, 1);
    VImage owner(image);
    if (vips_image_pipelinev(image, VIPS_DEMAND_STYLE_THINSTRIP, nullptr) != 0 ||
        vips_image_generate(image, nullptr, packRegion, nullptr, const_cast<std::vector<Page>*>(&pages),
                            nullptr) != 0)
        throw vips::VError();
    return owner;
}

void packRow(const Page& page, int y, bool deep, void* samples) {
    (deep ? pack<std::uint16_t> : pack<std::uint8_t>)(page, y, 0, page.world.width, samples);
}

Bytes encodePlain(const VImage& image, const char* extension, vips::VOption* options) {
    void* buffer = nullptr;
    std::size_t size = 0;
    image.write_to_buffer(extension, &buffer, &size, options->set("strip", true));
    const std::unique_ptr<void, decltype(&g_free)> owner(buffer, g_free);
    const auto* bytes = static_cast<const std::byte*>(buffer);
    return {bytes, bytes + size};
}

void append(Bytes& to, std::span<const std::byte> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

std::uint32_t bigEndian(std::span<const std::byte> bytes) {
    std::uint32_t value = 0;
    for (const std::byte byte : bytes)
        value = value << 8 | std::to_integer<std::uint32_t>(byte);
    return value;
}

std::uint32_t littleEndian(std::span<const std::byte> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8 | std::to_integer<std::uint32_t>(bytes[i]);
    return value;
}

Bytes encodeImage(const Image& image, const Format& format, const std::string& name, WriteOptions options) {
    checkHolds(format, image, name);
    try {
        return format.encode(image, options);
    } catch (const vips::VError& error) {
        fail(name, reason(error, "the image can't be encoded"));
    } catch (const std::runtime_error& error) {
        fail(name, std::string("the image can't be encoded: ") + error.what());
    }
}

void startImageFiles(bool verbose) {
    if (!verbose)
        // What matters of the libraries' messages makes an image fail, and is reported in our words.
        g_log_set_default_handler([](auto, auto, auto, auto) {}, nullptr);
    // No modules are found below this directory. They are for formats that the program refuses, and loading them
    // with all their libraries takes four times as long as the rest of this function.
    setenv("VIPSHOME", "/nonexistent", 1);
    if (VIPS_INIT("bilateral-blur") != 0)
        throw Failure("can't initialise libvips: " + std::string(vips_error_buffer()));
    // Beside the table of formats, which every file must match.
    vips_block_untrusted_set(TRUE);
    // The cache would keep whole images of a sequence alive, and each of the program's own threads has its
    // share of the work already.
    vips_cache_set_max(0);
    vips_concurrency_set(1);
}

} // namespace Tessaloom::BilateralBlur::Program
