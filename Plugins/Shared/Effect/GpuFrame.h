#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Effect/Effect.h"
#include "Plugins/Shared/Effect/FrameFormat.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"

namespace Tessaloom::BilateralBlur {

/// A frame on the GPU, in the context that is current on the calling thread.
///
/// A size beyond the limits of OpenGL, a GL error and exhausted GL memory are a `GLFailure`, thrown before a pixel of
/// the output is written. A frame that isn't rendered to its end takes all its GL objects with it, so that the next
/// one starts from nothing.
class GpuFrame {
public:
    /// A frame of `input`'s size, which must not be empty. All must outlive the object. Makes no GL call.
    GpuFrame(const Effect& effect, const PF_LayerDef& input, const FrameFormat& format)
        : mEffect(effect), mInput(input), mFormat(format) {}
    ~GpuFrame();
    GpuFrame(const GpuFrame&) = delete;
    GpuFrame& operator=(const GpuFrame&) = delete;

    /// Makes what the main framebuffer lacks for the frame, and starts drawing.
    void begin();

    /// Uploads `input`, draws the effect's pass and the screen pass, and downloads the result into `output`. Called
    /// once. Beside its own failures it throws those of the transfer.
    void render(SliderValues values, PF_InData* in_data, PF_LayerDef* input, PF_LayerDef* output);

private:
    void checkLimits() const;
    void draw(SliderValues values, unsigned texture, float multiplier16bit) const;

    const Effect& mEffect;
    const PF_LayerDef& mInput;
    const FrameFormat& mFormat;
    AEOpenglMainFrameBuffer& mFrameBuffer = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    bool mIsBegun = false, mIsRendered = false;
};

} // namespace Tessaloom::BilateralBlur
