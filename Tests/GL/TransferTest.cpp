#include "Host/Services.h"
#include "Host/Suites.h"
#include "Host/World.h"
#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Support/FaultyHost.h"

#include <cstring>

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;
using Host::World;

class TransferTest : public GLTest {
protected:
    GLuint upload(std::int32_t format, World& world) {
        return AEOpenGLUtilities::UploadTexture(format, &world, nullptr, mInData, mPixelSize, mType,
                                                mMultiplier, false);
    }

    // From a framebuffer as large as `input`.
    void download(std::int32_t format, PF_LayerDef& input, PF_LayerDef& output) {
        AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(input.width),
                                           static_cast<unsigned>(input.height), &input, &output, mInData,
                                           format, mPixelSize, mType);
    }

    Host::Services mServices;
    const Host::Services::Visit mVisit{mServices};
    FaultyHost mHost;
    PF_InData* mInData = FaultyHost::wrap({{}, Host::utilCallbacks(), nullptr, Host::basicSuite(), 0, 1, 1});
    unsigned long mPixelSize = 16;
    GLenum mType = GL_FLOAT;
    float mMultiplier = 0;
};

// The texture itself is the framebuffer that is read, so that no precision is lost between up and down. An
// output may be smaller.
TEST_F(TransferTest, KeepsPixelsOfEveryFormat) {
    std::mt19937 random(7);
    for (const std::int32_t format : {PF_PixelFormat_ARGB32, PF_PixelFormat_ARGB64, PF_PixelFormat_ARGB128}) {
        World input(33, 5, format), output(33, 5, format), smaller(20, 3, format);
        std::generate_n(input.row<std::uint32_t>(0), 5 * input.rowbytes / 4, [&] {
            return random() & 0xBFFFFFFF; // a float from -2 to 2, not a NaN
        });
        drawInto(upload(format, input), 33, 5);
        EXPECT_EQ(mPixelSize, static_cast<unsigned long>(Host::bytesPerPixel(format)));
        EXPECT_EQ(mMultiplier, format == PF_PixelFormat_ARGB64 ? 65535 / 32768.0f : 1);
        for (World* into : {&output, &smaller}) {
            download(format, input, *into);
            for (int y = 0; y < into->height; ++y)
                EXPECT_EQ(std::memcmp(into->row(y), input.row(y), into->width * mPixelSize), 0) << y;
            EXPECT_TRUE(into->paddingIntact());
        }
    }
}

TEST_F(TransferTest, AsksForAHandleOfAnySize) {
    PF_LayerDef world{};
    world.width = world.height = 16384;
    mHost.faults.failing = {{"host_new_handle", 1}};
    EXPECT_THAT([&] { download(PF_PixelFormat_ARGB128, world, world); }, testing::Throws<int>(4));
    EXPECT_THAT(mHost.calls, testing::Contains("host_new_handle 4294967296"));
}

// The faults of 8-bit pixels are among those of the effect's frames.
TEST_F(TransferTest, ThrowsACodeAndKeepsNothing) {
    const std::tuple<std::int32_t, const char*, int> rows[] = {
        {PF_PixelFormat_ARGB64, "get_pixel_data16", 516},
        {PF_PixelFormat_ARGB128, "iterate", 77},
        {PF_PixelFormat_ARGB128, "AcquireSuite PF iterateFloat Suite 1", 13},
        {0x12345678, "", 516}};
    drawInto(makeTexture(3, 2), 3, 2);
    World world(3, 2, PF_PixelFormat_ARGB128);
    for (const auto& [format, fault, code] : rows) {
        SCOPED_TRACE(fault);
        mHost.faults.failing = {{fault, 77}};
        GLCalls calls;
        EXPECT_THAT([&] { download(format, world, world); }, testing::Throws<int>(code));
        EXPECT_THAT([&] { upload(format, world); }, testing::Throws<int>(code));
        EXPECT_EQ(calls.kept("Textures"), 0);
        EXPECT_EQ(integer(GL_UNPACK_ROW_LENGTH), 0);
        EXPECT_THAT(mServices.settle(), testing::IsEmpty());
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur
