#pragma once

#include "Program/Files/Image.h"

#include <vips/vips8>

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// A format of image files: a row of the table `kFormats`.
struct Format {
    const char* name;
    std::array<const char*, 2> extensions; ///< lower case, with the dot
    bool hasAlpha;
    bool hasPages;           ///< several in a file, all of them ours to read and write
    bool isAnimated = false; ///< the pages are frames of one size
    int largestSide;         ///< of width and height, in pixels

    bool (*matches)(std::span<const std::byte> file);

    /// Takes all that the file says beside its pixels, and one page for each image, without pixels. Throws
    /// std::runtime_error with a reason where the file is cut short.
    void (*inspect)(std::span<const std::byte> file, Image& head, Metadata& metadata);

    vips::VImage (*load)(VipsBlob* file, vips::VOption* options);

    /// Throws std::runtime_error where the pixels are damaged and `load` doesn't see it; null where it does.
    void (*verify)(std::span<const std::byte> file) = nullptr;

    /// The bytes of the file, metadata included.
    Bytes (*encode)(const Image& image, WriteOptions options);
};

bool matchesJpeg(std::span<const std::byte> file);
bool matchesPng(std::span<const std::byte> file);
bool matchesTiff(std::span<const std::byte> file);
bool matchesWebp(std::span<const std::byte> file);
void verifyJpeg(std::span<const std::byte> file);
void inspectJpeg(std::span<const std::byte> file, Image& head, Metadata& metadata);
void inspectPng(std::span<const std::byte> file, Image& head, Metadata& metadata);
void inspectTiff(std::span<const std::byte> file, Image& head, Metadata& metadata);
void inspectWebp(std::span<const std::byte> file, Image& head, Metadata& metadata);
Bytes encodeJpeg(const Image& image, WriteOptions options);
Bytes encodePng(const Image& image, WriteOptions options);
Bytes encodeTiff(const Image& image, WriteOptions options);
Bytes encodeWebp(const Image& image, WriteOptions options);

// What the formats share

/// Pages of one size, one below the other, as an image of the library. It borrows the pixels.
vips::VImage imageOf(const std::vector<Page>& pages, bool deep);

/// Packs a row of a page's pixels into samples of 8 or 16 bits.
void packRow(const Page& page, int y, bool deep, void* samples);

/// The bytes of an image as the library's writer for an extension makes them, without metadata.
Bytes encodePlain(const vips::VImage& image, const char* extension, vips::VOption* options);

/// The number in `count` bytes, the highest first; for RIFF the lowest first.
std::uint32_t bigEndian(std::span<const std::byte> bytes);
std::uint32_t littleEndian(std::span<const std::byte> bytes);

inline std::string_view text(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline std::span<const std::byte> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::byte*>(text.data()), text.size()};
}

void append(Bytes& to, std::span<const std::byte> bytes);

} // namespace Tessaloom::BilateralBlur::Program
