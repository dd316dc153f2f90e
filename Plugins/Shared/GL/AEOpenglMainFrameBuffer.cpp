#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"

#include "Plugins/Shared/GL/TextureOwner.h"
#include "Plugins/Shared/Math/Vec2.h"

#include <glbinding/gl/bitfield.h>
#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

// More samples than the implementation offers would leave the framebuffer incomplete and the image black. A
// pass over the full frame gives all samples of a pixel the same value, so the count doesn't change the
// image.
gl::GLsizei sampleCount() {
    constexpr gl::GLint kSamples = 8;
    gl::GLint offered = 0;
    gl::glGetIntegerv(gl::GL_MAX_SAMPLES, &offered);
    return std::min(kSamples, offered);
}

void clearTarget() {
    gl::glClearColor(0, 0, 0, 0);
    gl::glClear(gl::GL_COLOR_BUFFER_BIT);
}

void bindTemporaryFrameBuffer(gl::GLuint texture, int level) {
    gl::GLuint frameBuffer = 0;
    gl::glGenFramebuffers(1, &frameBuffer);
    gl::glBindRenderbuffer(gl::GL_RENDERBUFFER, 0);
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, frameBuffer);
    gl::glFramebufferTexture2D(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_TEXTURE_2D, texture,
                               level);
    clearTarget();
}

// A driver may sample a hair off a texel's centre. Next to an opaque pixel, a transparent one would then get
// an alpha that isn't quite 0, and the screen pass would divide its share of the neighbour's colour by it.
void readUnfiltered(gl::GLuint texture) {
    gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MAG_FILTER, gl::GL_NEAREST);
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MIN_FILTER, gl::GL_NEAREST);
}

void deleteRenderbuffer(gl::GLuint name) {
    if (name && !CGLIsForked())
        gl::glDeleteRenderbuffers(1, &name);
}

// `bytes` are those of the first content: zeros of 8-bit RGBA, which are zeros in every format.
gl::GLuint createTexture(gl::GLenum internalFormat, bool linear, bool mipmapped, gl::GLsizei width,
                         gl::GLsizei height, std::uint64_t bytes) {
    const std::unique_ptr<void, decltype(&std::free)> staging(std::calloc(bytes, 1), &std::free);
    if (!staging && bytes)
        throw std::bad_alloc();

    // Magnification has no mipmap filters.
    const gl::GLenum magnification = linear ? gl::GL_LINEAR : gl::GL_NEAREST;
    const gl::GLenum mipmap = linear ? gl::GL_LINEAR_MIPMAP_LINEAR : gl::GL_LINEAR_MIPMAP_NEAREST;
    gl::GLuint texture = 0;
    gl::glGenTextures(1, &texture);
    gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MAG_FILTER, magnification);
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MIN_FILTER, mipmapped ? mipmap : magnification);
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_WRAP_S, gl::GL_CLAMP_TO_EDGE);
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_WRAP_T, gl::GL_CLAMP_TO_EDGE);
    gl::glTexImage2D(gl::GL_TEXTURE_2D, 0, static_cast<gl::GLint>(internalFormat), width, height, 0,
                     gl::GL_RGBA, gl::GL_UNSIGNED_BYTE, staging.get());
    gl::glBindTexture(gl::GL_TEXTURE_2D, 0);
    return texture;
}

gl::GLuint createTexture(gl::GLenum internalFormat, bool linear, bool mipmapped, const Vec2& size) {
    return createTexture(internalFormat, linear, mipmapped, static_cast<gl::GLsizei>(size.x),
                         static_cast<gl::GLsizei>(size.y), static_cast<std::uint64_t>(size.x * size.y * 4.0));
}

// Counted in 64 bits: if the count wrapped, GL would read past the end of the first content.
std::uint64_t byteCount(std::uint32_t width, std::uint32_t height) {
    return std::uint64_t{4} * width * height;
}

} // namespace

AEOpenglMainFrameBuffer* AEOpenglMainFrameBuffer::mainFrameBuffer() {
    static auto* kSharedMainFrameBuffer = new AEOpenglMainFrameBuffer;
    return kSharedMainFrameBuffer;
}

AEOpenglMainFrameBuffer::AEOpenglMainFrameBuffer() : mScreenRender(new ScreenRender) {}

void AEOpenglMainFrameBuffer::prepare(long width, long height, bool multisample) {
    if (mWidth == width && mHeight == height && !mDiscarded) {
        if (mScreenRenderBuffer && mFrameBuffers.current().generation != mGeneration)
            makeFrameBuffers();
        return;
    }
    unprepare();
    mWidth = static_cast<std::uint32_t>(width);
    mHeight = static_cast<std::uint32_t>(height);
    mMultisample = multisample;
    mDiscarded = true; // until all is made
    ++mGeneration;
    makeFrameBuffers();
    gl::glGenRenderbuffers(1, &mScreenRenderBuffer);
    gl::glBindRenderbuffer(gl::GL_RENDERBUFFER, mScreenRenderBuffer);
    gl::glRenderbufferStorage(gl::GL_RENDERBUFFER, gl::GL_RGBA, static_cast<gl::GLsizei>(mWidth),
                              static_cast<gl::GLsizei>(mHeight));
    mDiscarded = false;
}

