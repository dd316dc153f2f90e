#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/Metadata.h"

#include <cstdio>

#include <jerror.h>
#include <jpeglib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>

namespace Tessaloom::BilateralBlur::Program {

namespace {

constexpr std::string_view kStart = "\xFF\xD8", kEnd = "\xFF\xD9";
constexpr std::string_view kExif("Exif\0\0", 6), kXmp("http://ns.adobe.com/xap/1.0/\0", 29);
constexpr unsigned kJfif = 0xE0, kApp1 = 0xE1, kApp2 = 0xE2, kAdobe = 0xEE, kComment = 0xFE, kTables = 0xDB,
                   kScan = 0xDA;
constexpr int kPlainQuality = 95; ///< where no input sets one

/// Calls `take` with the code and the content of each segment before the scan. Returns the rest of the file.
std::span<const std::byte> walk(std::span<const std::byte> file,
                                const std::function<void(unsigned, std::span<const std::byte>)>& take) {
    std::span<const std::byte> rest = file.subspan(kStart.size());
    while (rest.size() >= 4) {
        if (rest[0] != std::byte{0xFF})
            break;
        const auto code = std::to_integer<unsigned>(rest[1]);
        const std::size_t size = 2 + bigEndian(rest.subspan(2, 2));
        if (code == 0xFF) { // padding
            rest = rest.subspan(1);
            continue;
        }
        if (code == kScan)
            return rest;
        if (size < 4 || size > rest.size())
            break;
        take(code, rest.subspan(4, size - 4));
        rest = rest.subspan(size);
    }
    throw std::runtime_error("the file ends before the image, or its header is damaged");
}

struct JpegErrors : jpeg_error_mgr {
    long strayBytes = 0;
};

bool isJfif(std::span<const std::byte> content) {
    return content.size() >= 14 && text(content.first(5)) == std::string_view("JFIF\0", 5);
}

void appendSegment(Bytes& to, unsigned code, std::span<const std::byte> content) {
    const std::size_t size = content.size() + 2;
    for (const std::size_t value : {std::size_t(0xFF), std::size_t(code), size >> 8, size & 0xFF})
        to.push_back(static_cast<std::byte>(value));
    append(to, content);
}

/// The header "JFIF" version 1.01 with a density, or square pixels, and no thumbnail.
Bytes jfifSegment(const Density& density) {
    Bytes content(14, std::byte{0});
    std::copy_n(bytesOf("JFIF").begin(), 4, content.begin());
    const long x = std::clamp(std::lround(density.x), 1L, 0xFFFFL);
    const long y = std::clamp(std::lround(density.y), 1L, 0xFFFFL);
    const long values[] = {1, 1, static_cast<long>(density.unit), x >> 8, x & 0xFF, y >> 8, y & 0xFF};
    std::transform(std::begin(values), std::end(values), content.begin() + 5,
                   [](long value) { return static_cast<std::byte>(value); });
    Bytes segment;
    appendSegment(segment, kJfif, content);
    return segment;
}

/// The quality whose table for brightness is nearest, by the standard's table (ITU T.81, K.1) as the
/// Independent JPEG Group scales it.
int qualityOf(std::span<const std::byte> table) {
    constexpr int kStandard[64] = {16, 11, 12,  14,  12,  10, 16, 14,  13,  14,  18,  17,  16, 19,  24,  40,
                                   26, 24, 22,  22,  24,  49, 35, 37,  29,  40,  58,  51,  61, 60,  57,  51,
                                   56, 55, 64,  72,  92,  78, 64, 68,  87,  69,  55,  56,  80, 109, 81,  87,
                                   95, 98, 103, 104, 103, 62, 77, 113, 121, 112, 100, 120, 92, 101, 103, 99};
    int best = 0, least = 0;
    for (int quality = 1; quality <= 100; ++quality) {
        const int scale = quality < 50 ? 5000 / quality : 200 - 2 * quality;
        int difference = 0;
        for (int i = 0; i < 64; ++i)
            difference += std::abs(std::clamp((kStandard[i] * scale + 50) / 100, 1, 255) -
                                   std::to_integer<int>(table[i]));
        if (best == 0 || difference <= least) {
            best = quality;
            least = difference;
        }
    }
    return best;
}

/// A header of an image, of whatever kind.
bool isFrame(unsigned code) {
    return code >= 0xC0 && code <= 0xCF && code != 0xC4 && code != 0xC8 && code != 0xCC;
}

/// Segments of applications, and comments.
bool isMetadata(unsigned code) {
    return (code >= 0xE0 && code <= 0xEF) || code == kComment;
}

void refuseUnsupported(unsigned code, std::span<const std::byte> frame) {
    if (code >= 0xC9)
        throw std::runtime_error("JPEG with arithmetic coding isn't supported");
    if (code > 0xC2)
        throw std::runtime_error("lossless and hierarchical JPEG aren't supported");
    if (frame[0] != std::byte{8})
        throw std::runtime_error("JPEG with " + std::to_string(std::to_integer<int>(frame[0])) +
                                 " bits a channel isn't supported; 8 are");
}

/// Each scan of a progressive file takes as long as a whole image.
void refuseManyScans(std::span<const std::byte> scans) {
    constexpr int kMost = 200; // encoders make 10 or so
    constexpr std::string_view kScanStart = "\xFF\xDA";
    int count = 0;
    for (std::size_t at = 0; (at = text(scans).find(kScanStart, at)) != std::string_view::npos; ++at)
        if (++count > kMost)
            throw std::runtime_error("it has more than " + std::to_string(kMost) + " scans");
}

} // namespace

bool matchesJpeg(std::span<const std::byte> file) {
    return text(file).starts_with("\xFF\xD8\xFF");
}

void inspectJpeg(std::span<const std::byte> file, Image& head, FoundMetadata& found) {
    Page page;
    const std::span<const std::byte> scans = walk(file, [&](unsigned code, auto content) {
        if (isMetadata(code))
            found.count.addPart(content.size());
        if (code == kApp1 && text(content).starts_with(kExif))
            found.count.addDirectories(content.subspan(kExif.size()));
        else if (code == kApp1 && text(content).starts_with(kXmp))
            found.count.addPacket(content.subspan(kXmp.size()));
        if (code == kJfif && isJfif(content)) {
            page.density = {double(bigEndian(content.subspan(8, 2))),
                            double(bigEndian(content.subspan(10, 2))),
                            static_cast<Density::Unit>(std::to_integer<int>(content[7]) % 3)};
            // Without its thumbnail, which shows the unfiltered image.
            append(found.own, jfifSegment(page.density));
        } else if (code == kComment) {
            appendSegment(found.own, code, content);
        } else if (code == kTables && content.size() >= 65 && content[0] == std::byte{0}) {
            head.compression.quality = qualityOf(content.subspan(1, 64));
        } else if (isFrame(code) && content.size() >= 9) {
            refuseUnsupported(code, content);
            page.height = static_cast<int>(bigEndian(content.subspan(1, 2)));
            page.width = static_cast<int>(bigEndian(content.subspan(3, 2)));
            // Height and width of the first component's blocks against those of the second.
            head.compression.subsampled = content.size() >= 15 && content[7] != content[10];
        }
    });
    if (text(scans).rfind(kEnd) == std::string_view::npos)
        throw std::runtime_error("the file is cut short");
    refuseManyScans(scans);
    if (head.compression.quality == 0)
        head.compression.quality = kPlainQuality;
    // 1 by 1 without a unit is what a header without a density has.
    if (page.density.unit == Density::Unit::Unknown && page.density.x == page.density.y)
        page.density = {};
    head.pages.push_back(std::move(page));
}

void reduceJpeg(Bytes& file) {
    Bytes reduced(file.begin(), file.begin() + kStart.size());
    const std::span<const std::byte> scans = walk(file, [&](unsigned code, auto content) {
        // The colour profile, and what says how the colours are stored.
        const bool isNeeded = !isMetadata(code) || code == kJfif || code == kAdobe ||
                              (code == kApp2 && text(content).starts_with("ICC_PROFILE"));
        if (isNeeded)
            appendSegment(reduced, code, content);
    });
    append(reduced, scans);
    file = std::move(reduced);
}

// libvips stops after the last row. What a damaged file has too much or too little shows at its end.
void verifyJpeg(std::span<const std::byte> file, std::vector<std::string>& notes) {
    JpegErrors errors;
    jpeg_decompress_struct decoder;
    decoder.err = jpeg_std_error(&errors);
    errors.error_exit = [](j_common_ptr) { throw std::runtime_error("damaged"); };
    errors.emit_message = [](j_common_ptr source, int level) {
        auto& errors = *static_cast<JpegErrors*>(source->err);
        // All pixels are there already.
        if (errors.msg_code == JWRN_EXTRANEOUS_DATA && errors.msg_parm.i[1] == JPEG_EOI)
            errors.strayBytes += errors.msg_parm.i[0];
        else if (level < 0)
            ++errors.num_warnings;
    };
    jpeg_create_decompress(&decoder);
    const std::unique_ptr<jpeg_decompress_struct, decltype(&jpeg_destroy_decompress)> owner(
        &decoder, jpeg_destroy_decompress);
    jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char*>(file.data()), file.size());
    jpeg_read_header(&decoder, TRUE);
    // One pixel for a block of 8 by 8: all codes are read, and little is computed.
    decoder.scale_num = 1;
    decoder.scale_denom = 8;
    jpeg_start_decompress(&decoder);
    std::vector<JSAMPLE> row(std::size_t(decoder.output_width) * decoder.output_components);
    JSAMPROW rows = row.data();
    while (decoder.output_scanline < decoder.output_height)
        jpeg_read_scanlines(&decoder, &rows, 1);
    jpeg_finish_decompress(&decoder);
    if (errors.num_warnings > 0)
        throw std::runtime_error("damaged");
    if (errors.strayBytes > 0)
        notes.push_back(std::to_string(errors.strayBytes) +
                        " bytes between its pixels and its end mean nothing");
    if (const std::size_t rest = decoder.src->bytes_in_buffer; rest > 0)
        notes.push_back("what follows the image, such as a gain map, a video or a preview, isn't kept: " +
                        std::to_string(rest) + " bytes");
}

std::vector<std::string> lossesInJpeg(const Image& image) {
    Metadata metadata = *image.metadata;
    return fitJpeg(metadata);
}

Bytes encodeJpeg(const Image& image, WriteOptions options, bool isOfInput) {
    const Page& page = image.pages.front();
    const Compression& compression = image.compression;
    const int followed = compression.quality > 0 ? compression.quality : kPlainQuality;
    Bytes plain = encodePlain(imageOf(image.pages.front(), false), ".jpg",
                              vips::VImage::option()
                                  ->set("Q", options.quality > 0 ? options.quality : followed)
                                  ->set("optimize_coding", true)
                                  ->set("subsample_mode", compression.subsampled && compression.quality > 0
                                                              ? VIPS_FOREIGN_SUBSAMPLE_ON
                                                              : VIPS_FOREIGN_SUBSAMPLE_OFF));
    Metadata metadata = *image.metadata;
    fitJpeg(metadata);
    Bytes file = withMetadata(std::move(plain), metadata, page.profile);
    const Bytes own = isOfInput ? image.metadata->own : jfifSegment(page.density);
    file.insert(file.begin() + kStart.size(), own.begin(), own.end());
    return file;
}

} // namespace Tessaloom::BilateralBlur::Program
