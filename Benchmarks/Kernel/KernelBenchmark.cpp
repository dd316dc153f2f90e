// Times the kernel of the pass. Items are taps of the square neighbourhood: items_per_second is taps a
// second. A name tells the instruction set ("best" is the machine's), the picture, its size, the blur size
// and the threads.
#include "Benchmarks/Kernel/FmaRate.h"
#include "Platform/UsableCpus.h"
#include "Plugins/BilateralBlur/Sources/FilterConstants.h"
#include "Plugins/BilateralBlur/Sources/CpuFormula.h"
#include "Tests/Support/Pictures.h"

#include <benchmark/benchmark.h>

#define HWY_WANT_AVX3_DL
#include <hwy/targets.h>

#ifdef BILATERAL_BLUR_OPENCV
#include <opencv2/imgproc.hpp>
#endif

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

using Pictures::Picture;

struct Size {
    int width, height;
};

constexpr Size kSmall{640, 360}, kHd{1920, 1080}, kUhd{3840, 2160};

struct Content {
    const char* name;
    bool opaque;
    Picture (*make)(int, int);
};

constexpr Content kNoise{"noise", false,
                         [](int width, int height) { return Pictures::noise(width, height, 1); }};
constexpr Content kPhotograph{"photograph", true,
                              [](int width, int height) { return Pictures::photograph(width, height, 1); }};

/// Taps along each axis.
int tapsAcross(int blurSize) {
    return 2 * reachOf(blurSize) + 1;
}

void countTaps(benchmark::State& state, Size size, int blurSize) {
    const double items =
        static_cast<double>(tapsAcross(blurSize)) * tapsAcross(blurSize) * size.width * size.height;
    state.SetItemsProcessed(static_cast<std::int64_t>(items * static_cast<double>(state.iterations())));
}

std::string label(Size size, int blurSize) {
    return std::to_string(size.width) + "x" + std::to_string(size.height) +
           "/scale:" + std::to_string(blurSize);
}

benchmark::internal::Benchmark* add(const std::string& name,
                                    const std::function<void(benchmark::State&)>& run) {
    return benchmark::RegisterBenchmark(name.c_str(), run)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()
        ->UseRealTime();
}

/// The share of one core's rate of vector multiply-adds that the portable kernel's vector instructions reach, all
/// of them counted: multiply-adds, and those that other units run too. With AVX3_DL the inner loop has 11 for a
/// vector of taps, of which 8 multiply; 9.5 and 6 where alpha is constant.
void countInstructions(benchmark::State& state, const Content& content, Size size, int blurSize,
                       unsigned threads) {
    static const FmaRate kRate = measureFmaRate();
    const double instructions = content.opaque ? 9.5 : 11.0;
    const double taps =
        static_cast<double>(tapsAcross(blurSize)) * tapsAcross(blurSize) * size.width * size.height;
    state.counters["of_rate"] =
        benchmark::Counter(taps * static_cast<double>(state.iterations()) * instructions / kRate.lanes /
                               (threads * kRate.perSecond),
                           benchmark::Counter::kIsRate);
}

/// The 8-bit entry, on the machine's best instruction set unless `target` names another.
void addBytes(const std::string& prefix, const Content& content, Size size, int blurSize, unsigned threads,
              std::int64_t target = 0) {
    const std::string name =
        prefix + "/" + content.name + "/" + label(size, blurSize) + "/threads:" + std::to_string(threads);
    add(name, [=](benchmark::State& state) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
        ThreadPool pool(threads);
        const Picture picture = content.make(size.width, size.height);
        const std::ptrdiff_t stride = std::ptrdiff_t{4} * size.width;
        Picture result{size.width, size.height};
        for (auto _ : state)
            bilateralBlur(picture.bytes.data(), stride, result.bytes.data(), stride, size.width, size.height,
                          blurSize, pool);
        countTaps(state, size, blurSize);
        if (target == HWY_AVX3_DL)
            countInstructions(state, content, size, blurSize, threads);
        hwy::SetSupportedTargetsForTest(0);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    });
}

/// The same reach and sigmas on three 8-bit channels; its neighbourhood is the circle within our square, and
/// its range distance is the sum of the channels' differences.
void addOpenCv([[maybe_unused]] const Content& content, [[maybe_unused]] Size size,
               [[maybe_unused]] int blurSize) {
#ifdef BILATERAL_BLUR_OPENCV
    add(std::string("opencv_bilateralFilter/") + content.name + "/" + label(size, blurSize),
        [=](benchmark::State& state) {
            const Picture picture = content.make(size.width, size.height);
            cv::Mat source(size.height, size.width, CV_8UC3), result;
            for (int y = 0; y < size.height; ++y)
                for (int x = 0; x < size.width; ++x)
                    source.at<cv::Vec3b>(y, x) = {picture.pixel(x, y)[1], picture.pixel(x, y)[2],
                                                  picture.pixel(x, y)[3]};
            for (auto _ : state)
                cv::bilateralFilter(source, result, tapsAcross(blurSize), 255 * kRangeSigma, kSpatialSigma,
                                    cv::BORDER_REPLICATE);
            countTaps(state, size, blurSize);
        });
#endif
}

/// The clock that one core holds under a chain of dependent additions, in GHz.
double measureClock() {
    double best = 0.0;
    for (int repeat = 0; repeat < 20; ++repeat) {
        constexpr int kSteps = 2'000'000;
        std::uint64_t value = 1;
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kSteps; ++i) {
            // Each takes one cycle; the empty statements keep the compiler from merging them.
            value += 3;
            asm volatile("" : "+r"(value));
            value ^= 5;
            asm volatile("" : "+r"(value));
        }
        const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
        best = std::max(best, 2.0 * kSteps / time.count());
    }
    return best;
}

void addAll() {
    const unsigned cores = usableCpus();
    for (const Content& content : {kNoise, kPhotograph}) {
        for (const Size size : {kSmall, kUhd})
            addBytes("best", content, size, 30, cores);
        for (const int blurSize : {10, 20, 30, 60}) {
            addBytes("best", content, kHd, blurSize, cores);
            addOpenCv(content, kHd, blurSize);
        }
        addOpenCv(content, kSmall, 29);
        addBytes("best", content, kSmall, 29, cores);
        for (const std::int64_t target : hwy::SupportedAndGeneratedTargets())
            addBytes(hwy::TargetName(target), content, kSmall, 29, cores, target);
    }
    if (cores > 1)
        addBytes("best", kNoise, kHd, 60, 1);
}

} // namespace
} // namespace Tessaloom::BilateralBlur

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("core_clock_ghz", std::to_string(Tessaloom::BilateralBlur::measureClock()));
#ifndef BILATERAL_BLUR_OPENCV
    benchmark::AddCustomContext("left_out", "opencv_bilateralFilter (built without OpenCV)");
#endif
    Tessaloom::BilateralBlur::addAll();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
