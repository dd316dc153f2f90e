#include "Program/Files/Format.h"

#include "Program/Errors.h"

#include <algorithm>
#include <cctype>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;
using vips::VImage;

constexpr Format kFormats[] = {
    {.name = "JPEG",
     .extensions = {".jpg", ".jpeg"},
     .rareExtensions = {".jfif", ".jpe"},
     .hasAlpha = false,
     .hasPages = false,
     .largestSide = 65500,
     .bytesToDecode = 24,
     .bytesToEncode = 24,
     .bytesWaiting = 8,
     .matches = matchesJpeg,
     .inspect = inspectJpeg,
     .reduce = reduceJpeg,
     .load = VImage::jpegload_buffer,
     .verify = verifyJpeg,
     .losses = lossesInJpeg,
     .encode = encodeJpeg},
    {.name = "PNG",
     .extensions = {".png", ".png"},
     .hasAlpha = true,
     .hasPages = false,
     .largestSide = 1'000'000,
     .mostBits = 16,
     .mostCompression = 9,
     .bytesToDecode = 24,
     .bytesToEncode = 24,
     .bytesWaiting = 8,
     .matches = matchesPng,
     .inspect = inspectPng,
     .reduce = reducePng,
     .load = VImage::pngload_buffer,
     .encode = encodePng},
    {.name = "TIFF",
     .extensions = {".tif", ".tiff"},
     .hasAlpha = true,
     .hasPages = true,
     .mixesTags = true,
     .largestSide = 1'000'000,
     .mostBits = 32,
     .mostCompression = kLzw,
     .bytesToDecode = 24,
     .bytesToEncode = 32,
     .bytesWaiting = 24,
     .matches = matchesTiff,
     .inspect = inspectTiff,
     .isolate = isolateTiffPage,
     .load = VImage::tiffload_buffer,
     .encode = encodeTiff},
    {.name = "WebP",
     .extensions = {".webp", ".webp"},
     .hasAlpha = true,
     .hasPages = true,
     .isAnimated = true,
     .largestSide = 16383,
     .bytesToDecode = 24,
     .bytesToEncode = 52,
     .bytesToAnimate = 100,
     .bytesWaiting = 16,
     .matches = matchesWebp,
     .inspect = inspectWebp,
     .reduce = reduceWebp,
     .load = VImage::webpload_buffer,
     .encode = encodeWebp},
    {.name = "OpenEXR",
     .extensions = {".exr", ".exr"},
     .hasAlpha = true,
     .hasPages = false,
     .hasMetadata = false,
     .rewrites = true,
     .largestSide = 1'000'000,
     .mostBits = 32,
     .bytesToDecode = 24,
     .bytesToEncode = 32,
     .bytesWaiting = 8,
     .matches = matchesExr,
     .inspect = inspectExr,
     .load = loadExr,
     .losses = lossesInExr,
     .encode = encodeExr},
    {.name = "HEIC",
     .extensions = {".heic", ".heif"},
     .hasAlpha = true,
     .hasPages = false,
     .hasMetadata = false,
     .largestSide = 0,
     .bytesToDecode = 52,
     .bytesToEncode = 0,
     .bytesWaiting = 0,
     .matches = matchesHeic,
     .inspect = inspectHeif,
     .load = loadHeif},
    {.name = "AVIF",
     .extensions = {".avif", ".avif"},
     .hasAlpha = true,
     .hasPages = false,
     .hasMetadata = false,
     .largestSide = 0,
     .bytesToDecode = 52,
     .bytesToEncode = 0,
     .bytesWaiting = 0,
     .matches = matchesAvif,
     .inspect = inspectHeif,
     .load = loadHeif},
    {.name = "JPEG XL",
     .extensions = {".jxl", ".jxl"},
     .hasAlpha = true,
     .hasPages = false,
     .hasMetadata = false,
     .largestSide = 0,
     .bytesToDecode = 60,
     .bytesToEncode = 0,
     .bytesWaiting = 0,
     .matches = matchesJxl,
     .inspect = inspectJxl,
     .load = loadJxl},
};

template<class Condition>
const Format* firstFormat(Condition condition) {
    const auto* format = std::find_if(std::begin(kFormats), std::end(kFormats), condition);
    return format != std::end(kFormats) ? format : nullptr;
}

const Format* formatWithExtension(std::string extension) {
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return firstFormat([&](const Format& format) {
        return !extension.empty() &&
               (std::count(format.extensions.begin(), format.extensions.end(), extension) != 0 ||
                std::count(format.rareExtensions.begin(), format.rareExtensions.end(), extension) != 0);
    });
}

/// "a, b or c".
std::string alternatives(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 < words.size() ? ", " : " or ") + words[i];
    return text;
}

} // namespace

std::string formatNames(const std::function<bool(const Format&)>& fits) {
    std::vector<std::string> names;
    for (const Format& format : kFormats)
        if (fits(format))
            names.push_back(format.name);
    return alternatives(names);
}

std::string formatChoices() {
    std::string choices;
    for (const Format& format : kFormats)
        if (format.encode)
            choices.append(choices.empty() ? "" : "|").append(format.extensions.back() + 1);
    return choices;
}

std::string formatExtensions() {
    std::vector<std::string> extensions;
    for (const Format& format : kFormats)
        for (const char* extension : format.extensions)
            if (format.encode && (extensions.empty() || extensions.back() != extension))
                extensions.push_back(extension);
    return alternatives(extensions);
}

const Format& formatOf(const path& path) {
    const Format* format = formatOfName(path);
    if (!format || !format->encode)
        throw WrongUse(path.string() + ": " +
                       (format ? format->name + std::string(" can be read, but not written")
                               : "the extension names no format that can be written") +
                       "; use " + formatExtensions() + ", or --format");
    return *format;
}

const Format* formatOfName(const path& path) {
    return formatWithExtension(path.extension().string());
}

const Format* formatNamed(const std::string& name) {
    return formatWithExtension("." + name);
}

const Format* formatOfContent(std::span<const std::byte> file) {
    return firstFormat([&](const Format& format) { return format.matches(file); });
}

} // namespace Tessaloom::BilateralBlur::Program
