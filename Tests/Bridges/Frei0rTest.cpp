#include "Tests/Bridges/Reference.h"
#include "Tests/Support/AllocationLimit.h"
#include "Tests/Support/EglWatch.h"

#include <dlfcn.h>
#include <frei0r.h>

#include <cmath>
#include <csignal>
#include <ctime>

// The filter as a program sees it: loaded with dlopen and called through its functions.

namespace Tessaloom::BilateralBlur::Bridges::Test {

namespace {

void* const kBlur = dlopen(BLUR_FILTER, RTLD_NOW | RTLD_LOCAL);
void* const kSmooth = dlopen(SMOOTH_FILTER, RTLD_NOW | RTLD_LOCAL);
#define FUNCTION(filter, name) reinterpret_cast<decltype(&::name)>(dlsym(filter, #name))
#define BLUR(name) FUNCTION(kBlur, name)
#define SMOOTH(name) FUNCTION(kSmooth, name)

using Instance = std::shared_ptr<void>;

Instance makeInstance(Size size, double position) {
    const Instance instance(BLUR(f0r_construct)(size.width, size.height), BLUR(f0r_destruct));
    BLUR(f0r_set_param_value)(instance.get(), &position, 0);
    return instance;
}

void update(const Instance& instance, const Bytes& frame, Bytes& result, void* filter = kBlur) {
    const auto* const from = reinterpret_cast<const std::uint32_t*>(frame.data());
    auto* const to = reinterpret_cast<std::uint32_t*>(result.data());
    FUNCTION(filter, f0r_update)(instance.get(), std::nan(""), from, to);
}

Bytes updated(const Instance& instance, const Bytes& frame, void* filter = kBlur) {
    Bytes result(frame.size());
    update(instance, frame, result, filter);
    return result;
}

constexpr Size kSize{37, 21};

TEST(Frei0r, EachParameterIsItsSlidersValueDividedByTheMaximum) {
    const Bytes frame = makeFrames(kSize, 1);
    const Instance instance(SMOOTH(f0r_construct)(kSize.width, kSize.height), SMOOTH(f0r_destruct));
    const auto set = [&](int index, double position) {
        SMOOTH(f0r_set_param_value)(instance.get(), &position, index);
        SMOOTH(f0r_get_param_value)(instance.get(), &position, index);
        return position;
    };
    EXPECT_EQ(updated(instance, frame, kSmooth), smoothed()(frame, kSize, {{5, 100}})) << "the defaults";
    EXPECT_EQ(set(0, 0.2), 0.2);
    EXPECT_EQ(set(1, 0.09955), 0.09955);
    EXPECT_EQ(updated(instance, frame, kSmooth), smoothed()(frame, kSize, {{12, 100}}));
    testing::internal::CaptureStderr();
    EXPECT_EQ(set(1, 20), 1);
    EXPECT_EQ(set(1, std::nan("")), 1);
    EXPECT_EQ(set(1, -HUGE_VAL), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Bilateral Smooth: Threshold 20 is out of range, 0 to 1 (which means 0 to 1, at least 0.001); "
              "using 1\n");
    EXPECT_EQ(updated(instance, frame, kSmooth), smoothed()(frame, kSize, {{12, 1}}));
    f0r_param_info_t info{};
    SMOOTH(f0r_get_param_info)(&info, 1);
    SMOOTH(f0r_get_param_info)(&info, 2);
    EXPECT_STREQ(info.name, "Threshold");
    EXPECT_STREQ(info.explanation, "0 to 1 means 0 to 1, at least 0.001");
    BLUR(f0r_get_param_info)(&info, 0);
    EXPECT_STREQ(info.explanation, "0 to 1 means 0 to 60");
}

// Rounds of instances on several threads, with two threads in each instance at once.
TEST(Frei0r, BeginsAndEndsAgainAndAgainWithoutLeavingAnything) {
    // Some have the same width, some the same height.
    const auto sizeFor = [](int scale) { return Size{1 + scale % 5 * 9, 1 + scale * 7 % 41}; };
    std::vector<Bytes> expected;
    for (int scale = 0; scale <= 60; ++scale)
        expected.push_back(blurred()(makeFrames(sizeFor(scale), 1), sizeFor(scale), {{scale}}));
    const double maximum = Host::Module(BLUR_MODULE).resource().sliders[0].maximum;
    const int contexts = EglWatch::liveContexts;
    const auto filterTwice = [&](int scale) {
        // As users write it, with a few digits.
        const Instance instance = makeInstance(sizeFor(scale), std::round(scale / maximum * 1e4) / 1e4);
        const auto filter = [&] {
            EXPECT_EQ(updated(instance, makeFrames(sizeFor(scale), 1)), expected[scale]) << scale;
        };
        const std::jthread other(filter);
        filter();
    };
    for (int round = 0; round < 20; ++round) {
        const std::jthread one(filterTwice, round), two(filterTwice, round + 21);
        filterTwice(round + 41);
    }
    EXPECT_EQ(EglWatch::liveContexts, contexts);
}

// A thread that takes the signal ends the process.
TEST(Frei0r, LeavesTheProgramsSignalsToIt) {
    const Instance instance = makeInstance(kSize, 0.2);
    updated(instance, makeFrames(kSize, 1));
    sigset_t user;
    sigemptyset(&user);
    sigaddset(&user, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &user, nullptr);
    kill(getpid(), SIGUSR1);
    const timespec soon{1, 0};
    EXPECT_EQ(sigtimedwait(&user, nullptr, &soon), SIGUSR1);
}

TEST(Frei0r, AFrameThatFailsGoesOnUnchangedWithOneLineForTheFirst) {
    const Bytes frame = makeFrames(kSize, 1);
    const Instance one = makeInstance(kSize, 0), two = makeInstance(kSize, 0.5);
    updated(one, frame); // which needs no scratch memory, and sets the effect up
    testing::internal::CaptureStderr();
    AllocationLimit::largest = std::size_t{256} << 10;
    const Bytes results[] = {updated(two, frame), updated(two, frame)};
    AllocationLimit::largest = SIZE_MAX;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Bilateral Blur: passing frames through unfiltered: There is no memory for a frame of 37 x 21 "
              "pixels.\n");
    for (const Bytes& result : results)
        EXPECT_EQ(result, frame);
    EXPECT_NE(updated(two, frame), frame);
}

TEST(Frei0r, AHostGetsNoExceptionWhereTheSetupHasNoMemory) {
    const Bytes frame = makeFrames(kSize, 1);
    const Instance instance = makeInstance(kSize, 0.5);
    Bytes result(frame.size());
    double position = 0.5;
    // With a bit of it the thread starts, and has none for the effect.
    for (const std::size_t limit : {0, 100}) {
        AllocationLimit::largest = limit;
        void* const second = BLUR(f0r_construct)(kSize.width, kSize.height);
        // A host may go on without an instance.
        BLUR(f0r_get_param_value)(second, &position, 0);
        BLUR(f0r_set_param_value)(second, &position, 0);
        update(instance, frame, result);
        AllocationLimit::largest = SIZE_MAX;
        EXPECT_EQ(result, frame);
        EXPECT_EQ(second != nullptr, limit == 100);
        update({second, BLUR(f0r_destruct)}, frame, result);
    }
    EXPECT_NE(updated(instance, frame), frame);
}

/// A process that exits while its first frame is rendered, or, `isWarm`, a later one while another waits.
void exitDuringAFrame(bool isWarm) {
    // Never destroyed, as threads read them when the process exits.
    static const Size kLarge{512, 512};
    static const Bytes& kFrame = *new Bytes(makeFrames(kLarge, 1));
    static Bytes &kResult = *new Bytes(kFrame.size()), &kNext = *new Bytes(kFrame.size());
    static Instance& kInstance = *new Instance;
    static std::atomic<int> kAtWork{0};
    static const auto kFinished = [] {
        if (kResult.back() == 0)
            _exit(1);
    };
    // After the bridge's own handler.
    std::atexit([] {
        kFinished();
        while (kAtWork > 0)
            std::this_thread::yield();
        kInstance.reset();
        if (EglWatch::liveContexts == 0) // but the driver may be gone
            _exit(2);
    });
    kInstance = makeInstance(kLarge, 1);
    const auto begin = [](Bytes& result) {
        ++kAtWork;
        std::thread([&] {
            update(kInstance, kFrame, result);
            --kAtWork;
        }).detach();
    };
    const auto wait = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
    if (isWarm) {
        updated(makeInstance(kSize, 1), makeFrames(kSize, 1));
        const std::clock_t start = std::clock();
        begin(kResult);
        while (std::clock() - start < CLOCKS_PER_SEC / 50) // nothing but the frame takes time now
            wait();
        begin(kNext);
    } else {
        begin(kResult);
        while (EglWatch::liveContexts == 0)
            wait();
        std::atexit(+kFinished); // as the driver does, whose end the frame mustn't see
    }
    std::exit(0);
}

TEST(Frei0rDeathTest, AFrameUnderWayIsFinishedWhenTheProcessExits) {
    // The process is a fresh one then, in which nothing has touched GL.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    for (const bool isWarm : {false, true})
        EXPECT_EXIT(exitDuringAFrame(isWarm), testing::ExitedWithCode(0),
                    testing::Not(testing::HasSubstr("Bilateral Blur: ")));
}

// With a sanitizer it would report the memory of the thread that it lacks.
#ifndef __SANITIZE_ADDRESS__
TEST(Frei0rDeathTest, AForkPassesFramesThroughAndEnds) {
    GTEST_FLAG_SET(death_test_style, "fast");
    const Size size{128, 128};
    const Bytes frame = makeFrames(size, 1);
    Instance instance = makeInstance(size, 1);
    updated(instance, frame);
    const std::jthread other([&](const std::stop_token& stop) {
        while (!stop.stop_requested())
            updated(instance, frame); // under way when the process forks
    });
    const auto goOn = [&] {
        alarm(60);
        if (updated(instance, frame) != frame)
            _exit(1);
        instance.reset();
        std::exit(0);
    };
    for (int i = 0; i < 5; ++i)
        EXPECT_EXIT(goOn(), testing::ExitedWithCode(0), "unfiltered: this process is a fork of the one");
}
#endif

} // namespace

} // namespace Tessaloom::BilateralBlur::Bridges::Test
