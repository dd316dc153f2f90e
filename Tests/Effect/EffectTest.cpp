#include "Tests/Effect/EffectTest.h"

#include "Platform/UsableCpus.h"
#include "Tests/Effect/HostileWalk.h"

#include <glbinding/gl/gl.h>

#include <bit>
#include <sys/resource.h>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;
using Images::noise;
using testing::ElementsAre;

INSTANTIATE_TEST_SUITE_P(Ways, EffectTest, kWays, kNameOfWay);
INSTANTIATE_TEST_SUITE_P(Smooth, EffectTest, kSmoothWays, kNameOfWay);

TEST(Module, TouchesNoGLWhenLoaded) {
    const Host::Module blur(MODULE), smooth(SMOOTH_MODULE);
    EXPECT_EQ(EglWatch::liveContexts, 0);
}

TEST_P(EffectTest, DeclaresItself) {
    const bool isSmooth = GetParam().isSmooth;
    const std::string name = isSmooth ? "Bilateral Smooth" : "Bilateral Blur";
    const std::vector<std::string> smooth{"add_param -1 Radius 1 0 0 60",
                                          "add_param -1 Threshold 2 0 1 1000"};
    EXPECT_EQ(mHost.calls, isSmooth ? smooth : std::vector<std::string>{"add_param -1 Blur Scale 1 0 0 60"});
    EXPECT_EQ(mEffect->about(), name + " v1.0\r" + name);
    EXPECT_EQ(mModule.resource().version, 0x80001u);
    EXPECT_EQ(mModule.resource().outFlags, isSmooth ? 0x2000000 : 0);
    EXPECT_EQ(mModule.resource().outFlags2, isSmooth ? 0x1400 : 0x400);
}

// The result of a checkout or a pre-render, and the largest.
using Rectangles = std::array<std::int32_t, 8>;
Rectangles mCheckedOut;

TEST(PreRender, PassesTheRequestOnAndUnitesTheRectangles) {
    const Host::Module module(MODULE);
    PF_PreRenderCallbacks callbacks{[](void*, auto index, auto id, const PF_RenderRequest* request, auto time,
                                       auto step, auto scale, PF_CheckoutResult* result) -> PF_Err {
        EXPECT_THAT((std::array<std::int64_t, 5>{index, id, time, step, scale}), ElementsAre(0, 0, 5, 2, 25));
        EXPECT_THAT((std::bit_cast<std::array<std::int32_t, 5>>(*request)), ElementsAre(-3, 4, 50, 60, 0xB));
        *result = std::bit_cast<PF_CheckoutResult>(mCheckedOut);
        return PF_Err_NONE;
    }};
    PF_InData inData{{}, nullptr, nullptr, nullptr, 5, 2, 25};
    PF_PreRenderInput input{{{-3, 4, 50, 60}, 0xB}};
    const auto expectUnion = [&](const Rectangles& before, const Rectangles& checkedOut,
                                 const Rectangles& after) {
        mCheckedOut = checkedOut;
        auto output = std::bit_cast<PF_PreRenderOutput>(before);
        PF_PreRenderExtra extra{&input, &output, &callbacks};
        EXPECT_EQ(module.entry()(PF_Cmd_SMART_PRE_RENDER, &inData, nullptr, nullptr, nullptr, &extra), 0);
        EXPECT_EQ(std::bit_cast<Rectangles>(output), after);
    };
    expectUnion({5, 5, 5, 9, 0, 9, 3, 4}, {7, 7, 6, 6, 1, 2, 3, 4}, {7, 7, 6, 6, 1, 2, 3, 4});
    expectUnion({1, 2, 3, 4, 1, 2, 3, 4}, {8, 8, 8, 9, 2, 5, 9, 5}, {1, 2, 3, 4, 1, 2, 3, 4});
    expectUnion({1, 2, 3, 4, 1, 2, 3, 4}, {-5, 3, 2, 9, 2, -7, 9, 3}, {-5, 2, 3, 9, 1, -7, 9, 4});
}

// Coordinates that miss a texel's centre by little would show in wide images and at transparent pixels. The larger an
// image the smaller its scale, for slow implementations of GL.
TEST_P(EffectTest, GivesTheImageOfTheFormulas) {
    std::mt19937 random(3);
    for (int i = 0; i < 50; ++i) {
        const Images::Image image = Images::random(random);
        const int scales = std::min(61, 6 + 4000 / (image.width * image.height));
        EXPECT_EQ(frame({image, Images::below(random, scales)}), "") << i;
    }
}

using CpuTest = EffectTest;
INSTANTIATE_TEST_SUITE_P(Ways, CpuTest, testing::Values(Way::SoftwareGL, Way::NoGL), kNameOfWay);

