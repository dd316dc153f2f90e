#pragma once

#include "HostInterface/EffectHost.h"

#include <glbinding/gl/types.h>

#include <string>

namespace Tessaloom::BilateralBlur {

/// Moves pixels between the host's worlds and the GPU, in the three formats of `PF_PixelFormat`. The
/// channels keep the host's order: r, g, b, a of a texture hold alpha, red, green, blue. Rows keep theirs.
///
/// Failures are thrown integers: 516 for an unknown format, a world without a base address or worlds that
/// don't fit each other, 13 for a missing suite, 4 where the host has no memory, or the code of the host's
/// iteration. What OpenGL refuses is a `GLFailure`. A call that throws leaves no GL object and no host memory.
class AEOpenGLUtilities {
public:
    /// Makes a 32-bit float RGBA texture of `input`'s size and pixels; the caller owns it. `output` isn't
    /// used. Sets the bytes of a pixel, the GL type of a channel and the scale that brings the format's full
    /// scale to 1.0 for the passes and `DownloadTexture`: 4, `GL_UNSIGNED_BYTE`, 1; 8, `GL_UNSIGNED_SHORT`,
    /// 65535 / 32768; 16, `GL_FLOAT`, 1. With `mipmapped` the texture is set up for mip levels, of which
    /// none is made. GL errors aren't read. The rows of 8-bit and 16-bit pixels may run upwards in memory, with
    /// negative `rowbytes`.
    static gl::GLuint UploadTexture(int format, PF_LayerDef* input, PF_LayerDef* output, PF_InData* in_data,
                                    unsigned long& pixelSize, gl::GLenum& pixelType, float& multiplier16bit,
                                    bool mipmapped);

    /// Reads `width` by `height` pixels from the bound framebuffer's first colour attachment and copies them
    /// into `output`, which must be no larger; the padding of its rows stays as it is. `input` is the world
    /// that the image was uploaded from. A `GLFailure`, where GL can't read the pixels, is thrown before a
    /// pixel of `output` is written.
    static void DownloadTexture(unsigned width, unsigned height, PF_LayerDef* input, PF_LayerDef* output,
                                PF_InData* in_data, int format, unsigned long pixelSize,
                                gl::GLenum pixelType);

    /// Callbacks of the host's iteration over a float world. `refcon` points to the staging pixels and to the
    /// world that gives their row length. Both return 0 always and are safe on several threads at once.
    static PF_Err CopyPixelFloatIn(void* refcon, int x, int y, PF_PixelFloat* in, PF_PixelFloat* out);
    static PF_Err CopyPixelFloatOut(void* refcon, int x, int y, PF_PixelFloat* in, PF_PixelFloat* out);

    /// The bound framebuffer's status in words, "OK" if it is complete.
    static std::string CheckFramebufferStatus();
};

} // namespace Tessaloom::BilateralBlur