// After a change of size in another context this one still has its old set, whose attachments would keep
// deleted renderbuffers alive.
void AEOpenglMainFrameBuffer::makeFrameBuffers() {
    deleteFrameBuffers();
    FrameBuffers& own = mFrameBuffers.current();
    gl::glGenFramebuffers(1, &own.mFrameBuffer);
    if (mMultisample) {
        gl::glGenFramebuffers(1, &own.mResolveFrameBuffer);
        gl::glGenFramebuffers(1, &own.mMultisampleFrameBuffer);
    }
    own.generation = mGeneration;
}

void AEOpenglMainFrameBuffer::deleteFrameBuffers() {
    FrameBuffers* own = mFrameBuffers.find();
    if (!own)
        return;
    for (gl::GLuint* name : {&own->mResolveFrameBuffer, &own->mFrameBuffer, &own->mMultisampleFrameBuffer}) {
        if (*name && !CGLIsForked())
            gl::glDeleteFramebuffers(1, name);
        *name = 0;
    }
}

void AEOpenglMainFrameBuffer::unprepare() {
    deleteFrameBuffers();
    deleteRenderbuffer(mScreenRenderBuffer);
    mScreenRenderBuffer = 0;
    clearStack();
}

void AEOpenglMainFrameBuffer::discard() {
    unprepare();
    if (mScreenRender)
        mScreenRender->discard();
    mDiscarded = true;
}

void AEOpenglMainFrameBuffer::destory() {
    discard();
    mFrameBuffers.clear();
    delete std::exchange(mScreenRender, nullptr);
}

void AEOpenglMainFrameBuffer::beginDrawing() {
    gl::glDrawBuffer(gl::GL_COLOR_ATTACHMENT0);
    gl::glDisable(gl::GL_BLEND);
    if (mMultisample)
        gl::glEnable(gl::GL_MULTISAMPLE);
    pushRenderContext(false, false);
    gl::glViewport(0, 0, static_cast<gl::GLsizei>(mWidth), static_cast<gl::GLsizei>(mHeight));
}

void AEOpenglMainFrameBuffer::endDrawing(float multiplier16bit) {
    const TextureOwner texture(popRenderContext());
    if (!texture.name())
        return;
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, mFrameBuffers.current().mFrameBuffer);
    gl::glFramebufferRenderbuffer(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_RENDERBUFFER,
                                  mScreenRenderBuffer);
    gl::glDisable(gl::GL_BLEND);
    gl::glDisable(gl::GL_MULTISAMPLE);
    gl::glClear(gl::GL_COLOR_BUFFER_BIT);
    if (!mScreenRender)
        mScreenRender = new ScreenRender;
    readUnfiltered(texture.name());
    mScreenRender->draw(texture.name(), multiplier16bit);
}

gl::GLuint AEOpenglMainFrameBuffer::stackFrameBuffer() {
    const FrameBuffers& own = mFrameBuffers.current();
    return mMultisample ? own.mMultisampleFrameBuffer : own.mFrameBuffer;
}

void AEOpenglMainFrameBuffer::storage(gl::GLenum format) const {
    const auto width = static_cast<gl::GLsizei>(mWidth), height = static_cast<gl::GLsizei>(mHeight);
    if (mMultisample)
        gl::glRenderbufferStorageMultisample(gl::GL_RENDERBUFFER, sampleCount(), format, width, height);
    else
        gl::glRenderbufferStorage(gl::GL_RENDERBUFFER, format, width, height);
}

void AEOpenglMainFrameBuffer::pushRenderContext(bool, bool withStencil) {
    // On the stack before it is made, so that it is never without an owner; the same for the stencil buffer.
    gl::GLuint& colour = mRenderBufferStack.emplace_back(0);
    gl::glGenRenderbuffers(1, &colour);
    gl::glBindRenderbuffer(gl::GL_RENDERBUFFER, colour);
    storage(gl::GL_RGBA);
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, stackFrameBuffer());
    gl::glFramebufferRenderbuffer(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_RENDERBUFFER, colour);
    if (withStencil) {
        gl::GLuint& stencil = mStencilBuffers[colour];
        gl::glGenRenderbuffers(1, &stencil);
        gl::glBindRenderbuffer(gl::GL_RENDERBUFFER, stencil);
        storage(gl::GL_STENCIL_INDEX8);
        gl::glFramebufferRenderbuffer(gl::GL_FRAMEBUFFER, gl::GL_STENCIL_ATTACHMENT, gl::GL_RENDERBUFFER,
                                      stencil);
    }
    clearTarget();
}