TEST_P(CpuTest, TouchesNoGLAndNoFreshMemoryAfterTheFirstFrames) {
    constexpr int kWidth = 1 << 14, kHeight = 1 << 10, kPages = kWidth * kHeight / 1024;
    World input(kWidth, kHeight), output(kWidth, kHeight);
    const GLCalls calls;
    EXPECT_EQ(frame({noise(20000, 1, 1), 3}), "") << "beyond the limits of a GPU";
    rusage first{}, next{};
    for (rusage* usage : {&first, &next}) {
        for (int i = 0; i < 2; ++i)
            EXPECT_TRUE(mEffect->render(input, output, std::array{0}).ok());
        getrusage(RUSAGE_SELF, usage);
    }
    EXPECT_LT(next.ru_minflt - first.ru_minflt, kPages / 8);
    EXPECT_THAT(calls.names, testing::IsEmpty());
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

void dropStorage() {
    gl::glRenderbufferStorage(gl::GL_RENDERBUFFER, gl::GL_RGBA, 0, 0);
}

using GpuTest = EffectTest;
INSTANTIATE_TEST_SUITE_P(Ways, GpuTest, testing::Values(Way::Gpu, Way(Way::Gpu, true)), kNameOfWay);

// The size is new to GL, so that each step of its first frame can fail. An image from what failed would be
// black or random.
TEST_P(GpuTest, FiltersOnTheCpuWhatTheGpuCannotDoAndStartsFromNothingAfterIt) {
    const auto linesOfFrame = [&](const char* function, void (*fault)(), const Sample& sample) {
        GLCalls calls;
        calls.after = [&](const std::string& name) {
            if (name == function)
                fault();
        };
        testing::internal::CaptureStdout();
        EXPECT_EQ(frame(sample), "") << function;
        EXPECT_LE(calls.kept("Buffers"), 0) << function;
        EXPECT_LE(calls.kept("Framebuffers"), 0) << function;
        return testing::internal::GetCapturedStdout();
    };
    const std::tuple<const char*, void (*)(), const char*> cases[] = {
        {"glRenderbufferStorage", exhaustMemory, "OpenGL ran out of memory"},
        {"glRenderbufferStorage", dropStorage, "OpenGL has no storage (Framebuffer incomplete"},
        {"glRenderbufferStorageMultisample", dropStorage, "OpenGL has no storage (Framebuffer incomplete"},
        {"glTexSubImage2D", exhaustMemory, "OpenGL ran out of memory"},
        {"glDrawArrays", exhaustMemory, "OpenGL ran out of memory"},
        {"glReadPixels", [] { gl::glUseProgram(~0u); }, "OpenGL noted the error 1281"},
        {"glUseProgram", exhaustMemory, "OpenGL ran out of memory"},
        {"glUseProgram", [] { throw std::runtime_error("glUseProgram isn't there"); }, "glUseProgram isn't"},
    };
    std::string last;
    for (const auto& [function, fault, reason] : cases) {
        if (mWay.isSmooth && std::string_view(function).starts_with("glRenderbuffer"))
            continue; // which it has no use for
        EXPECT_EQ(frame({noise(5, 5, 1), 5}), "");
        const std::string lines = linesOfFrame(function, fault, mSample);
        EXPECT_THAT(lines, testing::HasSubstr(reason == last ? "" : reason)) << function;
        EXPECT_EQ(lines.empty(), reason == std::exchange(last, reason)) << "said once: " << reason;
        GLCalls calls;
        EXPECT_EQ(frame(mSample), "") << function;
        EXPECT_GT(calls.counts["glDrawArrays"], 0) << function;
    }
    // An error that a frame leaves is none of the next.
    EXPECT_EQ(linesOfFrame("glGetIntegerv", exhaustMemory, {noise(20000, 1, 1), 3}),
              mModule.resource().name +
                  ": OpenGL takes no frames beyond 16384 x 16384; filtering on the CPU\n");
    EXPECT_EQ(linesOfFrame("glGetIntegerv", exhaustMemory, {noise(1, 20000, 1), 3}), "");
    EXPECT_EQ(linesOfFrame("none", exhaustMemory, mSample), "");
}

// Until the next setup. A lost context, and another API that has one current, cost a frame no time.
TEST_P(GpuTest, LeavesALostGpuAloneAndAThreadToTheHostsOtherApi) {
    GLCalls calls;
    const auto linesOfFrames = [&] {
        calls.counts.clear();
        testing::internal::CaptureStdout();
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(frame(mSample), "");
        return testing::internal::GetCapturedStdout();
    };
    const std::string line = mModule.resource().name + ": OpenGL's context can't be made current, as ";
    CGLSetCurrentContext({});
    EglWatch::isOtherApiCurrent = true;
    EXPECT_THAT(linesOfFrames(), testing::ContainsRegex("^" + line + "another .*; filtering on the CPU\n$"));
    EXPECT_EQ(calls.names, "");
    EglWatch::isOtherApiCurrent = false;
    mHostContext->makeCurrentContext();
    linesOfFrames();
    EXPECT_GT(calls.counts["glDrawArrays"], 0);
    EglWatch::loseContexts();
    calls.names.clear();
    EXPECT_THAT(linesOfFrames(), testing::ContainsRegex("^" + line + ".*lost.*; filtering on the CPU\n$"));
    EXPECT_EQ(calls.names, "");
    mEffect.reset();
    mEffect.emplace(mHost.module());
    linesOfFrames();
    EXPECT_GT(calls.counts["glDrawArrays"], 0);
}

// A watchdog ends a draw of seconds.
TEST_P(GpuTest, DrawsALargeFrameInBands) {
    const Sample sample{noise(349, 251, 1, true), 59};
    GLCalls calls;
    World input = sample.world(), inBands(0, 0), onCpu(0, 0);
    EXPECT_EQ(mEffect->render(input, inBands, std::array{sample.value(mWay.isSmooth)}).text(), "");
    EXPECT_EQ(calls.counts["glDrawArrays"], mWay.isSmooth ? 2 : 3) << "a premultiplied result is drawn again";
    EXPECT_EQ(calls.counts["glScissor"], 2);
    EXPECT_GE(calls.counts["glFlush"], 2);
    EXPECT_EQ(frame(mSample), "");
    EXPECT_EQ(calls.counts["glScissor"], 2) << "small frames are drawn in one";
    mEffect.reset();
    EglWatch::renderer = nullptr;
    mEffect.emplace(mHost.module());
    EXPECT_EQ(mEffect->render(input, onCpu, std::array{sample.value(mWay.isSmooth)}).text(), "");
    EXPECT_THAT(valuesOf(inBands), testing::Pointwise(testing::FloatNear(1), valuesOf(onCpu)));
}

// Threads that live side by side take turns, each inside the other. A context keeps the objects that it can't
// share for frames of one size, and no more of them after many sizes.
TEST_P(EffectTest, DrawsOnThreadsThatTakeTurns) {
    GLCalls calls;
    const std::function<void(unsigned)> turns = [&](unsigned depth) {
        for (unsigned turn = 0; turn < 3; ++turn) {
            const int size = depth % 2 ? 9 : 11 - static_cast<int>(turn);
            EXPECT_EQ(frame({noise(size, 7, 10 * depth + turn, true), 5}), "") << depth << ", " << turn;
            if (depth < 2 && turn < 2)
                onThread([&] { turns(depth + 1); });
        }
    };
    turns(0);
    constexpr int kContexts = 1 + 2 + 4;
    EXPECT_EQ(calls.counts["glDrawArrays"],
              GetParam() == Way::Gpu ? kContexts * 3 * (mWay.isSmooth ? 1 : 2) : 0)
        << "passes";
    EXPECT_LE(calls.kept("Framebuffers"), 4 * kContexts);
    EXPECT_LE(calls.kept("VertexArrays"), 2 * kContexts);
    EXPECT_LE(calls.kept("Renderbuffers"), 1);
    EXPECT_LE(calls.kept("Textures"), 0);
    calls.counts.clear();
    EXPECT_EQ(frame({noise(9, 7, 3), 5}), "");
    EXPECT_EQ(calls.counts["glGenFramebuffers"], mWay.isSmooth && mWay == Way::Gpu ? 1 : 0)
        << "of a straight result";
    for (const char* made : {"glGenVertexArrays", "glGenBuffers", "glCreateShader"})
        EXPECT_EQ(calls.counts[made], 0) << made;
}

// Objects go before their contexts, and never those of the host's context.
TEST_P(EffectTest, StartsAndEndsOnAnyThreadAnyNumberOfTimes) {
    GLCalls calls;
    calls.after = [&](const std::string& name) {
        if (name.starts_with("glDelete")) {
            EXPECT_GT(EglWatch::liveContexts, 1) << name;
            EXPECT_NE(NSOpenGLContext::currentContext(), mHostContext) << name;
        }
    };
    const auto restart = [&] {
        mEffect.reset();
        EXPECT_EQ(EglWatch::liveContexts, 1);
        mEffect.emplace(mHost.module());
        EXPECT_EQ(frame(mSample), "");
    };
    restart();
    onThread([&] {
        restart();
        onThread(restart);
        EXPECT_EQ(frame(mSample), "");
    });
    // So the setdown may come from a thread that finds the data context in use, and get no context at all.
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
                EXPECT_EQ(NSOpenGLContext::currentContext(), mHostContext);
                CGLSetCurrentContext({});
            });
            EglWatch::failing = usual;
        });
    mHostContext->makeCurrentContext();
}

class HostileTest : public testing::TestWithParam<Way> {};

// More by hand: --gtest_shuffle --gtest_repeat=10.
TEST_P(HostileTest, FindsNoWayToBreakTheEffect) {
    std::mt19937 random(static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed()));
    HostileWalk walk(GetParam(), [&](int bound) { return Images::below(random, bound); });
    const int steps = GetParam() == Way::Gpu ? 1500 : 5000;
    for (int step = 0; step < steps && !HasFailure(); ++step) {
        SCOPED_TRACE(step);
        walk.step();
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, HostileTest,
                         testing::Values(Way(Way::Gpu), Way(Way::SoftwareGL), Way(Way::Gpu, true)),
                         kNameOfWay);

} // namespace
} // namespace Tessaloom::BilateralBlur
