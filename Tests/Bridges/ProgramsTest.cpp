#include "Tests/Bridges/Reference.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// The filter in the programs that people use it in. Frames go in and come out without loss.

namespace Tessaloom::BilateralBlur::Frei0r::Test {

namespace {

constexpr Size kSize{64, 48};
constexpr Size kWideSize{854, 480};
constexpr int kFrames = 6;

std::string readText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Bytes readBytes(const std::filesystem::path& path) {
    const std::string text = readText(path);
    return {text.begin(), text.end()};
}

class Frei0rPrograms : public testing::Test {
protected:
    struct Outcome {
        int status;         ///< as of wait4
        long peakKilobytes; ///< of the largest process
        std::string errors;
    };

    Frei0rPrograms() {
        std::string name = (std::filesystem::temp_directory_path() / "bridge_test.XXXXXX").string();
        mFolder = mkdtemp(name.data());
        const std::string folder = std::filesystem::path(FREI0R_FILTER).parent_path();
        setenv("FREI0R_PATH", folder.c_str(), 1);
        // GStreamer keeps a list of what it found; it mustn't be the user's.
        setenv("GST_REGISTRY", (mFolder / "registry.bin").c_str(), 1);
    }
    ~Frei0rPrograms() override { std::filesystem::remove_all(mFolder); }

    /// Runs a command of the shell in the folder. Standard output goes to the file out.rgba.
    Outcome run(const std::string& command) const {
        const pid_t child = fork();
        if (child == 0) {
            std::filesystem::current_path(mFolder);
            const std::string line = "exec >out.rgba 2>errors </dev/null; " + command;
            execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
            _exit(127);
        }
        int status = 0;
        rusage usage{};
        wait4(child, &status, 0, &usage);
        return {status, usage.ru_maxrss, readText(mFolder / "errors")};
    }

    /// Runs it and reads what it wrote to standard output.
    Bytes outputOf(const std::string& command) const {
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.errors;
        return readBytes(mFolder / "out.rgba");
    }

    /// Writes frames without loss into a file or numbered files.
    void write(const Bytes& frames, Size size, const std::string& name) const {
        std::ofstream(mFolder / "in.rgba", std::ios::binary)
            .write(reinterpret_cast<const char*>(frames.data()), static_cast<std::streamsize>(frames.size()));
        const std::string codec = name.ends_with(".mkv") ? " -c:v ffv1 -pix_fmt bgra " : " ";
        outputOf("ffmpeg -v error -f rawvideo -pix_fmt rgba -r 25 -s " + std::to_string(size.width) + "x" +
                 std::to_string(size.height) + " -i in.rgba" + codec + name);
    }

    Bytes read(const std::string& name) const {
        return outputOf("ffmpeg -v error -i " + name + " -f rawvideo -pix_fmt rgba -");
    }

    std::filesystem::path mFolder;
};

/// The examples of a page: the lines between "```sh" and "```".
std::vector<std::string> examplesOf(const std::filesystem::path& page) {
    std::vector<std::string> examples;
    std::ifstream file(page);
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("```"))
            inside = line == "```sh";
        else if (inside)
            examples.push_back(line);
    }
    return examples;
}

/// Frames of `frames` through the reference, each at the scale of its place.
Bytes referenceAt(const Bytes& frames, Size size, const std::vector<int>& scales) {
    Bytes result;
    for (std::size_t i = 0; i < scales.size(); ++i) {
        const auto start = frames.begin() + static_cast<std::ptrdiff_t>(i * size.bytes());
        const Bytes filtered =
            reference({start, start + static_cast<std::ptrdiff_t>(size.bytes())}, size, scales[i]);
        result.insert(result.end(), filtered.begin(), filtered.end());
    }
    return result;
}

TEST_F(Frei0rPrograms, TheExamplesOfThePageGiveThePicturesOfTheEffect) {
    const Bytes frames = makeFrames(kSize, kFrames);
    // Opaque, as ffmpeg's own conversion for fillborders moves alpha by 1.
    const Bytes wide = makeFrames(kWideSize, 1, true);
    write(frames, kSize, "clip.mkv");
    write(frames, kSize, "frame-%04d.png");
    write(wide, kWideSize, "clip-854.mkv");
    const Bytes blurred = reference(frames, kSize, 20);
    const struct {
        std::string output;
        Bytes expected;
    } kExamples[] = {
        {"blurred.mkv", blurred},
        {"blurred-854.mkv", reference(wide, kWideSize, 20)},
        {"changing.mkv", referenceAt(frames, kSize, {0, 0, 0, 0, 20, 20})},
        {"blurred.mkv", blurred},
        {"changing.mkv", referenceAt(frames, kSize, {0, 5, 10, 15, 20, 20})},
        {"blurred-%04d.png", blurred},
    };
    const std::vector<std::string> commands = examplesOf(HOSTS_PAGE);
    ASSERT_EQ(commands.size(), std::size(kExamples));
    for (std::size_t i = 0; i < commands.size(); ++i) {
        const Outcome outcome = run(commands[i]);
        ASSERT_EQ(outcome.status, 0) << commands[i] << "\n" << outcome.errors;
        EXPECT_LE(largestDifference(read(kExamples[i].output), kExamples[i].expected), 1) << commands[i];
        std::filesystem::remove(mFolder / kExamples[i].output);
    }
}