gl::GLuint AEOpenglMainFrameBuffer::popRenderContext() {
    if (mRenderBufferStack.empty())
        return 0;
    const gl::GLuint texture = createRenderTexture(false);
    resolveInto(texture);
    deleteLevel(mRenderBufferStack.back());
    mRenderBufferStack.pop_back();
    if (!mRenderBufferStack.empty())
        attachTop();
    return texture;
}

void AEOpenglMainFrameBuffer::resolveInto(gl::GLuint texture) {
    const auto width = static_cast<gl::GLint>(mWidth), height = static_cast<gl::GLint>(mHeight);
    if (!mMultisample) {
        gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
        gl::glCopyTexImage2D(gl::GL_TEXTURE_2D, 0, gl::GL_RGBA, 0, 0, width, height, 0);
        return;
    }
    const FrameBuffers& own = mFrameBuffers.current();
    gl::glBindFramebuffer(gl::GL_READ_FRAMEBUFFER, own.mMultisampleFrameBuffer);
    gl::glBindFramebuffer(gl::GL_DRAW_FRAMEBUFFER, own.mResolveFrameBuffer);
    gl::glFramebufferTexture2D(gl::GL_DRAW_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_TEXTURE_2D, texture,
                               0);
    gl::glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, gl::GL_COLOR_BUFFER_BIT, gl::GL_NEAREST);
}

void AEOpenglMainFrameBuffer::attachTop() {
    const gl::GLuint top = mRenderBufferStack.back();
    gl::glBindRenderbuffer(gl::GL_RENDERBUFFER, top);
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, stackFrameBuffer());
    gl::glFramebufferRenderbuffer(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_RENDERBUFFER, top);
}

void AEOpenglMainFrameBuffer::deleteLevel(gl::GLuint colour) {
    deleteRenderbuffer(colour);
    const auto stencil = mStencilBuffers.find(colour);
    if (stencil == mStencilBuffers.end())
        return;
    const gl::GLuint name = stencil->second;
    mStencilBuffers.erase(stencil);
    deleteRenderbuffer(name);
}

void AEOpenglMainFrameBuffer::clearStack() {
    for (const gl::GLuint colour : mRenderBufferStack)
        deleteLevel(colour);
    mRenderBufferStack.clear();
}

void AEOpenglMainFrameBuffer::pushNormalRenderContext(unsigned texture) {
    bindTemporaryFrameBuffer(texture, 0);
}

void AEOpenglMainFrameBuffer::pushNormalRenderContext(unsigned texture, const Vec2& size, int level) {
    bindTemporaryFrameBuffer(texture, level);
    gl::glViewport(0, 0, static_cast<gl::GLsizei>(size.x), static_cast<gl::GLsizei>(size.y));
}

void AEOpenglMainFrameBuffer::popNormalRenderContext() {
    gl::GLint bound = 0;
    gl::glGetIntegerv(gl::GL_DRAW_FRAMEBUFFER_BINDING, &bound);
    const auto temporary = static_cast<gl::GLuint>(bound);
    gl::glFramebufferTexture2D(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_TEXTURE_2D, 0, 0);
    gl::glBindRenderbuffer(gl::GL_RENDERBUFFER, 0);
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, 0);
    gl::glDeleteFramebuffers(1, &temporary);
    if (mRenderBufferStack.empty())
        return;
    attachTop();
    const gl::GLenum drawBuffer = gl::GL_COLOR_ATTACHMENT0;
    gl::glDrawBuffers(1, &drawBuffer);
    gl::glViewport(0, 0, static_cast<gl::GLsizei>(mWidth), static_cast<gl::GLsizei>(mHeight));
}

gl::GLuint AEOpenglMainFrameBuffer::createRenderTexture(bool mipmapped) {
    return createTexture(gl::GL_RGBA, true, mipmapped, static_cast<gl::GLsizei>(mWidth),
                         static_cast<gl::GLsizei>(mHeight), byteCount(mWidth, mHeight));
}

gl::GLuint AEOpenglMainFrameBuffer::createRenderTexture(const Vec2& size, bool mipmapped) {
    return createTexture(gl::GL_RGBA, true, mipmapped, size);
}

gl::GLuint AEOpenglMainFrameBuffer::createFloatRenderTexture(bool linear, bool mipmapped) {
    return createTexture(gl::GL_RGBA32F, linear, mipmapped, static_cast<gl::GLsizei>(mWidth),
                         static_cast<gl::GLsizei>(mHeight), byteCount(mWidth, mHeight));
}

gl::GLuint AEOpenglMainFrameBuffer::createFloatRenderTexture(const Vec2& size, bool linear, bool mipmapped) {
    return createTexture(gl::GL_RGBA32F, linear, mipmapped, size);
}

} // namespace Tessaloom::BilateralBlur
