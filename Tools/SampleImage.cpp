// Makes the images of the documentation:
//   bilateral_blur_sample_image sample OUT                the sample image
//   bilateral_blur_sample_image noise OUT SIGMA           the same, opaque, with noise of this sigma in levels, 0 for none
//   bilateral_blur_sample_image sheet OUT X Y SIZE IN...  the square of SIZE pixels at X, Y of each image, three times as
//                                                         large, side by side
// and seeds for fuzzers:
//   bilateral_blur_sample_image seeds DIRECTORY           small files of all formats
// Pixels are straight RGBA. The same call gives the same bytes.

#include "Tests/Support/Images.h"

#include <ImfRgbaFile.h>
#include <vips/vips.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace Images = Tessaloom::BilateralBlur::Images;

constexpr int kWidth = 960;
constexpr int kHeight = 600;

struct Colour {
    double red, green, blue;
};

Colour mix(const Colour& a, const Colour& b, double t) {
    return {a.red + (b.red - a.red) * t, a.green + (b.green - a.green) * t, a.blue + (b.blue - a.blue) * t};
}

Colour scaled(const Colour& colour, double factor) {
    return {colour.red * factor, colour.green * factor, colour.blue * factor};
}

// A soft gradient above, a chequered floor in perspective below.
Colour background(double x, double y) {
    constexpr double kHorizon = 360;
    if (y < kHorizon)
        return mix({70, 96, 150}, {236, 196, 150}, y / kHorizon);
    const double depth = 9000 / (y - kHorizon + 22);
    const int column = static_cast<int>(std::floor((x - kWidth / 2.0) * depth / 14000));
    const int row = static_cast<int>(std::floor(depth / 36));
    const Colour tile = (column + row) & 1 ? Colour{188, 172, 150} : Colour{92, 74, 66};
    return mix(tile, {150, 130, 112}, std::clamp(depth / 420, 0.0, 1.0));
}

struct Ball {
    double x, y, radius;
    Colour colour;
};

constexpr std::array<Ball, 3> kBalls = {
    {{210, 380, 120, {206, 62, 48}}, {430, 430, 82, {62, 142, 92}}, {330, 500, 50, {226, 180, 64}}}};

bool shadeBall(const Ball& ball, double x, double y, Colour& colour) {
    const double dx = (x - ball.x) / ball.radius, dy = (y - ball.y) / ball.radius;
    const double flat = dx * dx + dy * dy;
    if (flat > 1)
        return false;
    const double dz = std::sqrt(1 - flat);
    const double light = std::max(0.0, -0.45 * dx - 0.6 * dy + 0.66 * dz);
    colour = scaled(ball.colour, 0.25 + 0.8 * light);
    const double shine = std::pow(light, 40);
    colour = mix(colour, {255, 255, 255}, 0.7 * shine);
    return true;
}

// A page with lines of strokes as narrow as text's: each letter is a column of three by five cells.
bool shadePage(double x, double y, Colour& colour) {
    constexpr double kLeft = 590, kTop = 120, kPageWidth = 250, kPageHeight = 330;
    const double px = x - kLeft - 0.12 * (y - kTop), py = y - kTop;
    if (px < 0 || py < 0 || px >= kPageWidth || py >= kPageHeight)
        return false;
    colour = {242, 238, 226};
    const int column = static_cast<int>(px) - 22, row = static_cast<int>(py) - 24;
    if (column < 0 || column >= 200 || row < 0 || row >= 280 || row % 17 >= 10)
        return true;
    const int letter = column / 8, line = row / 17;
    const unsigned shape = static_cast<unsigned>((letter * 7919 + line * 104729 + 5) * 2654435761u) >> 15;
    const int cellX = column % 8 / 2, cellY = row % 17 / 2;
    if (cellX < 3 && letter % 6 != 5 && (shape >> (cellY * 3 + cellX)) & 1)
        colour = {38, 36, 44};
    return true;
}

// A sail with a hard edge, and one fine mast.
bool shadeSail(double x, double y, Colour& colour) {
    if (std::fabs(x - 505) < 1.5 && y > 60 && y < 330) {
        colour = {48, 40, 36};
        return true;
    }
    if (x > 508 && y > 70 && y < 310 && x - 508 < (y - 70) * 0.36) {
        colour = mix({250, 250, 244}, {196, 206, 220}, (y - 70) / 240);
        return true;
    }
    return false;
}

// Opaque but for a soft edge at the right and a clear disc with a hard one.
double alpha(double x, double y) {
    if (std::hypot(x - 872, y - 96) < 46)
        return 0;
    return std::clamp((kWidth - x) / 70, 0.0, 1.0);
}

Colour scene(double x, double y) {
    Colour colour = background(x, y);
    shadeSail(x, y, colour);
    shadePage(x, y, colour);
    for (const Ball& ball : kBalls)
        shadeBall(ball, x, y, colour);
    return colour;
}

// A mean of four points for each pixel, and the noise of a sensor over it.
Images::Image sampleImage(double sigma = 9, bool isOpaque = false) {
    std::mt19937 engine(7);
    std::normal_distribution<double> noise(0, 1);
    return Images::make(kWidth, kHeight, isOpaque, [&](int x, int y, int channel) {
        if (channel == 0)
            return 255 * alpha(x + 0.5, y + 0.5);
        double sum = 0;
        for (const double dy : {0.25, 0.75})
            for (const double dx : {0.25, 0.75}) {
                const Colour point = scene(x + dx, y + dy);
                sum += channel == 1 ? point.red : channel == 2 ? point.green : point.blue;
            }
        return sum / 4 + sigma * noise(engine);
    });
}

