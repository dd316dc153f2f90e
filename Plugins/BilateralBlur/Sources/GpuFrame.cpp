#include "Plugins/BilateralBlur/Sources/GpuFrame.h"

#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"
#include "Plugins/BilateralBlur/Sources/FrameChecks.h"
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

// The errors that GL has noted since it was last asked; true where memory was among them. A lost context
// notes its loss over and over, so the loop is bounded.
bool ranOutOfMemory() {
    constexpr int kMostErrors = 16;
    bool memory = false;
    for (int i = 0; i < kMostErrors; ++i) {
        const gl::GLenum error = gl::glGetError();
        if (error == gl::GL_NO_ERROR)
            break;
        memory |= error == gl::GL_OUT_OF_MEMORY;
    }
    return memory;
}

} // namespace

// Takes the level off the stack where the frame wasn't rendered to its end.
GpuFrame::~GpuFrame() {
    mFrameBuffer.clearStack();
}

void GpuFrame::begin() {
    checkLimits();
    mFrameBuffer.prepare(mInput.width, mInput.height, true);
    mFrameBuffer.beginDrawing();
    checkTarget();
    // What came before is of no interest, and would hide what comes after.
    ranOutOfMemory();
}

void GpuFrame::fail(const char* reason) const {
    showMessage(mOutData, "%s for a frame of %d x %d pixels.", reason, mInput.width, mInput.height);
    throw int{PF_Err_BAD_CALLBACK_PARAM};
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
        fail(("OpenGL has no storage (" + status + ")").c_str());
}

void GpuFrame::render(PF_InData* in_data, BilateralBlurRender& pass, PF_LayerDef* input,
                      PF_LayerDef* output) {
    float multiplier16bit = 1.0f;
    unsigned long pixelSize = sizeof(PF_Pixel8);
    gl::GLenum pixelType = gl::GL_UNSIGNED_BYTE;
    {
        const InputTexture texture(AEOpenGLUtilities::UploadTexture(
            PF_PixelFormat_ARGB32, input, output, in_data, pixelSize, pixelType, multiplier16bit, false));
        pass.draw(texture.name(), multiplier16bit);
    }
    mFrameBuffer.endDrawing(multiplier16bit);
    if (ranOutOfMemory())
        fail("OpenGL ran out of memory");
    AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(input->width),
                                       static_cast<unsigned>(input->height), input, output, in_data,
                                       PF_PixelFormat_ARGB32, pixelSize, pixelType);
}

} // namespace Tessaloom::BilateralBlur
