#include "Platform/GLContext.h"
#include "Tests/Bridges/Reference.h"
#include "Tests/Support/EglWatch.h"
#include "Tests/Support/ProcessRun.h"

#include <EGL/egl.h>
#include <dlfcn.h>
#include <frei0r.h>
#include <gmock/gmock.h>
#include <malloc.h>

#include <atomic>
#include <cmath>
#include <thread>

// The filter as a program sees it: loaded with dlopen and called through its functions.

namespace Tessaloom::BilateralBlur::Bridges::Test {

namespace {

void* const kFilter = dlopen(FREI0R_FILTER, RTLD_NOW | RTLD_LOCAL);
#define FILTER(name) reinterpret_cast<decltype(&::name)>(dlsym(kFilter, #name))

/// An instance for the length of a scope.
class Instance {
public:
    explicit Instance(Size size, double position = 0)
        : mInstance(FILTER(f0r_construct)(size.width, size.height)) {
        set(position);
    }
    ~Instance() { FILTER(f0r_destruct)(mInstance); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    void set(double position) { FILTER(f0r_set_param_value)(mInstance, &position, 0); }
    double get() const {
        double position = -1;
        FILTER(f0r_get_param_value)(mInstance, &position, 0);
        return position;
    }
    void update(const Bytes& input, Bytes& output) const {
        const auto* from = reinterpret_cast<const std::uint32_t*>(input.data());
        FILTER(f0r_update)(mInstance, std::nan(""), from, reinterpret_cast<std::uint32_t*>(output.data()));
    }
    Bytes update(const Bytes& frame) const {
        Bytes result(frame.size());
        update(frame, result);
        return result;
    }

private:
    f0r_instance_t mInstance;
};

constexpr Size kSize{37, 21};

// The sanitizers keep freed memory, or notes of it, for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kAllowedGrowth = 256 * 1024;
#else
constexpr long kAllowedGrowth = 4096;
#endif

// Each new thread may get a heap of its own, up to some number, which would show as growth.
const int kOneHeap = mallopt(M_ARENA_MAX, 1);

int threadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

long residentKilobytes() {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

TEST(Frei0r, ExportsTheFunctionsOfAFilterAlone) {
    ProcessRun symbols({"/bin/sh", "-c", "nm -D --defined-only -j '" FREI0R_FILTER "' | LC_ALL=C sort"});
    EXPECT_EQ(symbols.wait().out, "f0r_construct\nf0r_deinit\nf0r_destruct\nf0r_get_param_info\n"
                                  "f0r_get_param_value\nf0r_get_plugin_info\nf0r_init\n"
                                  "f0r_set_param_value\nf0r_update\n");
}

TEST(Frei0r, DescribesItselfAndIgnoresNullInstances) {
    f0r_plugin_info_t info{};
    FILTER(f0r_get_plugin_info)(&info);
    EXPECT_STREQ(info.name, "Bilateral Blur");
    EXPECT_EQ(info.plugin_type, F0R_PLUGIN_TYPE_FILTER);
    EXPECT_EQ(info.color_model, F0R_COLOR_MODEL_RGBA8888);
    EXPECT_EQ(info.num_params, 1);
    f0r_param_info_t parameter{};
    FILTER(f0r_get_param_info)(&parameter, 0);
    EXPECT_STREQ(parameter.name, "Blur Scale");
    EXPECT_EQ(parameter.type, F0R_PARAM_DOUBLE);
    EXPECT_EQ(FILTER(f0r_init)(), 1);

    double value = 0.5;
    FILTER(f0r_set_param_value)(nullptr, &value, 0);
    FILTER(f0r_get_param_value)(nullptr, &value, 0);
    std::uint32_t pixel = 0;
    FILTER(f0r_update)(nullptr, 0, &pixel, &pixel);
    FILTER(f0r_destruct)(nullptr);
}

TEST(Frei0r, KeepsTheParameterWithoutDriftAndWithinItsRange) {
    Instance instance(kSize);
    testing::internal::CaptureStderr();
    for (int scale = 0; scale <= 60; ++scale) {
        instance.set(scale / 60.0);
        for (int again = 0; again < 3; ++again)
            instance.set(instance.get());
        EXPECT_EQ(instance.get(), scale / 60.0);
    }
    const std::pair<double, double> kCases[] = {{0.25, 0.25}, {20, 1},       {std::nan(""), 1},
                                                {-1, 0},      {HUGE_VAL, 1}, {-HUGE_VAL, 0}};
    for (const auto& [given, kept] : kCases) {
        instance.set(given);
        EXPECT_EQ(instance.get(), kept) << given;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Bilateral Blur: Blur Scale 20 is out of range, 0 to 1 (which means 0 to 60); using 1\n");
}

TEST(Frei0r, FiltersLikeTheEffect) {
    for (int scale = 0; scale <= 60; ++scale) {
        const Size size{1 + scale * 5 % 37, 1 + scale * 7 % 41};
        const Bytes frame = makeFrames(size, 1);
        // As users write it, with a few digits.
        Instance instance(size, std::round(scale / 60.0 * 1e4) / 1e4);
        const Bytes result = instance.update(frame);
        EXPECT_EQ(result, reference(frame, size, {scale})) << scale;
        Bytes inPlace = frame;
        instance.update(inPlace, inPlace);
        EXPECT_EQ(inPlace, result);
    }
}

// Rounds of instances on several threads, with two threads in each instance at once. The driver keeps threads
// of its own from the first round on.
TEST(Frei0r, BeginsAndEndsAgainAndAgainWithoutLeavingAnything) {
    constexpr Size kSize{200, 100}; // 30 frames left behind would show
    const Bytes frames[] = {makeFrames(kSize, 1), makeFrames(kSize, 1, true)};
    const Bytes expected[] = {reference(frames[0], kSize, {12}), reference(frames[1], kSize, {12})};
    std::atomic<int> wrong{0};
    const auto filterTwoFrames = [&] {
        const Instance instance(kSize, 0.2);
        const auto filterOne = [&](int i) { wrong += instance.update(frames[i]) != expected[i]; };
        std::thread other(filterOne, 0);
        filterOne(1);
        other.join();
    };
    long threads = 0, memory = 0;
    for (int round = 0; round < 20; ++round) {
        { const std::jthread one(filterTwoFrames), two(filterTwoFrames), three(filterTwoFrames); }
        ASSERT_EQ(wrong, 0) << "round " << round;
        if (round == 4) {
            threads = threadCount();
            memory = residentKilobytes();
        }
        ASSERT_TRUE(round < 4 || threadCount() == threads) << "round " << round;
    }
    EXPECT_LT(residentKilobytes() - memory, kAllowedGrowth);
    const Instance another(kSize, 0.2);
    EXPECT_LE(threadCount(), threads) << "an instance starts a thread without a frame";
    another.update(frames[0]);
    EXPECT_GT(threadCount(), threads) << "the filter's thread stays when its instances are gone";
}

TEST(Frei0r, LeavesTheProgramsContextCurrent) {
    const std::uint32_t attributes[] = {NSOpenGLPFAOpenGLProfile, NSOpenGLProfileVersion3_2Core, 0};
    NSOpenGLPixelFormat* const format = NSOpenGLPixelFormat::initWithAttributes(attributes);
    NSOpenGLContext* const context = NSOpenGLContext::initWithFormat(format, nullptr);
    for (const bool withContext : {false, true}) {
        CGLSetCurrentContext({});
        if (withContext)
            context->makeCurrentContext();
        const EGLContext before = eglGetCurrentContext();
        {
            const Instance instance(kSize, 0.2);
            instance.update(makeFrames(kSize, 1));
            EXPECT_EQ(eglGetCurrentContext(), before);
        }
        EXPECT_EQ(eglGetCurrentContext(), before);
    }
    CGLSetCurrentContext({});
    context->release();
    format->release();
}

TEST(Frei0r, AFrameThatFailsGoesOnUnchangedWithOneLineForTheFirst) {
    const Size size{40000, 1};
    const Bytes frame = makeFrames(size, 1);
    const Instance one(size, 0.5), two(size, 0.5);
    EglWatch::hardware = true; // and a GPU has a limit
    testing::internal::CaptureStderr();
    for (const Instance* instance : {&one, &one, &two})
        EXPECT_EQ(instance->update(frame), frame);
    EglWatch::hardware = false;
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, testing::HasSubstr("40000 x 1 pixels"));
    EXPECT_EQ(told.find("Bilateral Blur: "), told.rfind("Bilateral Blur: "));
}

bool leavesToTheSystem = false;

} // namespace

// The leak sanitizer asks when the process exits.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
    return leavesToTheSystem;
}

namespace {

// As programs do that leave the cleaning to the system.
[[noreturn]] void exitWithFramesUnderWay() {
    leavesToTheSystem = true;
    const Size size{128, 128};
    const Bytes& frame = *new Bytes(makeFrames(size, 1));
    const auto& instance = *new Instance(size, 0.5);
    instance.update(frame);
    for (int i = 0; i < 3; ++i)
        std::thread([&] {
            while (true)
                instance.update(frame);
        }).detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::exit(0);
}

TEST(Frei0rDeathTest, ExitsWithoutBeingToldTo) {
    // The process is a fresh one then, in which nothing has touched GL.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int i = 0; i < 3; ++i)
        EXPECT_EXIT(exitWithFramesUnderWay(), testing::ExitedWithCode(0),
                    testing::Not(testing::HasSubstr("Bilateral Blur: ")));
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Bridges::Test
