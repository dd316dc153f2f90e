#include "Host/Services.h"
#include "Host/Suites.h"
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

    // From a framebuffer as large as `input`.
    void download(World& input, World& output, const Format& format, std::int32_t tag) {
        AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(input.width),
                                           static_cast<unsigned>(input.height), &input, &output, mInData, tag,
                                           format.pixelSize, format.type);
    }

    template<typename Transfer>
    static int thrownBy(Transfer transfer) {
        try {
            transfer();
        } catch (int code) {
            return code;
        }
        return 0;
    }

    Host::Services mServices;
    const Host::Services::Visit mVisit{mServices};
    FaultyHost mHost;
    PF_InData* mInData = FaultyHost::wrap({{}, Host::utilCallbacks(), nullptr, Host::basicSuite(), 0, 1, 1});
    unsigned long mPixelSize = 0;
    GLenum mType{};
    float mMultiplier = 0;
};

// The texture itself is the framebuffer that is read, so that no precision is lost between up and down.
TEST_F(TransferTest, KeepsPixelsOfEveryFormat) {
    std::mt19937 random(7);
    for (const Format& format : kFormats) {
        World input(33, 5, format.tag), output(33, 5, format.tag);
        for (int y = 0; y < 5; ++y)
            for (unsigned long word = 0; word < 33 * format.pixelSize / 4; ++word)
                input.row<std::uint32_t>(y)[word] = random() & 0xBFFFFFFF; // a float from -2 to 2, not a NaN
        const GLuint texture = upload(format.tag, input);
        EXPECT_EQ(std::tuple(mPixelSize, mType, mMultiplier),
                  std::tuple(format.pixelSize, format.type, format.multiplier));
        drawInto(texture, 33, 5);
        download(input, output, format, format.tag);
        for (int y = 0; y < 5; ++y)
            EXPECT_EQ(std::memcmp(output.row(y), input.row(y), 33 * format.pixelSize), 0) << y;
        EXPECT_TRUE(output.paddingIntact());
        glDeleteTextures(1, &texture);
    }
}

TEST_F(TransferTest, ThrowsACodeAndKeepsNothing) {
    const auto& [bytes, shorts, floats] = kFormats;
    const struct {
        const char* fault;
        Format format;
        std::int32_t tag;
        int up, down;
    } rows[] = {
        {"get_pixel_data8", bytes, bytes.tag, 516, 516},
        {"get_pixel_data16", shorts, shorts.tag, 516, 516},
        {"AcquireSuite PF Handle Suite 2", bytes, bytes.tag, 0, 13},
        {"host_new_handle", bytes, bytes.tag, 0, 4},
        {"iterate", floats, floats.tag, 77, 77},
        {"AcquireSuite PF iterateFloat Suite 1", floats, floats.tag, 13, 13},
        {"", bytes, shorts.tag, 516, 516},
        {"", bytes, 0x12345678, 516, 516},
    };
    drawInto(makeTexture(3, 2), 3, 2);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fault);
        World input(3, 2, row.format.tag), output(3, 2, row.format.tag);
        mHost.faults.failing = {{row.fault, 77}};
        GLCalls calls;
        EXPECT_EQ(thrownBy([&] { upload(row.tag, input); }), row.up);
        EXPECT_EQ(thrownBy([&] { download(input, output, row.format, row.tag); }), row.down);
        EXPECT_EQ(calls.kept("Textures"), row.up == 0);
        EXPECT_EQ(integer(GL_UNPACK_ROW_LENGTH), 0);
        EXPECT_THAT(mServices.settle(), testing::IsEmpty());
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur
