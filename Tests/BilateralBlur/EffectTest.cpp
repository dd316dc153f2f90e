#include "Host/Effect.h"
#include "Tests/Support/EglWatch.h"
#include "Tests/Support/FaultyHost.h"
#include "Tests/Support/GLCalls.h"
#include "Tests/Support/Oracle.h"
#include "Tests/Support/Pictures.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>
#include <gmock/gmock.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <thread>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;
using Pictures::noise;
using Pictures::Picture;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

void onThread(const std::function<void()>& work) {
    std::thread(work).join();
}

World worldOf(const Picture& picture) {
    World world(picture.width, picture.height);
    for (int y = 0; y < world.height; ++y)
        std::memcpy(world.row(y), picture.pixel(0, y), std::size_t{4} * world.width);
    return world;
}

// The first value that is farther from the formulas than the 8-bit storage between the passes allows; empty
// where there is none.
std::string difference(const World& output, const Picture& picture, int scale) {
    const int width = picture.width;
    if (output.width != width || output.height != picture.height)
        return "another size";
    const auto expected = Oracle::effect(picture.bytes.data(), width, picture.height, 4 * width, scale);
    for (int i = 0; i < static_cast<int>(expected.size()); ++i) {
        const int x = i / 4 % width, y = i / 4 / width, channel = i % 4;
        const std::uint8_t* pixel = output.row<std::uint8_t>(y) + 4 * x;
        const double alpha = expected[i - channel];
        const bool transparent = channel > 0 && pixel[0] == 0;
        const double wanted = transparent ? 0 : expected[i];
        const double bound = transparent ? 0 : channel == 0 || alpha > 254.999 ? 1 : 255 / alpha + 0.51;
        if (std::abs(pixel[channel] - wanted) > bound)
            return (testing::Message() << x << "," << y << " of " << width << " at " << scale << ", channel "
                                       << channel << ": " << +pixel[channel] << " instead of " << wanted)
                .GetString();
    }
    return {};
}

// A host with a GL context of its own, which is current on the test's thread and must be so in the end.
class EffectTest : public testing::Test {
protected:
    EffectTest() {
        EglWatch::hardware = true;
        mHostContext->makeCurrentContext();
        mEffect.emplace(mHost.module());
    }
    ~EffectTest() override {
        mEffect.reset();
        EXPECT_EQ(NSOpenGLContext::currentContext(), mHostContext);
        EXPECT_EQ(EglWatch::liveContexts, 1);
        mHostContext->release();
    }

    std::string frame(const Picture& picture, int scale) {
        World input = worldOf(picture), output(0, 0);
        const Host::Result result = mEffect->render(input, output, scale);
        return result.ok() ? difference(output, picture, scale) : result.text();
    }

    const Host::Module mModule{MODULE};
    FaultyHost mHost{mModule.entry(), mModule.resource()};
    NSOpenGLContext* const mHostContext = EglWatch::makeContext();
    std::optional<Host::Effect> mEffect;
    const Picture mPicture = Pictures::photograph(12, 8, 5);
};

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
    mHost.faults.failing = {{"PF ANSI Suite", 13}};
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

