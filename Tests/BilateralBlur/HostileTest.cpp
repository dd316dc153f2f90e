#include "Tests/BilateralBlur/EffectTest.h"

#include <array>
#include <random>
#include <span>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;

// The host's functions in the order in which a frame calls them. `isOwn`: a code comes back as it is, not as
// 516.
struct Call {
    const char* name;
    bool isOwn = false;
};
constexpr Call kBeforeWorlds[] = {
    {"checkout_layer", true}, {"checkout_layer_pixels", true}, {"checkout_output", true}};
constexpr Call kSuites[] = {{"AcquireSuite AEGP PF Interface Suite 1"},
                            {"AcquireSuite AEGP Layer Suite 11"},
                            {"AcquireSuite AEGP Item Suite 10"}};
constexpr Call kPixels[] = {
    {"get_pixel_data8"}, {"AcquireSuite PF Handle Suite 2"}, {"host_new_handle"}, {"host_lock_handle"}};
constexpr const char* kParameter[] = {"checkout_param", "checkin_param"};

/// A host that does at random what it may, and what it may not.
class HostileTest : public EffectTest {
protected:
    int below(int bound) { return static_cast<int>(mRandom() % static_cast<unsigned>(bound)); }

    void injectFaults() {
        const auto perhaps = [&](const char* name, bool mayThrow = true) {
            if (below(16) == 0)
                mHost.faults.failing[name] = mayThrow && below(8) == 0 ? kThrowBadAlloc : 1 + below(1000);
        };
        for (const auto& calls : {std::span<const Call>(kBeforeWorlds), std::span<const Call>(kSuites),
                                  std::span<const Call>(kPixels)})
            for (const Call& call : calls)
                perhaps(call.name);
        perhaps(kParameter[0]);
        perhaps(kParameter[1], false); // or the parameter isn't given back
    }

    // The code of the first function to fail; 0 where none does.
    PF_Err codeOf(std::span<const Call> calls) const {
        for (const Call& call : calls)
            if (const auto fault = mHost.faults.failing.find(call.name); fault != mHost.faults.failing.end())
                return fault->second == kThrowBadAlloc ? PF_Err_OUT_OF_MEMORY
                       : call.isOwn                    ? fault->second
                                                       : 516;
        return 0;
    }

    PF_Err expectedCode(const World& input, const PF_LayerDef* output) const {
        if (const PF_Err code = codeOf(kBeforeWorlds))
            return code;
        const bool isEmpty = !output || output->width <= 0 || output->height <= 0;
        if (!output || (!isEmpty && (output->width > input.width || output->height > input.height)))
            return 516;
        if (mIsSetDown)
            return 516;
        if (const PF_Err code = codeOf(kSuites))
            return code;
        PF_Err parameter = 0;
        for (const char* name : kParameter)
            if (const auto fault = mHost.faults.failing.find(name); fault != mHost.faults.failing.end()) {
                if (fault->second == kThrowBadAlloc)
                    return PF_Err_OUT_OF_MEMORY;
                parameter = parameter ? parameter : fault->second;
            }
        const PF_Err pixels = input.width && input.height ? codeOf(kPixels) : 0;
        return pixels ? pixels : parameter;
    }

    void renderBadFrame() {
        World input(below(9), below(7)), target(below(9), below(7)), result(0, 0);
        PF_LayerDef* output = below(20) == 0 ? nullptr : &target;
        mHost.faults.output = output;
        injectFaults();
        const PF_Err expected = expectedCode(input, output);
        const Host::Result outcome = mEffect->render(input, result, std::array{below(61)});
        EXPECT_EQ(outcome.code, expected) << outcome.message;
        EXPECT_THAT(outcome.mistakes, testing::IsEmpty());
        EXPECT_TRUE(target.paddingIntact());
        mHost.faults = {};
    }

    void send(PF_Cmd command) {
        PF_OutData out{};
        EXPECT_EQ(mModule.entry()(command, nullptr, &out, nullptr, nullptr, nullptr), 0);
    }

    void act() {
        EglWatch::failing = GetParam() == Way::NoGL || below(4) == 0; // contexts that are made now
        const int action = below(300);
        if (action == 0)
            send(PF_Cmd_GLOBAL_SETDOWN);
        else if (action < 3)
            send(PF_Cmd_GLOBAL_SETUP);
        else if (action < 20)
            EXPECT_NE(mEffect->about(), "");
        else
            renderBadFrame();
        mIsSetDown = action == 0 || (action > 2 && mIsSetDown);
        const Sample& sample = mSamples[static_cast<std::size_t>(below(3))];
        EXPECT_EQ(frame(sample),
                  mIsSetDown ? "The effect was asked for a frame after its global setdown." : "");
        EglWatch::failing = GetParam() == Way::NoGL;
    }

    // On this thread, with the host's context current or none.
    void actHere() {
        NSOpenGLContext* const current = below(4) ? mHostContext : nullptr;
        if (current)
            current->makeCurrentContext();
        else
            CGLSetCurrentContext({});
        act();
        if (current) {
            EXPECT_EQ(NSOpenGLContext::currentContext(), current);
        }
    }

    // More by hand: --gtest_shuffle --gtest_repeat=10
    std::mt19937 mRandom{static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed())};
    bool mIsSetDown = false;
    const Sample mSamples[3] = {{Pictures::noise(5, 4, 1), 3},
                                {Pictures::blocks(7, 3, false), 60},
                                {Pictures::photograph(4, 6, 2), 20}};
};

TEST_P(HostileTest, FindsNoWayToBreakTheEffect) {
    const int steps = GetParam() == Way::Gpu ? 3000 : 7000;
    for (int step = 0; step < steps && !HasFailure(); ++step) {
        SCOPED_TRACE(step);
        if (below(100))
            actHere();
        else
            onThread([&] { act(); });
    }
    mHostContext->makeCurrentContext();
}

INSTANTIATE_TEST_SUITE_P(Ways, HostileTest, testing::Values(Way::Gpu, Way::SoftwareGL), nameOf);

} // namespace
} // namespace Tessaloom::BilateralBlur
