#pragma once

#include "Host/World.h"
#include "Program/Files/Bytes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

struct Format;
struct Metadata;

/// Pixels for each unit of length, or the shape of a pixel where the unit is unknown. None where x is 0.
struct Density {
    enum class Unit { Unknown, Inch, Centimetre };
    double x = 0, y = 0;
    Unit unit = Unit::Unknown;
};

/// A page of a TIFF, a frame of an animated WebP, or the one image of a file.
struct Page {
    Host::World world{0, 0};     ///< 8-bit pixels, or floats for samples of more bits, with straight alpha
    int width = 0, height = 0;   ///< in pixels, as the header says
    int channels = 0;            ///< of the file: 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA
    int bits = 8;                ///< of a sample of the file: 32 are a float; 1, 2 and 4 were widened to 8
    int delay = 0;               ///< how long the frame of an animation is shown, in milliseconds
    std::uint64_t directory = 0; ///< of a page of a TIFF: where in the file its tags are
    std::string refusal{};       ///< why its samples can't be read; empty where they can
    int orientation = 0;         ///< of a page of a TIFF, as the tag has it; 0 where there is none
    Density density{};
    Bytes profile{};                                            ///< the ICC profile
    std::vector<std::pair<std::uint32_t, std::string>> texts{}; ///< tags of a page of a TIFF
};

/// How the file was compressed, for writing a file of the same format.
struct Compression {
    int quality = 0;         ///< of a JPEG file, 1 to 100; 0 for another one
    bool subsampled = false; ///< a JPEG file with fewer samples of colour than of brightness
    bool lossy = false;      ///< a WebP file
};

/// A file's images as they go through the effect, and all that the file holds beside them.
///
/// The pixels keep the order of the file: an orientation tag is carried, not applied. A palette becomes the
/// colours of its entries.
struct Image {
    std::vector<Page> pages;
    const Format* format = nullptr; ///< of the file that was read
    int loops = 0;                  ///< how often an animation is shown; 0 without end
    std::uint32_t background =
        0; ///< of an animation, as the file has it: blue, green, red, alpha from the lowest
    Compression compression;
    int unreadableFrames = 0; ///< of an animated PNG, beside its still image
    std::shared_ptr<const Metadata> metadata;
    std::shared_ptr<const Bytes> source;     ///< the file, where one of its format is written from it
    std::vector<std::string> notes;          ///< what the output will lack, and where the file seems odd
    std::vector<std::string> notesElsewhere; ///< what an output in another format will lack
};

} // namespace Tessaloom::BilateralBlur::Program
