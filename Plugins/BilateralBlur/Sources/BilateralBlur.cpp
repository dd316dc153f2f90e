#include "Plugins/BilateralBlur/Sources/BilateralBlur.h"

#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"
#include "Plugins/Shared/GL/AEOpenGLContextManager.h"
#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

namespace Tessaloom::BilateralBlur {

namespace {

BilateralBlurRender* mRender = new BilateralBlurRender;

// The host's GL context comes back with `restore`, at the latest when a thrown integer leaves the scope.
class HostGLContext {
public:
    HostGLContext() : mSaved((new SaveRestoreGLContextMac)->init()) {}
    ~HostGLContext() {
        restore();
        mSaved->release();
    }
    HostGLContext(const HostGLContext&) = delete;
    HostGLContext& operator=(const HostGLContext&) = delete;

    void restore() { mSaved->restore(); }

private:
    SaveRestoreGLContextMac* mSaved;
};

// A frame between `beginDrawing` and `endDrawing`. One that isn't ended takes its level off the stack.
class Drawing {
public:
    explicit Drawing(AEOpenglMainFrameBuffer& frameBuffer) : mFrameBuffer(frameBuffer) {
        mFrameBuffer.beginDrawing();
    }
    ~Drawing() { mFrameBuffer.clearStack(); }
    Drawing(const Drawing&) = delete;
    Drawing& operator=(const Drawing&) = delete;

private:
    AEOpenglMainFrameBuffer& mFrameBuffer;
};

class InputTexture {
public:
    explicit InputTexture(gl::GLuint name) : mName(name) {}
    ~InputTexture() { gl::glDeleteTextures(1, &mName); }
    InputTexture(const InputTexture&) = delete;
    InputTexture& operator=(const InputTexture&) = delete;

private:
    gl::GLuint mName;
};

template<typename... Arguments>
[[noreturn]] void failFrame(PF_OutData* out_data, const char* format, Arguments... arguments) {
    if (out_data) {
        out_data->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
        std::snprintf(out_data->return_msg, sizeof out_data->return_msg, format, arguments...);
    }
    throw int{PF_Err_BAD_CALLBACK_PARAM};
}

PF_Err about(const PF_InData* in_data, PF_OutData* out_data) {
    const SuiteScoper<PF_ANSICallbacksSuite1> ansi(in_data, "PF ANSI Suite", 1, nullptr, nullptr);
    ansi->sprintf(out_data->return_msg, "%s v%d.%d\r%s", Declaration::kName, Declaration::kVersion,
                  Declaration::kSubversion, Declaration::kName);
    return PF_Err_NONE;
}

// Without a data context no GL object was ever made. It can be current on another thread, where a setup on
// that thread left it because the host had none current; this thread's render context does as well then, as
// objects are common to the share group. With no context at all GL calls do nothing, which is what is wanted
// before they reach the host's objects: ours end with their contexts.
void makeSharedContextCurrent() {
    AEOpenGLContext* data = AEOpenGLContextManager::getSharedDataContext();
    if (!data)
        return;
    try {
        data->makeContextCurrent();
    } catch (int) {
        try {
            AEOpenGLContextManager::getCurrentRenderContext()->makeContextCurrent();
        } catch (int) {
            CGLSetCurrentContext({});
        }
    }
}

// Objects go while the contexts live: everything but the vertex arrays and frame buffers of the render
// contexts, which end with these.
PF_Err globalSetdown() {
    HostGLContext host;
    makeSharedContextCurrent();
    AEOpenglMainFrameBuffer::mainFrameBuffer()->destory();
    delete mRender;
    mRender = nullptr;
    AEOpenGLContextManager::releaseContextManager();
    host.restore();
    return PF_Err_NONE;
}

// A setup that finds the effect set up starts it anew. Without a GL context to be had it still declares the
// effect: each frame looks for one again, and is the one to fail.
PF_Err globalSetup(PF_OutData* out_data) {
    out_data->my_version = Declaration::kPackedVersion;
    out_data->out_flags = Declaration::kOutFlags;
    out_data->out_flags2 = Declaration::kOutFlags2;

    if (AEOpenGLContextManager::getSharedDataContext())
        globalSetdown();
    if (!mRender)
        mRender = new BilateralBlurRender;
    HostGLContext host;
    try {
        AEOpenGLContextManager::setupContextManager();
    } catch (int) {
    }
    host.restore();
    return PF_Err_NONE;
}

PF_Err paramsSetup(PF_InData* in_data, PF_OutData* out_data) {
    out_data->num_params = Declaration::kNumParams;
    PF_ParamDef def;
    std::memset(&def, 0, sizeof def);
    def.param_type = PF_Param_SLIDER;
    in_data->utils->ansi.strcpy(def.name, Declaration::kBlurScaleName);
    def.uu.id = Declaration::kBlurScaleId;
    def.u.sd.value = Declaration::kBlurScaleDefault;
    def.u.sd.valid_min = def.u.sd.slider_min = Declaration::kBlurScaleMinimum;
    def.u.sd.valid_max = def.u.sd.slider_max = Declaration::kBlurScaleMaximum;
    def.u.sd.dephault = Declaration::kBlurScaleDefault;
    return in_data->inter.add_param(in_data->effect_ref, -1, &def);
}

void UnionRect(const PF_LRect* src, PF_LRect* dst) {
    if (IsEmptyRect(dst)) {
        *dst = *src;
    } else if (!IsEmptyRect(src)) {
        dst->left = std::min(dst->left, src->left);
        dst->top = std::min(dst->top, src->top);
        dst->right = std::max(dst->right, src->right);
        dst->bottom = std::max(dst->bottom, src->bottom);
    }
}

PF_Err smartPreRender(const PF_InData* in_data, PF_PreRenderExtra* extra) {
    const PF_RenderRequest request = extra->input->output_request;
    PF_CheckoutResult result{};
    const PF_Err error = extra->cb->checkout_layer(in_data->effect_ref, 0, 0, &request, in_data->current_time,
                                                   in_data->time_step, in_data->time_scale, &result);
    if (error != PF_Err_NONE)
        return error;
    UnionRect(&result.result_rect, &extra->output->result_rect);
    UnionRect(&result.max_result_rect, &extra->output->max_result_rect);
    return PF_Err_NONE;
}

bool isEmptyWorld(const PF_LayerDef& world) {
    return world.width <= 0 || world.height <= 0;
}

void checkRows(PF_OutData* out_data, const char* which, const PF_LayerDef& world) {
    if (!isEmptyWorld(world) && world.rowbytes < std::int64_t{4} * world.width)
        failFrame(out_data, "The rows of the %s, %d bytes apart, don't hold %d pixels.", which,
                  world.rowbytes, world.width);
}

// The output is written from a picture of the input's size.
void checkWorlds(PF_OutData* out_data, const PF_LayerDef* input, const PF_LayerDef* output) {
    if (!input || !output)
        failFrame(out_data, "The host gave no %s world.", input ? "output" : "input");
    checkRows(out_data, "input", *input);
    checkRows(out_data, "output", *output);
    if (!isEmptyWorld(*output) && (output->width > input->width || output->height > input->height))
        failFrame(out_data, "The output of %d x %d pixels is larger than the input of %d x %d.",
                  output->width, output->height, input->width, input->height);
}

void makeRenderContextCurrent(PF_OutData* out_data) {
    try {
        AEOpenGLContextManager::getCurrentRenderContext()->makeContextCurrent();
    } catch (int) {
        failFrame(out_data, "%s",
                  "No OpenGL 3.3 core context can be had: install a driver for the graphics "
                  "device, or Mesa's software renderer.");
    }
}

void checkLimits(PF_OutData* out_data, const PF_LayerDef& input) {
    gl::GLint texture = 0, renderBuffer = 0;
    gl::glGetIntegerv(gl::GL_MAX_TEXTURE_SIZE, &texture);
    gl::glGetIntegerv(gl::GL_MAX_RENDERBUFFER_SIZE, &renderBuffer);
    const gl::GLint limit = std::min(texture, renderBuffer);
    if (input.width > limit || input.height > limit)
        failFrame(out_data, "A frame of %d x %d pixels is beyond the %d x %d that OpenGL takes here.",
                  input.width, input.height, limit, limit);
}

// The errors that GL has noted since it was last asked; true where memory was among them. A lost context
// notes its loss over and over, so there is an end to the asking.
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

// Storage that can't be had shows as an incomplete frame buffer, and would give a black picture.
void checkTarget(PF_OutData* out_data, const PF_LayerDef& input) {
    const std::string status = AEOpenGLUtilities::CheckFramebufferStatus();
    if (status != "OK")
        failFrame(out_data, "OpenGL has no storage for a frame of %d x %d pixels: %s", input.width,
                  input.height, status.c_str());
    // What came before is of no interest, and would hide what comes after.
    ranOutOfMemory();
}

// So would a texture without storage.
void checkMemory(PF_OutData* out_data, const PF_LayerDef& input) {
    if (ranOutOfMemory())
        failFrame(out_data, "OpenGL ran out of memory for a frame of %d x %d pixels.", input.width,
                  input.height);
}

// Hands the slider's value to the pass. The code of the checkout goes before that of the checkin.
PF_Err readBlurScale(PF_InData* in_data) {
    PF_ParamDef paramDef;
    std::memset(&paramDef, 0, sizeof paramDef);
    const PF_Err checkout = in_data->inter.checkout_param(in_data->effect_ref, 1, in_data->current_time,
                                                          in_data->time_step, in_data->time_scale, &paramDef);
    mRender->setBlurScale(paramDef.u.sd.value);
    const PF_Err checkin = in_data->inter.checkin_param(in_data->effect_ref, &paramDef);
    return checkout != PF_Err_NONE ? checkout : checkin;
}

PF_Err renderWorlds(PF_InData* in_data, PF_OutData* out_data, PF_LayerDef* input, PF_LayerDef* output) {
    HostGLContext host;
    makeRenderContextCurrent(out_data);
    checkLimits(out_data, *input);
    AEOpenglMainFrameBuffer& frameBuffer = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    frameBuffer.prepare(input->width, input->height, true);
    const Drawing drawing(frameBuffer);
    checkTarget(out_data, *input);

    // Held to the end of the frame, though nothing of them is called: a host without them isn't one that the
    // effect was made for.
    const SuiteScoper<AEGP_PFInterfaceSuite1> interfaceSuite(in_data, "AEGP PF Interface Suite", 1, nullptr,
                                                             nullptr);
    const SuiteScoper<AEGP_LayerSuite5> layerSuite(in_data, "AEGP Layer Suite", 11, nullptr, nullptr);
    const SuiteScoper<AEGP_ItemSuite6> itemSuite(in_data, "AEGP Item Suite", 10, nullptr, nullptr);

    const PF_Err result = readBlurScale(in_data);

    float multiplier16bit = 1.0f;
    unsigned long pixelSize = 4;
    gl::GLenum pixelType = gl::GL_UNSIGNED_BYTE;
    {
        const gl::GLuint texture = AEOpenGLUtilities::UploadTexture(
            PF_PixelFormat_ARGB32, input, output, in_data, pixelSize, pixelType, multiplier16bit, false);
        const InputTexture owner(texture);
        mRender->draw(texture, multiplier16bit);
    }
    frameBuffer.endDrawing(multiplier16bit);
    checkMemory(out_data, *input);
    AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(input->width),
                                       static_cast<unsigned>(input->height), input, output, in_data,
                                       PF_PixelFormat_ARGB32, pixelSize, pixelType);
    host.restore();
    return result;
}

PF_Err smartRender(PF_InData* in_data, PF_OutData* out_data, PF_SmartRenderExtra* extra) {
    PF_LayerDef* input = nullptr;
    PF_LayerDef* output = nullptr;
    if (const PF_Err error = extra->cb->checkout_layer_pixels(in_data->effect_ref, 0, &input))
        return error;
    if (const PF_Err error = extra->cb->checkout_output(in_data->effect_ref, &output))
        return error;
    checkWorlds(out_data, input, output);
    if (isEmptyWorld(*input))
        return PF_Err_NONE;
    // Setdown took the pass, and no setup has followed.
    if (!mRender)
        failFrame(out_data, "%s", "The effect was asked for a frame after its global setdown.");
    return renderWorlds(in_data, out_data, input, output);
}

PF_Err dispatch(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, void* extra) {
    switch (cmd) {
    case PF_Cmd_ABOUT:
        return about(in_data, out_data);
    case PF_Cmd_GLOBAL_SETUP:
        return globalSetup(out_data);
    case PF_Cmd_GLOBAL_SETDOWN:
        return globalSetdown();
    case PF_Cmd_PARAMS_SETUP:
        return paramsSetup(in_data, out_data);
    case PF_Cmd_SMART_PRE_RENDER:
        return smartPreRender(in_data, static_cast<PF_PreRenderExtra*>(extra));
    case PF_Cmd_SMART_RENDER:
        return smartRender(in_data, out_data, static_cast<PF_SmartRenderExtra*>(extra));
    default:
        return PF_Err_NONE;
    }
}

} // namespace

bool IsEmptyRect(const PF_LRect* rect) {
    return rect->left >= rect->right || rect->top >= rect->bottom;
}

} // namespace Tessaloom::BilateralBlur

// Inside the effect a failure is a thrown integer, of which the host sees one code. The standard library's
// exceptions mustn't reach the host either: exhausted memory has a code of its own there.
PF_Err EntryPointFunc(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[], PF_LayerDef*,
                      void* extra) {
    try {
        return Tessaloom::BilateralBlur::dispatch(cmd, in_data, out_data, extra);
    } catch (int) {
        return PF_Err_BAD_CALLBACK_PARAM;
    } catch (const std::bad_alloc&) {
        return PF_Err_OUT_OF_MEMORY;
    } catch (...) {
        return PF_Err_BAD_CALLBACK_PARAM;
    }
}
