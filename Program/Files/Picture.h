#pragma once

#include "Host/World.h"

#include <vips/vips8>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// A picture as it goes through the effect: 8-bit pixels with straight alpha, and all that the file says
/// beside them.
///
/// The pixels keep the order of the file: an orientation tag is carried, not applied. A palette becomes the
/// colours that it stands for.
struct Picture {
    Host::World world{0, 0};
    int channels = 0;      ///< of the file: 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA
    bool is16Bit = false;  ///< the file has 16 bits a channel, the world holds them rounded to 8
    int pages = 1;         ///< of the file; the first was read
    vips::VImage metadata; ///< an image of one pixel that carries the profile, EXIF, orientation and the like
    std::vector<std::byte> pngColour{}; ///< what a PNG says of its colours beside a profile, for a PNG
};

/// Throws Failure where the file can't be opened, whatever is in it.
void checkReadable(const std::filesystem::path& path);

/// Reads a JPEG, PNG, TIFF or WebP file, told by what is in it, not by its name. Throws Failure where the
/// file can't be read, is damaged or cut short, or holds another kind of samples or colours.
///
/// `spare` becomes the picture's world where its size fits: fresh memory costs as much as some decoding.
Picture readPicture(const std::filesystem::path& path, Host::World spare = {0, 0});

/// The endings of file names that can be written, for messages.
extern const char* const kWritableTypes;

/// Throws WrongUse for a file name whose ending names no type that can be written.
void checkWritableType(const std::filesystem::path& path);

/// The bytes of a file of the type that the path's ending names, with the picture's channels, metadata, and
/// 16 bits a channel where the picture had them and the type can hold them. PNG, TIFF and WebP are written
/// without loss; JPEG with quality 95 and full colour resolution. Throws Failure, for an alpha channel in
/// JPEG among others.
std::vector<std::byte> encodePicture(const Picture& picture, const std::filesystem::path& path);

} // namespace Tessaloom::BilateralBlur::Program
