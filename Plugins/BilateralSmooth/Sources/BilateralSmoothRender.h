#pragma once

#include "Plugins/Shared/GL/FullFramePass.h"

namespace Tessaloom::BilateralBlur {

/// Smooths red, green and blue of a texture in the host's order, alpha, red, green, blue, straight, and leaves alpha as
/// it is: what `bilateralSmooth` computes. The result has the order and the scale of the texture.
class BilateralSmoothRender {
public:
    /// Makes no GL call and needs no context.
    BilateralSmoothRender();

    /// @param radius of the neighbourhood of the next draws to each side, in pixels, from 0.
    /// @param threshold in units of full scale, above 0.
    void setFilter(int radius, float threshold) {
        mRadius = radius;
        mThreshold = threshold;
    }

    /// Draws the pass with `texture` as its input into the framebuffer that is bound. Texture and viewport must have the
    /// same size. `multiplier16bit` is that of the texture's upload.
    void draw(unsigned texture, float multiplier16bit);

private:
    FullFramePass mPass;
    int mRadius = 0;
    float mThreshold = 1;
};

} // namespace Tessaloom::BilateralBlur
