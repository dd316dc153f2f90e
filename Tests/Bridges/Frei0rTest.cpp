#include "Platform/GLContext.h"
#include "Tests/Bridges/Reference.h"

#include <dlfcn.h>
#include <frei0r.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <thread>

// The filter as a program sees it: loaded with dlopen and called through its functions.

namespace Tessaloom::BilateralBlur::Frei0r::Test {

namespace {

struct Filter {
    void* library = dlopen(FREI0R_FILTER, RTLD_NOW | RTLD_LOCAL);
    template<class Function>
    Function* find(const char* name, Function*) const {
        return reinterpret_cast<Function*>(dlsym(library, name));
    }
#define FIND(name) decltype(&::name) name = find(#name, name)
    FIND(f0r_init);
    FIND(f0r_get_plugin_info);
    FIND(f0r_get_param_info);
    FIND(f0r_construct);
    FIND(f0r_destruct);
    FIND(f0r_set_param_value);
    FIND(f0r_get_param_value);
    FIND(f0r_update);
#undef FIND
};

const Filter& filter() {
    static const Filter kFilter;
    return kFilter;
}

/// An instance for the length of a scope.
class Instance {
public:
    explicit Instance(Size size, double position = 0)
        : mSize(size), mInstance(filter().f0r_construct(size.width, size.height)) {
        set(position);
    }
    ~Instance() { filter().f0r_destruct(mInstance); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    void set(double position) { filter().f0r_set_param_value(mInstance, &position, 0); }
    double get() const {
        double position = -1;
        filter().f0r_get_param_value(mInstance, &position, 0);
        return position;
    }
    void update(const std::uint8_t* input, std::uint8_t* output) const {
        filter().f0r_update(mInstance, std::nan(""), reinterpret_cast<const std::uint32_t*>(input),
                            reinterpret_cast<std::uint32_t*>(output));
    }
    Bytes update(const Bytes& frame) const {
        Bytes result(mSize.bytes());
        update(frame.data(), result.data());
        return result;
    }

private:
    Size mSize;
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
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    statm >> pages >> pages;
    return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

int count(const std::string& text, const std::string& part) {
    int found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size())
        ++found;
    return found;
}

TEST(Frei0r, ExportsTheFunctionsOfAFilterAlone) {
    std::FILE* const pipe = popen("nm -D --defined-only --format=posix '" FREI0R_FILTER "'", "r");
    std::vector<std::string> names;
    for (char line[512]; std::fgets(line, sizeof line, pipe);)
        names.push_back(std::string(line, std::string(line).find(' ')));
    pclose(pipe);
    EXPECT_THAT(names,
                testing::UnorderedElementsAre("f0r_init", "f0r_deinit", "f0r_get_plugin_info",
                                              "f0r_get_param_info", "f0r_construct", "f0r_destruct",
                                              "f0r_set_param_value", "f0r_get_param_value", "f0r_update"));
}

TEST(Frei0r, TellsOfItselfBeforeInitAndStandsNullInstances) {
    f0r_plugin_info_t info{};
    filter().f0r_get_plugin_info(&info);
    EXPECT_STREQ(info.name, "Bilateral Blur");
    EXPECT_EQ(info.plugin_type, F0R_PLUGIN_TYPE_FILTER);
    EXPECT_EQ(info.color_model, F0R_COLOR_MODEL_RGBA8888);
    EXPECT_EQ(info.frei0r_version, 1);
    EXPECT_EQ(info.num_params, 1);
    f0r_param_info_t parameter{};
    filter().f0r_get_param_info(&parameter, 0);
    EXPECT_STREQ(parameter.name, "Blur Scale");
    EXPECT_EQ(parameter.type, F0R_PARAM_DOUBLE);
    EXPECT_EQ(filter().f0r_init(), 1);

    double value = 0.5;
    filter().f0r_set_param_value(nullptr, &value, 0);
    filter().f0r_get_param_value(nullptr, &value, 0);
    std::uint32_t pixel = 0;
    filter().f0r_update(nullptr, 0, &pixel, &pixel);
    filter().f0r_destruct(nullptr);
}

TEST(Frei0r, KeepsTheParameterWithoutDriftAndWithinItsRange) {
    Instance instance(kSize);
    EXPECT_EQ(instance.get(), 0);
    for (int scale = 0; scale <= 60; ++scale) {
        instance.set(scale / 60.0);
        for (int again = 0; again < 3; ++again)
            instance.set(instance.get());
        EXPECT_EQ(instance.get(), scale / 60.0);
    }
    const double infinity = std::numeric_limits<double>::infinity();
    const std::pair<double, double> kCases[] = {{0.25, 0.25}, {30, 1},       {std::nan(""), 1},
                                                {-1, 0},      {infinity, 1}, {-infinity, 0}};
    for (const auto& [given, kept] : kCases) {
        instance.set(given);
        EXPECT_EQ(instance.get(), kept) << given;
    }
}

TEST(Frei0r, FiltersLikeTheEffect) {
    for (const Size size : {kSize, Size{1, 1}, Size{3, 40}, Size{64, 48}}) {
        const Bytes frame = makeFrames(size, 1);
        Instance instance(size);
        for (int scale = 0; scale <= 60; ++scale) {
            if (size.width != kSize.width && scale % 20 != 0)
                continue;
            // As users write it, with a few digits.
            instance.set(std::round(scale / 60.0 * 1e4) / 1e4);
            EXPECT_LE(largestDifference(instance.update(frame), reference(frame, size, scale)), 1)
                << size.width << " by " << size.height << " at " << scale;
        }
        Bytes inPlace = frame;
        instance.update(inPlace.data(), inPlace.data());
        EXPECT_EQ(inPlace, instance.update(frame));
    }
}

TEST(Frei0r, ConstructingStartsNothing) {
    const int before = threadCount();
    std::vector<std::unique_ptr<Instance>> instances;
    for (int i = 0; i < 100; ++i)
        instances.push_back(std::make_unique<Instance>(Size{640, 480}));
    EXPECT_EQ(threadCount(), before);
}

// Rounds of instances on several threads, bands of one frame on two at once among them. The driver keeps
// threads of its own from the first round on.
TEST(Frei0r, BeginsAndEndsAgainAndAgainWithoutLeavingAnything) {
    const Size band{64, 24};
    const Bytes frame = makeFrames({64, 48}, 1);
    const Bytes upper(frame.begin(), frame.begin() + band.bytes());
    const Bytes lower(frame.begin() + band.bytes(), frame.end());
    Bytes expected = reference(upper, band, 12);
    const Bytes expectedLower = reference(lower, band, 12);
    expected.insert(expected.end(), expectedLower.begin(), expectedLower.end());

    int threads = 0;
    long memory = 0;
    for (int round = 0; round < 20; ++round) {
        std::vector<std::thread> program;
        std::atomic<int> wrong{0};
        for (int i = 0; i < 3; ++i)
            program.emplace_back([&] {
                Instance instance(band, 0.2);
                Bytes result(frame.size());
                std::thread other([&] { instance.update(&frame[0], &result[0]); });
                instance.update(&frame[band.bytes()], &result[band.bytes()]);
                other.join();
                wrong += largestDifference(result, expected) > 1;
            });
        for (std::thread& thread : program)
            thread.join();
        ASSERT_EQ(wrong, 0) << "round " << round;
        if (round == 4) {
            threads = threadCount();
            memory = residentKilobytes();
        } else if (round > 4) {
            ASSERT_EQ(threadCount(), threads) << "round " << round;
        }
    }
    EXPECT_LT(residentKilobytes() - memory, kAllowedGrowth);
}

TEST(Frei0r, LeavesTheProgramsContextCurrent) {
    const std::uint32_t attributes[] = {NSOpenGLPFAOpenGLProfile, NSOpenGLProfileVersion3_2Core, 0};
    NSOpenGLPixelFormat* const format = NSOpenGLPixelFormat::initWithAttributes(attributes);
    NSOpenGLContext* const context = NSOpenGLContext::initWithFormat(format, nullptr);
    const Bytes frame = makeFrames(kSize, 1);
    CGLSetCurrentContext({});
    for (const bool withContext : {false, true}) {
        if (withContext)
            context->makeCurrentContext();
        const EGLContext before = eglGetCurrentContext();
        EXPECT_EQ(before != EGL_NO_CONTEXT, withContext);
        {
            const Instance instance(kSize, 0.2);
            EXPECT_EQ(eglGetCurrentContext(), before);
            instance.update(frame);
            EXPECT_EQ(eglGetCurrentContext(), before);
        }
        EXPECT_EQ(eglGetCurrentContext(), before);
    }
    CGLSetCurrentContext({});
    context->release();
    format->release();
}

/// True for a text with exactly one line of the filter's own, which has this part.
MATCHER_P(HasOneComplaint, part, "") {
    return count(arg, "Bilateral Blur: ") == 1 && count(arg, part) == 1;
}

MATCHER(HasNoComplaint, "") {
    return count(arg, "Bilateral Blur: ") == 0;
}

class Frei0rDeathTest : public testing::Test {
protected:
    // The process is a fresh one then, in which nothing has touched GL.
    Frei0rDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    /// Three frames that can't be filtered, on two instances; exits with 0 if they came out as they were.
    [[noreturn]] static void passThrough(Size size) {
        const Bytes frame = makeFrames(size, 1);
        bool unchanged = true;
        {
            const Instance one(size, 0.5), two(size, 0.5);
            for (const Instance* instance : {&one, &one, &two})
                unchanged &= instance->update(frame) == frame;
        }
        std::exit(unchanged ? 0 : 3);
    }
};

TEST_F(Frei0rDeathTest, WithoutGLFramesGoOnUnchanged) {
    EXPECT_EXIT(
        {
            setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/dev/null", 1);
            passThrough(kSize);
        },
        testing::ExitedWithCode(0), HasOneComplaint("No OpenGL 3.3 core context can be had"));
}

TEST_F(Frei0rDeathTest, AFrameThatFailsGoesOnUnchanged) {
    EXPECT_EXIT(passThrough({40000, 1}), testing::ExitedWithCode(0), HasOneComplaint("40000 x 1 pixels"));
}

bool leavesToTheSystem = false;

} // namespace

// The leak sanitizer asks when the process exits.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
    return leavesToTheSystem;
}

namespace {

// As programs do that leave the cleaning to the system.
[[noreturn]] void exitWithInstancesAlive() {
    leavesToTheSystem = true;
    (new Instance(kSize, 0.2))->update(makeFrames(kSize, 1));
    std::exit(0);
}

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

TEST_F(Frei0rDeathTest, ExitsWithoutBeingToldTo) {
    EXPECT_EXIT(exitWithInstancesAlive(), testing::ExitedWithCode(0), "");
    for (int i = 0; i < 3; ++i)
        EXPECT_EXIT(exitWithFramesUnderWay(), testing::ExitedWithCode(0), HasNoComplaint());
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Frei0r::Test
