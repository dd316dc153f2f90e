#include "Plugins/Shared/Effect/GpuFrame.h"

#include "Plugins/Shared/Effect/FrameChecks.h"
#include "Plugins/Shared/GL/AEOpenGLUtilities.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <algorithm>
#include <string>

namespace Tessaloom::BilateralBlur {

namespace {

class InputTexture {
public:
    explicit InputTexture(gl::GLuint name) : mName(name) {}
    ~InputTexture() { gl::glDeleteTextures(1, &mName); }
    InputTexture(const InputTexture&) = delete;
    InputTexture& operator=(const InputTexture&) = delete;

    gl::GLuint name() const { return mName; }

private:
    gl::GLuint mName;
};

// The errors that GL has noted since it was last asked: GL_OUT_OF_MEMORY where that is among them, otherwise
// the last. A lost context notes its loss over and over, so the loop is bounded.
gl::GLenum takeErrors() {
    constexpr int kMostErrors = 16;
    gl::GLenum worst = gl::GL_NO_ERROR;
    for (int i = 0; i < kMostErrors; ++i) {
        const gl::GLenum error = gl::glGetError();
        if (error == gl::GL_NO_ERROR)
            break;
        if (worst != gl::GL_OUT_OF_MEMORY)
            worst = error;
    }
    return worst;
}

} // namespace

// Objects whose storage is missing would fail the next frames of the size as well.
GpuFrame::~GpuFrame() {
    if (!mIsRendered)
        mFrameBuffer.discard();
}

void GpuFrame::fail(const std::string& reason) const {
    showMessage(mOutData, "%s for a frame of %d x %d pixels.", reason.c_str(), mInput.width, mInput.height);
    throw int{PF_Err_BAD_CALLBACK_PARAM};
}

void GpuFrame::begin() {
    takeErrors(); // the host's, or of a frame that failed
    checkLimits();
    mFrameBuffer.prepare(mInput.width, mInput.height, true);
    mFrameBuffer.beginDrawing();
    checkTarget();
    // Another error is no failure: the draw buffer is set while a context's first frame has none to set it
    // on.
    if (takeErrors() == gl::GL_OUT_OF_MEMORY)
        fail("OpenGL ran out of memory");
}

void GpuFrame::checkLimits() const {
    gl::GLint texture = 0, renderBuffer = 0;
    gl::glGetIntegerv(gl::GL_MAX_TEXTURE_SIZE, &texture);
    gl::glGetIntegerv(gl::GL_MAX_RENDERBUFFER_SIZE, &renderBuffer);
    const gl::GLint limit = std::min(texture, renderBuffer);
    if (mInput.width <= limit && mInput.height <= limit)
        return;
    showMessage(mOutData, "A frame of %d x %d pixels exceeds the %d x %d supported by this OpenGL driver.",
                mInput.width, mInput.height, limit, limit);
    throw int{PF_Err_BAD_CALLBACK_PARAM};
}

// Missing storage shows as an incomplete framebuffer, and would give a black picture.
void GpuFrame::checkTarget() const {
    const std::string status = AEOpenGLUtilities::CheckFramebufferStatus();
    if (status != "OK")
        fail("OpenGL has no storage (" + status + ")");
}

// A texture without storage would give a black picture too.
void GpuFrame::checkErrors() const {
    const gl::GLenum error = takeErrors();
    if (error == gl::GL_OUT_OF_MEMORY)
        fail("OpenGL ran out of memory");
    if (error != gl::GL_NO_ERROR)
        fail("OpenGL noted the error " + std::to_string(static_cast<unsigned>(error)));
}

void GpuFrame::render(const Effect& effect, SliderValues values, PF_InData* in_data, PF_LayerDef* input,
                      PF_LayerDef* output) {
    float multiplier16bit = 1.0f;
    unsigned long pixelSize = sizeof(PF_Pixel8);
    gl::GLenum pixelType = gl::GL_UNSIGNED_BYTE;
    {
        const InputTexture texture(AEOpenGLUtilities::UploadTexture(
            PF_PixelFormat_ARGB32, input, output, in_data, pixelSize, pixelType, multiplier16bit, false));
        effect.draw(values, texture.name(), multiplier16bit);
    }
    mFrameBuffer.endDrawing(multiplier16bit);
    checkTarget();
    checkErrors();
    AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(input->width),
                                       static_cast<unsigned>(input->height), input, output, in_data,
                                       PF_PixelFormat_ARGB32, pixelSize, pixelType);
    mIsRendered = true;
}

} // namespace Tessaloom::BilateralBlur
