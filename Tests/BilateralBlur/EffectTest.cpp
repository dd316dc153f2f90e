#include "Host/Effect.h"
#include "Platform/GLContext.h"
#include "Tests/BilateralBlur/Oracle.h"
#include "Tests/BilateralBlur/Pictures.h"
#include "Tests/GL/GLCalls.h"
#include "Tests/Platform/EglWatch.h"

#include <GL/gl.h>
#include <GL/glext.h>
#include <gmock/gmock.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <malloc.h>
#include <thread>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::Callback;
using Host::World;
using Pictures::Picture;
using testing::HasSubstr;
using testing::IsEmpty;

void onThread(const std::function<void()>& work) {
    std::thread(work).join();
}

void fill(World& world, const Picture& picture) {
    for (int y = 0; y < world.height; ++y)
        std::memcpy(world.row(y), picture.pixel(0, y),
                    sizeof(PF_Pixel8) * static_cast<std::size_t>(world.width));
}

// The first pixel that is farther from the formulas than the 8-bit storage between the passes allows; empty
// where there is none. Colours of a pixel whose alpha is about to vanish may be there or not.
std::string difference(const World& output, const Picture& picture, int scale) {
    if (output.width != picture.width || output.height != picture.height)
        return "another size";
    const auto expected =
        Oracle::effect(picture.bytes.data(), picture.width, picture.height, picture.rowbytes, scale);
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const PF_Pixel8 pixel = output.row(y)[x];
            const double* want = &expected[4 * (static_cast<std::size_t>(y) * picture.width + x)];
            const std::uint8_t got[] = {pixel.alpha, pixel.red, pixel.green, pixel.blue};
            const bool opaque = picture.pixel(x, y)[0] == 255 && want[0] > 254.999;
            const bool transparent = pixel.alpha == 0;
            bool wrong = std::fabs(got[0] - want[0]) > 1;
            for (int i = 1; i < 4; ++i) {
                const double bound = opaque ? 1 : 255 / std::max(1.0, want[0]) + 0.51;
                wrong |= transparent ? got[i] != 0 : want[0] > 0.6 && std::fabs(got[i] - want[i]) > bound;
            }
            if (wrong) {
                char text[200];
                std::snprintf(text, sizeof text, "%d,%d of %dx%d at %d: %d %d %d %d instead of %g %g %g %g",
                              x, y, picture.width, picture.height, scale, got[0], got[1], got[2], got[3],
                              want[0], want[1], want[2], want[3]);
                return text;
            }
        }
    return {};
}

// A host with a GL context of its own, which is current on the test's thread.
class EffectTest : public testing::Test {
protected:
    EffectTest() {
        constexpr std::uint32_t kCore[] = {NSOpenGLPFAOpenGLProfile, NSOpenGLProfileVersion3_2Core, 0};
        NSOpenGLPixelFormat* format = NSOpenGLPixelFormat::initWithAttributes(kCore);
        mHostContext = NSOpenGLContext::initWithFormat(format, nullptr);
        format->release();
        mHostContext->makeCurrentContext();
        mEffect.emplace(mModule);
    }
    ~EffectTest() override {
        mEffect.reset();
        EXPECT_TRUE(hostContextIsCurrent());
        EXPECT_EQ(EglWatch::liveContexts(), 1);
        mHostContext->release();
    }

    bool hostContextIsCurrent() const { return NSOpenGLContext::currentContext() == mHostContext; }

    std::string frame(const Picture& picture, int scale) {
        World input(picture.width, picture.height), output(0, 0);
        fill(input, picture);
        const Host::Result result = mEffect->render(input, output, scale);
        return result.ok() ? difference(output, picture, scale) : result.text();
    }

    // Smart render alone, with worlds of the test's; the slider is at its default or what was last rendered.
    PF_Err smartRender(World* input, World* output) {
        static World *kInput, *kOutput;
        kInput = input;
        kOutput = output;
        PF_SmartRenderCallbacks callbacks{};
        callbacks.checkout_layer_pixels = [](void*, std::int32_t, PF_LayerDef** world) -> PF_Err {
            return *world = kInput, 0;
        };
        callbacks.checkout_output = [](void*, PF_LayerDef** world) -> PF_Err { return *world = kOutput, 0; };
        PF_SmartRenderExtra extra{nullptr, &callbacks};
        const Host::Result result = mEffect->command(PF_Cmd_SMART_RENDER, &extra);
        EXPECT_THAT(result.imbalances, IsEmpty());
        return result.code;
    }

