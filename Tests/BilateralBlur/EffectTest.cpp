#include "Tests/BilateralBlur/EffectTest.h"

#include "Host/Suites.h"
#include "Tests/Support/GLCalls.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <array>
#include <cstdio>
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
    EXPECT_THAT(mHost.calls, ElementsAre("add_param -1 Blur Scale"));
    EXPECT_EQ(mEffect->about(), "Bilateral Blur v1.0\rBilateral Blur");
    EXPECT_EQ(mModule.resource().version, 0x80001u);
    EXPECT_EQ(mModule.resource().outFlags, 0);
    EXPECT_EQ(mModule.resource().outFlags2, 0x400);
    PF_ParamDef expected;
    std::memset(&expected, 0, sizeof expected);
    expected.uu.id = 1;
    expected.param_type = PF_Param_SLIDER;
    std::strcpy(expected.name, "Blur Scale");
    expected.u.sd.valid_max = expected.u.sd.slider_max = 60;
    PF_ParamDef declared;
    PF_InData inData{{}, Host::utilCallbacks(), &declared, nullptr, 0, 1, 1};
    inData.inter.add_param = [](void* ref, std::int32_t, PF_ParamDef* param) -> PF_Err {
        return std::memcpy(ref, param, sizeof *param), 0;
    };
    PF_OutData out{};
    EXPECT_EQ(mModule.entry()(PF_Cmd_PARAMS_SETUP, &inData, &out, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(std::memcmp(&declared, &expected, sizeof expected), 0);
    mHost.faults.failing = {{"AcquireSuite PF ANSI Suite 1", 13}};
    EXPECT_EQ(mEffect->about(), "");
    EXPECT_EQ(mHost.code, 516);
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

PF_LRect shifted(const PF_LRect& rect) {
    return {rect.left, rect.top + 100, rect.right, rect.bottom + 100};
}

std::array<int, 4> sides(const PF_LRect& rect) {
    return {rect.left, rect.top, rect.right, rect.bottom};
}

TEST_P(EffectTest, PassesTheRequestOnAndUnitesTheRectangles) {
    static PF_LRect kCheckedOut;
    PF_PreRenderCallbacks callbacks{[](void*, std::int32_t, std::int32_t, const PF_RenderRequest*,
                                       std::int32_t, std::int32_t, std::uint32_t,
                                       PF_CheckoutResult* result) -> PF_Err {
        *result = {kCheckedOut, shifted(kCheckedOut)};
        return 0;
    }};
    PF_InData inData{{}, Host::utilCallbacks(), nullptr, Host::basicSuite(), 5, 2, 25};
    PF_PreRenderInput input{{{-3, 4, 50, 60}, 0xB}};
    PF_PreRenderOutput output;
    PF_PreRenderExtra extra{&input, &output, &callbacks};
    const auto expectAfter = [&](PF_Err code, const PF_LRect& before, const PF_LRect& after) {
        output = {before, shifted(before)};
        const auto entry = mHost.module().entry();
        EXPECT_EQ(entry(PF_Cmd_SMART_PRE_RENDER, &inData, nullptr, nullptr, nullptr, &extra), code);
        EXPECT_THAT(mHost.calls,
                    ElementsAre("checkout_layer 0 id 0 rect -3 4 50 60 mask 11 time 5 step 2 scale 25"));
        EXPECT_EQ(sides(output.result_rect), sides(after));
        EXPECT_EQ(sides(output.max_result_rect), sides(shifted(after)));
    };
    struct {
        PF_LRect before, checkedOut, after;
    } const cases[] = {
        {{0, 0, 0, 0}, {1, 2, 3, 4}, {1, 2, 3, 4}},   {{5, 5, 5, 9}, {7, 7, 6, 6}, {7, 7, 6, 6}},
        {{9, 0, 3, 4}, {1, 2, 3, 4}, {1, 2, 3, 4}},   {{0, 9, 3, 4}, {1, 2, 3, 4}, {1, 2, 3, 4}},
        {{1, 2, 3, 4}, {8, 8, 8, 9}, {1, 2, 3, 4}},   {{1, 2, 3, 4}, {9, 0, 8, 9}, {1, 2, 3, 4}},
        {{1, 2, 3, 4}, {-5, 3, 2, 9}, {-5, 2, 3, 9}}, {{1, 2, 3, 4}, {2, -7, 9, 3}, {1, -7, 9, 4}},
    };
    for (const auto& [before, checkedOut, after] : cases) {
        kCheckedOut = checkedOut;
        expectAfter(0, before, after);
    }
    mHost.faults.failing = {{"checkout_layer", 77}};
    expectAfter(77, {1, 2, 3, 4}, {1, 2, 3, 4});
}

TEST_P(EffectTest, TakesEmptyWorldsAndRefusesRowsTooShortForTheirPixels) {
    World empty(0, 0), input = mSample.world(), output(0, 0), target(12, 8);
    EXPECT_TRUE(mEffect->render(empty, output, std::array{5}).ok());
    EXPECT_THAT(mHost.calls, testing::Contains("ReleaseSuite AEGP Item Suite 10"));
    const auto codeOf = [&](PF_LayerDef record) {
        std::swap(record, static_cast<PF_LayerDef&>(target));
        const PF_Err code = mEffect->render(input, output, std::array{5}).code;
        std::swap(record, static_cast<PF_LayerDef&>(target));
        return code;
    };
    mHost.faults.output = &target;
    EXPECT_EQ(codeOf({12, 8, 47}), 516);
    EXPECT_EQ(codeOf({12, 8, -47}), 516);
    EXPECT_EQ(codeOf({12, 8, 0}), 516);
    EXPECT_EQ(codeOf({12, 1, 0}), 0);
    EXPECT_EQ(codeOf({-12, 8, 64}), 0);
    EXPECT_EQ(codeOf({12, -8, 64}), 0);
    mHost.faults = {.input = &target};
    EXPECT_EQ(codeOf({12, 8, -64}), 516);
}

// The host gives the address of the top row, which is the last in memory.
PF_Err lastRow(PF_LayerDef* record, void*, PF_Pixel8** base) {
    World& world = *World::of(record);
    *base = world.row(0) + (world.rowbytes < 0 ? (1 - world.height) * (world.rowbytes / 4) : 0);
    return 0;
}

PF_EntryPointFunc mEntry = nullptr;

PF_Err enterUpsideDown(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef* params[], PF_LayerDef* world,
                       void* extra) {
    PF_InData inData = *in;
    PF_UtilCallbacks utils = *in->utils;
    utils.get_pixel_data8 = lastRow;
    inData.utils = &utils;
    return mEntry(cmd, &inData, out, params, world, extra);
}

TEST_P(EffectTest, WritesRowsThatRunUpwards) {
    mEntry = mModule.entry();
    mEffect.reset();
    FaultyHost host(enterUpsideDown, mModule.resource());
    mEffect.emplace(host.module());
    World input = mSample.world(), output(0, 0), target(12, 8);
    host.faults.output = &target;
    target.rowbytes = -target.rowbytes;
    mEffect->render(input, output, std::array{mSample.scale});
    EXPECT_EQ(host.code, 0);
    target.rowbytes = -target.rowbytes;
    for (int y = 0; y < 4; ++y)
        std::swap_ranges(target.row(y), target.row(y) + 12, target.row(7 - y));
    EXPECT_EQ(mSample.difference(target), "");
    EXPECT_TRUE(target.paddingIntact());
    mEffect.reset();
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

void* mMemory = nullptr;

// A frame of 1 MB, with memory of the host's that stays.
TEST_P(CpuTest, TouchesNoFreshMemoryAfterTheFirstFrames) {
    const std::vector<std::byte> memory(1 << 20);
    mMemory = const_cast<std::byte*>(memory.data());
    const PF_HandleSuite1 handles{[](std::uint64_t) { return mMemory; }, [](void* handle) { return handle; },
                                  [](void*) {}, [](void*) {}};
    mHost.faults.suites = {{"PF Handle Suite", &handles}};
    World input(1 << 14, 16), output(1 << 14, 16);
    const auto faultsOf = [&](int frames) {
        rusage before{}, after{};
        getrusage(RUSAGE_SELF, &before);
        for (int i = 0; i < frames; ++i)
            EXPECT_TRUE(mEffect->render(input, output, std::array{5}).ok());
        getrusage(RUSAGE_SELF, &after);
        return after.ru_minflt - before.ru_minflt;
    };
    faultsOf(3);
    EXPECT_LT(faultsOf(20), 20 * 256 / 8);
}

// Runs `act` after each call of a GL function, but not for calls from within it.
class AfterGL {
public:
    AfterGL(std::string name, std::function<void()> act) {
        glbinding::setAfterCallback([=, this](const glbinding::FunctionCall& call) {
            if (mIsInside || call.function->name() != name)
                return;
            mIsInside = true;
            act();
            mIsInside = false;
        });
    }

private:
    GLCalls mCalls;
    bool mIsInside = false;
};

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
            const AfterGL faulty(function, fault);
            EXPECT_THAT(frame(mSample), HasSubstr(message));
        }
        EXPECT_EQ(frame(mSample), "");
    }
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
    for (const bool failing : {false, true})
        onThread([&] {
            mEffect.emplace(mHost.module());
            onThread([&] {
                EglWatch::failing = false;
                NSOpenGLContext* const hosts = EglWatch::makeContext();
                hosts->makeCurrentContext();
                EglWatch::failing = failing;
                mEffect.reset();
                EXPECT_EQ(mHost.code, 0);
                EXPECT_EQ(NSOpenGLContext::currentContext(), hosts);
                hosts->release();
            });
        });
    EglWatch::failing = GetParam() == Way::NoGL;
    EXPECT_EQ(EglWatch::liveContexts, 1);
    mEffect.emplace(mHost.module());
    EXPECT_EQ(mModule.entry()(PF_Cmd_GLOBAL_SETDOWN, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_THAT(frame(mSample), HasSubstr("after its global setdown"));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
