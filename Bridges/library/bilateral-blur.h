#ifndef BILATERAL_BLUR_H
#define BILATERAL_BLUR_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The effects "Bilateral Blur" and "Bilateral Smooth" over memory of the caller's.
///
/// Any thread may call. Calls are served one at a time, each on all usable cores or on the GPU, by a thread of the
/// library's own, which takes no signals; the GL context that the caller has current stays so. Nothing is printed,
/// and no exception comes out of any function.

/// What a sample is. Full scale is 255, 65535 or 1.
enum bilateral_blur_depth {
    BILATERAL_BLUR_8_BITS = 8,   ///< uint8_t
    BILATERAL_BLUR_16_BITS = 16, ///< uint16_t
    BILATERAL_BLUR_FLOAT = 32    ///< float
};

/// What a function returns. `bilateral_blur_text` has a sentence for each.
enum bilateral_blur_code {
    BILATERAL_BLUR_OK = 0,
    BILATERAL_BLUR_NULL_POINTER = 1,
    BILATERAL_BLUR_BAD_SIZE = 2,
    BILATERAL_BLUR_BAD_CHANNELS = 3,
    BILATERAL_BLUR_BAD_DEPTH = 4,
    BILATERAL_BLUR_BAD_STRIDE = 5,
    BILATERAL_BLUR_BAD_ALIGNMENT = 6,
    BILATERAL_BLUR_OVERLAP = 7,
    BILATERAL_BLUR_BAD_BLUR_SCALE = 8,
    BILATERAL_BLUR_BAD_RADIUS = 9,
    BILATERAL_BLUR_BAD_THRESHOLD = 10,
    BILATERAL_BLUR_NEEDS_8_BITS = 11,
    BILATERAL_BLUR_OUT_OF_MEMORY = 12,
    BILATERAL_BLUR_FORKED = 13,  ///< in a fork of a process that has filtered
    BILATERAL_BLUR_EXITING = 14, ///< the process ends
    BILATERAL_BLUR_FAILED = 15   ///< a fault of the library's
};

/// An image, and where its result goes, which has the same size, channels and depth.
struct bilateral_blur_image {
    size_t width, height; ///< in pixels, from 1 to 67108864
    int channels; ///< 1 grey, 2 grey and alpha, 3 red, green, blue, 4 red, green, blue, alpha; straight alpha
    int depth;    ///< a bilateral_blur_depth
    /// The first sample of the top row. A pixel's samples are side by side, and so are a row's pixels.
    const void* input;
    /// From a row to the one below it, in bytes; negative where rows run upwards in memory.
    ptrdiff_t input_stride;
    /// As the input. The two are the same memory, with the same stride, or share no byte.
    void* output;
    ptrdiff_t output_stride;
};

/// "Bilateral Blur": smooths red and green and keeps edges and blue. Takes 8 bits alone.
///
/// Grey is filtered as red and green are. A pixel of alpha 0 becomes 0 in all channels.
///
/// @param blur_scale how far the blur reaches: 0 to 60, where 0, 1 and 2 smooth nothing. An even scale gives the
///                   result of the odd one below it.
/// @return a bilateral_blur_code. The output is whole after 0, and untouched otherwise.
int bilateral_blur_blur(const struct bilateral_blur_image* image, int blur_scale);

/// "Bilateral Smooth": smooths all colours, at the depth of the image, and keeps edges and alpha. Floats aren't
/// limited to full scale, and those that aren't finite stay.
///
/// @param radius    how far the smoothing reaches, in pixels: 0 to 60, where 0 changes nothing.
/// @param threshold differences above it stay: 0.001 to 1 of full scale, rounded to thousandths.
/// @return a bilateral_blur_code. The output is whole after 0, and untouched otherwise.
int bilateral_blur_smooth(const struct bilateral_blur_image* image, int radius, double threshold);

/// One or two sentences in English on a bilateral_blur_code: what is wrong, and what to do. Never null; lives as long
/// as the library.
const char* bilateral_blur_text(int code);

#ifdef __cplusplus
}
#endif

#endif