    const CapturedOutput mOutput;
    const Host::Module mModule{MODULE};
    NSOpenGLContext* mHostContext = nullptr;
    std::optional<Host::Effect> mEffect;
};

TEST(Module, ExportsItsEntryAloneAndTouchesNoGLWhenLoaded) {
    const Host::Module module(MODULE);
    EXPECT_EQ(EglWatch::liveContexts(), 0);
    EXPECT_FALSE(CGLGetCurrentContext());
    std::unique_ptr<FILE, int (*)(FILE*)> symbols(popen("nm -D --defined-only '" MODULE "'", "r"), pclose);
    std::string table(4096, '\0');
    table.resize(std::fread(table.data(), 1, table.size(), symbols.get()));
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1) << table;
    EXPECT_THAT(table, testing::EndsWith(" T EntryPointFunc\n"));
}

TEST_F(EffectTest, DeclaresItself) {
    EXPECT_EQ(mEffect->about(), "Bilateral Blur v1.0\rBilateral Blur");
    mEffect->command(PF_Cmd_GLOBAL_SETUP);
    EXPECT_EQ(mEffect->outData().my_version, 0x80001u);
    EXPECT_EQ(mEffect->outData().out_flags, 0);
    EXPECT_EQ(mEffect->outData().out_flags2, 0x400);

    PF_ParamDef expected;
    std::memset(&expected, 0, sizeof expected);
    expected.uu.id = 1;
    expected.param_type = PF_Param_SLIDER;
    std::strcpy(expected.name, "Blur Scale");
    expected.u.sd.valid_max = expected.u.sd.slider_max = 60;
    EXPECT_EQ(std::memcmp(&mEffect->slider(), &expected, sizeof expected), 0);
    EXPECT_EQ(mEffect->parameters().size(), 2u);

    for (const PF_Cmd unknown : {-1, 2, 5, 11, 22, 25, 0x7FFFFFFF}) {
        PF_OutData out, before;
        std::memset(&out, 0xA5, sizeof out);
        std::memcpy(&before, &out, sizeof out);
        EXPECT_EQ(mModule.entry()(unknown, nullptr, &out, nullptr, nullptr, nullptr), 0) << unknown;
        EXPECT_EQ(std::memcmp(&out, &before, sizeof out), 0) << unknown;
    }
    mEffect->faults().missingSuite = "PF ANSI Suite";
    EXPECT_EQ(mEffect->command(PF_Cmd_ABOUT).code, 516);
    EXPECT_EQ(mEffect->outData().return_msg[0], '\0');
    mEffect->faults() = {.failing = {{Callback::AddParam, 77}}};
    EXPECT_EQ(mEffect->command(PF_Cmd_PARAMS_SETUP).code, 77);
    EXPECT_EQ(mEffect->outData().num_params, 2);
}

