#include "Tests/Bridges/Reference.h"
#include "Tests/Support/EglWatch.h"
#include "Tests/Support/ProcessRun.h"

#include <dlfcn.h>
#include <frei0r.h>
#include <gmock/gmock.h>

#include <atomic>
#include <cmath>
#include <ctime>
#include <set>
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
        FILTER(f0r_set_param_value)(mInstance, &position, 0);
    }
    ~Instance() { FILTER(f0r_destruct)(mInstance); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    double position() const {
        double position = -1;
        FILTER(f0r_get_param_value)(mInstance, &position, 0);
        return position;
    }
    Bytes update(const Bytes& frame) const {
        Bytes result(frame.size());
        update(frame, result);
        return result;
    }
    void update(const Bytes& frame, Bytes& result) const {
        FILTER(f0r_update)
        (mInstance, std::nan(""), reinterpret_cast<const std::uint32_t*>(frame.data()),
         reinterpret_cast<std::uint32_t*>(result.data()));
    }

private:
    f0r_instance_t mInstance;
};

constexpr Size kSize{37, 21};

int threadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

TEST(Frei0r, ExportsTheFunctionsOfAFilterAlone) {
    ProcessRun symbols({"/bin/sh", "-c", "nm -D --defined-only -j '" FREI0R_FILTER "' | LC_ALL=C sort"});
    EXPECT_EQ(symbols.wait().out, "f0r_construct\nf0r_deinit\nf0r_destruct\nf0r_get_param_info\n"
                                  "f0r_get_param_value\nf0r_get_plugin_info\nf0r_init\n"
                                  "f0r_set_param_value\nf0r_update\n");
}

TEST(Frei0r, IgnoresNullInstancesAndParametersItLacks) {
    f0r_param_info_t none{};
    FILTER(f0r_get_param_info)(&none, 1);
    EXPECT_EQ(none.name, nullptr);
    double value = 0.5;
    FILTER(f0r_set_param_value)(nullptr, &value, 0);
    FILTER(f0r_get_param_value)(nullptr, &value, 0);
    std::uint32_t pixel = 0;
    FILTER(f0r_update)(nullptr, 0, &pixel, &pixel);
    FILTER(f0r_destruct)(nullptr);
}

TEST(Frei0r, KeepsTheParameterWithinItsRange) {
    testing::internal::CaptureStderr();
    for (const auto& [given, kept] : {std::pair{0.25, 0.25}, {20, 1}, {std::nan(""), 0}, {-HUGE_VAL, 0}})
        EXPECT_EQ(Instance(kSize, given).position(), kept) << given;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Bilateral Blur: Blur Scale 20 is out of range, 0 to 1 (which means 0 to 60); using 1\n");
}

TEST(Frei0r, FiltersLikeTheEffect) {
    for (int scale = 0; scale <= 60; ++scale) {
        const Size size{1 + scale * 5 % 37, 1 + scale * 7 % 41};
        const Bytes frame = makeFrames(size, 1);
        // As users write it, with a few digits.
        Instance instance(size, std::round(scale / 60.0 * 1e4) / 1e4);
        EXPECT_EQ(instance.update(frame), reference(frame, size, {scale})) << scale;
    }
}

// Rounds of instances on several threads, with two threads in each instance at once. The driver keeps threads
// of its own from the first round on.
TEST(Frei0r, BeginsAndEndsAgainAndAgainWithoutLeavingAnything) {
    const Bytes frames[] = {makeFrames(kSize, 1), makeFrames(kSize, 1, true)};
    const Bytes expected[] = {reference(frames[0], kSize, {12}), reference(frames[1], kSize, {12})};
    const int contexts = EglWatch::liveContexts;
    std::atomic<int> wrong{0};
    const auto filterTwoFrames = [&] {
        const Instance instance(kSize, 0.2);
        const auto filterOne = [&](int i) { wrong += instance.update(frames[i]) != expected[i]; };
        const std::jthread other(filterOne, 0);
        filterOne(1);
    };
    std::set<int> threads;
    for (int round = 0; round < 20; ++round) {
        { const std::jthread one(filterTwoFrames), two(filterTwoFrames), three(filterTwoFrames); }
        if (round >= 4)
            threads.insert(threadCount());
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_THAT(threads, testing::SizeIs(1));
    EXPECT_EQ(EglWatch::liveContexts, contexts);
}

// A thread that takes the signal ends the process.
TEST(Frei0r, LeavesTheProgramsSignalsToIt) {
    const Instance instance(kSize, 0.2);
    instance.update(makeFrames(kSize, 1));
    sigset_t user;
    sigemptyset(&user);
    sigaddset(&user, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &user, nullptr);
    kill(getpid(), SIGUSR1);
    const timespec soon{1, 0};
    EXPECT_EQ(sigtimedwait(&user, nullptr, &soon), SIGUSR1);
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
    const std::string message = testing::internal::GetCapturedStderr();
    EXPECT_THAT(message, testing::HasSubstr("40000 x 1 pixels"));
    EXPECT_EQ(message.find("Bilateral Blur: "), message.rfind("Bilateral Blur: "));
}

TEST(Frei0rDeathTest, AFrameUnderWayIsFinishedWhenTheProcessExits) {
    // The process is a fresh one then, in which nothing has touched GL.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    // Never destroyed, as threads read them when the process exits.
    static const Size kLarge{1024, 1024};
    static const Bytes& kFrame = *new Bytes(makeFrames(kLarge, 1));
    static Bytes& kResult = *new Bytes(kFrame.size());
    const auto exitEarly = [] {
        std::atexit([] {
            if (kResult.back() == 0)
                _exit(1);
        });
        static const Instance& kInstance = *new Instance(kLarge, 1);
        Instance(kSize).update(makeFrames(kSize, 1));
        const std::clock_t start = std::clock();
        std::thread([] { kInstance.update(kFrame, kResult); }).detach();
        // Nothing but the frame takes time now.
        while (std::clock() - start < CLOCKS_PER_SEC / 20)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        for (int i = 0; i < 3; ++i)
            std::thread([] {
                while (true)
                    kInstance.update(kFrame);
            }).detach();
        std::exit(0);
    };
    EXPECT_EXIT(exitEarly(), testing::ExitedWithCode(0),
                testing::Not(testing::HasSubstr("Bilateral Blur: ")));
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Bridges::Test
