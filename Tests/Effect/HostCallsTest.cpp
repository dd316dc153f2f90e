#include "Tests/Effect/EffectTest.h"
#include "Tests/Support/GLCalls.h"
#include "Tests/Support/SmoothFrames.h"

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;

class HostCallsTest : public EffectTest {
protected:
    HostCallsTest() {
        EXPECT_EQ(frame(mSample), "");
        mHost.before = [this] {
            const bool isHosts = NSOpenGLContext::currentContext() == mHostContext;
            if (std::exchange(mIsHosts, isHosts) != isHosts)
                mHost.calls.push_back(isHosts ? kHostContext : kEffectContext);
        };
    }

    // The calls of a frame of 12 x 8 pixels into an output of `rows` rows.
    static std::vector<std::string> callsOfFrame(int rows = 8) {
        std::vector<std::string> calls{"checkout_layer_pixels 0",
                                       "checkout_output",
                                       kEffectContext,
                                       "AcquireSuite AEGP PF Interface Suite 1",
                                       "AcquireSuite AEGP Layer Suite 11",
                                       "AcquireSuite AEGP Item Suite 10",
                                       "checkout_param 1 5 2 25",
                                       "checkin_param",
                                       "get_pixel_data8 input",
                                       "AcquireSuite PF Handle Suite 2",
                                       "host_new_handle 384",
                                       "host_lock_handle",
                                       "host_unlock_handle",
                                       "host_dispose_handle",
                                       "ReleaseSuite PF Handle Suite 2",
                                       kHostContext,
                                       "ReleaseSuite AEGP Item Suite 10",
                                       "ReleaseSuite AEGP Layer Suite 11",
                                       "ReleaseSuite AEGP PF Interface Suite 1"};
        calls.insert(calls.begin() + 12, rows, "get_pixel_data8 output");
        if (GetParam() != Way::Gpu) // no context is switched on the CPU
            std::erase_if(calls, [](const std::string& call) { return call.starts_with("context"); });
        return calls;
    }

    // Renders a frame with these faults, and a right one after it. Returns the result of the first.
    Host::Result renderWith(const Faults& faults) {
        World input = mSample.world(), output(0, 0);
        mHost.faults = faults;
        GLCalls gl;
        const Host::Result result = mEffect->render(input, output, std::array{7}, {5, 2, 25});
        EXPECT_LE(gl.kept("Renderbuffers"), 0);
        EXPECT_EQ(gl.kept("Textures"), 0);
        EXPECT_THAT(result.mistakes, testing::IsEmpty());
        EXPECT_EQ(NSOpenGLContext::currentContext(), mHostContext);
        mCalls = mHost.calls;
        mHost.faults = {};
        EXPECT_EQ(frame(mSample), "");
        return result;
    }

    static constexpr const char *kHostContext = "context of the host",
                                *kEffectContext = "context of the effect";
    bool mIsHosts = true;
    std::vector<std::string> mCalls;
};

TEST_P(HostCallsTest, CallsTheHostInOneOrder) {
    World small(3, 5), noWidth(0, 8), noHeight(12, 0);
    for (World* output : {&small, &noWidth, &noHeight}) {
        EXPECT_TRUE(renderWith({.output = output}).ok());
        EXPECT_EQ(mCalls, callsOfFrame(output->height));
    }
    EXPECT_EQ(std::memcmp(small.row(4), mOutput.row(4), sizeof(PF_Pixel8) * 3), 0);
}

// Rows of an input are whole pixels apart, those of an output begin at the nearest pixel before. Either may run upwards.
// Where a single row is doesn't depend on their distance.
TEST_P(HostCallsTest, FindsRowsAtAnyDistance) {
    for (const int rowbytes : {64, 50, -64}) {
        World input(12, 8), output(12, 8), copy(12, 8);
        input.rowbytes = output.rowbytes = rowbytes;
        const int distance = rowbytes / 4, top = distance < 0 ? -7 * distance : 0;
        for (int y = 0; y < 8; ++y)
            std::memcpy(input.row(0) + top + distance * y, mSample.image.pixel(0, y), sizeof(PF_Pixel8) * 12);
        EXPECT_TRUE(renderWith({.input = &input, .output = &output}).ok()) << rowbytes;
        EXPECT_EQ(mCalls, callsOfFrame());
        for (int y = 0; y < 8; ++y)
            std::memcpy(copy.row(y), output.row(0) + top + rowbytes * y / 4, sizeof(PF_Pixel8) * 12);
        EXPECT_EQ(mSample.difference(copy), "") << rowbytes;
    }
    const Sample line{Images::photograph(12, 1, 5), 7};
    for (const int rowbytes : {0, -1, 47}) {
        World input = line.world(), output(12, 1);
        input.rowbytes = rowbytes;
        EXPECT_TRUE(renderWith({.input = &input, .output = &output}).ok()) << rowbytes;
        EXPECT_EQ(line.difference(output), "") << rowbytes;
    }
}