bool operator==(const PF_LRect& a, const PF_LRect& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST_F(EffectTest, PassesTheRequestOnAndGrowsTheRectangles) {
    static PF_LRect kCheckedOut;
    static PF_Err kCode;
    kCode = 0;
    PF_PreRenderCallbacks callbacks{[](void*, std::int32_t index, std::int32_t id,
                                       const PF_RenderRequest* request, std::int32_t time, std::int32_t step,
                                       std::uint32_t scale, PF_CheckoutResult* result) {
        EXPECT_EQ(std::tuple(index, id, time, step, scale), std::tuple(0, 0, 5, 2, 25u));
        EXPECT_TRUE(request->rect == (PF_LRect{-3, 4, 50, 60}) && request->channel_mask == 0xB);
        *result = {kCheckedOut, {kCheckedOut.left, kCheckedOut.top, kCheckedOut.right, 1000}};
        return kCode;
    }};
    PF_InData inData{{}, nullptr, nullptr, nullptr, 5, 2, 25};
    PF_PreRenderInput input{{{-3, 4, 50, 60}, 0xB}};
    PF_PreRenderOutput output;
    PF_PreRenderExtra extra{&input, &output, &callbacks};
    const auto preRender = [&] {
        return mModule.entry()(PF_Cmd_SMART_PRE_RENDER, &inData, nullptr, nullptr, nullptr, &extra);
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
        output = {before, {}};
        kCheckedOut = checkedOut;
        EXPECT_EQ(preRender(), 0);
        EXPECT_TRUE(output.result_rect == after && output.max_result_rect.bottom == 1000);
    }
    output = {};
    kCode = 77;
    EXPECT_EQ(preRender(), 77);
    EXPECT_TRUE(output.result_rect == PF_LRect{} && output.max_result_rect == PF_LRect{});
}

TEST_F(EffectTest, FiltersAsTheFormulasSay) {
    for (const int scale : {0, 1, 2, 3, 4, 20, 21, 30, 31, 59, 60})
        for (const auto& [width, height] : {std::pair{1, 1}, {1, 6}, {7, 1}, {5, 9}, {37, 23}})
            for (const bool opaque : {false, true})
                for (const Picture& picture :
                     {noise(width, height, 1, opaque), noise(width, height, 3, opaque, 20),
                      Pictures::blocks(width, height, opaque)})
                    EXPECT_EQ(frame(picture, scale), "");
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

TEST_F(EffectTest, GivesTheCodeOfEachFaultAndARightFrameAfterIt) {
    const auto failing = [](const char* name) { return Faults{.failing = {{name, 77}}}; };
    World tall(12, 9), wide(13, 8), small(3, 5), noWidth(0, 8), noHeight(12, 0);
    struct {
        Faults faults;
        PF_Err code;
        const char* message = "";
    } const cases[] = {
        {failing("AEGP PF Interface Suite"), 516},
        {failing("AEGP Layer Suite"), 516},
        {failing("AEGP Item Suite"), 516},
        {failing("PF Handle Suite"), 516},
        {failing("PF iterateFloat Suite"), 0}, // no frame needs it
        {failing("checkout_layer"), 77},
        {failing("checkout_layer_pixels"), 77},
        {failing("checkout_output"), 77},
        {failing("checkout_param"), 77},
        {failing("checkin_param"), 77},
        {{.failing = {{"checkout_param", 71}, {"checkin_param", 72}}}, 71},
        {failing("get_pixel_data8"), 516},
        {failing("host_new_handle"), 516, "There is no memory for a frame of 12 x 8 pixels."},
        {failing("host_lock_handle"), 516, "There is no memory for a frame of 12 x 8 pixels."},
        {{.input = nullptr}, 516, "The host gave no input world."},
        {{.output = nullptr}, 516, "The host gave no output world."},
        {{.output = &wide}, 516, "larger"},
        {{.output = &tall}, 516, "larger"},
        {{.output = &small}, 0},
        {{.output = &noWidth}, 0},
        {{.output = &noHeight}, 0},
    };
    EXPECT_EQ(frame(mPicture, 7), "");
    for (const auto& fault : cases) {
        SCOPED_TRACE(&fault - cases);
        World input = worldOf(mPicture), output(0, 0);
        mHost.faults = fault.faults;
        GLCalls calls;
        const Host::Result result = mEffect->render(input, output, 7);
        EXPECT_LE(calls.kept("Renderbuffers"), 0);
        EXPECT_EQ(calls.kept("Textures"), 0);
        EXPECT_EQ(result.code, fault.code);
        EXPECT_THAT(result.message, HasSubstr(fault.message));
        EXPECT_EQ(result.message.empty(), *fault.message == '\0') << result.message;
        EXPECT_THAT(result.imbalances, IsEmpty());
        mHost.faults = {};
        EXPECT_EQ(frame(mPicture, 7), "");
    }
}

TEST_F(EffectTest, DrawsTheFrameOfAFailedParameterWithTheSliderAtZero) {
    EXPECT_EQ(frame(mPicture, 30), "");
    World input = worldOf(mPicture), output(12, 8), untouched(0, 0);
    mHost.faults = {.failing = {{"checkout_param", 77}}, .output = &output};
    EXPECT_EQ(mEffect->render(input, untouched, 30).code, 77);
    EXPECT_EQ(difference(output, mPicture, 0), "");
    mHost.faults.failing = {{"checkin_param", 78}};
    EXPECT_EQ(mEffect->render(input, untouched, 30).code, 78);
    EXPECT_EQ(difference(output, mPicture, 30), "");
}

TEST_F(EffectTest, TakesEmptyWorldsAndRefusesWhatGLCannotHold) {
    World empty(0, 0), wide(200000, 1), tall(1, 200000), output(3, 3), target(4, 4);
    EXPECT_TRUE(mEffect->render(empty, output, 5).ok() && output.width == 0);
    for (World* world : {&wide, &tall}) {
        const Host::Result result = mEffect->render(*world, output, 5);
        EXPECT_EQ(result.code, 516);
        EXPECT_THAT(result.message, HasSubstr("exceeds"));
    }
    // A record that lies about its rows, or has no size to speak of.
    World input(4, 4);
    mHost.faults.output = &target;
    for (const auto& [width, height, rowbytes] : {std::tuple{4, 4, 15}, {-4, 4, 64}, {4, -4, 64}}) {
        static_cast<PF_LayerDef&>(target) = {width, height, rowbytes};
        EXPECT_EQ(mEffect->render(input, output, 5).code, width > 0 && height > 0 ? 516 : 0);
    }
    mHost.faults = {};
    static_cast<PF_LayerDef&>(target) = {4, 4, 64};
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