// As straight RGBA; null where the library fails.
VipsImage* rgbaOf(const Images::Image& sample) {
    VipsImage* argb = vips_image_new_from_memory_copy(sample.bytes.data(), sample.bytes.size(), kWidth,
                                                      kHeight, 4, VIPS_FORMAT_UCHAR);
    VipsImage *rgb = nullptr, *alpha = nullptr, *rgba = nullptr;
    if (!argb || vips_extract_band(argb, &rgb, 1, "n", 3, nullptr) ||
        vips_extract_band(argb, &alpha, 0, nullptr) || vips_bandjoin2(rgb, alpha, &rgba, nullptr))
        return nullptr;
    rgba->Type = VIPS_INTERPRETATION_sRGB;
    return rgba;
}

bool makeSample(const char* path, const Images::Image& sample) {
    VipsImage* image = rgbaOf(sample);
    return image && vips_image_write_to_file(image, path, nullptr) == 0;
}

bool makeSheet(const char* path, int left, int top, int size, int count, char** inputs) {
    constexpr int kZoom = 3, kGap = 8;
    std::vector<VipsImage*> squares;
    for (int i = 0; i < count; ++i) {
        VipsImage* whole = vips_image_new_from_file(inputs[i], nullptr);
        VipsImage *square = nullptr, *large = nullptr;
        if (!whole || vips_extract_area(whole, &square, left, top, size, size, nullptr) ||
            vips_zoom(square, &large, kZoom, kZoom, nullptr))
            return false;
        squares.push_back(large);
    }
    VipsImage* sheet = nullptr;
    return vips_arrayjoin(squares.data(), &sheet, count, "across", count, "shim", kGap, nullptr) == 0 &&
           vips_image_write_to_file(sheet, path, nullptr) == 0;
}

/// Small files of all formats, as seeds for fuzzers: a corner of the sample with a bit of everything.
bool makeSeeds(const std::string& directory) {
    constexpr const char* kEndings[] = {"rgba.png",
                                        "palette.png[palette]",
                                        "interlaced.png[interlace]",
                                        "colour.jpg[Q=60]",
                                        "progressive.jpg[interlace,subsample_mode=on]",
                                        "strips.tif",
                                        "lzw.tif[compression=lzw]",
                                        "tiles.tif[compression=deflate,tile,tile_width=16,tile_height=16]",
                                        "lossy.webp",
                                        "lossless.webp[lossless]"};
    VipsImage* whole = rgbaOf(sampleImage());
    VipsImage *corner = nullptr, *opaque = nullptr;
    if (!whole || vips_extract_area(whole, &corner, 0, 0, 19, 13, nullptr) ||
        vips_extract_band(corner, &opaque, 0, "n", 3, nullptr))
        return false;
    for (VipsImage* image : {corner, opaque})
        image->Type = VIPS_INTERPRETATION_sRGB;
    const std::string packet =
        "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/"
        "22-rdf-syntax-ns#'><rdf:Description rdf:about='' "
        "xmlns:xmp='http://ns.adobe.com/xap/1.0/' xmp:Rating='3'/></rdf:RDF></x:xmpmeta>";
    for (VipsImage* image : {corner, opaque})
        vips_image_set_blob_copy(image, VIPS_META_XMP_NAME, packet.data(), packet.size());
    std::vector<Imf::Rgba> pixels(std::size_t{19 * 13}, Imf::Rgba(0.25f, 2, -0.5f, 0.75f));
    Imf::RgbaOutputFile exr((directory + "/half.exr").c_str(), 19, 13, Imf::WRITE_RGBA);
    exr.setFrameBuffer(pixels.data(), 1, 19);
    exr.writePixels(13);
    for (const std::string ending : kEndings) {
        VipsImage* image = ending.find(".jpg") != std::string::npos ? opaque : corner;
        if (vips_image_write_to_file(image, (directory + "/" + ending).c_str(), nullptr))
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (VIPS_INIT(argv[0]))
        return 1;
    const std::string_view what = argc > 1 ? argv[1] : "";
    bool made = false;
    if (what == "sample" && argc == 3)
        made = makeSample(argv[2], sampleImage());
    else if (what == "noise" && argc == 4)
        made = makeSample(argv[2], sampleImage(std::atof(argv[3]), true));
    else if (what == "seeds" && argc == 3)
        made = makeSeeds(argv[2]);
    else if (what == "sheet" && argc > 6)
        made = makeSheet(argv[2], std::atoi(argv[3]), std::atoi(argv[4]), std::atoi(argv[5]), argc - 6,
                         argv + 6);
    else
        std::fputs("usage: bilateral_blur_sample_image sample OUT | noise OUT SIGMA | "
                   "sheet OUT X Y SIZE IN... | seeds DIRECTORY\n",
                   stderr);
    if (!made)
        std::fputs(vips_error_buffer(), stderr);
    vips_shutdown();
    return made ? 0 : 2;
}
