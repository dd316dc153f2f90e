#include "Tests/BilateralBlur/EffectTest.h"

#include "Tests/Support/GLCalls.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <array>
#include <cstdio>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;
using Pictures::noise;
using Pictures::Picture;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Module, ExportsItsEntryAloneAndTouchesNoGLWhenLoaded) {
    const Host::Module module(MODULE);
    EXPECT_EQ(EglWatch::liveContexts, 0);
    std::unique_ptr<FILE, int (*)(FILE*)> symbols(popen("nm -D --defined-only '" MODULE "'", "r"), pclose);
    std::string table(4096, '\0');
    table.resize(std::fread(table.data(), 1, table.size(), symbols.get()));
    EXPECT_THAT(table, testing::MatchesRegex("[0-9a-f]+ T EntryPointFunc\n"));
}

TEST_F(EffectTest, DeclaresItself) {
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
    PF_InData inData{{}, Host::Services::utils(), &declared, nullptr, 0, 1, 1};
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

TEST_F(EffectTest, LeavesOtherCommandsAlone) {
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

TEST_F(EffectTest, PassesTheRequestOnAndUnitesTheRectangles) {
    static PF_LRect kCheckedOut;
    PF_PreRenderCallbacks callbacks{[](void*, std::int32_t, std::int32_t, const PF_RenderRequest*,
                                       std::int32_t, std::int32_t, std::uint32_t,
                                       PF_CheckoutResult* result) -> PF_Err {
        *result = {kCheckedOut, shifted(kCheckedOut)};
        return 0;
    }};
    PF_InData inData{{}, Host::Services::utils(), nullptr, Host::Services::basicSuite(), 5, 2, 25};
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

// Coordinates that miss a texel's centre by little would let a neighbour's alpha and colour in.
TEST_F(EffectTest, KeepsTransparentPixelsBlackAtAnyWidth) {
    for (int width = 1; width < 300; width += 1 + width / 9)
        for (const int height : {1, 3, 14}) {
            Picture picture = noise(width, height, static_cast<unsigned>(width));
            for (int x = 0; x < width; x += 2)
                picture.pixel(x, height / 2)[0] = 0;
            EXPECT_EQ(frame(picture, 0), "");
            EXPECT_EQ(frame(picture, 2), "");
        }
}

TEST_F(EffectTest, TakesEmptyWorldsAndRefusesWhatGLCannotHold) {
    World empty(0, 0), wide(200000, 1), tall(1, 200000), output(3, 3), target(4, 4);
    EXPECT_TRUE(mEffect->render(empty, output, 5).ok() && output.width == 0);
    for (World* world : {&wide, &tall}) {
        const Host::Result result = mEffect->render(*world, output, 5);
        EXPECT_EQ(result.code, 516);
        EXPECT_THAT(result.message, HasSubstr("exceeds"));
    }
    World input(4, 4);
    mHost.faults.output = &target;
    for (const auto& [width, height] : {std::pair{-4, 4}, {4, -4}}) {
        static_cast<PF_LayerDef&>(target) = {width, height, 64};
        EXPECT_TRUE(mEffect->render(input, output, 5).ok());
    }
    mHost.faults = {};
    EXPECT_EQ(frame(mPicture, 5), "");
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

// The size is new to GL, so that each step of its first frame can fail. A picture from what failed would be
// black or random.
TEST_F(EffectTest, ReportsExhaustedGLMemoryAndStartsFromNothingAfterIt) {
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
        EXPECT_EQ(frame(noise(5, 5, 1), 5), "");
        {
            const AfterGL faulty(function, fault);
            EXPECT_THAT(frame(mPicture, 5), HasSubstr(message));
        }
        EXPECT_EQ(frame(mPicture, 5), "");
    }
}

// Threads that live side by side take turns, each inside the other. A context keeps the objects that it can't
// share for frames of one size, and no more of them after many sizes.
TEST_F(EffectTest, DrawsOnThreadsThatTakeTurns) {
    GLCalls calls;
    const std::function<void(unsigned)> turns = [&](unsigned depth) {
        for (unsigned turn = 0; turn < 3; ++turn) {
            const int size = depth % 2 ? 9 : 8 + static_cast<int>(turn);
            EXPECT_EQ(frame(noise(size, 7, 10 * depth + turn), 5), "") << depth << ", " << turn;
            if (depth < 2 && turn < 2)
                onThread([&] { turns(depth + 1); });
        }
    };
    turns(0);
    constexpr int kContexts = 1 + 2 + 4;
    EXPECT_LE(calls.kept("Framebuffers"), 4 * kContexts);
    EXPECT_LE(calls.kept("VertexArrays"), 2 * kContexts);
    EXPECT_TRUE(calls.kept("Renderbuffers") == 1 && calls.kept("Textures") <= 1);
    calls.counts.clear();
    EXPECT_EQ(frame(noise(10, 7, 3), 5), "");
    for (const char* made : {"glGenFramebuffers", "glGenVertexArrays", "glGenBuffers", "glCreateShader"})
        EXPECT_EQ(calls.counts[made], 0) << made;
}

TEST_F(EffectTest, StartsAndEndsOnAnyThreadAnyNumberOfTimes) {
    // Without a context of the host's, a thread has the effect's last one current until it looks again.
    const auto restart = [&](int waitingThreads) {
        mEffect.reset();
        EXPECT_EQ(mHost.code, 0);
        EXPECT_EQ(EglWatch::liveContexts, 1 + waitingThreads);
        mEffect.emplace(mHost.module());
        PF_OutData out{};
        EXPECT_EQ(mModule.entry()(PF_Cmd_GLOBAL_SETUP, nullptr, &out, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(frame(mPicture, 5), "");
    };
    for (int round = 0; round < 3; ++round) {
        restart(0);
        onThread([&] {
            restart(0);
            onThread([&] { restart(1); });
            EXPECT_EQ(frame(mPicture, 4), "");
        });
        EXPECT_EQ(frame(mPicture, 5), "");
    }
    // So the setdown may come from a thread that finds the data context in use.
    mEffect.reset();
    onThread([&] {
        mEffect.emplace(mHost.module());
        onThread([&] { mEffect.reset(); });
    });
    EXPECT_EQ(EglWatch::liveContexts, 1);
    mEffect.emplace(mHost.module());
    EXPECT_EQ(mModule.entry()(PF_Cmd_GLOBAL_SETDOWN, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_THAT(frame(mPicture, 5), HasSubstr("after its global setdown"));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
