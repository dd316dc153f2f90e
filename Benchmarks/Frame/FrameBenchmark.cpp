// Times whole frames of the effect. "effect" is the smart render command, on the GPU or on the CPU, whichever
// the context chooses. "shader" is a frame with the shader on any context, software GL as well, with the time
// of each stage as a counter in milliseconds: upload, pass, resolve (with the screen pass), download (with
// the host's handle and the copy of the rows). The rest of a name is the picture, its size and the blur
// scale.
//
// Items are taps of the square neighbourhood. "peak_MB" is the process's so far, so it is that of one
// benchmark only when that ran alone.
#include "Host/Effect.h"
#include "Host/Services.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlur.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"
#include "Plugins/Shared/GL/AEOpenGLContext.h"
#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Tests/Support/Pictures.h"

#include <benchmark/benchmark.h>
#include <glbinding/gl/gl.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>

namespace Tessaloom::BilateralBlur {
namespace {

using Clock = std::chrono::steady_clock;

struct Size {
    int width, height;
};

// The first frames build programs and take memory from the system.
constexpr int kWarmUp = 3;

constexpr Size kSizes[] = {{640, 360}, {1920, 1080}, {3840, 2160}};

struct Content {
    const char* name;
    std::function<Pictures::Picture(int, int)> make;
};

const Content kNoise{"noise", [](int width, int height) { return Pictures::noise(width, height, 1); }};
const Content kPhotograph{"photograph",
                          [](int width, int height) { return Pictures::photograph(width, height, 1); }};

double milliseconds(Clock::time_point from) {
    return std::chrono::duration<double, std::milli>(Clock::now() - from).count();
}

double peakMegabytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmHWM:") {
            double kilobytes = 0;
            status >> kilobytes;
            return kilobytes / 1024;
        }
    return 0;
}

void fill(Host::World& world, const Content& content) {
    const Pictures::Picture picture = content.make(world.width, world.height);
    for (int y = 0; y < world.height; ++y)
        std::memcpy(world.row(y), picture.pixel(0, y), std::size_t{4} * static_cast<unsigned>(world.width));
}

// Runs `stage` to its end on the device and adds its time to `total`.
template<typename Stage>
void timed(double& total, Stage stage) {
    const auto start = Clock::now();
    stage();
    gl::glFinish();
    total += milliseconds(start);
}

struct Stages {
    double upload = 0, pass = 0, resolve = 0, download = 0;
};

class Frames {
public:
    Frames(Size size, const Content& content)
        : mInput(size.width, size.height), mOutput(size.width, size.height) {
        fill(mInput, content);
    }

    void run(BilateralBlurRender& render, int scale, Stages& stages) {
        AEOpenglMainFrameBuffer& frameBuffer = *AEOpenglMainFrameBuffer::mainFrameBuffer();
        unsigned long pixelSize = 4;
        gl::GLenum pixelType{};
        float multiplier = 1;
        gl::GLuint texture = 0;
        timed(stages.upload, [&] {
            texture = AEOpenGLUtilities::UploadTexture(PF_PixelFormat_ARGB32, &mInput, &mOutput, &mInData,
                                                       pixelSize, pixelType, multiplier, false);
        });
        timed(stages.pass, [&] {
            frameBuffer.prepare(mInput.width, mInput.height, true);
            frameBuffer.beginDrawing();
            render.setBlurScale(scale);
            render.draw(texture, multiplier);
            gl::glDeleteTextures(1, &texture);
        });
        timed(stages.resolve, [&] { frameBuffer.endDrawing(multiplier); });
        timed(stages.download, [&] {
            AEOpenGLUtilities::DownloadTexture(static_cast<unsigned>(mInput.width),
                                               static_cast<unsigned>(mInput.height), &mInput, &mOutput,
                                               &mInData, PF_PixelFormat_ARGB32, pixelSize, pixelType);
        });
    }

private:
    Host::Services mServices;
    Host::Services::Visit mVisit{mServices};
    PF_InData mInData{{}, Host::Services::utils(), nullptr, Host::Services::basicSuite(), 0, 1, 1};
    Host::World mInput, mOutput;
};

void report(benchmark::State& state, Size size, int scale) {
    const double across = 2 * ((scale - 1) / 2) + 1;
    state.SetItemsProcessed(static_cast<std::int64_t>(across * across * size.width * size.height *
                                                      static_cast<double>(state.iterations())));
    state.counters["peak_MB"] = peakMegabytes();
}

// The stages with a wait after each, on a context and a pass of the benchmark's own.
void stagedFrame(benchmark::State& state, const Content& content, Size size, int scale) {
    AEOpenGLContext context(nullptr);
    {
        BilateralBlurRender render;
        Frames frames(size, content);
        Stages stages, unused;
        for (int i = 0; i < kWarmUp; ++i)
            frames.run(render, std::min(scale, 3), unused);
        for (auto _ : state)
            frames.run(render, scale, stages);
        const auto mean = [](double total) {
            return benchmark::Counter(total, benchmark::Counter::kAvgIterations);
        };
        state.counters["upload_ms"] = mean(stages.upload);
        state.counters["pass_ms"] = mean(stages.pass);
        state.counters["resolve_ms"] = mean(stages.resolve);
        state.counters["download_ms"] = mean(stages.download);
        AEOpenglMainFrameBuffer::mainFrameBuffer()->destory();
    }
    report(state, size, scale);
}

