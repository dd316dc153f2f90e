#include "Tests/BilateralBlur/EffectTest.h"
#include "Tests/Support/GLCalls.h"

#include <algorithm>
#include <array>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;

class HostCallsTest : public EffectTest {
protected:
    HostCallsTest() {
        EXPECT_EQ(frame(mSample), "");
        mHost.state = [this] {
            return NSOpenGLContext::currentContext() == mHostContext ? kHostContext : kEffectContext;
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
                                       "host_lock_handle"};
        calls.insert(calls.end(), std::max(rows, 0), "get_pixel_data8 output");
        for (const char* call :
             {"host_unlock_handle", "host_dispose_handle", "ReleaseSuite PF Handle Suite 2", kHostContext,
              "ReleaseSuite AEGP Item Suite 10", "ReleaseSuite AEGP Layer Suite 11",
              "ReleaseSuite AEGP PF Interface Suite 1"})
            calls.push_back(call);
        return forThisWay(calls);
    }

    // The same up to a call that fails, and then the release of all that was acquired before it.
    static std::vector<std::string> callsUpTo(const std::string& failing) {
        std::vector<std::string> calls = callsOfFrame();
        const auto end = std::find(calls.begin(), calls.end(), failing);
        std::vector<std::string> acquired(calls.begin(), end);
        calls.erase(end + 1, calls.end());
        std::reverse(acquired.begin(), acquired.end());
        for (const std::string& call : acquired)
            if (call.starts_with("AcquireSuite "))
                calls.push_back("ReleaseSuite " + call.substr(std::strlen("AcquireSuite ")));
            else if (call.starts_with("host_new_handle"))
                calls.push_back("host_dispose_handle");
            else if (call == "host_lock_handle")
                calls.push_back("host_unlock_handle");
            else if (call == kEffectContext)
                calls.push_back(kHostContext);
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
        mCalls = mHost.calls;
        mHost.faults = {};
        EXPECT_EQ(frame(mSample), "");
        return result;
    }

    static constexpr const char *kHostContext = "context of the host",
                                *kEffectContext = "context of the effect";
    std::vector<std::string> mCalls;

private:
    // No context is switched on the CPU.
    static std::vector<std::string> forThisWay(std::vector<std::string> calls) {
        if (GetParam() != Way::Gpu)
            std::erase_if(calls, [](const std::string& call) { return call.starts_with("context"); });
        return calls;
    }
};

TEST_P(HostCallsTest, CallsTheHostInOneOrder) {
    World whole(12, 8), small(3, 5), odd(12, 8), noWidth(0, 8), noHeight(12, 0);
    odd.rowbytes = 50; // its rows go to whole pixels all the same
    for (World* output : {&whole, &small, &odd, &noWidth, &noHeight}) {
        EXPECT_TRUE(renderWith({.output = output}).ok());
        EXPECT_EQ(mCalls, callsOfFrame(output->height));
    }
    EXPECT_EQ(std::memcmp(small.row(4), whole.row(4), sizeof(PF_Pixel8) * 3), 0);
    EXPECT_EQ(std::memcmp(odd.row(0) + 12, whole.row(1), sizeof(PF_Pixel8) * 12), 0);
}

TEST_P(HostCallsTest, UnwindsAtAFaultAndRendersTheNextFrame) {
    const auto expectUnwinding = [&](const std::string& call, PF_Err code, PF_Err expected,
                                     const char* message = "") {
        SCOPED_TRACE(call);
        const Host::Result result = renderWith({.failing = {{call, code}}});
        EXPECT_EQ(result.code, expected);
        EXPECT_EQ(result.message, message);
        EXPECT_EQ(mCalls, callsUpTo(call));
    };
    constexpr const char* kNoMemory = "There is no memory for a frame of 12 x 8 pixels.";
    expectUnwinding("checkout_layer_pixels 0", 77, 77);
    expectUnwinding("checkout_output", 77, 77);
    for (const char* call : {"AcquireSuite AEGP PF Interface Suite 1", "AcquireSuite AEGP Layer Suite 11",
                             "AcquireSuite AEGP Item Suite 10", "get_pixel_data8 input",
                             "AcquireSuite PF Handle Suite 2", "get_pixel_data8 output"})
        expectUnwinding(call, 77, 516);
    for (const char* call : {"host_new_handle 384", "host_lock_handle"})
        expectUnwinding(call, 77, 516, kNoMemory);
    expectUnwinding("get_pixel_data8 input", kThrowBadAlloc, 4, kNoMemory);
}

TEST_P(HostCallsTest, RefusesWorldsThatDoNotFit) {
    World world(13, 9);
    const int distance = world.rowbytes;
    const auto expect = [&](const Faults& faults, const PF_LayerDef& record, const std::string& message) {
        static_cast<PF_LayerDef&>(world) = record;
        const Host::Result result = renderWith(faults);
        EXPECT_EQ(result.message, message);
        EXPECT_EQ(result.code, message.empty() ? 0 : 516);
        EXPECT_EQ(mCalls, message.empty() ? callsOfFrame(record.height) : callsUpTo("checkout_output"));
    };
    const Faults input{.input = &world}, output{.output = &world};
    expect({.input = nullptr}, {}, "The host gave no input world.");
    expect({.output = nullptr}, {}, "The host gave no output world.");
    expect(output, {13, 8, distance}, "The output of 13 x 8 pixels is larger than the input of 12 x 8.");
    expect(output, {12, 9, distance}, "The output of 12 x 9 pixels is larger than the input of 12 x 8.");
    for (const int tooShort : {47, -64})
        expect(input, {12, 8, tooShort},
               "The rows of the input, " + std::to_string(tooShort) + " bytes apart, don't hold 12 pixels.");
    for (const int tooShort : {47, -47, 0})
        expect(output, {12, 8, tooShort},
               "The rows of the output, " + std::to_string(tooShort) + " bytes apart, don't hold 12 pixels.");
    expect(output, {12, 1, 0}, "");
    expect(output, {-12, 8, distance}, "");
    expect(output, {12, -8, distance}, "");
}

TEST_P(HostCallsTest, RendersTheFrameOfAFailedParameterWithTheSliderAtZero) {
    World output(12, 8);
    const auto expectFrame = [&](std::map<std::string, PF_Err> failing, PF_Err code, int scale) {
        EXPECT_EQ(renderWith({.failing = std::move(failing), .output = &output}).code, code);
        EXPECT_EQ(mCalls, callsOfFrame());
        EXPECT_EQ(Sample(mSample.picture, scale).difference(output), "");
    };
    expectFrame({{"checkout_param", 77}}, 77, 0);
    expectFrame({{"checkin_param", 78}}, 78, 7);
    expectFrame({{"checkout_param", 71}, {"checkin_param", 72}}, 71, 0);
}

INSTANTIATE_TEST_SUITE_P(Ways, HostCallsTest, kWays, nameOf);

} // namespace
} // namespace Tessaloom::BilateralBlur
