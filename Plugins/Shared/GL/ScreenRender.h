#pragma once

#include "Plugins/Shared/GL/FullFramePass.h"

namespace Tessaloom::BilateralBlur {

/// The last pass of a frame: converts a texture of premultiplied R, G, B, A to straight A, R, G, B, the order
/// of the host, and divides it by the multiplier. An alpha of 0 gives 0 in all four channels.
class ScreenRender {
public:
    /// Makes no GL call and needs no context.
    ScreenRender();

    /// Draws `texture` over the whole viewport into the framebuffer that is bound; the caller keeps it.
    /// `multiplier16bit` is 1 for 8-bit and float pixels and 65535 / 32768 for 16-bit pixels.
    void draw(unsigned texture, float multiplier16bit);

    /// Deletes its GL objects, which the next `draw` makes again.
    void discard() { mPass.discard(); }

private:
    FullFramePass mPass;
};

} // namespace Tessaloom::BilateralBlur
