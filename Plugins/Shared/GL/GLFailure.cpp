#include "Plugins/Shared/GL/GLFailure.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

namespace Tessaloom::BilateralBlur {

namespace {

std::string reasonOf(gl::GLenum error) {
    if (error == gl::GL_CONTEXT_LOST)
        return "OpenGL lost its context";
    if (error == gl::GL_OUT_OF_MEMORY)
        return "OpenGL ran out of memory";
    return "OpenGL noted the error " + std::to_string(static_cast<unsigned>(error));
}

int rank(gl::GLenum error) {
    return error == gl::GL_CONTEXT_LOST ? 2 : error == gl::GL_OUT_OF_MEMORY ? 1 : 0;
}

} // namespace

GLFailure::GLFailure(gl::GLenum error) : GLFailure(reasonOf(error), error == gl::GL_CONTEXT_LOST) {}

// A lost context notes its loss over and over, so the loop is bounded.
gl::GLenum takeGLErrors() {
    constexpr int kMostErrors = 16;
    gl::GLenum worst = gl::GL_NO_ERROR;
    for (int i = 0; i < kMostErrors; ++i) {
        const gl::GLenum error = gl::glGetError();
        if (error == gl::GL_NO_ERROR)
            break;
        if (rank(error) >= rank(worst))
            worst = error;
    }
    return worst;
}

} // namespace Tessaloom::BilateralBlur
