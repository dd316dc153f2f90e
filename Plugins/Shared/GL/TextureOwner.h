#pragma once

#include <glbinding/gl/functions.h>

#include <utility>

namespace Tessaloom::BilateralBlur {

/// Deletes a texture at the end of its scope, in the context that is current then, unless `handOver` was called.
class TextureOwner {
public:
    /// Takes over `name`; 0 is no texture.
    explicit TextureOwner(gl::GLuint name) : mName(name) {}
    ~TextureOwner() {
        if (mName)
            gl::glDeleteTextures(1, &mName);
    }
    TextureOwner(const TextureOwner&) = delete;
    TextureOwner& operator=(const TextureOwner&) = delete;

    gl::GLuint name() const { return mName; }
    gl::GLuint handOver() { return std::exchange(mName, 0); }

private:
    gl::GLuint mName;
};

} // namespace Tessaloom::BilateralBlur
