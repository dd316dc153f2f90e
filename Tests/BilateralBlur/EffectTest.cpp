#include "Tests/BilateralBlur/EffectTest.h"

#include "Host/Suites.h"
#include "Platform/UsableCpus.h"
#include "Tests/Support/GLCalls.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <sys/resource.h>

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
    std::unique_ptr<FILE, int (*)(FILE*)> symbols(popen("nm -D --defined-only '" MODULE "'", "r"), pclose);
    std::string table(4096, '\0');
    table.resize(std::fread(table.data(), 1, table.size(), symbols.get()));
    EXPECT_THAT(table, testing::MatchesRegex("[0-9a-f]+ T EntryPointFunc\n"));
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

TEST_P(EffectTest, LeavesOtherCommandsAlone) {
    for (const PF_Cmd unknown : {-1, 2, 5, 11, 22, 25, 0x7FFFFFFF}) {
        PF_OutData out, before;
        std::memset(&out, 0xA5, sizeof out);
        std::memcpy(&before, &out, sizeof out);
        EXPECT_EQ(mModule.entry()(unknown, nullptr, &out, nullptr, nullptr, nullptr), 0) << unknown;
        EXPECT_EQ(std::memcmp(&out, &before, sizeof out), 0) << unknown;
    }
}

// The result of a checkout or a pre-render, and the largest.
using Rectangles = std::array<std::int32_t, 8>;
Rectangles mCheckedOut;

TEST_P(EffectTest, PassesTheRequestOnAndUnitesTheRectangles) {
    PF_PreRenderCallbacks callbacks{[](void*, std::int32_t, std::int32_t, const PF_RenderRequest*,
                                       std::int32_t, std::int32_t, std::uint32_t,
                                       PF_CheckoutResult* result) -> PF_Err {
        *result = std::bit_cast<PF_CheckoutResult>(mCheckedOut);
        return 0;
    }};
    PF_InData inData{{}, Host::utilCallbacks(), nullptr, Host::basicSuite(), 5, 2, 25};
    PF_PreRenderInput input{{{-3, 4, 50, 60}, 0xB}};
    const auto expectUnion = [&](const Rectangles& before, const Rectangles& checkedOut,
                                 const Rectangles& after) {
        mCheckedOut = checkedOut;
        auto output = std::bit_cast<PF_PreRenderOutput>(before);
        PF_PreRenderExtra extra{&input, &output, &callbacks};
        mHost.module().entry()(PF_Cmd_SMART_PRE_RENDER, &inData, nullptr, nullptr, nullptr, &extra);
        EXPECT_THAT(mHost.calls, ElementsAre("checkout_layer 0 0 -3 4 50 60 11 5 2 25"));
        EXPECT_EQ(std::bit_cast<Rectangles>(output), after);
    };
    expectUnion({5, 5, 5, 9, 0, 9, 3, 4}, {7, 7, 6, 6, 1, 2, 3, 4}, {7, 7, 6, 6, 1, 2, 3, 4});
    expectUnion({1, 2, 3, 4, 1, 2, 3, 4}, {8, 8, 8, 9, 2, 5, 9, 5}, {1, 2, 3, 4, 1, 2, 3, 4});
    expectUnion({1, 2, 3, 4, 1, 2, 3, 4}, {-5, 3, 2, 9, 2, -7, 9, 3}, {-5, 2, 3, 9, 1, -7, 9, 4});
    EXPECT_EQ(mHost.code, 0);
    mHost.faults.failing = {{"checkout_layer", 77}};
    expectUnion({1, 2, 3, 4, 5, 6, 7, 8}, {-5, 3, 2, 9, 2, -7, 9, 3}, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(mHost.code, 77);
}

// The host gives the address of the top row, which is the last in memory.
TEST_P(EffectTest, WritesRowsThatRunUpwards) {
    World input = mSample.world(), output(0, 0), upwards(12, 8);
    mHost.faults = {.output = &upwards, .outputBase = upwards.row(7)};
    upwards.rowbytes *= -1;
    mEffect->render(input, output, std::array{mSample.scale});
    EXPECT_EQ(mHost.code, 0);
    upwards.rowbytes *= -1;
    for (int y = 0; y < 4; ++y)
        std::swap_ranges(upwards.row(y), upwards.row(y) + 12, upwards.row(7 - y));
    EXPECT_EQ(mSample.difference(upwards), "");
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

TEST_P(CpuTest, TouchesNoFreshMemoryAfterTheFirstFrames) {
    constexpr int kWidth = 1 << 14, kHeight = 1 << 10, kPages = kWidth * kHeight / 1024;
    World input(kWidth, kHeight), output(kWidth, kHeight);
    const auto faultsOf = [&](int frames) {
        rusage before{}, after{};
        getrusage(RUSAGE_SELF, &before);
        for (int i = 0; i < frames; ++i)
            EXPECT_TRUE(mEffect->render(input, output, std::array{0}).ok());
        getrusage(RUSAGE_SELF, &after);
        return after.ru_minflt - before.ru_minflt;
    };
    faultsOf(2);
    EXPECT_LT(faultsOf(2), kPages / 8);
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
    struct {
        const char* function;
        void (*fault)();
        const char* message;
    } const cases[] = {
        {"glRenderbufferStorage", exhaustMemory, "ran out of memory for a frame of 12 x 8"},
        {"glRenderbufferStorage", takeStorageAway, "no storage"},
        {"glRenderbufferStorageMultisample", takeStorageAway, "no storage"},
        {"glTexSubImage2D", exhaustMemory, "ran out of memory"},
        {"glDrawArrays", exhaustMemory, "ran out of memory"},
        {"glReadPixels", exhaustMemory, "no memory"},
        {"glUseProgram", [] { gl::glUseProgram(~0u); }, "noted the error 1281"},
    };
    for (const auto& [function, fault, message] : cases) {
        SCOPED_TRACE(std::string(function) + ", " + message);
        EXPECT_EQ(frame({noise(5, 5, 1), 5}), "");
        {
            GLCalls calls;
            calls.after = [&, at = function, act = fault](const std::string& name) {
                if (name == at)
                    act();
            };
            EXPECT_THAT(frame(mSample), HasSubstr(message));
        }
        EXPECT_EQ(frame(mSample), "");
    }
    // An error that a frame leaves is none of the next.
    GLCalls calls;
    calls.after = [](const std::string& name) {
        if (name == "glGetIntegerv")
            exhaustMemory();
    };
    EXPECT_THAT(frame({noise(20000, 1, 1), 3}), HasSubstr("exceeds"));
    calls.after = nullptr;
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
    for (const bool failing : {false, true})
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
            EglWatch::failing = GetParam() == Way::NoGL;
        });
    mHostContext->makeCurrentContext();
    for (const gl::GLuint buffer : buffers)
        EXPECT_TRUE(gl::glIsBuffer(buffer)) << buffer;
    EXPECT_EQ(EglWatch::liveContexts, 1);
    mEffect.emplace(mHost.module());
    EXPECT_EQ(mModule.entry()(PF_Cmd_GLOBAL_SETDOWN, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_THAT(frame(mSample), HasSubstr("after its global setdown"));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
