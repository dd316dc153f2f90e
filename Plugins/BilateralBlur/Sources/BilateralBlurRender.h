#pragma once

#include "Plugins/Shared/GL/FullFramePass.h"

namespace Tessaloom::BilateralBlur {

/// The effect's one image operation: an edge-preserving bilateral filter over a square neighbourhood.
///
/// Each neighbour q of a pixel p weighs exp(-|q - p|^2 / (2 * 10^2)) in distance times
/// exp(-|c(q) - c(p)|^2 / (2 * 0.1^2)) in the difference of the texture's first three channels, which are the
/// host's alpha, red and green; the weights are normalised by their sum (C. Tomasi and R. Manduchi,
/// "Bilateral filtering for gray and color images", 1998). The fourth channel, blue, comes through from the
/// centre pixel. The result is scaled by the multiplier, brought into the order R, G, B, A and premultiplied
/// by alpha.
class BilateralBlurRender {
public:
    /// Makes no GL call and needs no context.
    BilateralBlurRender();

    /// If something was drawn, a context of the share group must be current. Deletes the program before
    /// vertex array and buffer.
    ~BilateralBlurRender();
    BilateralBlurRender(const BilateralBlurRender&) = delete;
    BilateralBlurRender& operator=(const BilateralBlurRender&) = delete;

    /// The neighbourhood of the next draws is 2 * reachOf(scale) + 1 pixels square. Scales beyond 0 to 60
    /// are clamped.
    void setBlurScale(int scale) { mBlurSize = scale; }

    /// Draws the pass with `texture` as its input into the framebuffer that is bound. Texture, viewport and
    /// main framebuffer must have the same size. `multiplier16bit` is that of the texture's upload.
    void draw(unsigned texture, float multiplier16bit);

private:
    FullFramePass mPass;
    int mBlurSize = 10;
};

} // namespace Tessaloom::BilateralBlur
