// Times whole frames through the frei0r filter, loaded and called as its programs do, beside a plain copy of
// the same frame; and the stages of a frame on the GPU way, also where OpenGL is software, each waited for,
// as counters in milliseconds. A name says what is timed, the image, its size and the blur scale.
#include "Host/Services.h"
#include "Host/Suites.h"
#include "Host/World.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"
#include "Plugins/BilateralBlur/Sources/FilterConstants.h"
#include "Plugins/Shared/GL/AEOpenGLContext.h"
#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Tests/Support/Images.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <frei0r.h>
#include <glbinding/gl/gl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kScales[] = {0, 10, 20, 30, 60};

struct Size {
    int width, height;
};

constexpr Size kSizes[] = {{640, 360}, {1920, 1080}, {3840, 2160}};

struct Content {
    const char* name;
    Images::Image (*make)(Size);
};

constexpr Content kContents[] = {
    {"photograph", [](Size size) { return Images::photograph(size.width, size.height, 1); }},
    {"noise", [](Size size) { return Images::noise(size.width, size.height, 1); }}};

/// The image in the filter's order R, G, B, A.
std::vector<std::uint32_t> makeFrame(const Content& content, Size size) {
    Images::Image image = content.make(size);
    for (std::size_t i = 0; i < image.bytes.size(); i += 4)
        std::rotate(&image.bytes[i], &image.bytes[i + 1], &image.bytes[i] + 4);
    std::vector<std::uint32_t> frame(image.bytes.size() / 4);
    std::memcpy(frame.data(), image.bytes.data(), image.bytes.size());
    return frame;
}

/// The functions of the filter's shared object.
struct Filter {
    explicit Filter(const char* path) {
        void* const object = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (!object) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::exit(1);
        }
        const auto find = [object](auto& function, const char* name) {
            function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(object, name));
        };
        find(construct, "f0r_construct");
        find(destruct, "f0r_destruct");
        find(setParamValue, "f0r_set_param_value");
        find(update, "f0r_update");
    }
    decltype(&f0r_construct) construct;
    decltype(&f0r_destruct) destruct;
    decltype(&f0r_set_param_value) setParamValue;
    decltype(&f0r_update) update;
};

void filterFrame(benchmark::State& state, const Filter& filter, const Content& content, Size size,
                 int scale) {
    const auto input = makeFrame(content, size);
    std::vector<std::uint32_t> output(input.size());
    const f0r_instance_t instance =
        filter.construct(static_cast<unsigned>(size.width), static_cast<unsigned>(size.height));
    double position = 1.0 * scale / kLargestBlurScale;
    filter.setParamValue(instance, &position, 0);
    filter.update(instance, 0, input.data(), output.data()); // takes memory and, on a GPU, builds programs
    for (auto _ : state)
        filter.update(instance, 0, input.data(), output.data());
    filter.destruct(instance);
}

void copyFrame(benchmark::State& state, const Content& content, Size size) {
    const auto input = makeFrame(content, size);
    std::vector<std::uint32_t> output(input.size());
    for (auto _ : state) {
        std::memcpy(output.data(), input.data(), input.size() * sizeof(input[0]));
        benchmark::ClobberMemory();
    }
}

/// Runs `stage` to its end on the device and adds its time to `total`.
template<typename Stage>
void timed(double& total, Stage stage) {
    const auto start = Clock::now();
    stage();
    gl::glFinish();
    total += std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Stages {
    double upload = 0, pass = 0, resolve = 0, download = 0;
};

void gpuFrame(BilateralBlurRender& render, PF_InData* inData, Host::World& input, Host::World& output,
              Stages& stages) {
    AEOpenglMainFrameBuffer& frameBuffer = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    unsigned long pixelSize = 4;
    gl::GLenum pixelType{};
    float multiplier = 1;
    gl::GLuint texture = 0;
    timed(stages.upload, [&] {
        texture = AEOpenGLUtilities::UploadTexture(PF_PixelFormat_ARGB32, &input, &output, inData, pixelSize,
                                                   pixelType, multiplier, false);
    });
    timed(stages.pass, [&] {
        frameBuffer.prepare(input.width, input.height, true);
        frameBuffer.beginDrawing();
        render.draw(texture, multiplier);
        gl::glDeleteTextures(1, &texture);
    });
    timed(stages.resolve, [&] { frameBuffer.endDrawing(multiplier); });
    timed(stages.download, [&] {
        AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(input.width),
                                           static_cast<unsigned>(input.height), &input, &output, inData,
                                           PF_PixelFormat_ARGB32, pixelSize, pixelType);
    });
}

/// The frames run on a context and a pass of the benchmark's own.
void gpuFrames(benchmark::State& state, const Content& content, Size size, int scale) {
    Host::Services services;
    const Host::Services::Visit visit(services);
    PF_InData inData{{}, Host::utilCallbacks(), nullptr, Host::basicSuite(), 0, 1, 1};
    Host::World input(size.width, size.height), output(size.width, size.height);
    const Images::Image image = content.make(size);
    for (int y = 0; y < size.height; ++y)
        std::memcpy(input.row(y), image.pixel(0, y), std::size_t{4} * static_cast<unsigned>(size.width));
    AEOpenGLContext context(nullptr);
    BilateralBlurRender render;
    Stages stages, first;
    render.setBlurScale(0);
    gpuFrame(render, &inData, input, output, first);
    render.setBlurScale(scale);
    for (auto _ : state)
        gpuFrame(render, &inData, input, output, stages);
    for (const auto& [name, total] :
         {std::pair{"upload_ms", stages.upload}, std::pair{"pass_ms", stages.pass},
          std::pair{"resolve_ms", stages.resolve}, std::pair{"download_ms", stages.download}})
        state.counters[name] = benchmark::Counter(total, benchmark::Counter::kAvgIterations);
    AEOpenglMainFrameBuffer::mainFrameBuffer()->destory();
}

void add(const std::string& name, const std::function<void(benchmark::State&)>& run) {
    benchmark::RegisterBenchmark(name.c_str(), run)->Unit(benchmark::kMillisecond)->UseRealTime();
}

void addAll(const Filter& filter) {
    for (const Size size : kSizes)
        for (const Content& content : kContents) {
            const std::string rest = std::string("/") + content.name + "/" + std::to_string(size.width) +
                                     "x" + std::to_string(size.height);
            add("copy" + rest, [=](benchmark::State& state) { copyFrame(state, content, size); });
            for (const int scale : kScales) {
                const std::string name = rest + "/scale:" + std::to_string(scale);
                add("filter" + name, [&filter, content, size, scale](benchmark::State& state) {
                    filterFrame(state, filter, content, size, scale);
                });
                add("gpu" + name, [=](benchmark::State& state) { gpuFrames(state, content, size, scale); });
            }
        }
}

} // namespace
} // namespace Tessaloom::BilateralBlur

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s [--benchmark_...] FREI0R_FILTER\n", argv[0]);
        return 2;
    }
    const Tessaloom::BilateralBlur::Filter filter(argv[1]);
    Tessaloom::BilateralBlur::addAll(filter);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
