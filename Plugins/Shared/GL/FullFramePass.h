#pragma once

#include "Plugins/Shared/GL/OpenglShader.h"
#include "Plugins/Shared/GL/PerContext.h"

namespace Tessaloom::BilateralBlur {

/// The six vertices of a pass that covers the whole viewport with a texture: two triangles, each vertex a
/// position (attribute 0, "position") and a texture coordinate (attribute 1, "input_uv"). The bottom of the
/// clip square has the texture's first row, so a picture whose first row was uploaded first isn't flipped.
///
/// The vertex buffer is common to a share group, while a vertex array exists only in the context that made
/// it: each context that draws gets one of its own.
class FullFramePass {
public:
    /// Positions have 2 or 3 components, the third always 0. Makes no GL call.
    explicit FullFramePass(int positionComponents) : mPositionComponents(positionComponents) {}

    /// Deletes the buffer, and the vertex array of the context that is current; those of other contexts end
    /// with these. Makes no GL call where nothing was drawn.
    ~FullFramePass();
    FullFramePass(const FullFramePass&) = delete;
    FullFramePass& operator=(const FullFramePass&) = delete;

    /// Puts `shader` in use with the vertices, with `texture` as its sampler "videoTexture" on texture unit 0
    /// and with its uniform "multiplier16bit". Makes what the current context still lacks of GL objects.
    void begin(OpenglShader& shader, unsigned texture, float multiplier16bit);

    /// Draws, and leaves the attributes disabled, vertex array and buffer unbound.
    void end(const OpenglShader& shader);

private:
    void makeObjects();

    int mPositionComponents;
    PerContext<gl::GLuint> mVertexArrays;
    gl::GLuint mVertexBuffer = 0;
};

} // namespace Tessaloom::BilateralBlur
