#include "Plugins/BilateralBlur/Sources/BilateralBlurProcessor.h"

#include "Plugins/BilateralBlur/Sources/Cpu/BilateralBlurKernel.h"

#include <glbinding/gl/bitfield.h>
#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace Tessaloom::BilateralBlur {

namespace {

constexpr int kChannels = 4;

// A band of float rows stays in the second-level cache between the driver's copy and the reading of it.
constexpr int kBandRows = 16;

std::size_t channels(int width, int height) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * kChannels;
}

// Binds a frame buffer for reading and brings the former one back.
class ReadBinding {
public:
    explicit ReadBinding(gl::GLuint frameBuffer) {
        gl::glGetIntegerv(gl::GL_READ_FRAMEBUFFER_BINDING, &mFormer);
        gl::glBindFramebuffer(gl::GL_READ_FRAMEBUFFER, frameBuffer);
    }
    ~ReadBinding() {
        attach(0);
        gl::glBindFramebuffer(gl::GL_READ_FRAMEBUFFER, static_cast<gl::GLuint>(mFormer));
    }
    ReadBinding(const ReadBinding&) = delete;
    ReadBinding& operator=(const ReadBinding&) = delete;

    void attach(gl::GLuint texture) const {
        gl::glFramebufferTexture2D(gl::GL_READ_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_TEXTURE_2D,
                                   texture, 0);
    }

private:
    gl::GLint mFormer = 0;
};

// Brings floats back to the bytes that they were uploaded from; false where one is no byte's value. The
// tolerance, in units of a byte, covers the rounding of the division by 255. The failures are gathered as
// integers, which compilers do several of at once.
bool toBytes(const float* floats, std::uint8_t* bytes, std::size_t count) {
    constexpr float kTolerance = 1e-4f;
    std::int32_t failures = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const float scaled = floats[i] * 255.0f;
        const float held = std::min(std::max(scaled, 0.0f), 255.0f);
        const auto nearest = static_cast<std::int32_t>(held + 0.5f);
        failures |= std::fabs(scaled - static_cast<float>(nearest)) <= kTolerance ? 0 : 1;
        bytes[i] = static_cast<std::uint8_t>(nearest);
    }
    return failures == 0;
}

void uploadResult(int width, int height, gl::GLenum type, const void* pixels) {
    gl::glTexSubImage2D(gl::GL_TEXTURE_2D, 0, 0, 0, width, height, gl::GL_RGBA, type, pixels);
}

} // namespace

BilateralBlurProcessor::~BilateralBlurProcessor() {
    if (!mTexture)
        return;
    if (const gl::GLuint frameBuffer = mReadFrameBuffers.current())
        gl::glDeleteFramebuffers(1, &frameBuffer);
    gl::glDeleteTextures(1, &mTexture);
}

// A blit into a multisampled level gives all samples of a pixel the pixel's value, as the program's draw
// does.
void BilateralBlurProcessor::draw(gl::GLuint texture, int width, int height, int blurSize, float multiplier) {
    gl::GLuint& frameBuffer = mReadFrameBuffers.current();
    if (!frameBuffer)
        gl::glGenFramebuffers(1, &frameBuffer);
    const ReadBinding binding(frameBuffer);
    binding.attach(texture);

    const std::ptrdiff_t byteStride = std::ptrdiff_t{width} * kChannels;
    if (readBytes(width, height)) {
        mByteResult.resize(channels(width, height));
        bilateralBlur(PixelView<const std::uint8_t>{mByteSource.data(), byteStride},
                      PixelView<std::uint8_t>{mByteResult.data(), byteStride}, width, height, blurSize,
                      multiplier, mPool);
        keepTexture(gl::GL_RGBA8, width, height);
        uploadResult(width, height, gl::GL_UNSIGNED_BYTE, mByteResult.data());
    } else {
        const std::ptrdiff_t stride = byteStride * static_cast<std::ptrdiff_t>(sizeof(float));
        std::vector<float> source(channels(width, height)), result(channels(width, height));
        gl::glReadPixels(0, 0, width, height, gl::GL_RGBA, gl::GL_FLOAT, source.data());
        bilateralBlur(PixelView<const float>{source.data(), stride}, PixelView<float>{result.data(), stride},
                      width, height, blurSize, multiplier, mPool);
        keepTexture(gl::GL_RGBA32F, width, height);
        uploadResult(width, height, gl::GL_FLOAT, result.data());
    }
    gl::glBindTexture(gl::GL_TEXTURE_2D, 0);
    binding.attach(mTexture);
    gl::glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, gl::GL_COLOR_BUFFER_BIT, gl::GL_NEAREST);
}

// Frames of the effect are 8-bit, though the texture holds them as floats: the driver hands floats out at
// the speed of a copy, and bytes only through a conversion that is ten times slower.
bool BilateralBlurProcessor::readBytes(int width, int height) {
    mByteSource.resize(channels(width, height));
    mBand.resize(channels(width, kBandRows));
    for (int top = 0; top < height; top += kBandRows) {
        const int rows = std::min(kBandRows, height - top);
        gl::glReadPixels(0, top, width, rows, gl::GL_RGBA, gl::GL_FLOAT, mBand.data());
        if (!toBytes(mBand.data(), mByteSource.data() + channels(width, top), channels(width, rows)))
            return false;
    }
    return true;
}

// Leaves the texture bound.
void BilateralBlurProcessor::keepTexture(gl::GLenum internalFormat, int width, int height) {
    if (!mTexture)
        gl::glGenTextures(1, &mTexture);
    gl::glBindTexture(gl::GL_TEXTURE_2D, mTexture);
    if (mInternalFormat == internalFormat && mWidth == width && mHeight == height)
        return;
    mInternalFormat = internalFormat;
    mWidth = width;
    mHeight = height;
    gl::glTexImage2D(gl::GL_TEXTURE_2D, 0, static_cast<gl::GLint>(internalFormat), width, height, 0,
                     gl::GL_RGBA, gl::GL_UNSIGNED_BYTE, nullptr);
}

} // namespace Tessaloom::BilateralBlur
