#pragma once

#include "Plugins/Shared/GL/FullFramePass.h"
#include "Plugins/Shared/GL/OpenglShader.h"

namespace Tessaloom::BilateralBlur {

/// The first pass of a frame that filters nothing: brings a texture of host pixels, A, R, G, B, into
/// premultiplied R, G, B, A, scaled by the multiplier. Whoever needs the pass owns one.
class BackgroundRender {
public:
    /// Makes no GL call and needs no context.
    BackgroundRender();

    /// Draws `texture` over the whole viewport into the frame buffer that is bound; it stays the caller's.
    /// `multiplier16bit` is 1 for 8-bit and float pixels and 65535 / 32768 for 16-bit pixels.
    void draw(unsigned texture, float multiplier16bit);

private:
    FullFramePass mVertices;
    OpenglShader mShader;
};

} // namespace Tessaloom::BilateralBlur
