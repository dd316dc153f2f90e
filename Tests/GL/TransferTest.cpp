#include "Host/Services.h"
#include "Host/World.h"
#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Support/FaultyHost.h"

#include <cstring>
#include <random>
#include <tuple>

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;
using Host::World;

struct Format {
    std::int32_t tag;
    unsigned long pixelSize;
    GLenum type;
    float multiplier;
};

constexpr Format kFormats[] = {
    {PF_PixelFormat_ARGB32, 4, GL_UNSIGNED_BYTE, 1},
    {PF_PixelFormat_ARGB64, 8, GL_UNSIGNED_SHORT, 1.999969482421875f},
    {PF_PixelFormat_ARGB128, 16, GL_FLOAT, 1},
};

class TransferTest : public GLTest {
protected:
    GLuint upload(std::int32_t tag, World& world) {
        return AEOpenGLUtilities::UploadTexture(tag, &world, nullptr, mInData, mPixelSize, mType, mMultiplier,
                                                false);
    }

    // Of a frame buffer as large as `input`.
    void download(World& input, World& output, const Format& format, std::int32_t tag) {
        AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(input.width),
                                           static_cast<unsigned>(input.height), &input, &output, mInData, tag,
                                           format.pixelSize, format.type);
    }

    Host::Services mServices;
    const Host::Services::Visit mVisit{mServices};
    FaultyHost mHost;
    PF_InData* mInData =
        FaultyHost::wrap({{}, Host::Services::utils(), nullptr, Host::Services::basicSuite(), 0, 1, 1});
    unsigned long mPixelSize = 0;
    GLenum mType{};
    float mMultiplier = 0;
};

// The texture itself is read, so that all of its precision comes down again.
TEST_F(TransferTest, BringsPixelsOfEveryFormatUpAndDownUnchanged) {
    std::mt19937 random(7);
    for (const Format& format : kFormats) {
        World input(33, 5, format.tag), output(33, 5, format.tag);
        for (int word = 0; word < 33 * 5 * static_cast<int>(format.pixelSize) / 4; ++word) {
            const int y = word % 5;
            if (format.type == GL_FLOAT)
                input.row<float>(y)[word / 5] = static_cast<float>(random()) / 1e9f - 1; // beyond 0 to 1
            else
                input.row<std::uint32_t>(y)[word / 5] = random();
        }
        const GLuint texture = upload(format.tag, input);
        EXPECT_EQ(std::tuple(mPixelSize, mType, mMultiplier),
                  std::tuple(format.pixelSize, format.type, format.multiplier));
        const double last = format.pixelSize == 4   ? input.row<std::uint8_t>(4)[131] / 255.0
                            : format.pixelSize == 8 ? input.row<std::uint16_t>(4)[131] / 65535.0
                                                    : input.row<float>(4)[131];
        EXPECT_NEAR(texels(texture).back(), last, 1e-7);

        drawInto(texture, 33, 5);
        download(input, output, format, format.tag);
        for (int y = 0; y < 5; ++y)
            EXPECT_EQ(std::memcmp(output.row(y), input.row(y), 33 * format.pixelSize), 0) << y;
        EXPECT_TRUE(output.spareBytesIntact());
        glDeleteTextures(1, &texture);
    }
}

TEST_F(TransferTest, ThrowsTheCodeOfEachFaultAndLeavesNothingBehind) {
    struct {
        int format;
        const char* fault;
        int up, down; // codes, 0 for none
    } const cases[] = {
        {0, "get_pixel_data8", 516, 516}, {0, "PF Handle Suite", 0, 13},
        {0, "host_new_handle", 0, 4},     {1, "get_pixel_data16", 516, 516},
        {2, "iterate", 77, 77},           {2, "PF iterateFloat Suite", 13, 13},
    };
    drawInto(makeTexture(3, 2), 3, 2);
    const auto expectCode = [&](int code, auto transfer) {
        GLCalls calls;
        try {
            transfer();
            EXPECT_EQ(code, 0);
        } catch (int thrown) {
            EXPECT_EQ(thrown, code);
        }
        EXPECT_TRUE(code == 0 || calls.kept("Textures") == 0);
        EXPECT_THAT(mServices.settle(), testing::IsEmpty());
        EXPECT_EQ(integer(GL_UNPACK_ROW_LENGTH), 0);
    };
    for (const auto& [format, fault, up, down] : cases) {
        const Format& own = kFormats[format];
        World input(3, 2, own.tag), output(3, 2, own.tag);
        mHost.faults.failing = {{fault, 77}};
        expectCode(up, [&] { upload(own.tag, input); });
        expectCode(down, [&] { download(input, output, own, own.tag); });
    }
    mHost.faults = {};
    World world(3, 2);
    for (const std::int32_t tag : {std::int32_t{PF_PixelFormat_ARGB64}, 0x12345678}) {
        expectCode(516, [&] { upload(tag, world); });
        expectCode(516, [&] { download(world, world, kFormats[0], tag); });
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur
