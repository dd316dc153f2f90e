#pragma once

#include "Tests/Effect/EffectTest.h"
#include "Tests/Support/GLCalls.h"

namespace Tessaloom::BilateralBlur {

/// A host that does by chance what it may, and what it may not.
class HostileWalk : Session {
public:
    /// Each decision is a number of 0 to `bound` - 1, as `below(bound)` gives it.
    HostileWalk(Way way, std::function<int(int bound)> below) : Session(way), mBelow(std::move(below)) {}
    ~HostileWalk() { mHostContext->makeCurrentContext(); }

    /// Sets the effect up if the last action set it down.
    void setUpAgain() {
        if (std::exchange(mIsSetDown, false))
            send(PF_Cmd_GLOBAL_SETUP);
    }

    /// Acts once, checks the outcome, and renders a right frame. That happens on a thread of its own or on
    /// this one, with the host's context current or none.
    void step() {
        if (mBelow(100) == 0)
            return onThread([this] { act(); });
        const bool hasContext = mBelow(4) > 0;
        mHostContext->makeCurrentContext();
        if (!hasContext)
            CGLSetCurrentContext({});
        act();
        EXPECT_EQ(NSOpenGLContext::currentContext() == mHostContext, hasContext);
    }

private:
    void send(PF_Cmd command) {
        PF_OutData out{};
        PF_OutData* const touched = command == PF_Cmd_GLOBAL_SETUP ? &out : nullptr;
        EXPECT_EQ(mModule.entry()(command, nullptr, touched, nullptr, nullptr, nullptr), 0);
    }

    void act() {
        // Nothing fails in 10 of 12 steps.
        EglWatch::failing = static_cast<EglWatch::Failing>(std::max(0, mBelow(12) - 9));
        const int action = mBelow(300);
        if (action < 10)
            send(kCommands[action]);
        else if (action < 20)
            EXPECT_NE(mEffect->about(), "");
        else
            renderBadFrame();
        mIsSetDown = action == 0 || (action > 2 && mIsSetDown);
        const Sample& sample = mSamples[static_cast<std::size_t>(mBelow(3))];
        EXPECT_EQ(frame(sample),
                  mIsSetDown ? "The effect was asked for a frame after its global setdown." : "");
        EglWatch::failing = EglWatch::Failing::Nothing;
    }

    void renderBadFrame() {
        Host::World input(mBelow(9), mBelow(7)), target(mBelow(9), mBelow(7)), result(0, 0);
        PF_LayerDef* const output = mBelow(20) == 0 ? nullptr : &target;
        const std::string fault = kFunctions[std::min(mBelow(18), 9)];
        const PF_Err codes[] = {kThrowBadAlloc, kThrowOther, -1 - mBelow(1000), 1 + mBelow(1000)};
        const PF_Err code = codes[std::min(mBelow(8), 3)];
        mHost.faults = {.failing = {{fault, code}}, .output = output};
        const int textures = mGLCalls.kept("Textures");
        const Host::Result outcome = mEffect->render(input, result, std::array{mBelow(61)});
        mHost.faults = {};
        const bool isEmpty = target.width == 0 || target.height == 0;
        const bool isLarger = target.width > input.width || target.height > input.height;
        // An exception on the way of the GPU sends a frame to the CPU, which asks for none where a straight result has
        // the output's size.
        const bool needsHandle =
            !mWay.isSmooth || target.width != input.width || target.height != input.height;
        const bool isThrown = code == kThrowBadAlloc || code == kThrowOther;
        const bool isRetried = isThrown && fault.starts_with("host_") && !needsHandle;
        PF_Err expected = !output || (isLarger && !isEmpty) || mIsSetDown ? PF_Err_BAD_CALLBACK_PARAM : 0;
        if (!isRetried &&
            std::ranges::any_of(mHost.calls, [&](auto& call) { return call.starts_with(fault); }))
            expected = code == kThrowBadAlloc                              ? PF_Err_OUT_OF_MEMORY
                       : code != kThrowOther && fault.starts_with("check") ? code
                                                                           : PF_Err_BAD_CALLBACK_PARAM;
        EXPECT_EQ(outcome.code, expected) << outcome.message;
        EXPECT_THAT(outcome.mistakes, testing::IsEmpty());
        EXPECT_TRUE(target.paddingIntact());
        EXPECT_EQ(mGLCalls.kept("Textures"), textures);
    }

    static constexpr PF_Cmd kCommands[] = {
        PF_Cmd_GLOBAL_SETDOWN, PF_Cmd_GLOBAL_SETUP, PF_Cmd_GLOBAL_SETUP, -1, 2, 5, 11, 22, 25, 0x7FFFFFFF};
    static constexpr const char* kFunctions[] = {
        "checkout_layer", "checkout_layer_pixels", "checkout_output", "AcquireSuite",     "checkout_param",
        "checkin_param",  "get_pixel_data8",       "host_new_handle", "host_lock_handle", "none"};
    GLCalls mGLCalls;
    const std::function<int(int)> mBelow;
    bool mIsSetDown = false;
    inline static const Sample mSamples[3] = {
        {Images::noise(5, 4, 1), 3}, {Images::noise(7, 3, 3), 60}, {Images::photograph(4, 6, 2), 20}};
};

} // namespace Tessaloom::BilateralBlur
