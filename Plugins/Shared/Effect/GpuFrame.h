#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Effect/Effect.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"

#include <string>

namespace Tessaloom::BilateralBlur {

/// A frame on the GPU, in the context that is current on the calling thread.
///
/// A size beyond the limits of OpenGL, a GL error and exhausted GL memory are the thrown integer 516, with a
/// message in `out_data`. A frame that isn't rendered to its end takes the framebuffer's objects with it, so
/// that the next one starts from nothing.
class GpuFrame {
public:
    /// A frame of `input`'s size, which must not be empty. Both records must outlive the object. Makes no GL
    /// call.
    GpuFrame(PF_OutData* out_data, const PF_LayerDef& input) : mOutData(out_data), mInput(input) {}
    ~GpuFrame();
    GpuFrame(const GpuFrame&) = delete;
    GpuFrame& operator=(const GpuFrame&) = delete;

    /// Makes what the main framebuffer lacks for the frame, and starts drawing.
    void begin();

    /// Uploads `input`, draws the effect's pass and the screen pass, and downloads the result into `output`. Called
    /// once. Beside its own failures it throws those of the transfer.
    void render(const Effect& effect, SliderValues values, PF_InData* in_data, PF_LayerDef* input,
                PF_LayerDef* output);

private:
    [[noreturn]] void fail(const std::string& reason) const;
    void checkLimits() const;
    void checkTarget() const;
    void checkErrors() const;

    PF_OutData* mOutData;
    const PF_LayerDef& mInput;
    AEOpenglMainFrameBuffer& mFrameBuffer = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    bool mIsRendered = false;
};

} // namespace Tessaloom::BilateralBlur
