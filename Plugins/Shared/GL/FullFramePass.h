#pragma once

#include "Plugins/Shared/GL/OpenglShader.h"
#include "Plugins/Shared/GL/PerContext.h"

#include <optional>

namespace Tessaloom::BilateralBlur {

/// A pass that draws a texture over the whole viewport: its program, and six vertices that make two
/// triangles, each a position (attribute 0, "position") and a texture coordinate (attribute 1, "input_uv").
/// The bottom of the clip square has the texture's first row, so a picture whose first row was uploaded first
/// isn't flipped.
///
/// Program and vertex buffer are common to a share group, while a vertex array exists only in the context
/// that made it: each context that draws gets one of its own.
class FullFramePass {
public:
    /// A pass with these stages, whose "position" has 2 or 3 components, the third always 0. Makes no GL call
    /// and needs no context.
    FullFramePass(const char* vertexStage, const char* fragmentStage, int positionComponents);

    /// Deletes the vertex array of the context that is current, the vertex buffer and then the program.
    /// Vertex arrays of other contexts end with these. Makes no GL call if nothing was drawn.
    ~FullFramePass();
    FullFramePass(const FullFramePass&) = delete;
    FullFramePass& operator=(const FullFramePass&) = delete;

    /// Deletes the program, for an owner that doesn't leave that to the destructor. The pass can't draw any
    /// more.
    void deleteShader() { mShader.reset(); }

    /// Draws `texture` into the framebuffer that is bound. `multiplier16bit` becomes the uniform of that
    /// name.
    void draw(unsigned texture, float multiplier16bit);

    /// The first half of `draw`: program, vertices, the texture as "videoTexture" on texture unit 0 and the
    /// multiplier. Returns the program, whose other uniforms can now be set.
    const OpenglShader& begin(unsigned texture, float multiplier16bit);

    /// The other half: draws, and leaves the attributes disabled, vertex array and buffer unbound.
    void end() const;

private:
    void makeObjects();

    std::optional<OpenglShader> mShader;
    int mPositionComponents;
    PerContext<gl::GLuint> mVertexArray;
    gl::GLuint mVertexBuffer = 0;
};

} // namespace Tessaloom::BilateralBlur
