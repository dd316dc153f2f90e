#pragma once

#include "Tests/Support/ProcessRun.h"

#include <arpa/inet.h>
#include <vips/vips8>
#include <zlib.h>

namespace Tessaloom::BilateralBlur::Program::Test {

/// The image library, started before any test. Threads of its own would still be ending when the address
/// sanitizer looks for leaks, which now and then ends the process.
inline const int kStarted = [] {
    const int result = vips_init("program_test");
    vips_concurrency_set(1);
    return result;
}();

/// The command line of a run of the real program, at scale 3 unless `more` says another.
inline std::vector<std::string> command(const std::string& input, const std::string& output,
                                        std::vector<std::string> more = {}) {
    more.insert(more.begin(), {PROGRAM, input, output, "--blur-scale=3"});
    return more;
}

inline Outcome blur(const std::string& input, const std::string& output,
                    const std::vector<std::string>& more = {}) {
    return ProcessRun(command(input, output, more)).wait();
}

/// A command of a shell in a directory, where "program" is the real program, "blur" at scale 3, and "smooth" with
/// another effect at radius 0.
inline std::vector<std::string> shell(const Directory& directory, const std::string& command) {
    return {"/bin/bash", "-o", "pipefail", "-c",
            "cd " + directory / "" +
                "; program() { '" PROGRAM "' \"$@\"; }; blur() { program --blur-scale=3 \"$@\"; }; "
                "smooth() { program --effect=bilateral-smooth --radius=0 \"$@\"; }; " +
                command};
}

/// An image of these channels, 1 to 4, of values from 0 to 255, with samples of 8 or 16 bits.
inline vips::VImage imageOf(const std::vector<vips::VImage>& channels, bool deep = false) {
    const vips::VImage image = vips::VImage::bandjoin(channels);
    if (!deep)
        return image.cast(VIPS_FORMAT_UCHAR);
    const auto kind = channels.size() > 2 ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_GREY16;
    return (image * 257).cast(VIPS_FORMAT_USHORT).copy(vips::VImage::option()->set("interpretation", kind));
}

/// Independent noise, with the lowest and the highest value in good number.
inline vips::VImage noise(int width, int height, int channels, int seed = 0, bool deep = false) {
    std::vector<vips::VImage> bands;
    for (int i = 0; i < channels; ++i)
        bands.push_back(vips::VImage::gaussnoise(
            width, height,
            vips::VImage::option()->set("mean", 128)->set("sigma", 120)->set("seed", 4 * seed + i)));
    return imageOf(bands, deep);
}

/// Smooth shading, which survives JPEG.
inline vips::VImage shading(int width, int height, int channels) {
    return imageOf(std::vector(channels, vips::VImage::xyz(width, height)[0] * (190.0 / width) + 40));
}

/// The image as pages of this height, one below the other.
inline vips::VImage paged(const vips::VImage& image, int height) {
    vips::VImage pages = image.copy();
    pages.set(VIPS_META_PAGE_HEIGHT, height);
    return pages;
}

/// A number in a PNG file.
inline std::string pngNumber(std::size_t value) {
    const std::uint32_t number = htonl(static_cast<std::uint32_t>(value));
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

/// A chunk of a PNG file with its checksum.
inline std::string pngChunk(const std::string& name, const std::string& data) {
    const std::string summed = name + data;
    const auto* bytes = reinterpret_cast<const Bytef*>(summed.data());
    return pngNumber(data.size()) + summed + pngNumber(crc32_z(0, bytes, summed.size()));
}

/// A PNG file of few bytes with a header for a large square.
inline std::string pngWithoutPixels(int side) {
    const std::string size = pngNumber(side) + pngNumber(side) + std::string("\x8\2\0\0\0", 5);
    return "\x89PNG\r\n\x1a\n" + pngChunk("IHDR", size) + pngChunk("IEND", "");
}

/// As it is in a TIFF structure.
struct TiffEntry {
    std::uint16_t tag, type;
    std::uint32_t count, value;
    std::string bytes() const { return {reinterpret_cast<const char*>(this), sizeof *this}; }
};

/// A TIFF structure of one directory with up to 255 entries, and `tail` behind it.
inline std::string tiff(const std::vector<TiffEntry>& entries, const std::string& tail = "") {
    std::string bytes("II*\0\x8\0\0\0", 8);
    bytes += {static_cast<char>(entries.size()), '\0'};
    for (const TiffEntry& entry : entries)
        bytes += entry.bytes();
    return bytes + std::string(4, '\0') + tail;
}

/// The bytes with the first `from` replaced, which must be among them.
inline std::string replaced(std::string bytes, const std::string& from, const std::string& to) {
    return bytes.replace(bytes.find(from), from.size(), to);
}

/// A TIFF file with another short number in a tag that has one.
inline std::string withTag(const std::string& tiff, int tag, int before, int now) {
    const auto entry = [&](int number) {
        return TiffEntry{static_cast<std::uint16_t>(tag), 3, 1, static_cast<std::uint32_t>(number)}.bytes();
    };
    return replaced(tiff, entry(before), entry(now));
}

/// Options of the format may follow the file's name, as in "x.webp[lossless]".
inline void save(const vips::VImage& image, const std::string& file) {
    image.write_to_file(file.c_str());
}

/// What a file holds, decoded as it stands. Throws for a file that is cut short.
inline vips::VImage load(const std::string& file) {
    vips_cache_set_max(0); // files are written again under the same names
    return vips::VImage::new_from_file(file.c_str(),
                                       vips::VImage::option()->set("fail_on", VIPS_FAIL_ON_TRUNCATED));
}

} // namespace Tessaloom::BilateralBlur::Program::Test
