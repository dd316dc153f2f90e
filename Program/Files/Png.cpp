#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/Metadata.h"

#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using vips::VImage;

constexpr std::string_view kSignature("\x89PNG\r\n\x1a\n", 8);
constexpr std::string_view kXmpStart("XML:com.adobe.xmp\0\0\0\0\0", 22);
constexpr double kMetresPerInch = 0.0254;

struct Chunk {
    std::string_view name;
    std::span<const std::byte> data, whole;
    bool isDamaged;
};

std::uint32_t checksum(std::span<const std::byte> bytes) {
    return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

/// Calls `take` with each chunk, the end among them. Throws where the file ends before.
void walk(std::span<const std::byte> file, const std::function<void(const Chunk&)>& take) {
    constexpr std::size_t kAround = 12; // size and name before the data, checksum after it
    std::span<const std::byte> rest = file.subspan(kSignature.size());
    while (rest.size() >= kAround) {
        const std::size_t size = bigEndian(rest.first(4));
        if (size > rest.size() - kAround)
            break;
        const auto sum = bigEndian(rest.subspan(8 + size, 4));
        const Chunk chunk{text(rest.subspan(4, 4)), rest.subspan(8, size), rest.first(size + kAround),
                          checksum(rest.subspan(4, 4 + size)) != sum};
        take(chunk);
        if (chunk.name == "IEND")
            return;
        rest = rest.subspan(size + kAround);
    }
    throw std::runtime_error("the file is cut short");
}

void appendNumber(Bytes& to, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        to.push_back(static_cast<std::byte>(value >> shift));
}

void appendChunk(Bytes& to, std::string_view name, std::span<const std::byte> data) {
    appendNumber(to, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = to.size();
    append(to, bytesOf(name));
    append(to, data);
    appendNumber(to, checksum(std::span(to).subspan(start)));
}

/// Chunks that a PNG file gets as another one has them. EXIF isn't among them, as its thumbnail goes.
bool isKept(const Chunk& chunk) {
    constexpr std::string_view kNames[] = {"gAMA", "cHRM", "sRGB", "cICP", "iCCP", "pHYs",
                                           "tEXt", "zTXt", "iTXt", "tIME", "bKGD"};
    return std::count(std::begin(kNames), std::end(kNames), chunk.name) != 0 &&
           !text(chunk.data).starts_with("Raw profile type exif") &&
           !text(chunk.data).starts_with("Raw profile type APP1");
}

bool isForLibrary(const Chunk& chunk) {
    constexpr std::string_view kNames[] = {"IHDR", "tEXt", "zTXt", "iTXt", "IEND"};
    return std::count(std::begin(kNames), std::end(kNames), chunk.name) != 0;
}

bool isPacket(const Chunk& chunk) {
    return chunk.name == "iTXt" && text(chunk.data).starts_with("XML:com.adobe.xmp");
}

/// The EXIF block in a text of ImageMagick: its name, its size, and the bytes as hexadecimal digits.
Bytes exifOfText(const Chunk& chunk) {
    constexpr uLongf kLongest = 1 << 20; // the library for metadata reads no more than this
    const std::string_view all = text(chunk.data);
    std::string_view profile = all.substr(std::min(all.size(), all.find('\0') + 1));
    std::string unpacked;
    if (chunk.name == "zTXt" && !profile.empty()) {
        unpacked.resize(kLongest);
        uLongf size = kLongest;
        uncompress(reinterpret_cast<Bytef*>(unpacked.data()), &size,
                   reinterpret_cast<const Bytef*>(profile.data() + 1), profile.size() - 1);
        profile = std::string_view(unpacked).substr(0, size);
    }
    for (int line = 0; line < 3; ++line) // an empty one, the name, the size
        profile.remove_prefix(std::min(profile.size(), profile.find('\n') + 1));
    Bytes bytes;
    int digits = 0, value = 0;
    for (const char character : profile) {
        if (!std::isxdigit(static_cast<unsigned char>(character)))
            continue;
        const int digit = character <= '9' ? character - '0' : (character & 7) + 9;
        value = value << 4 | digit;
        if (++digits % 2 == 0)
            bytes.push_back(static_cast<std::byte>(std::exchange(value, 0)));
    }
    constexpr std::string_view kPrefix("Exif\0\0", 6);
    if (text(bytes).starts_with(kPrefix))
        bytes.erase(bytes.begin(), bytes.begin() + kPrefix.size());
    return bytes;
}

void count(const Chunk& chunk, MetadataCount& count) {
    if (chunk.name == "eXIf")
        count.addDirectories(chunk.data);
    else if (isPacket(chunk))
        count.addPacket(chunk.data);
    else if (text(chunk.data).starts_with("Raw profile type"))
        count.addDirectories(exifOfText(chunk));
    else if (chunk.name != "IDAT")
        count.addPart(chunk.data.size());
}

Density densityOf(std::span<const std::byte> phys) {
    const double x = bigEndian(phys.first(4)), y = bigEndian(phys.subspan(4, 4));
    if (phys[8] == std::byte{1})
        return {x * kMetresPerInch, y * kMetresPerInch, Density::Unit::Inch};
    return {x, y, Density::Unit::Unknown};
}

void appendDensity(Bytes& to, const Density& density) {
    const double scale = density.unit == Density::Unit::Inch         ? 1 / kMetresPerInch
                         : density.unit == Density::Unit::Centimetre ? 100
                                                                     : 1;
    Bytes data;
    for (const double value : {density.x, density.y})
        appendNumber(data, static_cast<std::uint32_t>(std::lround(value * scale)));
    data.push_back(std::byte{density.unit != Density::Unit::Unknown});
    appendChunk(to, "pHYs", data);
}

void appendProfile(Bytes& to, const Bytes& profile) {
    constexpr std::string_view kStart("ICC profile\0\0", 13); // a name, and the one method of compression
    uLongf size = compressBound(profile.size());
    Bytes data(kStart.size() + size);
    std::copy_n(bytesOf(kStart).begin(), kStart.size(), data.begin());
    compress(reinterpret_cast<Bytef*>(data.data() + kStart.size()), &size,
             reinterpret_cast<const Bytef*>(profile.data()), profile.size());
    data.resize(kStart.size() + size);
    appendChunk(to, "iCCP", data);
}

/// The chunks that go before the pixels.
Bytes chunksOf(const Image& image, bool isOfInput) {
    const Page& page = image.pages.front();
    const Metadata& metadata = *image.metadata;
    Bytes chunks;
    if (isOfInput) {
        chunks = metadata.own;
    } else {
        if (!page.profile.empty())
            appendProfile(chunks, page.profile);
        if (page.density.x > 0)
            appendDensity(chunks, page.density);
        if (!metadata.xmp.empty()) {
            Bytes data;
            append(data, bytesOf(kXmpStart));
            append(data, bytesOf(metadata.xmp));
            appendChunk(chunks, "iTXt", data);
        }
    }
    if (const Bytes exif = exifBlock(metadata.exif); !exif.empty())
        appendChunk(chunks, "eXIf", exif);
    return chunks;
}

/// Whether samples of so few bits hold a page of grey without loss.
bool fits(const Page& page, int bits) {
    const int step = 255 / ((1 << bits) - 1);
    for (int y = 0; y < page.world.height; ++y) {
        const PF_Pixel8* row = page.world.row(y);
        if (!std::all_of(row, row + page.world.width,
                         [&](const PF_Pixel8& pixel) { return pixel.green % step == 0; }))
            return false;
    }
    return true;
}

} // namespace

bool matchesPng(std::span<const std::byte> file) {
    return text(file).starts_with(kSignature);
}

void inspectPng(std::span<const std::byte> file, Image& head, FoundMetadata& found) {
    Page page;
    unsigned frames = 1, colours = 0;
    bool hasPixels = false;
    append(found.texts, bytesOf(kSignature));
    walk(file, [&](const Chunk& chunk) {
        const auto& data = chunk.data;
        if (chunk.name == "IHDR" && data.size() >= 10) {
            page.width = static_cast<int>(bigEndian(data.first(4)));
            page.height = static_cast<int>(bigEndian(data.subspan(4, 4)));
            page.bits = std::to_integer<int>(data[8]);
            colours = std::to_integer<unsigned>(data[9]);
        } else if (chunk.name == "IDAT") {
            hasPixels = true;
        }
        if (chunk.isDamaged)
            return; // the library that decodes refuses a file whose pixels are damaged
        count(chunk, found.count);
        if (isForLibrary(chunk))
            append(found.texts, chunk.whole);
        if (chunk.name == "acTL" && data.size() >= 8 && !hasPixels)
            frames = bigEndian(data.first(4));
        else if (chunk.name == "eXIf" && found.exif.empty())
            // A valid file has one, but libvips 8.14.1 wrote two. The library for metadata would add them up, and
            // refuse the file for one that is odd.
            found.exif = data;
        else if (chunk.name == "pHYs" && data.size() >= 9)
            page.density = densityOf(data);
        // A palette's background is a number in it, one of few bits has another scale: both are gone.
        if (isKept(chunk) && (chunk.name != "bKGD" || (colours != 3 && page.bits >= 8))) {
            append(found.own, chunk.whole);
            found.ownsPacket = found.ownsPacket || isPacket(chunk);
        }
    });
    head.unreadableFrames = static_cast<int>(frames) - 1;
    if (colours == 3)
        page.bits = 8;
    head.pages.push_back(std::move(page));
}

void reducePng(Bytes& file) {
    Bytes reduced;
    append(reduced, bytesOf(kSignature));
    walk(file, [&](const Chunk& chunk) {
        // Chunks that every reader has to know, transparency and the colour profile.
        const bool isCritical = chunk.name[0] >= 'A' && chunk.name[0] <= 'Z';
        if (isCritical || chunk.name == "tRNS" || chunk.name == "iCCP")
            append(reduced, chunk.whole);
    });
    file = std::move(reduced);
}

Bytes encodePng(const Image& image, WriteOptions options, bool isOfInput) {
    const Page& page = image.pages.front();
    const int bits =
        page.bits < 8 && !(page.channels == 1 && fits(page, page.bits)) ? 8 : std::min(page.bits, 16);
    // Paeth's predictor gives filtered images smaller than the library's own choice, in half the time; the row
    // above takes a tenth of the time.
    constexpr int kLevel = 4, kFastest = 1;
    const int level = options.compression < 0 ? kLevel : options.compression;
    const auto predictor = level > kFastest ? VIPS_FOREIGN_PNG_FILTER_PAETH
                           : level > 0      ? VIPS_FOREIGN_PNG_FILTER_UP
                                            : VIPS_FOREIGN_PNG_FILTER_NONE;
    vips::VOption* settings = VImage::option()->set("compression", level)->set("filter", predictor);
    const Bytes plain =
        encodePlain(imageOf(image.pages.front(), bits == 16), ".png", settings->set("bitdepth", bits));
    Bytes file;
    file.reserve(plain.size() + image.metadata->own.size());
    append(file, bytesOf(kSignature));
    walk(plain, [&](const Chunk& chunk) {
        constexpr std::string_view kPixels[] = {"IHDR", "PLTE", "tRNS", "IDAT", "IEND"};
        if (std::count(std::begin(kPixels), std::end(kPixels), chunk.name) != 0)
            append(file, chunk.whole);
        if (chunk.name == "IHDR")
            append(file, chunksOf(image, isOfInput));
    });
    return file;
}

} // namespace Tessaloom::BilateralBlur::Program