const std::string kRaw = " -f rawvideo -pix_fmt rgba -";
const std::string kMelt = "melt -silent clip.mkv -filter frei0r.bilateral_blur ";
const std::string kMeltRaw = " -consumer avformat:pipe:1 f=rawvideo vcodec=rawvideo an=1 "
                             "mlt_image_format=rgba pix_fmt=rgba real_time=";
const std::string kGst = "gst-launch-1.0 -q multifilesrc location=frame-%04d.png index=1 "
                         "caps=image/png,framerate=25/1 ! pngdec ! videoconvert ! ";
const std::string kGstRaw = " ! videoconvert ! video/x-raw,format=RGBA ! fdsink";

// Through a pipe, where one foreign byte would spoil all that follows.
TEST_F(Frei0rPrograms, GiveThePicturesOfTheEffectThroughAPipe) {
    const Bytes frames = makeFrames(kSize, kFrames);
    write(frames, kSize, "clip.mkv");
    write(frames, kSize, "frame-%04d.png");
    const Bytes at6 = reference(frames, kSize, 6), at12 = reference(frames, kSize, 12);
    const Bytes twice = reference(at12, kSize, 6);
    const Size band{64, 24};
    const struct {
        std::string command;
        const Bytes& expected;
    } kRuns[] = {
        // The command-line program, which the others are to agree with.
        {"'" BILATERAL_BLUR "' --quiet frame-%04d.png blurred-%04d.png --blur-scale 6 >&2 && "
         "ffmpeg -v error -i blurred-%04d.png" +
             kRaw,
         at6},
        {"ffmpeg -v error -i clip.mkv -vf frei0r=bilateral_blur:0.1" + kRaw, at6},
        {kMelt + "0=0.1" + kMeltRaw + "-1", at6},
        {kGst + "frei0r-filter-bilateral-blur blur-scale=0.1" + kGstRaw, at6},
        // Two filters in one graph, one behind the other and side by side.
        {"ffmpeg -v error -i clip.mkv -vf frei0r=bilateral_blur:0.2,frei0r=bilateral_blur:0.1" + kRaw, twice},
        {kMelt + "0=0.2 -filter frei0r.bilateral_blur 0=0.1" + kMeltRaw + "-1", twice},
        {kGst +
             "frei0r-filter-bilateral-blur blur-scale=0.2 ! queue ! "
             "frei0r-filter-bilateral-blur blur-scale=0.1" +
             kGstRaw,
         twice},
        {"ffmpeg -v error -filter_complex_threads 4 -i clip.mkv -filter_complex "
         "'split[a][b];[a]frei0r=bilateral_blur:0.1[c];[b]frei0r=bilateral_blur:1[d];[c][d]hstack,crop=64:48:"
         "0:0'" +
             kRaw,
         at6},
        // An instance for each of four threads, and bands of one frame on two.
        {kMelt + "0=0.1" + kMeltRaw + "-4", at6},
        {kMelt + "0=0.1 threads=2" + kMeltRaw + "-4", reference(frames, band, 6)},
    };
    for (const auto& [command, expected] : kRuns)
        EXPECT_LE(largestDifference(outputOf(command), expected), 1) << command;
}

TEST_F(Frei0rPrograms, NeedNoMoreMemoryForMoreFrames) {
    const Size size{256, 192};
    write(makeFrames(size, 200), size, "clip.mkv");
    const std::string kCommands[] = {
        "ffmpeg -v error -threads 1 -i clip.mkv -frames:v COUNT -vf frei0r=bilateral_blur:0.04 -f null -",
        "melt -silent clip.mkv out=COUNT -filter frei0r.bilateral_blur 0=0.04 "
        "-consumer avformat:/dev/null f=rawvideo vcodec=rawvideo an=1 real_time=-1",
    };
    for (const std::string& command : kCommands) {
        const auto peakOf = [&](const std::string& frames) {
            std::string whole = command;
            whole.replace(whole.find("COUNT"), 5, frames);
            const Outcome outcome = run(whole);
            EXPECT_EQ(outcome.status, 0) << whole << "\n" << outcome.errors;
            return outcome.peakKilobytes;
        };
        // A frame has 192 kB, so one kept of each would show as 30 MB.
        EXPECT_LT(peakOf("199") - peakOf("40"), 10 * 1024) << command;
    }
}

TEST_F(Frei0rPrograms, WithoutGLPassFramesOn) {
    const Bytes frames = makeFrames(kSize, kFrames);
    write(frames, kSize, "clip.mkv");
    write(frames, kSize, "frame-%04d.png");
    setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/dev/null", 1);
    for (const std::string& command : {"ffmpeg -v error -i clip.mkv -vf frei0r=bilateral_blur:0.5" + kRaw,
                                       kMelt + "0=0.5" + kMeltRaw + "-2",
                                       kGst + "frei0r-filter-bilateral-blur blur-scale=0.5" + kGstRaw}) {
        EXPECT_EQ(outputOf(command), frames) << command;
        const std::string errors = readText(mFolder / "errors");
        const std::size_t complaint = errors.find("Bilateral Blur: ");
        EXPECT_NE(complaint, errors.npos) << command;
        EXPECT_EQ(errors.rfind("Bilateral Blur: "), complaint) << command << "\n" << errors;
    }
    unsetenv("__EGL_VENDOR_LIBRARY_FILENAMES");
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Frei0r::Test
