#pragma once

#include "Plugins/Shared/GL/AEOpenGLContext.h"
#include "Tests/Support/GLCalls.h"

#include <glbinding/gl/gl.h>

namespace Tessaloom::BilateralBlur {

template<typename Integer = gl::GLint>
Integer integer(gl::GLenum what) {
    gl::GLint value = 0;
    gl::glGetIntegerv(what, &value);
    return static_cast<Integer>(value);
}

/// A test with a GL context current, which must have no error noted at the end.
class GLTest : public testing::Test {
protected:
    ~GLTest() override { EXPECT_TRUE(gl::glGetError() == gl::GL_NO_ERROR); }

    AEOpenGLContext context{nullptr};
};

/// A texture of 32-bit floats, clamped and unfiltered, which the context deletes at its end.
inline gl::GLuint makeTexture(int width, int height, const float* pixels = nullptr) {
    gl::GLuint texture = 0;
    gl::glGenTextures(1, &texture);
    gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
    gl::glTexImage2D(gl::GL_TEXTURE_2D, 0, static_cast<gl::GLint>(gl::GL_RGBA32F), width, height, 0,
                     gl::GL_RGBA, gl::GL_FLOAT, pixels);
    for (const gl::GLenum filter : {gl::GL_TEXTURE_MIN_FILTER, gl::GL_TEXTURE_MAG_FILTER})
        gl::glTexParameteri(gl::GL_TEXTURE_2D, filter, gl::GL_NEAREST);
    for (const gl::GLenum wrap : {gl::GL_TEXTURE_WRAP_S, gl::GL_TEXTURE_WRAP_T})
        gl::glTexParameteri(gl::GL_TEXTURE_2D, wrap, gl::GL_CLAMP_TO_EDGE);
    return texture;
}

/// Binds a new framebuffer of `texture`, with a viewport of its size.
inline void drawInto(gl::GLuint texture, int width, int height) {
    gl::GLuint frameBuffer = 0;
    gl::glGenFramebuffers(1, &frameBuffer);
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, frameBuffer);
    gl::glFramebufferTexture2D(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_TEXTURE_2D, texture, 0);
    gl::glViewport(0, 0, width, height);
}

/// Channels of mip level `level`, row after row. Leaves no texture bound.
inline std::vector<float> texels(gl::GLuint texture, int level = 0) {
    gl::GLint width = 0, height = 0;
    gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
    gl::glGetTexLevelParameteriv(gl::GL_TEXTURE_2D, level, gl::GL_TEXTURE_WIDTH, &width);
    gl::glGetTexLevelParameteriv(gl::GL_TEXTURE_2D, level, gl::GL_TEXTURE_HEIGHT, &height);
    std::vector<float> values(static_cast<std::size_t>(4 * width * height));
    gl::glGetTexImage(gl::GL_TEXTURE_2D, level, gl::GL_RGBA, gl::GL_FLOAT, values.data());
    gl::glBindTexture(gl::GL_TEXTURE_2D, 0);
    return values;
}

} // namespace Tessaloom::BilateralBlur
