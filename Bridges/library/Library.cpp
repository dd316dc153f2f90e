#include "Bridges/library/Library.h"

#include "Bridges/RenderThread.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace Tessaloom::BilateralBlur::Library {

namespace {

constexpr std::size_t kMostPixels = std::size_t{1} << 26; // of a row or a column

// The thread that loads the library waits at its exit for the first image.
[[maybe_unused]] const bool kIsLoaded = [] {
    try {
        Bridges::RenderThread::shared();
    } catch (const std::bad_alloc&) { // the first call tries again
    }
    return true;
}();

std::ptrdiff_t sampleBytes(const bilateral_blur_image& image) {
    return image.depth / 8;
}

std::ptrdiff_t rowBytes(const bilateral_blur_image& image) {
    return sampleBytes(image) * image.channels * static_cast<std::ptrdiff_t>(image.width);
}

bool areRowsApart(const bilateral_blur_image& image, std::ptrdiff_t stride) {
    return image.height == 1 || stride >= rowBytes(image) || stride <= -rowBytes(image);
}

bool isAligned(const bilateral_blur_image& image, const void* pixels, std::ptrdiff_t stride) {
    return reinterpret_cast<std::uintptr_t>(pixels) % static_cast<std::uintptr_t>(sampleBytes(image)) == 0 &&
           stride % sampleBytes(image) == 0;
}

/// The bytes from the first of an image's lowest row to the last of its highest.
struct Extent {
    Extent(const bilateral_blur_image& image, const void* pixels, std::ptrdiff_t stride) {
        const auto top = reinterpret_cast<std::uintptr_t>(pixels);
        const std::uintptr_t bottom = top + static_cast<std::uintptr_t>(stride) * (image.height - 1);
        first = stride < 0 ? bottom : top;
        end = (stride < 0 ? top : bottom) + static_cast<std::uintptr_t>(rowBytes(image));
    }

    std::uintptr_t first, end;
};

/// Whether input and output share bytes without being the same. With one stride they may lie side by side in the rows
/// of a larger image.
bool isOverlapping(const bilateral_blur_image& image) {
    if (image.input == image.output && (image.input_stride == image.output_stride || image.height == 1))
        return false;
    const Extent input(image, image.input, image.input_stride),
        output(image, image.output, image.output_stride);
    if (input.end <= output.first || output.end <= input.first)
        return false;
    if (image.input_stride != image.output_stride || image.height == 1)
        return true;
    const auto stride = static_cast<std::uintptr_t>(std::abs(image.input_stride));
    const auto row = static_cast<std::uintptr_t>(rowBytes(image));
    const std::uintptr_t apart =
        (input.first > output.first ? input.first - output.first : output.first - input.first) % stride;
    return apart < row || stride - apart < row;
}

int check(const LinkedEffect& effect, const bilateral_blur_image& image) {
    if (!image.input || !image.output)
        return BILATERAL_BLUR_NULL_POINTER;
    if (image.width < 1 || image.width > kMostPixels || image.height < 1 || image.height > kMostPixels)
        return BILATERAL_BLUR_BAD_SIZE;
    if (image.channels < 1 || image.channels > 4)
        return BILATERAL_BLUR_BAD_CHANNELS;
    if (image.depth != BILATERAL_BLUR_8_BITS && image.depth != BILATERAL_BLUR_16_BITS &&
        image.depth != BILATERAL_BLUR_FLOAT)
        return BILATERAL_BLUR_BAD_DEPTH;
    if (image.depth != BILATERAL_BLUR_8_BITS &&
        !(effect.declaration.outFlags2 & PF_OutFlag2_FLOAT_COLOR_AWARE))
        return BILATERAL_BLUR_NEEDS_8_BITS;
    if (!areRowsApart(image, image.input_stride) || !areRowsApart(image, image.output_stride))
        return BILATERAL_BLUR_BAD_STRIDE;
    if (!isAligned(image, image.input, image.input_stride) ||
        !isAligned(image, image.output, image.output_stride))
        return BILATERAL_BLUR_BAD_ALIGNMENT;
    return isOverlapping(image) ? BILATERAL_BLUR_OVERLAP : BILATERAL_BLUR_OK;
}

Bridges::Request::Values valuesFor(const EffectDeclaration& declaration,
                                   std::initializer_list<std::int32_t> given) {
    Bridges::Request::Values values{};
    std::ranges::transform(declaration.sliders, values.begin(), &SliderDeclaration::defaultValue);
    std::ranges::copy(given, values.begin());
    return values;
}

Bridges::Samples samplesOf(const bilateral_blur_image& image) {
    return image.depth == BILATERAL_BLUR_8_BITS    ? Bridges::Samples::Bytes
           : image.depth == BILATERAL_BLUR_16_BITS ? Bridges::Samples::Words
                                                   : Bridges::Samples::Floats;
}

int codeOf(Bridges::Outcome::Kind kind) {
    using enum Bridges::Outcome::Kind;
    switch (kind) {
    case Filtered:
        return BILATERAL_BLUR_OK;
    case OutOfMemory:
        return BILATERAL_BLUR_OUT_OF_MEMORY;
    case Fork:
        return BILATERAL_BLUR_FORKED;
    case Exit:
        return BILATERAL_BLUR_EXITING;
    case Failed:
        break;
    }
    return BILATERAL_BLUR_FAILED;
}

} // namespace

