#pragma once

#include "Tests/Support/ProcessRun.h"

#include <arpa/inet.h>
#include <array>
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

/// The command line of a run of the real program.
inline std::vector<std::string> command(const std::string& input, const std::string& output, int blurScale,
                                        std::vector<std::string> more = {}) {
    more.insert(more.begin(), {PROGRAM, input, output, "--blur-scale", std::to_string(blurScale)});
    return more;
}

inline Outcome blur(const std::string& input, const std::string& output, int blurScale,
                    const std::vector<std::string>& more = {}) {
    return ProcessRun(command(input, output, blurScale, more)).wait();
}

/// A command of a shell in a directory, where "program" is the real program, and "blur" with a scale.
inline std::vector<std::string> shell(const Directory& directory, int blurScale, const std::string& command) {
    return {"/bin/bash", "-o", "pipefail", "-c",
            "cd " + directory / "" + "; program() { '" PROGRAM "' \"$@\"; }; blur() { program --blur-scale " +
                std::to_string(blurScale) + " \"$@\"; }; " + command};
}

/// An image of these channels, 1 to 4, with samples of 8 or 16 bits.
inline vips::VImage imageOf(const std::vector<vips::VImage>& channels, bool deep = false) {
    constexpr VipsInterpretation kKinds[2][2] = {{VIPS_INTERPRETATION_B_W, VIPS_INTERPRETATION_GREY16},
                                                 {VIPS_INTERPRETATION_sRGB, VIPS_INTERPRETATION_RGB16}};
    const vips::VImage image = vips::VImage::bandjoin(channels).cast(VIPS_FORMAT_UCHAR) * (deep ? 257 : 1);
    return image.cast(deep ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR)
        .copy(vips::VImage::option()->set("interpretation", kKinds[channels.size() > 2][deep]));
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

/// A TIFF structure of one directory whose entries are tag, type, count and value, with `tail` behind it.
inline std::string tiff(const std::vector<std::array<std::uint32_t, 4>>& entries,
                        const std::string& tail = "") {
    std::string bytes("II*\0\x8\0\0\0", 8);
    const auto append = [&](std::uint32_t number, int size) {
        for (int i = 0; i < size; ++i)
            bytes += static_cast<char>(number >> 8 * i);
    };
    append(static_cast<std::uint32_t>(entries.size()), 2);
    for (const auto& [tag, type, count, value] : entries) {
        append(tag, 2);
        append(type, 2);
        append(count, 4);
        append(value, 4);
    }
    append(0, 4);
    return bytes + tail;
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
