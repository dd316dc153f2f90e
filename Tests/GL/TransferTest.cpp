#include "Host/Services.h"
#include "Host/World.h"
#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Tests/GL/GLTest.h"

#include <cstring>
#include <optional>
#include <random>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::Callback;
using Host::World;
using testing::IsEmpty;

struct Format {
    std::int32_t tag;
    unsigned long pixelSize;
    gl::GLenum type;
    float multiplier;
    double fullScale; // of GL's normalisation
};

constexpr Format kFormats[] = {
    {PF_PixelFormat_ARGB32, 4, gl::GL_UNSIGNED_BYTE, 1, 255},
    {PF_PixelFormat_ARGB64, 8, gl::GL_UNSIGNED_SHORT, 1.999969482421875f, 65535},
    {PF_PixelFormat_ARGB128, 16, gl::GL_FLOAT, 1, 1},
};

// A channel of any format, as a texture holds it.
double channel(const World& world, const Format& format, int x, int y, int index) {
    const std::size_t at = 4 * static_cast<std::size_t>(x) + static_cast<std::size_t>(index);
    switch (format.pixelSize) {
    case 4:
        return world.row<std::uint8_t>(y)[at] / format.fullScale;
    case 8:
        return world.row<std::uint16_t>(y)[at] / format.fullScale;
    default:
        return world.row<float>(y)[at];
    }
}

void fillWithNoise(World& world, const Format& format) {
    std::mt19937 random(static_cast<unsigned>(world.width));
    for (int y = 0; y < world.height; ++y)
        for (int i = 0; i < 4 * world.width; ++i) {
            const unsigned bits = random();
            if (format.pixelSize == 4)
                world.row<std::uint8_t>(y)[i] = static_cast<std::uint8_t>(bits);
            else if (format.pixelSize == 8)
                world.row<std::uint16_t>(y)[i] = static_cast<std::uint16_t>(bits % 32769);
            else
                world.row<float>(y)[i] = static_cast<float>(bits) / 1e9f - 1; // beyond 0 to 1 as well
        }
}

class TransferTest : public GLTest {
protected:
    TransferTest() {
        mInData.utils = Host::Services::utils();
        mInData.pica_basicP = Host::Services::basicSuite();
    }

    gl::GLuint upload(std::int32_t tag, World& world) {
        return AEOpenGLUtilities::UploadTexture(tag, &world, nullptr, &mInData, mPixelSize, mType,
                                                mMultiplier, mMipmapped);
    }

    void download(World& input, World& output, const Format& format, std::int32_t tag) {
        AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(input.width),
                                           static_cast<unsigned>(input.height), &input, &output, &mInData,
                                           tag, format.pixelSize, format.type);
    }

    Host::Services mServices;
    const Host::Services::Visit mVisit{mServices};
    PF_InData mInData{};
    unsigned long mPixelSize = 0;
    gl::GLenum mType{};
    float mMultiplier = 0;
    bool mMipmapped = false;
};

TEST_F(TransferTest, BringsPixelsOfEveryFormatUpAndDownUnchanged) {
    for (const Format& format : kFormats)
        for (const auto& [width, height] : {std::pair{1, 1}, {3, 7}, {33, 5}}) {
            SCOPED_TRACE(testing::Message() << format.pixelSize << " bytes, " << width << " by " << height);
            World input(width, height, format.tag), output(width, height, format.tag);
            fillWithNoise(input, format);
            const gl::GLuint texture = upload(format.tag, input);
            EXPECT_EQ(mPixelSize, format.pixelSize);
            EXPECT_EQ(mType, format.type);
            EXPECT_EQ(mMultiplier, format.multiplier);
            gl::GLint state = 0;
            gl::glGetIntegerv(gl::GL_UNPACK_ROW_LENGTH, &state);
            EXPECT_EQ(state, 0);
            gl::glGetIntegerv(gl::GL_TEXTURE_BINDING_2D, &state);
            EXPECT_EQ(state, 0);

            const auto values = texels(texture);
            for (int y = 0; y < height; ++y)
                for (int i = 0; i < 4 * width; ++i)
                    ASSERT_NEAR(values[static_cast<std::size_t>(4 * width * y + i)],
                                channel(input, format, i / 4, y, i % 4), 1e-7);

            // The texture itself is read, so that all of its precision comes down again.
            const TextureTarget target(width, height, gl::GL_RGBA32F);
            gl::glFramebufferTexture2D(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_TEXTURE_2D,
                                       texture, 0);
            download(input, output, format, format.tag);
            for (int y = 0; y < height; ++y)
                EXPECT_EQ(
                    std::memcmp(output.row(y), input.row(y), format.pixelSize * static_cast<unsigned>(width)),
                    0);
            EXPECT_TRUE(output.spareBytesIntact());
            EXPECT_THAT(mServices.settle(), IsEmpty());
            gl::glDeleteTextures(1, &texture);
        }
}