bool operator==(const PF_LRect& a, const PF_LRect& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST_F(EffectTest, PassesTheRequestOnAndGrowsTheRectangles) {
    static PF_CheckoutResult kResult;
    static PF_RenderRequest kRequest;
    static PF_Err kCode = 0;
    PF_PreRenderCallbacks callbacks{[](void*, std::int32_t index, std::int32_t id,
                                       const PF_RenderRequest* request, std::int32_t time, std::int32_t step,
                                       std::uint32_t scale, PF_CheckoutResult* result) {
        EXPECT_EQ(std::tuple(index, id, time, step, scale), std::tuple(0, 0, 5, 2, 25u));
        kRequest = *request;
        *result = kResult;
        return kCode;
    }};
    mEffect->inData()->current_time = 5;
    mEffect->inData()->time_step = 2;
    mEffect->inData()->time_scale = 25;
    PF_PreRenderInput input{{{-3, 4, 50, 60}, 0xB}};
    PF_PreRenderOutput output;
    PF_PreRenderExtra extra{&input, &output, &callbacks};
    struct {
        PF_LRect before, checkedOut, after;
    } const cases[] = {
        {{0, 0, 0, 0}, {1, 2, 3, 4}, {1, 2, 3, 4}},   {{5, 5, 5, 9}, {7, 7, 6, 6}, {7, 7, 6, 6}},
        {{9, 0, 3, 4}, {1, 2, 3, 4}, {1, 2, 3, 4}},   {{0, 9, 3, 4}, {1, 2, 3, 4}, {1, 2, 3, 4}},
        {{1, 2, 3, 4}, {8, 8, 8, 9}, {1, 2, 3, 4}},   {{1, 2, 3, 4}, {9, 0, 8, 9}, {1, 2, 3, 4}},
        {{1, 2, 3, 4}, {-5, 3, 2, 9}, {-5, 2, 3, 9}}, {{1, 2, 3, 4}, {2, -7, 9, 3}, {1, -7, 9, 4}},
    };
    for (const auto& [before, checkedOut, after] : cases) {
        output = {before, before};
        kResult = {checkedOut, checkedOut};
        EXPECT_TRUE(mEffect->command(PF_Cmd_SMART_PRE_RENDER, &extra).ok());
        EXPECT_TRUE(output.result_rect == after && output.max_result_rect == after);
        EXPECT_TRUE(kRequest.rect == input.output_request.rect && kRequest.channel_mask == 0xB);
    }
    output = {{1, 2, 3, 4}, {5, 6, 7, 8}};
    kCode = 77;
    EXPECT_EQ(mEffect->command(PF_Cmd_SMART_PRE_RENDER, &extra).code, 77);
    EXPECT_TRUE(output.result_rect == (PF_LRect{1, 2, 3, 4}) &&
                output.max_result_rect == (PF_LRect{5, 6, 7, 8}));
}

TEST_F(EffectTest, FiltersAsTheFormulasSay) {
    for (const int scale : {0, 1, 2, 3, 4, 20, 21, 30, 31, 59, 60})
        for (const auto& [width, height] : {std::pair{1, 1}, {1, 6}, {7, 1}, {5, 9}, {37, 23}})
            for (const Picture& picture :
                 {Pictures::noise(width, height, 1), Pictures::noise(width, height, 2, true),
                  Pictures::softNoise(width, height, 3), Pictures::softNoise(width, height, 4, 20, true),
                  Pictures::hardEdges(width, height), Pictures::alphaRamp(width, height)})
                EXPECT_EQ(frame(picture, scale), "");
}

// Coordinates that miss a texel's centre by little would let a neighbour's alpha and colour in.
TEST_F(EffectTest, KeepsTransparentPixelsBlackAtAnyWidth) {
    for (int width = 1; width < 300; width += 1 + width / 9)
        for (const int height : {1, 3, 14}) {
            Picture picture = Pictures::noise(width, height, static_cast<unsigned>(width));
            for (int x = 0; x < width; x += 2)
                picture.pixel(x, height / 2)[0] = 0;
            EXPECT_EQ(frame(picture, 0), "");
            EXPECT_EQ(frame(picture, 2), "");
        }
}

TEST_F(EffectTest, GivesTheCodeOfEachFaultAndARightFrameAfterIt) {
    const Picture picture = Pictures::photograph(19, 11, 5);
    const auto suite = [](const char* name) { return Host::Faults{.missingSuite = name}; };
    const auto failing = [](Callback callback) { return Host::Faults{.failing = {{callback, 77}}}; };
    struct {
        Host::Faults faults;
        PF_Err code;
        const char* message;
    } const cases[] = {
        {suite("AEGP PF Interface Suite"), 516, ""},
        {suite("AEGP Layer Suite"), 516, ""},
        {suite("AEGP Item Suite"), 516, ""},
        {suite("PF Handle Suite"), 516, ""},
        {suite("PF iterateFloat Suite"), 0, ""}, // no frame needs it
        {failing(Callback::CheckoutLayer), 77, ""},
        {failing(Callback::CheckoutLayerPixels), 77, ""},
        {failing(Callback::CheckoutOutput), 77, ""},
        {failing(Callback::CheckoutParam), 77, ""},
        {failing(Callback::CheckinParam), 77, ""},
        {{.failing = {{Callback::CheckoutParam, 71}, {Callback::CheckinParam, 72}}}, 71, ""},
        {failing(Callback::GetPixelData8), 516, ""},
        {{.noHandles = true}, 516, ""},
        {{.nullInput = true}, 516, "The host gave no input world."},
        {{.nullOutput = true}, 516, "The host gave no output world."},
        {{.outputSize = Host::Faults::Size{20, 11}}, 516, "larger"},
        {{.outputSize = Host::Faults::Size{19, 12}}, 516, "larger"},
        {{.outputSize = Host::Faults::Size{3, 5}}, 0, ""},
        {{.outputSize = Host::Faults::Size{0, 11}}, 0, ""},
        {{.outputSize = Host::Faults::Size{19, 0}}, 0, ""},
    };
    EXPECT_EQ(frame(picture, 7), "");
    int index = 0;
    for (const auto& fault : cases) {
        SCOPED_TRACE(index++);
        World input(picture.width, picture.height), output(0, 0);
        fill(input, picture);
        mEffect->faults() = fault.faults;
        const GLCalls calls;
        const Host::Result result = mEffect->render(input, output, 7);
        EXPECT_EQ(calls.count("glGenRenderbuffers"), calls.count("glDeleteRenderbuffers"));
        EXPECT_EQ(calls.count("glGenTextures"), calls.count("glDeleteTextures"));
        mEffect->faults() = {};
        EXPECT_EQ(result.code, fault.code);
        EXPECT_THAT(result.message, HasSubstr(fault.message));
        EXPECT_EQ(result.message.empty(), *fault.message == '\0') << result.message;
        EXPECT_THAT(result.imbalances, IsEmpty());
        EXPECT_TRUE(hostContextIsCurrent());
        EXPECT_EQ(frame(picture, 7), "");
    }
}

TEST_F(EffectTest, DrawsTheFrameOfAFailedParameterWithTheSliderAtZero) {
    const Picture picture = Pictures::noise(9, 4, 8, true);
    EXPECT_EQ(frame(picture, 30), "");
    World input(9, 4), output(9, 4);
    fill(input, picture);
    mEffect->faults().failing = {{Callback::CheckoutParam, 77}};
    EXPECT_EQ(smartRender(&input, &output), 77);
    EXPECT_EQ(difference(output, picture, 0), "");
    mEffect->faults().failing = {{Callback::CheckinParam, 78}};
    EXPECT_EQ(smartRender(&input, &output), 78);
    EXPECT_EQ(difference(output, picture, 30), "");
}

TEST_F(EffectTest, TakesEmptyWorldsAndRefusesWhatGLCannotHold) {
    World empty(0, 0), output(3, 3), wide(200000, 1), tall(1, 200000);
    EXPECT_TRUE(mEffect->render(empty, output, 5).ok());
    EXPECT_EQ(output.width, 0);
    for (World* world : {&wide, &tall}) {
        World before(2, 2);
        const Host::Result result = mEffect->render(*world, before, 5);
        EXPECT_EQ(result.code, 516);
        EXPECT_THAT(result.message, HasSubstr("beyond"));
        EXPECT_EQ(before.width, 2);
        EXPECT_TRUE(hostContextIsCurrent());
    }
    // A record that lies about its rows, or has no size to speak of.
    World input(4, 4), target(4, 4);
    for (const auto& [width, height, rowbytes] :
         {std::tuple{4, 4, 15}, {-4, 4, 64}, {4, -4, 64}, {4, 4, -64}}) {
        static_cast<PF_LayerDef&>(target) = {width, height, rowbytes};
        EXPECT_EQ(smartRender(&input, &target), width > 0 && height > 0 ? 516 : 0);
    }
    static_cast<PF_LayerDef&>(target) = {4, 4, 64};
    EXPECT_EQ(frame(Pictures::noise(5, 5, 1), 5), "");
}

// A texture without storage would leave the picture black. The error is real, and of a buffer beside it.
TEST_F(EffectTest, TellsThatGLRanOutOfMemory) {
    const Picture picture = Pictures::noise(6, 6, 1);
    EXPECT_EQ(frame(picture, 5), "");
    {
        GLCalls calls;
        calls.afterEach = [](const std::string& name) {
            if (name != "glTexSubImage2D")
                return;
            const auto bind = reinterpret_cast<PFNGLBINDBUFFERPROC>(eglGetProcAddress("glBindBuffer"));
            const auto generate = reinterpret_cast<PFNGLGENBUFFERSPROC>(eglGetProcAddress("glGenBuffers"));
            const auto fillBuffer = reinterpret_cast<PFNGLBUFFERDATAPROC>(eglGetProcAddress("glBufferData"));
            GLuint buffer = 0;
            generate(1, &buffer);
            bind(GL_ARRAY_BUFFER, buffer);
            fillBuffer(GL_ARRAY_BUFFER, PTRDIFF_MAX, nullptr, GL_STATIC_DRAW);
            bind(GL_ARRAY_BUFFER, 0);
        };
        EXPECT_THAT(frame(picture, 5), HasSubstr("ran out of memory for a frame of 6 x 6"));
    }
    EXPECT_TRUE(hostContextIsCurrent());
    EXPECT_EQ(frame(picture, 5), "");
}

TEST_F(EffectTest, TellsThatNoContextIsToBeHadUntilOneIs) {
    const Picture picture = Pictures::noise(6, 6, 1);
    EXPECT_TRUE(mEffect->setDown().ok());
    EglWatch::failCreations(true);
    mEffect.emplace(mModule);
    EXPECT_THAT(frame(picture, 5), HasSubstr("No OpenGL 3.3 core context"));
    EXPECT_TRUE(hostContextIsCurrent());
    mEffect.emplace(mModule);
    EglWatch::failCreations(false);
    EXPECT_EQ(frame(picture, 5), "");
    onThread([&] {
        EglWatch::failCreations(true);
        EXPECT_THAT(frame(picture, 5), HasSubstr("No OpenGL 3.3 core context"));
        EglWatch::failCreations(false);
        EXPECT_EQ(frame(picture, 5), "");
    });
}

TEST_F(EffectTest, KeepsItsObjectsForFramesOfOneSize) {
    const Picture picture = Pictures::noise(12, 8, 1);
    EXPECT_EQ(frame(picture, 5), "");
    const GLCalls calls;
    EXPECT_EQ(frame(picture, 9), "");
    for (const char* made : {"glGenFramebuffers", "glGenVertexArrays", "glGenBuffers", "glCreateShader"})
        EXPECT_EQ(calls.count(made), 0) << made;
    EXPECT_EQ(calls.count("glGenTextures"), calls.count("glDeleteTextures"));
    EXPECT_EQ(calls.count("glGenRenderbuffers"), calls.count("glDeleteRenderbuffers"));
}

// Threads that live side by side take turns, each inside the other.
TEST_F(EffectTest, DrawsOnThreadsThatTakeTurns) {
    const std::function<void(unsigned)> turns = [&](unsigned depth) {
        for (unsigned turn = 0; turn < 3; ++turn) {
            const int size = depth % 2 ? 9 : 8 + static_cast<int>(turn);
            EXPECT_EQ(frame(Pictures::noise(size, 7, 10 * depth + turn), 5), "") << depth << ", " << turn;
            if (depth < 2 && turn < 2)
                onThread([&] { turns(depth + 1); });
        }
    };
    turns(0);
    EXPECT_TRUE(hostContextIsCurrent());
}

TEST_F(EffectTest, StartsAndEndsOnAnyThreadAnyNumberOfTimes) {
    const Picture picture = Pictures::noise(10, 6, 1);
    // Without a context of the host's, a thread has the effect's last one current until it looks again.
    const auto restart = [&](int waitingThreads) {
        EXPECT_TRUE(mEffect->setDown().ok());
        EXPECT_EQ(EglWatch::liveContexts(), 1 + waitingThreads);
        mEffect.emplace(mModule);
        EXPECT_EQ(mEffect->command(PF_Cmd_GLOBAL_SETUP).code, 0) << "a setup on top of a setup";
        EXPECT_EQ(frame(picture, 5), "");
    };
    for (int round = 0; round < 3; ++round) {
        restart(0);
        onThread([&] {
            restart(0);
            onThread([&] { restart(1); });
            EXPECT_EQ(frame(picture, 4), "");
        });
        EXPECT_EQ(frame(picture, 5), "");
    }
    // So the setdown may come from a thread that finds the data context in use.
    EXPECT_TRUE(mEffect->setDown().ok());
    onThread([&] {
        mEffect.emplace(mModule);
        onThread([&] { EXPECT_TRUE(mEffect->setDown().ok()); });
    });
    EXPECT_EQ(EglWatch::liveContexts(), 1);
    mEffect.emplace(mModule);
    for (int again = 0; again < 2; ++again)
        EXPECT_TRUE(mEffect->command(PF_Cmd_GLOBAL_SETDOWN).ok());
    World input(2, 2), output(2, 2);
    EXPECT_EQ(smartRender(&input, &output), 516) << "after the end";
}

// Of the heap, in use. Nothing under a sanitizer, which looks for leaks itself.
std::size_t heapBytes() {
    const auto heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

TEST_F(EffectTest, UsesNoMoreMemoryAfterAThousandFrames) {
    constexpr int kLargest = 48;
    World largest(kLargest, kLargest), output(0, 0);
    std::size_t start = 0;
    for (int i = 0; i < 1000; ++i) {
        if (i == 20)
            start = heapBytes();
        World input(1 + i * 7 % kLargest, 1 + i * 11 % kLargest);
        ASSERT_TRUE(mEffect->render(i % 10 ? input : largest, output, i % 61).ok());
    }
    // A leak of one picture of the mean size a frame would be ten times that.
    EXPECT_LT(heapBytes(), start + (256 << 10));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