TEST_P(HostCallsTest, RefusesWorldsThatDoNotFit) {
    World world(13, 9);
    const int distance = world.rowbytes;
    const auto expect = [&](const Faults& faults, const PF_LayerDef& record, const std::string& message) {
        static_cast<PF_LayerDef&>(world) = record;
        const Host::Result result = renderWith(faults);
        EXPECT_EQ(result.message, message);
        EXPECT_EQ(result.code, message.empty() ? 0 : 516);
    };
    const Faults input{.input = &world}, output{.output = &world};
    expect({.input = nullptr}, {}, "The host gave no input world.");
    expect({.output = nullptr}, {}, "The host gave no output world.");
    expect(output, {13, 8, distance}, "The output of 13 x 8 pixels is larger than the input of 12 x 8.");
    expect(output, {12, 9, distance}, "The output of 12 x 9 pixels is larger than the input of 12 x 8.");
    expect(input, {12, 8, 47}, "The rows of the input, 47 bytes apart, don't hold 12 pixels.");
    expect(input, {12, 8, -47}, "The rows of the input, -47 bytes apart, don't hold 12 pixels.");
    expect(output, {12, 8, 47}, "The rows of the output, 47 bytes apart, don't hold 12 pixels.");
    expect(output, {12, 1, 0}, "");
    expect(output, {-12, 8, distance}, "");
    expect(output, {12, -8, distance}, "");
    World deep(12, 8, PF_PixelFormat_ARGB64);
    expect({.input = &deep}, {}, "Bilateral Blur got no pixels of 8 bits a channel from the host.");
    // Bytes are counted in 64 bits.
    expect({.failing = {{"host_new_handle", 77}}, .input = &world}, {70000, 70000, 280000},
           "There is no memory for a frame of 70000 x 70000 pixels.");
    EXPECT_THAT(mCalls, testing::Contains("host_new_handle 19600000000"));
}

TEST_P(HostCallsTest, RendersTheFrameOfAFailedParameterWithTheSliderAtZero) {
    World output(12, 8);
    const auto expectFrame = [&](std::map<std::string, PF_Err> failing, PF_Err code, int scale) {
        EXPECT_EQ(renderWith({.failing = std::move(failing), .output = &output}).code, code);
        EXPECT_EQ(mCalls, callsOfFrame());
        EXPECT_EQ(Sample(mSample.image, scale).difference(output), "");
    };
    expectFrame({{"checkout_param", -1}}, -1, 0);
    expectFrame({{"checkin_param", 78}}, 78, 7);
    expectFrame({{"checkout_param", 71}, {"checkin_param", 72}}, 71, 0);
}

INSTANTIATE_TEST_SUITE_P(Ways, HostCallsTest, kWays, kNameOfWay);

struct DepthTest : EffectTest, SmoothFrames {
    template<class Value>
    void expectFiltered(const Frame& frame, std::int32_t format, double fullScale, double mean = 2e-5) {
        expectOracle<Value>(frame, fullScale, 2e-4, mean, [&](const auto& values, int radius, int threshold) {
            World input = worldOf(values, frame.width, frame.height, format), output(0, 0);
            EXPECT_EQ(mEffect->render(input, output, std::array{radius, threshold}).text(), "");
            EXPECT_EQ(output.format(), format);
            return valuesOf<Value>(output);
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Smooth, DepthTest, kSmoothWays, kNameOfWay);

TEST_P(DepthTest, SmoothsAtTheDepthOfTheFrame) {
    for (int i = 0; i < 12; ++i) {
        Frame frame = makeFrame();
        expectFiltered<std::uint16_t>(frame, PF_PixelFormat_ARGB64, 32768);
        const double factor = 3 * uniform();
        reachBeyondFullScale(frame, factor);
        expectFiltered<float>(frame, PF_PixelFormat_ARGB128, 1, 2e-5 + 4e-7 * factor);
    }
}

TEST_P(DepthTest, RefusesADepthThatItDoesNotTake) {
    mHost.faults.bitDepth = 12;
    World input = mSample.world(), output(0, 0);
    const Host::Result result = mEffect->render(input, output, std::array{5});
    EXPECT_EQ(result.message, "Bilateral Smooth doesn't take frames of 12 bits a channel.");
    EXPECT_EQ(result.code, PF_Err_BAD_CALLBACK_PARAM);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
