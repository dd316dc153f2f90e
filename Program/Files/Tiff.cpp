#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/Metadata.h"

#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace Tessaloom::BilateralBlur::Program {

namespace {

constexpr std::uint32_t kTexts[] = {
    TIFFTAG_DOCUMENTNAME, TIFFTAG_IMAGEDESCRIPTION, TIFFTAG_MAKE,   TIFFTAG_MODEL,        TIFFTAG_PAGENAME,
    TIFFTAG_SOFTWARE,     TIFFTAG_DATETIME,         TIFFTAG_ARTIST, TIFFTAG_HOSTCOMPUTER, TIFFTAG_COPYRIGHT};

/// A file in memory, as the library's calls for input and output see it.
struct File {
    std::span<const std::byte> read; ///< for reading alone
    Bytes* written = nullptr;        ///< for reading and writing
    std::uint64_t at = 0;

    std::span<const std::byte> bytes() const { return written ? std::span<const std::byte>(*written) : read; }
};

File& fileOf(thandle_t handle) {
    return *static_cast<File*>(handle);
}

tmsize_t readBytes(thandle_t handle, void* target, tmsize_t wanted) {
    File& file = fileOf(handle);
    const auto bytes = file.bytes();
    const std::uint64_t left = file.at < bytes.size() ? bytes.size() - file.at : 0;
    const std::size_t size = std::min<std::uint64_t>(left, static_cast<std::uint64_t>(wanted));
    std::memcpy(target, bytes.data() + (size > 0 ? file.at : 0), size);
    file.at += size;
    return static_cast<tmsize_t>(size);
}

tmsize_t writeBytes(thandle_t handle, void* source, tmsize_t size) {
    File& file = fileOf(handle);
    if (!file.written)
        return -1;
    const std::uint64_t end = file.at + static_cast<std::uint64_t>(size);
    if (end > file.written->size())
        file.written->resize(end);
    std::memcpy(file.written->data() + file.at, source, static_cast<std::size_t>(size));
    file.at = end;
    return size;
}

toff_t seek(thandle_t handle, toff_t offset, int whence) {
    File& file = fileOf(handle);
    file.at = offset + (whence == SEEK_CUR ? file.at : whence == SEEK_END ? file.bytes().size() : 0);
    return file.at;
}

using Tiff = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

/// The mode is that of the library: "r", "w" or "a".
Tiff open(File& file, const std::string& mode) {
    Tiff tiff(TIFFClientOpen(
                  "TIFF", (mode + "m").c_str(), &file, readBytes, writeBytes, seek,
                  [](thandle_t) { return 0; },
                  [](thandle_t handle) { return static_cast<toff_t>(fileOf(handle).bytes().size()); },
                  [](thandle_t, void**, toff_t*) { return 0; }, [](thandle_t, void*, toff_t) {}),
              TIFFClose);
    if (!tiff)
        throw std::runtime_error("the directory of its first page is damaged or cut off");
    return tiff;
}

Density densityOf(TIFF* tiff) {
    float x = 0, y = 0;
    std::uint16_t unit = RESUNIT_INCH;
    if (!TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x) || !TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &y) ||
        !(x > 0) || !(y > 0))
        return {};
    TIFFGetFieldDefaulted(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
    return {x, y,
            unit == RESUNIT_CENTIMETER ? Density::Unit::Centimetre
            : unit == RESUNIT_INCH     ? Density::Unit::Inch
                                       : Density::Unit::Unknown};
}

bool hasUnspecifiedChannel(TIFF* tiff) {
    std::uint16_t channels = 1, count = 0, colours = 0;
    const std::uint16_t* kinds = nullptr;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &channels);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &count, &kinds);
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &colours);
    return colours != PHOTOMETRIC_SEPARATED && channels % 2 == 0 &&
           (count == 0 || kinds[0] == EXTRASAMPLE_UNSPECIFIED);
}

bool hasMetadata(TIFF* tiff) {
    std::uint64_t directory = 0;
    std::uint32_t size = 0;
    const void* content = nullptr;
    return TIFFGetField(tiff, TIFFTAG_EXIFIFD, &directory) ||
           TIFFGetField(tiff, TIFFTAG_GPSIFD, &directory) ||
           TIFFGetField(tiff, TIFFTAG_XMLPACKET, &size, &content) ||
           TIFFGetField(tiff, TIFFTAG_RICHTIFFIPTC, &size, &content);
}

/// A tile takes the decoder as long as hundreds of pixels do. Sides are multiples of 16 in a valid file.
void refuseSmallTiles(TIFF* tiff, const Page& page) {
    constexpr std::uint64_t kLeastArea = 64, kMostTiles = 10'000;
    std::uint32_t width = 0, height = 0;
    TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_TILELENGTH, &height);
    const std::uint64_t area = std::uint64_t{width} * height;
    if (area > 0 && area < kLeastArea && std::uint64_t(page.width) * page.height / area > kMostTiles)
        throw std::runtime_error("its tiles of " + std::to_string(width) + " x " + std::to_string(height) +
                                 " pixels are too small");
}

/// Why the pixels can't be read; empty where they can, or are of a kind that the decoder names.
std::string refusalOf(TIFF* tiff) {
    std::uint16_t bits = 1, kind = SAMPLEFORMAT_UINT, method = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &kind);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &method);
    if (method == COMPRESSION_OJPEG)
        return "TIFF with JPEG of the old kind isn't supported";
    if (kind == SAMPLEFORMAT_IEEEFP && bits != 32)
        return "TIFF with floats of " + std::to_string(bits) + " bits isn't supported; floats of 32 bits are";
    return {};
}

Page pageOf(TIFF* tiff) {
    Page page;
    page.directory = TIFFCurrentDirOffset(tiff);
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &page.width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &page.height);
    std::uint16_t value = 0;
    if (TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &value))
        page.bits = value;
    if (TIFFGetField(tiff, TIFFTAG_ORIENTATION, &value))
        page.orientation = value;
    page.refusal = refusalOf(tiff);
    page.density = densityOf(tiff);
    for (const std::uint32_t tag : kTexts) {
        const char* content = nullptr;
        if (TIFFGetField(tiff, tag, &content) && content)
            page.texts.emplace_back(tag, content);
    }
    return page;
}

/// A page of one bit a pixel, if the file had that and the filtered page still has two values.
bool isBilevel(const Page& page) {
    if (page.bits != 1 || page.channels != 1)
        return false;
    for (int y = 0; y < page.world.height; ++y)
        if (!std::all_of(page.world.row(y), page.world.row(y) + page.world.width,
                         [](const PF_Pixel8& pixel) { return pixel.green % 255 == 0; }))
            return false;
    return true;
}

void setCompression(TIFF* tiff, const Page& page, bool bilevel, int compression) {
    const int method = compression == 0      ? COMPRESSION_NONE
                       : compression == kLzw ? COMPRESSION_LZW
                       : compression > 0     ? COMPRESSION_ADOBE_DEFLATE
                       : bilevel             ? COMPRESSION_CCITTFAX4
                                             : COMPRESSION_LZW;
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, method);
    if (method == COMPRESSION_ADOBE_DEFLATE)
        TIFFSetField(tiff, TIFFTAG_ZIPQUALITY, compression);
    if (!bilevel && method != COMPRESSION_NONE)
        TIFFSetField(tiff, TIFFTAG_PREDICTOR,
                     page.bits == 32 ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL);
}

void setTags(TIFF* tiff, const Page& page, bool bilevel, int compression, std::size_t rowSize) {
    constexpr std::size_t kStripSize = 1 << 18;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.world.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.world.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bilevel ? 1 : std::max(page.bits, 8));
    if (page.bits == 32)
        TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, page.channels);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, page.channels < 3 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    setCompression(tiff, page, bilevel, compression);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP,
                 bilevel ? page.world.height
                         : static_cast<int>(std::max<std::size_t>(1, kStripSize / rowSize)));
    const std::uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
    if (page.channels % 2 == 0)
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &alpha);
    if (page.orientation > 0)
        TIFFSetField(tiff, TIFFTAG_ORIENTATION, page.orientation);
    if (page.density.x > 0) {
        TIFFSetField(tiff, TIFFTAG_XRESOLUTION, page.density.x);
        TIFFSetField(tiff, TIFFTAG_YRESOLUTION, page.density.y);
        TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, static_cast<int>(page.density.unit) + RESUNIT_NONE);
    }
    for (const auto& [tag, content] : page.texts)
        TIFFSetField(tiff, tag, content.c_str());
    if (!page.profile.empty())
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(page.profile.size()),
                     page.profile.data());
}

