#pragma once

#include "Plugins/Shared/GL/OpenglShader.h"
#include "Plugins/Shared/GL/PerContext.h"

#include <span>

namespace Tessaloom::BilateralBlur {

/// The vertices of a pass: six, which make the two triangles of the clip square, each a position and a texture
/// coordinate. The bottom of the square has the texture's first row, so an image whose first row was uploaded
/// first isn't flipped.
struct FullFrameVertices {
    std::span<const float> values;
    int positionComponents; ///< the rest of a vertex is the texture coordinate
    void (OpenglShader::*setPosition)(int location, const float* data, int stride) const;
    bool bindsArrayAtOnce; ///< as soon as the vertex array is made, otherwise not before the drawing

    static const FullFrameVertices kFlat;  ///< x, y, u, v
    static const FullFrameVertices kSolid; ///< x, y, z, u, v with a z of 0; binds at once
};

/// A pass that draws a texture over the whole viewport: its program, whose attributes are "position" at
/// location 0 and "input_uv" at 1, and its vertices.
///
/// Program and vertex buffer are common to a share group, while a vertex array exists only in the context
/// that made it: each context that draws gets one of its own.
class FullFramePass {
public:
    /// Makes no GL call and needs no context. `vertices` must outlive the pass.
    FullFramePass(const char* vertexStage, const char* fragmentStage, const FullFrameVertices& vertices);

    /// Deletes the vertex array of the context that is current, the vertex buffer and then the program.
    /// Vertex arrays of other contexts end with these. Makes no GL call if nothing was drawn.
    ~FullFramePass();
    FullFramePass(const FullFramePass&) = delete;
    FullFramePass& operator=(const FullFramePass&) = delete;

    /// Deletes the program, for an owner that wants it gone before the vertices.
    void deleteShader() { mShader.deleteProgram(); }

    /// Deletes all that the destructor does; the next `draw` makes it again. For after a frame that wasn't
    /// rendered to its end: what was made for it may be without storage.
    void discard();

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
    void deleteVertices();

    OpenglShader mShader;
    const FullFrameVertices& mVertices;
    PerContext<gl::GLuint> mVertexArray;
    gl::GLuint mVertexBuffer = 0;
};

} // namespace Tessaloom::BilateralBlur
