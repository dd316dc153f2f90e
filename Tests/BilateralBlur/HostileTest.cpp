#include "Tests/BilateralBlur/EffectTest.h"

#include <array>
#include <random>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;

constexpr const char* kFunctions[] = {"checkout_layer",
                                      "checkout_layer_pixels",
                                      "checkout_output",
                                      "AcquireSuite AEGP PF Interface Suite 1",
                                      "AcquireSuite AEGP Layer Suite 11",
                                      "AcquireSuite AEGP Item Suite 10",
                                      "checkout_param",
                                      "get_pixel_data8",
                                      "AcquireSuite PF Handle Suite 2",
                                      "host_new_handle",
                                      "host_lock_handle"};

/// A host that does at random what it may, and what it may not.
class HostileTest : public EffectTest {
protected:
    int below(int bound) { return static_cast<int>(mRandom() % static_cast<unsigned>(bound)); }

    void injectFaults() {
        for (const char* function : kFunctions)
            if (below(16) == 0)
                mHost.faults.failing[function] = below(8) == 0 ? kThrowBadAlloc : 1 + below(1000);
        if (below(16) == 0) // without an exception, after which the parameter isn't given back
            mHost.faults.failing["checkin_param"] = 1 + below(1000);
    }

    // What the frame must return after its calls: the code of a failed checkout as it is, 516 for the rest.
    PF_Err expectedCode(bool isRefused) const {
        PF_Err expected = 0;
        for (const std::string& call : mHost.calls)
            for (const auto& [function, code] : mHost.faults.failing) {
                if (call != function && call.substr(0, call.find(' ')) != function)
                    continue;
                if (code == kThrowBadAlloc)
                    return PF_Err_OUT_OF_MEMORY;
                if (!call.starts_with("check"))
                    return 516;
                expected = expected ? expected : code;
            }
        return expected == 0 && isRefused ? 516 : expected;
    }

    void renderBadFrame() {
        World input(below(9), below(7)), target(below(9), below(7)), result(0, 0);
        PF_LayerDef* output = below(20) == 0 ? nullptr : &target;
        mHost.faults.output = output;
        injectFaults();
        const Host::Result outcome = mEffect->render(input, result, std::array{below(61)});
        const bool isEmpty = target.width == 0 || target.height == 0;
        const bool isLarger = target.width > input.width || target.height > input.height;
        const PF_Err expected = expectedCode(!output || (isLarger && !isEmpty) || mIsSetDown);
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