void write(TIFF* tiff, const Page& page, int compression) {
    const bool bilevel = isBilevel(page);
    const int bits = std::max(page.bits, 8);
    const auto width = static_cast<std::size_t>(page.world.width);
    Bytes row(width * static_cast<std::size_t>(page.channels) * static_cast<std::size_t>(bits / 8));
    setTags(tiff, page, bilevel, compression, row.size());
    for (int y = 0; y < page.world.height; ++y) {
        packRow(page, y, bits, row.data());
        if (bilevel) {
            for (std::size_t x = 0; x < width; ++x) {
                std::byte& eight = row[x / 8];
                const std::byte bit{static_cast<unsigned char>(0x80 >> x % 8)};
                eight = (x % 8 == 0 ? std::byte{0} : eight) | (row[x] == std::byte{0} ? std::byte{0} : bit);
            }
        }
        if (TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y)) < 0)
            throw std::runtime_error("a TIFF holds 4 GB at most");
    }
    if (!TIFFWriteDirectory(tiff))
        throw std::runtime_error("a TIFF holds 4 GB at most");
}

} // namespace

bool matchesTiff(std::span<const std::byte> file) {
    constexpr std::string_view kStarts[] = {{"II*\0", 4}, {"MM\0*", 4}, {"II+\0", 4}, {"MM\0+", 4}};
    return std::any_of(std::begin(kStarts), std::end(kStarts),
                       [&](std::string_view start) { return text(file).starts_with(start); });
}

void inspectTiff(std::span<const std::byte> bytes, Image& head, FoundMetadata& found) {
    found.count.addDirectories(bytes);
    // Even to read the sizes of the pages the library copies all that their directories have.
    Bytes reduced;
    std::span<const std::byte> file = bytes;
    if (!found.count.isAcceptable()) {
        reduced.assign(bytes.begin(), bytes.end());
        removeOtherTags(reduced);
        file = reduced;
    }
    // They would print on standard error; libvips, where it is started, sets its own.
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    File memory{file};
    const Tiff tiff = open(memory, "r");
    bool unspecified = false, laterMetadata = false;
    for (;;) {
        head.pages.push_back(pageOf(tiff.get()));
        refuseSmallTiles(tiff.get(), head.pages.back());
        unspecified |= hasUnspecifiedChannel(tiff.get());
        laterMetadata |= head.pages.size() > 1 && hasMetadata(tiff.get());
        if (TIFFLastDirectory(tiff.get()))
            break;
        if (!TIFFReadDirectory(tiff.get()))
            throw std::runtime_error("the directory of page " + std::to_string(head.pages.size() + 1) +
                                     " is damaged or cut off");
    }
    if (unspecified)
        head.notes.push_back("it doesn't say what its last channel is; it is taken for alpha");
    if (laterMetadata)
        head.notes.push_back("EXIF, IPTC and XMP of the pages after the first aren't kept");
}

Bytes encodeTiff(const Image& image, WriteOptions options, bool) {
    Bytes plain;
    File file{{}, &plain};
    write(open(file, "w").get(), image.pages.front(), options.compression);
    // The library for metadata would lose pages after the fourth, so it gets a file of one.
    const Metadata& metadata = *image.metadata;
    const bool hasMetadata = !metadata.exif.empty() || !metadata.iptc.empty() || !metadata.xmp.empty();
    Bytes bytes = hasMetadata ? withMetadata(std::move(plain), metadata, image.pages.front().profile)
                              : std::move(plain);
    if (image.pages.size() > 1) {
        File whole{{}, &bytes};
        const Tiff tiff = open(whole, "a");
        for (std::size_t i = 1; i < image.pages.size(); ++i)
            write(tiff.get(), image.pages[i], options.compression);
    }
    return bytes;
}

void isolateTiffPage(Bytes& file, const Page& page) {
    isolateDirectory(file, page.directory);
}

} // namespace Tessaloom::BilateralBlur::Program
