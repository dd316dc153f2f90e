#include "Host/Services.h"
#include "Host/World.h"
#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Tests/GL/GLTest.h"

#include <cstring>
#include <random>
#include <tuple>

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
double channel(const World& world, const Format& format, int index) {
    const int y = index / (4 * world.width), at = index % (4 * world.width);
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
                                                mMultiplier, false);
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
};

// The texture itself is read, so that all of its precision comes down again.
TEST_F(TransferTest, BringsPixelsOfEveryFormatUpAndDownUnchanged) {
    for (const Format& format : kFormats) {
        SCOPED_TRACE(format.pixelSize);
        World input(33, 5, format.tag);
        fillWithNoise(input, format);
        const gl::GLuint texture = upload(format.tag, input);
        EXPECT_EQ(std::tuple(mPixelSize, mType, mMultiplier),
                  std::tuple(format.pixelSize, format.type, format.multiplier));
        EXPECT_EQ(integer(gl::GL_UNPACK_ROW_LENGTH), 0);
        EXPECT_EQ(integer(gl::GL_TEXTURE_BINDING_2D), 0);
        const auto values = texels(texture);
        for (int i = 0; i < 4 * 33 * 5; ++i)
            ASSERT_NEAR(values[static_cast<std::size_t>(i)], channel(input, format, i), 1e-7);

        const TextureTarget target(1, 1, gl::GL_RGBA32F);
        TextureTarget::attach(texture);
        for (const auto& [width, height] : {std::pair{33, 5}, {4, 3}, {33, 0}, {0, 5}, {34, 5}, {33, 6}}) {
            World output(width, height, format.tag);
            if (width > 33 || height > 5)
                EXPECT_THROW(download(input, output, format, format.tag), int);
            else
                download(input, output, format, format.tag);
            for (int y = 0; y < std::min(height, 5) && width <= 33 && height <= 5; ++y)
                EXPECT_EQ(
                    std::memcmp(output.row(y), input.row(y), format.pixelSize * static_cast<unsigned>(width)),
                    0);
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
        const GLCalls calls;
        try {
            const std::int32_t tag = fault.tag ? fault.tag : format.tag;
            fault.up ? (void)upload(tag, input) : download(input, output, format, tag);
        } catch (int thrown) {
            code = thrown;
        }
        EXPECT_EQ(code, fault.code);
        EXPECT_THAT(mServices.settle(), IsEmpty());
        EXPECT_EQ(calls.count("glDeleteTextures"), fault.up);
        EXPECT_EQ(integer(gl::GL_UNPACK_ROW_LENGTH), 0);
        for (int i = 0; i < 4 * 3 * 2; ++i)
            EXPECT_EQ(channel(output, format, i), 0) << "no pixel gets out";
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur
