#pragma once

#include "Plugins/BilateralBlur/Sources/Cpu/RowBandPool.h"
#include "Plugins/Shared/GL/PerContext.h"

#include <glbinding/gl/types.h>

#include <cstdint>
#include <vector>

namespace Tessaloom::BilateralBlur {

/// The blur pass for contexts that are rendered by software: computes on the processor's vector units what
/// the fragment program of BilateralBlurRender draws, and puts it into the frame buffer that is bound.
///
/// Threads, memory and GL objects are made by the first draw of their size and stay for the next.
class BilateralBlurProcessor {
public:
    BilateralBlurProcessor() = default;
    /// A context of the share group must be current where something was drawn.
    ~BilateralBlurProcessor();
    BilateralBlurProcessor(const BilateralBlurProcessor&) = delete;
    BilateralBlurProcessor& operator=(const BilateralBlurProcessor&) = delete;

    /// Filters `texture`, `width` by `height` pixels of r, g, b, a, into the bound draw frame buffer, whose
    /// first colour attachment has that size, with any number of samples. Leaves all bindings as they were.
    /// Throws std::bad_alloc where memory can't be had.
    void draw(gl::GLuint texture, int width, int height, int blurSize, float multiplier);

private:
    bool readBytes(int width, int height);
    void keepTexture(gl::GLenum internalFormat, int width, int height);

    RowBandPool mPool;
    std::vector<std::uint8_t> mByteSource, mByteResult;
    std::vector<float> mBand;

    PerContext<gl::GLuint> mReadFrameBuffers;
    gl::GLuint mTexture = 0;
    gl::GLenum mInternalFormat{};
    int mWidth = 0;
    int mHeight = 0;
};

} // namespace Tessaloom::BilateralBlur
