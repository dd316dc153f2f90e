#pragma once

#include "Program/Files/Encode.h"
#include "Program/Files/FoundMetadata.h"
#include "Program/Files/Image.h"

#include <vips/vips8>

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// A format of image files: a row of the table `kFormats`.
struct Format {
    const char* name;
    std::array<const char*, 2> extensions; ///< lower case, with the dot; the last one also names the format
    std::array<const char*, 2> rareExtensions = {"", ""}; ///< which no message lists
    bool hasAlpha;
    bool hasPages;            ///< several in a file, all of them ours to read and write
    bool isAnimated = false;  ///< the pages are frames of one size
    bool hasMetadata = true;  ///< EXIF, IPTC or XMP that the library for metadata reads
    bool rewrites = false;    ///< a file from one of the same format: what isn't filtered is copied
    bool mixesTags = false;   ///< EXIF is in one directory with the tags that say how the pixels are stored
    int largestSide;          ///< of width and height, in pixels
    int mostBits = 8;         ///< of a sample: 32 are a float
    int mostCompression = -1; ///< the highest WriteOptions::compression that it takes

    // The peak of a run for each pixel, measured on noise of 3000 x 3000 pixels with 1 to 4 channels of 8 and 16
    // bits, and floats; of the largest page, and of each other one. An animation takes other encoders.
    std::uint64_t bytesToDecode, bytesToEncode, bytesToAnimate = bytesToEncode, bytesWaiting;

    bool (*matches)(std::span<const std::byte> file);

    /// Takes one page for each image, without pixels, and how the file is made; and finds its metadata, without
    /// copying much. Throws std::runtime_error with a reason where the file is cut short.
    void (*inspect)(std::span<const std::byte> file, Image& head, FoundMetadata& found);

    /// Takes what says nothing about the pixels out of the file, so that the library that decodes doesn't read
    /// it again; null where that is done only for a file with too much of it.
    void (*reduce)(Bytes& file) = nullptr;

    /// Makes a page the only one of the file; null where the library finds it soon enough by its number.
    void (*isolate)(Bytes& file, const Page& page) = nullptr;

    vips::VImage (*load)(VipsBlob* file, vips::VOption* options);

    /// Throws std::runtime_error where the pixels are damaged and `load` doesn't see it; null where it does.
    /// Notes what is odd.
    void (*verify)(std::span<const std::byte> file, std::vector<std::string>& notes) = nullptr;

    /// Notes on what a file of this format loses of the image's metadata because it doesn't fit; null where all fits.
    std::vector<std::string> (*losses)(const Image& image) = nullptr;

    /// The bytes of the file, metadata included. `isOfInput` where the image comes from a file of this format. Null
    /// for a format that is read alone.
    Bytes (*encode)(const Image& image, WriteOptions options, bool isOfInput) = nullptr;
};

/// The formats that fit, for messages: "JPEG, PNG, TIFF or WebP".
std::string formatNames(const std::function<bool(const Format&)>& fits = [](const Format&) { return true; });

/// The extensions of file names that can be written, for messages.
std::string formatExtensions();

/// The names that `formatNamed` knows, separated by "|".
std::string formatChoices();

/// The format that the extension of a file name means. Throws WrongUse for a name that has no such
/// extension.
const Format& formatOf(const std::filesystem::path& path);

/// The format that the extension of a file name means; null for none.
const Format* formatOfName(const std::filesystem::path& path);

/// The format of one of `formatChoices`; null for any other name.
const Format* formatNamed(const std::string& name);

/// The format that the first bytes of a file are of; null for none.
const Format* formatOfContent(std::span<const std::byte> file);

// What the rows are made of

bool matchesJpeg(std::span<const std::byte> file);
bool matchesPng(std::span<const std::byte> file);
bool matchesTiff(std::span<const std::byte> file);
bool matchesWebp(std::span<const std::byte> file);
bool matchesExr(std::span<const std::byte> file);
bool matchesHeic(std::span<const std::byte> file);
bool matchesAvif(std::span<const std::byte> file);
bool matchesJxl(std::span<const std::byte> file);
void verifyJpeg(std::span<const std::byte> file, std::vector<std::string>& notes);
void inspectJpeg(std::span<const std::byte> file, Image& head, FoundMetadata& found);
void inspectPng(std::span<const std::byte> file, Image& head, FoundMetadata& found);
void inspectTiff(std::span<const std::byte> file, Image& head, FoundMetadata& found);
void inspectWebp(std::span<const std::byte> file, Image& head, FoundMetadata& found);
void inspectExr(std::span<const std::byte> file, Image& head, FoundMetadata& found);
void inspectHeif(std::span<const std::byte> file, Image& head, FoundMetadata& found);
void inspectJxl(std::span<const std::byte> file, Image& head, FoundMetadata& found);
vips::VImage loadExr(VipsBlob* file, vips::VOption* options);
vips::VImage loadHeif(VipsBlob* file, vips::VOption* options);
vips::VImage loadJxl(VipsBlob* file, vips::VOption* options);
void reduceJpeg(Bytes& file);
void reducePng(Bytes& file);
void reduceWebp(Bytes& file);
void isolateTiffPage(Bytes& file, const Page& page);
std::vector<std::string> lossesInJpeg(const Image& image);
std::vector<std::string> lossesInExr(const Image& image);
Bytes encodeJpeg(const Image& image, WriteOptions options, bool isOfInput);
Bytes encodePng(const Image& image, WriteOptions options, bool isOfInput);
Bytes encodeTiff(const Image& image, WriteOptions options, bool isOfInput);
Bytes encodeWebp(const Image& image, WriteOptions options, bool isOfInput);
Bytes encodeExr(const Image& image, WriteOptions options, bool isOfInput);

} // namespace Tessaloom::BilateralBlur::Program
