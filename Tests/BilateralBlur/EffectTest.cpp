#include "Tests/BilateralBlur/EffectTest.h"

#include "Host/Suites.h"
#include "Platform/UsableCpus.h"
#include "Tests/Support/GLCalls.h"
#include "Tests/Support/ProcessRun.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <algorithm>
#include <array>
#include <bit>
#include <filesystem>
#include <iterator>
#include <sys/resource.h>
#include <tuple>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;
using Pictures::noise;
using testing::ElementsAre;
using testing::HasSubstr;

INSTANTIATE_TEST_SUITE_P(Ways, EffectTest, kWays, nameOf);

TEST(Module, ExportsItsEntryAloneAndTouchesNoGLWhenLoaded) {
    const Host::Module module(MODULE);
    EXPECT_EQ(EglWatch::liveContexts, 0);
    ProcessRun symbols({"/bin/sh", "-c", "nm -D --defined-only -j '" MODULE "'"});
    EXPECT_EQ(symbols.wait().out, "EntryPointFunc\n");
}

TEST(Module, LeavesOtherCommandsAlone) {
    const Host::Module module(MODULE);
    PF_OutData out, before;
    std::memset(&out, 0xA5, sizeof out);
    std::memcpy(&before, &out, sizeof out);
    for (const PF_Cmd unknown : {-1, 2, 5, 11, 22, 25, 0x7FFFFFFF})
        EXPECT_EQ(module.entry()(unknown, nullptr, &out, nullptr, nullptr, nullptr), 0) << unknown;
    EXPECT_EQ(std::memcmp(&out, &before, sizeof out), 0);
}

