// Times the CPU filters of both effects. Items are taps of the square neighbourhood: items_per_second is taps a
// second. A name tells the instruction set ("best" is the machine's), the image, its size, the blur size
// and the threads.
#include "Benchmarks/Kernel/FmaRate.h"
#include "Platform/UsableCpus.h"
#include "Plugins/BilateralBlur/Sources/CpuFormula.h"
#include "Plugins/BilateralBlur/Sources/FilterConstants.h"
#include "Plugins/BilateralSmooth/Sources/CpuFormula.h"
#include "Tests/Support/Images.h"

#include <benchmark/benchmark.h>

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

struct Size {
    int width, height;
};

constexpr Size kSmall{640, 360}, kHd{1920, 1080}, kUhd{3840, 2160};

struct Content {
    const char* name;
    bool opaque;
    Images::Image (*make)(int, int);
};

constexpr Content kNoise{"noise", false,
                         [](int width, int height) { return Images::noise(width, height, 1); }};
constexpr Content kOpaqueNoise{"opaque_noise", true,
                               [](int width, int height) { return Images::noise(width, height, 1, true); }};
constexpr Content kPhotograph{"photograph", true,
                              [](int width, int height) { return Images::photograph(width, height, 1); }};

/// Taps along each axis.
int tapsAcross(int blurSize) {
    return 2 * reachOf(blurSize) + 1;
}

void countTaps(benchmark::State& state, Size size, int across) {
    const double items = static_cast<double>(across) * across * size.width * size.height;
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
        const Images::Image image = content.make(size.width, size.height);
        const std::ptrdiff_t stride = std::ptrdiff_t{4} * size.width;
        Images::Image result{size.width, size.height};
        for (auto _ : state)
            bilateralBlur(image.bytes.data(), stride, result.bytes.data(), stride, size.width, size.height,
                          blurSize, pool);
        countTaps(state, size, tapsAcross(blurSize));
        if (target == HWY_AVX3_DL)
            countInstructions(state, content, size, blurSize, threads);
        hwy::SetSupportedTargetsForTest(0);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    });
}

/// "Bilateral Smooth" at a radius, with the threshold that most use.
constexpr double kThreshold = 0.1;

struct DepthCase {
    const char* name;
    Depth depth;
    double fullScale;
    std::vector<std::uint8_t> (*bytes)(const Images::Image&);
};

template<class Value>
std::vector<std::uint8_t> bytesOf(const Images::Image& image, double fullScale) {
    std::vector<Value> values;
    for (const std::uint8_t byte : image.bytes)
        values.push_back(static_cast<Value>(byte * fullScale / 255));
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(values.data());
    return {bytes, bytes + sizeof(Value) * values.size()};
}

constexpr DepthCase kDepths[] = {
    {"smooth8", Depth::Bits8, 255, [](const Images::Image& image) { return image.bytes; }},
    {"smooth16", Depth::Bits16, 32768,
     [](const Images::Image& image) { return bytesOf<std::uint16_t>(image, 32768); }},
    {"smoothFloat", Depth::Float, 1, [](const Images::Image& image) { return bytesOf<float>(image, 1); }}};

void addSmooth(const DepthCase& depth, const Content& content, Size size, int radius, unsigned threads) {
    add(std::string(depth.name) + "/" + content.name + "/" + std::to_string(size.width) + "x" +
            std::to_string(size.height) + "/radius:" + std::to_string(radius) +
            "/threads:" + std::to_string(threads),
        [=](benchmark::State& state) {
            ThreadPool pool(threads);
            const std::vector<std::uint8_t> bytes = depth.bytes(content.make(size.width, size.height));
            std::vector<std::uint8_t> result(bytes.size());
            const auto stride = static_cast<std::ptrdiff_t>(bytes.size()) / size.height;
            const Image image{bytes.data(), stride, size.width, size.height, depth.depth, depth.fullScale};
            for (auto _ : state)
                bilateralSmooth(image, result.data(), stride, radius, kThreshold, pool);
            countTaps(state, size, 2 * radius + 1);
        });
}

/// The same reach and sigmas on three channels of 8 bits, or of floats; its neighbourhood is the circle within our
/// square, and its range distance is the sum of the channels' differences.
void addOpenCv([[maybe_unused]] const std::string& prefix, [[maybe_unused]] const Content& content,
               [[maybe_unused]] Size size, [[maybe_unused]] int diameter, [[maybe_unused]] double rangeSigma,
               [[maybe_unused]] double spatialSigma, [[maybe_unused]] unsigned threads,
               [[maybe_unused]] const std::string& end, [[maybe_unused]] bool isFloat = false) {
#ifdef BILATERAL_BLUR_OPENCV
    add(prefix + "/" + content.name + "/" + end, [=](benchmark::State& state) {
        const Images::Image image = content.make(size.width, size.height);
        cv::Mat source(size.height, size.width, CV_8UC3), result;
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                source.at<cv::Vec3b>(y, x) = {image.pixel(x, y)[1], image.pixel(x, y)[2],
                                              image.pixel(x, y)[3]};
        if (isFloat)
            source.convertTo(source, CV_32FC3, 1 / 255.0);
        source.copyTo(result); // so that its memory is there before the clock runs
        cv::setNumThreads(static_cast<int>(threads));
        for (auto _ : state)
            cv::bilateralFilter(source, result, diameter, isFloat ? rangeSigma : 255 * rangeSigma,
                                spatialSigma, cv::BORDER_REPLICATE);
        countTaps(state, size, diameter);
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
            addOpenCv("opencv_bilateralFilter", content, kHd, tapsAcross(blurSize), kRangeSigma,
                      kSpatialSigma, cores, label(kHd, blurSize));
        }
        addOpenCv("opencv_bilateralFilter", content, kSmall, tapsAcross(29), kRangeSigma, kSpatialSigma,
                  cores, label(kSmall, 29));
        addBytes("best", content, kSmall, 29, cores);
        for (const std::int64_t target : hwy::SupportedAndGeneratedTargets())
            addBytes(hwy::TargetName(target), content, kSmall, 29, cores, target);
    }
    for (const Content& content : {kOpaqueNoise, kPhotograph, kNoise})
        for (const int radius : {5, 14, 29}) {
            for (const DepthCase& depth : kDepths)
                addSmooth(depth, content, kHd, radius, cores);
            if (!content.opaque)
                continue;
            const std::string end = "1920x1080/radius:" + std::to_string(radius);
            addOpenCv("opencv8", content, kHd, 2 * radius + 1, kThreshold, radius / 2.0, cores, end);
            addOpenCv("opencvFloat", content, kHd, 2 * radius + 1, kThreshold, radius / 2.0, cores, end,
                      true);
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
