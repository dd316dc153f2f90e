#pragma once

#include "Plugins/Shared/GL/FullFramePass.h"

namespace Tessaloom::BilateralBlur {

/// A first pass that filters nothing: converts a texture of host pixels, A, R, G, B, to premultiplied
/// R, G, B, A, scaled by the multiplier. The effect itself has no use for it.
class BackgroundRender {
public:
    /// Makes no GL call and needs no context.
    BackgroundRender();

    /// Draws `texture` over the whole viewport into the framebuffer that is bound; the caller keeps it.
    /// `multiplier16bit` is 1 for 8-bit and float pixels and 65535 / 32768 for 16-bit pixels.
    void draw(unsigned texture, float multiplier16bit);

private:
    FullFramePass mPass;
};

} // namespace Tessaloom::BilateralBlur