TEST_P(EffectTest, DeclaresItself) {
    EXPECT_THAT(mHost.calls, ElementsAre("add_param -1"));
    EXPECT_EQ(mEffect->about(), "Bilateral Blur v1.0\rBilateral Blur");
    EXPECT_EQ(mModule.resource().version, 0x80001u);
    EXPECT_EQ(mModule.resource().outFlags, 0);
    EXPECT_EQ(mModule.resource().outFlags2, 0x400);
    PF_ParamDef expected, declared;
    std::memset(&expected, 0, sizeof expected);
    expected.uu.id = 1;
    expected.param_type = PF_Param_SLIDER;
    std::strcpy(expected.name, "Blur Scale");
    expected.u.sd.valid_max = expected.u.sd.slider_max = 60;
    PF_InData inData{{}, Host::utilCallbacks(), &declared, nullptr, 0, 1, 1};
    inData.inter.add_param = [](void* ref, std::int32_t, PF_ParamDef* param) -> PF_Err {
        return std::memcpy(ref, param, sizeof *param), 0;
    };
    PF_OutData out{};
    EXPECT_EQ(mModule.entry()(PF_Cmd_PARAMS_SETUP, &inData, &out, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(std::memcmp(&declared, &expected, sizeof expected), 0);
}

// The result of a checkout or a pre-render, and the largest.
using Rectangles = std::array<std::int32_t, 8>;
Rectangles mCheckedOut;
PF_Err mCode = 0;

TEST(PreRender, PassesTheRequestOnAndUnitesTheRectangles) {
    const Host::Module module(MODULE);
    PF_PreRenderCallbacks callbacks{[](void*, std::int32_t index, std::int32_t id,
                                       const PF_RenderRequest* request, std::int32_t time, std::int32_t step,
                                       std::uint32_t scale, PF_CheckoutResult* result) -> PF_Err {
        EXPECT_THAT((std::array<std::int64_t, 5>{index, id, time, step, scale}), ElementsAre(0, 0, 5, 2, 25));
        EXPECT_THAT((std::bit_cast<std::array<std::int32_t, 5>>(*request)), ElementsAre(-3, 4, 50, 60, 0xB));
        *result = std::bit_cast<PF_CheckoutResult>(mCheckedOut);
        return mCode;
    }};
    PF_InData inData{{}, nullptr, nullptr, nullptr, 5, 2, 25};
    PF_PreRenderInput input{{{-3, 4, 50, 60}, 0xB}};
    const auto expectUnion = [&](const Rectangles& before, const Rectangles& checkedOut,
                                 const Rectangles& after) {
        mCheckedOut = checkedOut;
        auto output = std::bit_cast<PF_PreRenderOutput>(before);
        PF_PreRenderExtra extra{&input, &output, &callbacks};
        EXPECT_EQ(module.entry()(PF_Cmd_SMART_PRE_RENDER, &inData, nullptr, nullptr, nullptr, &extra), mCode);
        EXPECT_EQ(std::bit_cast<Rectangles>(output), after);
    };
    expectUnion({5, 5, 5, 9, 0, 9, 3, 4}, {7, 7, 6, 6, 1, 2, 3, 4}, {7, 7, 6, 6, 1, 2, 3, 4});
    expectUnion({1, 2, 3, 4, 1, 2, 3, 4}, {8, 8, 8, 9, 2, 5, 9, 5}, {1, 2, 3, 4, 1, 2, 3, 4});
    expectUnion({1, 2, 3, 4, 1, 2, 3, 4}, {-5, 3, 2, 9, 2, -7, 9, 3}, {-5, 2, 3, 9, 1, -7, 9, 4});
    mCode = 77;
    expectUnion({1, 2, 3, 4, 5, 6, 7, 8}, {-5, 3, 2, 9, 2, -7, 9, 3}, {1, 2, 3, 4, 5, 6, 7, 8});
}

TEST_P(EffectTest, WritesRowsThatRunUpwards) {
    World input = mSample.world(), output(0, 0), upwards(12, 8), downwards(12, 8);
    mHost.faults.output = &upwards;
    upwards.rowbytes *= -1;
    mEffect->render(input, output, std::array{mSample.scale});
    EXPECT_EQ(mHost.code, 0);
    upwards.rowbytes *= -1;
    for (int y = 0; y < 8; ++y)
        std::copy_n(upwards.row(y), 12, downwards.row(7 - y));
    EXPECT_EQ(mSample.difference(downwards), "");
    EXPECT_TRUE(upwards.paddingIntact());
}

TEST_P(EffectTest, HasTheSizeLimitOfAGpuAlone) {
    using Text = testing::Matcher<std::string>;
    for (const auto& [width, height] : {std::pair{20000, 1}, {1, 20000}})
        EXPECT_THAT(frame({noise(width, height, 1), 3}),
                    GetParam() == Way::Gpu ? Text(HasSubstr("exceeds")) : Text(""));
    EXPECT_EQ(frame(mSample), "");
}

using CpuTest = EffectTest;
INSTANTIATE_TEST_SUITE_P(Ways, CpuTest, testing::Values(Way::SoftwareGL, Way::NoGL), nameOf);

TEST_P(CpuTest, TouchesNoGLAndNoFreshMemoryAfterTheFirstFrames) {
    constexpr int kWidth = 1 << 14, kHeight = 1 << 10, kPages = kWidth * kHeight / 1024;
    World input(kWidth, kHeight), output(kWidth, kHeight);
    const GLCalls calls;
    const auto faultsOfTwoFrames = [&] {
        rusage before{}, after{};
        getrusage(RUSAGE_SELF, &before);
        for (int i = 0; i < 2; ++i)
            EXPECT_TRUE(mEffect->render(input, output, std::array{0}).ok());
        getrusage(RUSAGE_SELF, &after);
        return after.ru_minflt - before.ru_minflt;
    };
    faultsOfTwoFrames();
    EXPECT_LT(faultsOfTwoFrames(), kPages / 8);
    EXPECT_THAT(calls.names, testing::IsEmpty());
    EXPECT_EQ(EglWatch::liveContexts, GetParam() == Way::NoGL ? 1 : 2) << "the host's and the data context";
    const auto threads = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    const auto before = threads();
    mEffect.reset();
    EXPECT_EQ(threads(), before + 1 - usableCpus());
}

// The error is real, and of a buffer beside what the frame needs.
void exhaustMemory() {
    gl::GLuint buffer = 0;
    gl::glGenBuffers(1, &buffer);
    gl::glBindBuffer(gl::GL_ARRAY_BUFFER, buffer);
    gl::glBufferData(gl::GL_ARRAY_BUFFER, PTRDIFF_MAX, nullptr, gl::GL_STATIC_DRAW);
    gl::glDeleteBuffers(1, &buffer);
}

void takeStorageAway() {
    gl::glRenderbufferStorage(gl::GL_RENDERBUFFER, gl::GL_RGBA, 0, 0);
}

using GpuTest = EffectTest;
INSTANTIATE_TEST_SUITE_P(Ways, GpuTest, testing::Values(Way::Gpu), nameOf);

// The size is new to GL, so that each step of its first frame can fail. A picture from what failed would be
// black or random.
TEST_P(GpuTest, ReportsExhaustedGLMemoryAndStartsFromNothingAfterIt) {
    const auto frameWith = [&](const char* function, void (*fault)(), const Sample& sample) {
        GLCalls calls;
        calls.after = [&](const std::string& name) {
            if (name == function)
                fault();
        };
        return frame(sample);
    };
    const std::tuple<const char*, void (*)(), const char*> cases[] = {
        {"glRenderbufferStorage", exhaustMemory, "ran out of memory for a frame of 12 x 8"},
        {"glRenderbufferStorage", takeStorageAway, "no storage"},
        {"glRenderbufferStorageMultisample", takeStorageAway, "no storage"},
        {"glTexSubImage2D", exhaustMemory, "ran out of memory"},
        {"glDrawArrays", exhaustMemory, "ran out of memory"},
        {"glReadPixels", exhaustMemory, "no memory"},
        {"glUseProgram", [] { gl::glUseProgram(~0u); }, "noted the error 1281"},
    };
    for (const auto& [function, fault, message] : cases) {
        EXPECT_EQ(frame({noise(5, 5, 1), 5}), "");
        EXPECT_THAT(frameWith(function, fault, mSample), HasSubstr(message)) << function;
        EXPECT_EQ(frame(mSample), "") << function;
    }
    // An error that a frame leaves is none of the next.
    EXPECT_THAT(frameWith("glGetIntegerv", exhaustMemory, {noise(20000, 1, 1), 3}), HasSubstr("exceeds"));
    EXPECT_EQ(frame(mSample), "");
}

// Threads that live side by side take turns, each inside the other. A context keeps the objects that it can't
// share for frames of one size, and no more of them after many sizes.
TEST_P(EffectTest, DrawsOnThreadsThatTakeTurns) {
    GLCalls calls;
    const std::function<void(unsigned)> turns = [&](unsigned depth) {
        for (unsigned turn = 0; turn < 3; ++turn) {
            const int size = depth % 2 ? 9 : 8 + static_cast<int>(turn);
            EXPECT_EQ(frame({noise(size, 7, 10 * depth + turn, true), 5}), "") << depth << ", " << turn;
            if (depth < 2 && turn < 2)
                onThread([&] { turns(depth + 1); });
        }
    };
    turns(0);
    constexpr int kContexts = 1 + 2 + 4;
    EXPECT_LE(calls.kept("Framebuffers"), 4 * kContexts);
    EXPECT_LE(calls.kept("VertexArrays"), 2 * kContexts);
    EXPECT_LE(calls.kept("Renderbuffers"), 1);
    EXPECT_LE(calls.kept("Textures"), 0);
    calls.counts.clear();
    EXPECT_EQ(frame({noise(10, 7, 3), 5}), "");
    for (const char* made : {"glGenFramebuffers", "glGenVertexArrays", "glGenBuffers", "glCreateShader"})
        EXPECT_EQ(calls.counts[made], 0) << made;
    // At the end, objects go before the contexts.
    calls.after = [](const std::string& name) {
        if (name.starts_with("glDelete")) {
            EXPECT_GT(EglWatch::liveContexts, 1) << name;
        }
    };
    mEffect.reset();
}

TEST_P(EffectTest, StartsAndEndsOnAnyThreadAnyNumberOfTimes) {
    // Without a context of the host's, a thread has the effect's last one current until it looks again.
    const auto restart = [&](int waitingThreads) {
        mEffect.reset();
        EXPECT_EQ(mHost.code, 0);
        EXPECT_EQ(EglWatch::liveContexts, 1 + (GetParam() == Way::NoGL ? 0 : waitingThreads));
        mEffect.emplace(mHost.module());
        PF_OutData out{};
        EXPECT_EQ(mModule.entry()(PF_Cmd_GLOBAL_SETUP, nullptr, &out, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(frame(mSample), "");
    };
    for (int round = 0; round < 3; ++round) {
        restart(0);
        onThread([&] {
            restart(0);
            onThread([&] { restart(1); });
            EXPECT_EQ(frame(mSample), "");
        });
        EXPECT_EQ(frame(mSample), "");
    }
    // So the setdown may come from a thread that finds the data context in use, and get no context at all.
    std::array<gl::GLuint, 8> buffers{}; // of the host's
    glbinding::Binding::initialize(false);
    gl::glGenBuffers(buffers.size(), buffers.data());
    for (const gl::GLuint buffer : buffers)
        gl::glBindBuffer(gl::GL_ARRAY_BUFFER, buffer);
    CGLSetCurrentContext({});
    const auto usual = EglWatch::failing.load();
    for (const auto failing : {usual, EglWatch::Failing::Creation, EglWatch::Failing::Binding})
        onThread([&] {
            mEffect.emplace(mHost.module());
            EXPECT_EQ(frame(mSample), "");
            onThread([&] {
                mHostContext->makeCurrentContext();
                EglWatch::failing = failing;
                mEffect.reset();
                EXPECT_EQ(mHost.code, 0);
                EXPECT_EQ(NSOpenGLContext::currentContext(), mHostContext);
                CGLSetCurrentContext({});
            });
            EglWatch::failing = usual;
        });
    mHostContext->makeCurrentContext();
    for (const gl::GLuint buffer : buffers)
        EXPECT_TRUE(gl::glIsBuffer(buffer)) << buffer;
    EXPECT_EQ(EglWatch::liveContexts, 1);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