int filter(const LinkedEffect& effect, const bilateral_blur_image* image,
           std::initializer_list<std::int32_t> values) noexcept try {
    if (!image)
        return BILATERAL_BLUR_NULL_POINTER;
    if (const int code = check(effect, *image))
        return code;
    const Bridges::Request request{.effect = effect,
                                   .width = static_cast<unsigned>(image->width),
                                   .height = static_cast<unsigned>(image->height),
                                   .input = image->input,
                                   .output = image->output,
                                   .values = valuesFor(effect.declaration, values),
                                   .samples = samplesOf(*image),
                                   .channels = image->channels,
                                   .inputStride = image->input_stride,
                                   .outputStride = image->output_stride};
    return codeOf(Bridges::RenderThread::shared().render(request).kind);
} catch (const std::bad_alloc&) {
    return BILATERAL_BLUR_OUT_OF_MEMORY;
}

} // namespace Tessaloom::BilateralBlur::Library

const char* bilateral_blur_text(int code) {
    switch (code) {
    case BILATERAL_BLUR_OK:
        return "Success.";
    case BILATERAL_BLUR_NULL_POINTER:
        return "A pointer is null. Set image, input and output; each of the two points to the first sample "
               "of its top row.";
    case BILATERAL_BLUR_BAD_SIZE:
        return "The image has no pixels, or too many. Width and height must be from 1 to 67108864.";
    case BILATERAL_BLUR_BAD_CHANNELS:
        return "The number of channels must be 1 (grey), 2 (grey and alpha), 3 (RGB) or 4 (RGBA).";
    case BILATERAL_BLUR_BAD_DEPTH:
        return "The depth is unknown. Samples must be of 8 or 16 bits, unsigned, or floats of 32.";
    case BILATERAL_BLUR_BAD_STRIDE:
        return "The rows overlap. A stride counts bytes, and must be at least the bytes of a row, or at most "
               "minus as many.";
    case BILATERAL_BLUR_BAD_ALIGNMENT:
        return "The samples aren't aligned. Pointers and strides must be multiples of a sample's "
               "bytes; copy the image to such memory.";
    case BILATERAL_BLUR_OVERLAP:
        return "Input and output overlap in part. Use the same memory with the same stride for both, or "
               "separate memory.";
    case BILATERAL_BLUR_BAD_BLUR_SCALE:
        return Tessaloom::BilateralBlur::Library::kBadBlurScale;
    case BILATERAL_BLUR_BAD_RADIUS:
        return Tessaloom::BilateralBlur::Library::kBadRadius;
    case BILATERAL_BLUR_BAD_THRESHOLD:
        return Tessaloom::BilateralBlur::Library::kBadThreshold;
    case BILATERAL_BLUR_NEEDS_8_BITS:
        return "Bilateral Blur takes 8 bits a channel only. Convert the image to 8 bits, or use Bilateral "
               "Smooth, which takes every depth.";
    case BILATERAL_BLUR_OUT_OF_MEMORY:
        return "There is no memory for the image. Filter a smaller one, or parts of it.";
    case BILATERAL_BLUR_FORKED:
        return "This process was forked from one that had filtered, and can't filter itself. Start it with "
               "exec (in Python, multiprocessing's method \"spawn\"), or filter in the children alone.";
    case BILATERAL_BLUR_EXITING:
        return "The process is ending, so nothing is filtered any more. Wait for the threads that filter "
               "before the process ends.";
    case BILATERAL_BLUR_FAILED:
        return "The filter failed, by a fault of its own. Please report it, with the size and the kind of "
               "the image.";
    default:
        return "The library returns no such code.";
    }
}