TEST_F(TransferTest, FillsASmallerOutputAndRefusesALargerOne) {
    for (const Format& format : kFormats) {
        World input(6, 5, format.tag);
        fillWithNoise(input, format);
        const gl::GLuint texture = upload(format.tag, input);
        const TextureTarget target(1, 1, gl::GL_RGBA32F);
        gl::glFramebufferTexture2D(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_TEXTURE_2D, texture,
                                   0);
        for (const auto& [width, height] : {std::pair{4, 3}, {6, 0}, {0, 5}, {7, 5}, {6, 6}}) {
            World output(width, height, format.tag);
            if (width > 6 || height > 5) {
                EXPECT_THROW(download(input, output, format, format.tag), int);
            } else {
                download(input, output, format, format.tag);
                for (int y = 0; y < height; ++y)
                    EXPECT_EQ(std::memcmp(output.row(y), input.row(y),
                                          format.pixelSize * static_cast<unsigned>(width)),
                              0);
            }
            EXPECT_TRUE(output.spareBytesIntact());
            EXPECT_THAT(mServices.settle(), IsEmpty());
        }
        gl::glDeleteTextures(1, &texture);
    }
}

TEST_F(TransferTest, ThrowsTheCodeOfEachFaultAndLeavesNothingBehind) {
    constexpr bool kUp = true, kDown = false;
    const auto suite = [](const char* name) { return Host::Faults{.missingSuite = name}; };
    const auto failing = [](Callback callback) { return Host::Faults{.failing = {{callback, 77}}}; };
    struct {
        bool up;
        int format;
        std::int32_t tag; // 0 for that of the format
        Host::Faults faults;
        int code;
    } const cases[] = {
        {kUp, 0, 0, failing(Callback::GetPixelData8), 516},
        {kUp, 1, 0, failing(Callback::GetPixelData16), 516},
        {kUp, 2, 0, failing(Callback::Iterate), 77},
        {kUp, 2, 0, suite("PF iterateFloat Suite"), 13},
        {kUp, 0, 0x12345678, {}, 516},
        {kUp, 0, PF_PixelFormat_ARGB64, {}, 516}, // a world of another depth
        {kDown, 0, 0, suite("PF Handle Suite"), 13},
        {kDown, 0, 0, {.noHandles = true}, 4},
        {kDown, 0, 0, failing(Callback::GetPixelData8), 516},
        {kDown, 1, 0, failing(Callback::GetPixelData16), 516},
        {kDown, 2, 0, failing(Callback::Iterate), 77},
        {kDown, 2, 0, suite("PF iterateFloat Suite"), 13},
        {kDown, 0, 0x12345678, {}, 516},
    };
    const TextureTarget target(3, 2, gl::GL_RGBA32F);
    for (const auto& fault : cases) {
        const Format& format = kFormats[fault.format];
        World input(3, 2, format.tag), output(3, 2, format.tag);
        mServices.faults = fault.faults;
        int code = 0;
        GLCalls calls;
        try {
            if (fault.up)
                upload(fault.tag ? fault.tag : format.tag, input);
            else
                download(input, output, format, fault.tag ? fault.tag : format.tag);
        } catch (int thrown) {
            code = thrown;
        }
        EXPECT_EQ(code, fault.code);
        EXPECT_THAT(mServices.settle(), IsEmpty());
        EXPECT_EQ(calls.count("glDeleteTextures"), fault.up);
        gl::GLint rowLength = -1;
        gl::glGetIntegerv(gl::GL_UNPACK_ROW_LENGTH, &rowLength);
        EXPECT_EQ(rowLength, 0);
        for (int y = 0; y < 2; ++y)
            for (int i = 0; i < 12; ++i)
                EXPECT_EQ(channel(output, format, i / 4, y, i % 4), 0) << "no pixel gets out";
    }
}

TEST_F(TransferTest, SetsUpMipLevelsOnDemand) {
    World input(3, 2);
    for (const bool mipmapped : {false, true}) {
        mMipmapped = mipmapped;
        const gl::GLuint texture = upload(PF_PixelFormat_ARGB32, input);
        gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
        gl::GLint minification = 0, magnification = 0, internalFormat = 0;
        gl::glGetTexParameteriv(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MIN_FILTER, &minification);
        gl::glGetTexParameteriv(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MAG_FILTER, &magnification);
        gl::glGetTexLevelParameteriv(gl::GL_TEXTURE_2D, 0, gl::GL_TEXTURE_INTERNAL_FORMAT, &internalFormat);
        EXPECT_EQ(minification,
                  static_cast<gl::GLint>(mipmapped ? gl::GL_LINEAR_MIPMAP_LINEAR : gl::GL_LINEAR));
        EXPECT_EQ(magnification, static_cast<gl::GLint>(gl::GL_LINEAR));
        EXPECT_EQ(internalFormat, static_cast<gl::GLint>(gl::GL_RGBA32F));
        gl::glDeleteTextures(1, &texture);
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur
