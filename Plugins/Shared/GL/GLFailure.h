#pragma once

#include <glbinding/gl/types.h>

#include <stdexcept>
#include <string>

namespace Tessaloom::BilateralBlur {

/// What OpenGL, the system's side of it or its bindings refused, with the reason as a clause: "OpenGL ran out
/// of memory".
///
/// A thrown integer is an answer of the host, or what the effect makes of one: it ends the frame. All that the
/// GL layer throws apart from integers, this and the standard library's exceptions, is the GPU's: the frame can
/// still be filtered without it. A caller that makes no difference treats it as the integer 516.
class GLFailure : public std::runtime_error {
public:
    explicit GLFailure(const std::string& reason, bool isContextLost = false)
        : std::runtime_error(reason), mIsContextLost(isContextLost) {}

    /// For an error that GL noted.
    explicit GLFailure(gl::GLenum error);

    /// True where the GPU is gone for the effect's contexts, all of them and for good.
    bool isContextLost() const { return mIsContextLost; }

private:
    bool mIsContextLost;
};

/// The errors that GL has noted since it was last asked, which forgets them: of several a lost context, else
/// exhausted memory, else the last. `GL_NO_ERROR` where there is none.
gl::GLenum takeGLErrors();

} // namespace Tessaloom::BilateralBlur
