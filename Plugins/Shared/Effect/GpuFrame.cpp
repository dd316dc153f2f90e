#include "Plugins/Shared/Effect/GpuFrame.h"

#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Plugins/Shared/GL/GLFailure.h"
#include "Plugins/Shared/GL/TextureOwner.h"
#include "Plugins/Shared/Math/Vec2.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

namespace Tessaloom::BilateralBlur {

namespace {

// What a pass whose result is straight draws into, at the depth of the frame.
class StraightTarget {
public:
    StraightTarget(AEOpenglMainFrameBuffer& frameBuffer, const Vec2& size, Depth depth)
        : mFrameBuffer(frameBuffer),
          mTexture(depth == Depth::Bits8 ? frameBuffer.createRenderTexture(size, false)
                                         : frameBuffer.createFloatRenderTexture(size, false, false)) {
        mFrameBuffer.pushNormalRenderContext(mTexture.name(), size, 0);
    }
    ~StraightTarget() { mFrameBuffer.popNormalRenderContext(); }
    StraightTarget(const StraightTarget&) = delete;
    StraightTarget& operator=(const StraightTarget&) = delete;

private:
    AEOpenglMainFrameBuffer& mFrameBuffer;
    const TextureOwner mTexture;
};

// Bounds drawing to some rows of the target.
class Scissor {
public:
    Scissor() { gl::glEnable(gl::GL_SCISSOR_TEST); }
    ~Scissor() { gl::glDisable(gl::GL_SCISSOR_TEST); }
    Scissor(const Scissor&) = delete;
    Scissor& operator=(const Scissor&) = delete;
};

// Missing storage shows as an incomplete framebuffer, and would give a black image.
void checkTarget() {
    const std::string status = AEOpenGLUtilities::CheckFramebufferStatus();
    if (status != "OK")
        throw GLFailure("OpenGL has no storage (" + status + ")");
}

// How many rows of a frame are drawn at once. A driver resets a GPU that is busy with one draw for seconds, and the
// desktop waits meanwhile: an integrated GPU reads 6 G texels a second, so this is a twentieth of a second there.
int bandRows(const PF_LayerDef& frame, int reach) {
    constexpr std::int64_t kReadsOfBand = 300'000'000;
    const std::int64_t side = 2 * reach + 1;
    return static_cast<int>(
        std::clamp<std::int64_t>(kReadsOfBand / (side * side * frame.width), 1, frame.height));
}

} // namespace

// What was made for the frame may be without storage, and would fail the next frames as well.
GpuFrame::~GpuFrame() {
    if (!mIsBegun || mIsRendered)
        return;
    mFrameBuffer.discard();
    mEffect.releasePass();
}

void GpuFrame::begin() {
    takeGLErrors(); // the host's, or of a frame that failed
    checkLimits();
    if (mEffect.isStraight)
        return;
    mIsBegun = true;
    mFrameBuffer.prepare(mInput.width, mInput.height, true);
    mFrameBuffer.beginDrawing();
    checkTarget();
    // Another error is no failure: the draw buffer is set while a context's first frame has none to set it
    // on.
    const gl::GLenum error = takeGLErrors();
    if (error == gl::GL_OUT_OF_MEMORY || error == gl::GL_CONTEXT_LOST)
        throw GLFailure(error);
}

void GpuFrame::checkLimits() const {
    gl::GLint texture = 0, renderBuffer = 0;
    gl::glGetIntegerv(gl::GL_MAX_TEXTURE_SIZE, &texture);
    gl::glGetIntegerv(gl::GL_MAX_RENDERBUFFER_SIZE, &renderBuffer);
    const gl::GLint limit = std::min(texture, renderBuffer);
    if (mInput.width > limit || mInput.height > limit)
        throw GLFailure("OpenGL takes no frames beyond " + std::to_string(limit) + " x " +
                        std::to_string(limit));
}

void GpuFrame::draw(SliderValues values, unsigned texture, float multiplier16bit) const {
    const int rows = bandRows(mInput, mEffect.reach(values));
    if (rows == mInput.height)
        return mEffect.draw(values, texture, multiplier16bit);
    const Scissor scissor;
    for (int y = 0; y < mInput.height; y += rows) {
        gl::glScissor(0, y, mInput.width, std::min(rows, mInput.height - y));
        mEffect.draw(values, texture, multiplier16bit);
        gl::glFlush();
    }
}

void GpuFrame::render(SliderValues values, PF_InData* in_data, PF_LayerDef* input, PF_LayerDef* output) {
    mIsBegun = true;
    float multiplier16bit = 1.0f;
    unsigned long pixelSize = sizeof(PF_Pixel8);
    gl::GLenum pixelType = gl::GL_UNSIGNED_BYTE;
    std::optional<StraightTarget> target;
    if (mEffect.isStraight)
        target.emplace(mFrameBuffer, Vec2(input->width, input->height), mFormat.depth);
    {
        const TextureOwner texture(AEOpenGLUtilities::UploadTexture(
            mFormat.tag, input, output, in_data, pixelSize, pixelType, multiplier16bit, false));
        draw(values, texture.name(), multiplier16bit);
    }
    if (!mEffect.isStraight)
        mFrameBuffer.endDrawing(multiplier16bit);
    checkTarget();
    // A texture without storage would give a black image too.
    if (const gl::GLenum error = takeGLErrors(); error != gl::GL_NO_ERROR)
        throw GLFailure(error);
    AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(input->width),
                                       static_cast<unsigned>(input->height), input, output, in_data,
                                       mFormat.tag, pixelSize, pixelType);
    mIsRendered = true;
}

} // namespace Tessaloom::BilateralBlur