// The frame as a host gets it.
void effectFrame(benchmark::State& state, const Host::Module& module, const Content& content, Size size,
                 int scale) {
    Host::Effect effect(module);
    Host::World input(size.width, size.height), output(size.width, size.height);
    fill(input, content);
    Host::Result result;
    for (int i = 0; i < kWarmUp; ++i)
        result = effect.render(input, output, std::min(scale, 3));
    for (auto _ : state)
        if (!(result = effect.render(input, output, scale)).ok())
            break;
    if (!result.ok())
        state.SkipWithError(result.text().c_str());
    report(state, size, scale);
}

// The GL calls of a frame at scale 0, with nothing around them: upload as 32-bit float, a multisampled level
// cleared, filled and resolved, a textured draw of the full frame, read-back. Like the frame's, both textures
// and the level live for one frame.
void bareCalls(benchmark::State& state, Size size) {
    using namespace gl;
    AEOpenGLContext context(nullptr);
    const int width = size.width, height = size.height;
    Pictures::Picture picture = kNoise.make(width, height);
    GLint samples = 0;
    glGetIntegerv(GL_MAX_SAMPLES, &samples);
    GLuint textures[2], renderBuffers[2], frameBuffers[4];
    glGenFramebuffers(4, frameBuffers);
    const auto textureTarget = [&](int index, GLuint texture) {
        glBindFramebuffer(GL_FRAMEBUFFER, frameBuffers[index]);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    };
    const auto renderTarget = [&](int index, GLuint renderBuffer, int count) {
        glBindRenderbuffer(GL_RENDERBUFFER, renderBuffer);
        glRenderbufferStorageMultisample(GL_RENDERBUFFER, count, GL_RGBA, width, height);
        glBindFramebuffer(GL_FRAMEBUFFER, frameBuffers[index]);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, renderBuffer);
    };
    const auto blit = [&](int from, int to) {
        glBindFramebuffer(GL_READ_FRAMEBUFFER, frameBuffers[from]);
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, frameBuffers[to]);
        glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    };
    ScreenRender screen;
    glViewport(0, 0, width, height);
    const auto frame = [&] {
        glGenTextures(2, textures);
        glGenRenderbuffers(2, renderBuffers);
        glBindTexture(GL_TEXTURE_2D, textures[0]);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(GL_RGBA32F), width, height, 0, GL_RGBA,
                     GL_UNSIGNED_BYTE, picture.bytes.data());
        glBindTexture(GL_TEXTURE_2D, textures[1]);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(GL_RGBA), width, height, 0, GL_RGBA,
                     GL_UNSIGNED_BYTE, nullptr);
        textureTarget(0, textures[0]);
        renderTarget(1, renderBuffers[0], std::min(samples, 8));
        glClear(GL_COLOR_BUFFER_BIT);
        blit(0, 1);
        textureTarget(2, textures[1]);
        blit(1, 2);
        renderTarget(3, renderBuffers[1], 0);
        screen.draw(textures[1], 1.0f);
        glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, picture.bytes.data());
        glDeleteTextures(2, textures);
        glDeleteRenderbuffers(2, renderBuffers);
    };
    for (int i = 0; i < kWarmUp; ++i)
        frame();
    for (auto _ : state)
        frame();
    glDeleteFramebuffers(4, frameBuffers);
}

benchmark::internal::Benchmark* add(const std::string& name,
                                    const std::function<void(benchmark::State&)>& run) {
    return benchmark::RegisterBenchmark(name.c_str(), run)->Unit(benchmark::kMillisecond)->UseRealTime();
}

std::string label(const Content& content, Size size, int scale) {
    return std::string("/") + content.name + "/" + std::to_string(size.width) + "x" +
           std::to_string(size.height) + "/scale:" + std::to_string(scale);
}

void addAll(const Host::Module& module) {
    for (const Size size : kSizes) {
        const std::string sizeName = std::to_string(size.width) + "x" + std::to_string(size.height);
        add("bare_calls/" + sizeName, [=](benchmark::State& state) { bareCalls(state, size); });
        for (const Content* content : {&kNoise, &kPhotograph})
            for (const int scale : {0, 1, 2, 10, 20, 29, 30, 40, 50, 60}) {
                const std::string rest = label(*content, size, scale);
                add("effect" + rest, [&module, content, size, scale](benchmark::State& state) {
                    effectFrame(state, module, *content, size, scale);
                });
                add("shader" + rest, [content, size, scale](benchmark::State& state) {
                    stagedFrame(state, *content, size, scale);
                });
            }
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s [--benchmark_...] MODULE\n", argv[0]);
        return 2;
    }
    const Tessaloom::BilateralBlur::Host::Module module(argv[1]);
    Tessaloom::BilateralBlur::addAll(module);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
