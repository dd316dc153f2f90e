#pragma once

#include "Program/Files/Image.h"

#include <vips/vips8>

#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// A value of WriteOptions::compression beside the levels of deflate.
inline constexpr int kLzw = 10;

struct WriteOptions {
    int quality = 0;      ///< of JPEG and WebP, 1 to 100; 0 for the input's own
    int compression = -1; ///< of PNG and TIFF, a level of deflate, 0 to 9, or kLzw; -1 for the format's own
};

/// The bytes of a file in a format, with the image's channels, metadata, and of its 16 bits a channel or floats as
/// much as the format can hold. PNG and TIFF are written without loss, by themselves at level 4 and with LZW, and
/// so is WebP unless the input is WebP with loss or a quality is given. A JPEG file gets the quality and colour
/// resolution of the input, if that is JPEG, else quality 95 and full colour resolution. `name` is for
/// messages. Throws Failure, for alpha in JPEG and several pages in PNG among others.
Bytes encodeImage(const Image& image, const Format& format, const std::string& name,
                  WriteOptions options = {});

/// Throws Failure where a format can't hold the images; `name` is the output's.
void checkHolds(const Format& format, const Image& image, const std::string& name);

/// Notes on what the format can't hold of the image's metadata and of the depth that the effect keeps.
std::vector<std::string> lossesIn(const Format& format, const Image& image, bool keepsDepth);

// What the formats share

/// A page as an image of the library, which borrows the pixels.
vips::VImage imageOf(const Page& page, bool deep);

/// Packs a row of a page's pixels into samples of 8 or 16 bits, or of 32, which are floats.
void packRow(const Page& page, int y, int bits, void* samples);

/// The bytes of an image as the library's writer for an extension makes them, without metadata.
Bytes encodePlain(const vips::VImage& image, const char* extension, vips::VOption* options);

} // namespace Tessaloom::BilateralBlur::Program
