#pragma once

#include "Plugins/Shared/GL/PerContext.h"
#include "Plugins/Shared/GL/ScreenRender.h"

#include <glbinding/gl/types.h>

#include <cstdint>
#include <map>
#include <vector>

namespace Tessaloom::BilateralBlur {

class Vec2;

/// The off-screen drawing surface of a frame, and the stack of colour renderbuffers that passes draw into.
/// One instance serves the process; it takes no lock and makes no context current.
///
/// A frame: `prepare`, `beginDrawing`, the passes' drawing, `endDrawing`; then the finished image is read
/// from the framebuffer that is left bound. GL errors aren't read and nothing is reported: a failed GL call
/// shows as a wrong image. Exhausted memory is std::bad_alloc.
///
/// Renderbuffers and textures are common to the share group. Framebuffers aren't: each context that draws
/// gets a set of its own, made by its first `prepare` for the size, so frames may come from any thread.
class AEOpenglMainFrameBuffer {
public:
    /// The instance, made by the first call, without a GL call.
    static AEOpenglMainFrameBuffer* mainFrameBuffer();

    /// Makes the GL objects for a size in pixels. If the size is that of the last call, only what the current
    /// context lacks is made, and `multisample` is ignored: that of the last call stays.
    void prepare(long width, long height, bool multisample);

    /// Deletes the current context's framebuffers, the final renderbuffer and the stack. The size stays, so a
    /// `prepare` with the same one makes nothing.
    void unprepare();

    /// The same with the GL objects of the screen pass, and the next frame makes everything again, whatever its
    /// size. For after a frame that wasn't rendered to its end: what was made for it may be without storage.
    void discard();

    /// `discard`, and deletes the screen pass. The instance may be used again, from `prepare` on, and its
    /// next `endDrawing` makes another screen pass. Of the framebuffers only those of the current context are
    /// deleted; those of other contexts end with their contexts.
    void destory();

    /// Starts a frame: GL state, the first level of the stack, the viewport.
    void beginDrawing();

    /// Ends a frame: resolves the top level and draws it through `ScreenRender` into the final renderbuffer,
    /// whose framebuffer stays bound. Does nothing on an empty stack.
    void endDrawing(float multiplier16bit);

    /// Pushes a transparent level and makes it the target. In multisample mode it has 8 samples, or as many
    /// as the implementation offers if that is less. The first flag has no effect.
    void pushRenderContext(bool, bool withStencil);

    /// Resolves the top level into a texture, removes it and makes the level below the target. The caller
    /// owns the texture. 0 on an empty stack.
    gl::GLuint popRenderContext();

    /// Deletes all levels with their stencil buffers.
    void clearStack();

    /// Makes a caller's texture the target, outside the stack, through a framebuffer that
    /// `popNormalRenderContext` deletes. The texture is cleared to transparent black.
    void pushNormalRenderContext(unsigned texture);
    /// The same for mip level `level`, and sets the viewport to `size`, truncated to whole pixels.
    void pushNormalRenderContext(unsigned texture, const Vec2& size, int level);

    /// Ends a `pushNormalRenderContext` and makes the top of the stack, if any, the target again.
    void popNormalRenderContext();

    /// New 8-bit RGBA textures of transparent black, clamped at their edges, which the caller owns. With
    /// `mipmapped` minification uses mip levels; only level 0 is made. A `size` is truncated to whole pixels.
    gl::GLuint createRenderTexture(bool mipmapped);
    gl::GLuint createRenderTexture(const Vec2& size, bool mipmapped);
    /// The same with 32-bit float channels. `linear` chooses linear filtering over nearest.
    gl::GLuint createFloatRenderTexture(bool linear, bool mipmapped);
    gl::GLuint createFloatRenderTexture(const Vec2& size, bool linear, bool mipmapped);

    /// The size in pixels, its low 16 bits.
    std::uint16_t width() const { return static_cast<std::uint16_t>(mWidth); }
    std::uint16_t height() const { return static_cast<std::uint16_t>(mHeight); }

private:
    // What the share group doesn't share. A set of an earlier generation was made for an earlier `prepare`.
    struct FrameBuffers {
        gl::GLuint mResolveFrameBuffer = 0;
        gl::GLuint mFrameBuffer = 0;
        gl::GLuint mMultisampleFrameBuffer = 0;
        unsigned generation = 0;
    };

    AEOpenglMainFrameBuffer();

    void makeFrameBuffers();
    void deleteFrameBuffers();
    gl::GLuint stackFrameBuffer();
    void storage(gl::GLenum format) const;
    void attachTop();
    void deleteLevel(gl::GLuint colour);
    void resolveInto(gl::GLuint texture);

    PerContext<FrameBuffers> mFrameBuffers;
    unsigned mGeneration = 0;
    gl::GLuint mScreenRenderBuffer = 0;
    bool mMultisample = true;
    bool mDiscarded = false; // since the last `prepare`
    std::uint32_t mWidth = 0;
    std::uint32_t mHeight = 0;
    std::vector<gl::GLuint> mRenderBufferStack;
    std::map<gl::GLuint, gl::GLuint> mStencilBuffers;
    ScreenRender* mScreenRender;
};

} // namespace Tessaloom::BilateralBlur
