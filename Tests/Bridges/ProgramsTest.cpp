#include "Tests/Bridges/Reference.h"
#include "Tests/Support/ProcessRun.h"

#include <gtest/gtest.h>

// The filter in the programs that people use it in. Frames go in and come out without loss.

namespace Tessaloom::BilateralBlur::Bridges::Test {

namespace {

constexpr Size kSize{64, 48};
constexpr Size kWideSize{854, 480};

const std::string kRaw = " -f rawvideo -pix_fmt rgba -";
const std::string kMelt = "melt -silent clip.mkv -filter frei0r.bilateral_blur ";
const std::string kMeltRaw = " -consumer avformat:pipe:1 f=rawvideo vcodec=rawvideo an=1 "
                             "mlt_image_format=rgba pix_fmt=rgba real_time=";
const std::string kGst = "gst-launch-1.0 -q multifilesrc location=frame-%04d.png index=1 "
                         "caps=image/png,framerate=25/1 ! pngdec ! videoconvert ! ";
const std::string kGstRaw = " ! videoconvert ! video/x-raw,format=RGBA ! fdsink";

class Frei0rPrograms : public testing::Test {
protected:
    Frei0rPrograms() {
        const std::string folder = std::filesystem::path(FREI0R_FILTER).parent_path();
        setenv("FREI0R_PATH", folder.c_str(), 1);
        // GStreamer keeps a list of what it found; it mustn't be the user's.
        setenv("GST_REGISTRY", (mFolder / "registry.bin").c_str(), 1);
        write(mFrames, kSize, "clip.mkv");
        write(mFrames, kSize, "frame-%04d.png");
    }

    /// Runs a command of the shell in the folder.
    Outcome run(const std::string& command) const {
        ProcessRun shell({"/bin/sh", "-c", command}, [&] { std::filesystem::current_path(mFolder / ""); });
        const Outcome outcome = shell.wait();
        EXPECT_EQ(outcome.exitCode, 0) << command << "\n" << outcome.err;
        return outcome;
    }

    Bytes outputOf(const std::string& command) const {
        const std::string out = run(command).out;
        return {out.begin(), out.end()};
    }

    /// Writes frames without loss into a file or numbered files.
    void write(const Bytes& frames, Size size, const std::string& name) const {
        std::ofstream(mFolder / "in.rgba") << std::string(frames.begin(), frames.end());
        const std::string codec = name.ends_with(".mkv") ? " -c:v ffv1 -pix_fmt bgra " : " ";
        run("ffmpeg -v error -y -f rawvideo -pix_fmt rgba -r 25 -s " + std::to_string(size.width) + "x" +
            std::to_string(size.height) + " -i in.rgba" + codec + name);
    }

    const Folder mFolder;
    const Bytes mFrames = makeFrames(kSize, 6);
};

TEST_F(Frei0rPrograms, TheExamplesOfThePageGiveThePicturesOfTheEffect) {
    // Opaque, as ffmpeg's own conversion for fillborders moves alpha by 1.
    const Bytes wide = makeFrames(kWideSize, 1, true);
    write(wide, kWideSize, "clip-854.mkv");
    const Bytes blurred = reference(mFrames, kSize, {20});
    const std::pair<std::string, Bytes> kExamples[] = {
        {"blurred.mkv", blurred},
        {"blurred-854.mkv", reference(wide, kWideSize, {20})},
        {"changing.mkv", reference(mFrames, kSize, {0, 0, 0, 0, 20, 20})},
        {"blurred.mkv", blurred},
        {"blurred.mkv", blurred},
        {"changing.mkv", reference(mFrames, kSize, {0, 5, 10, 15, 20, 20})},
        {"blurred-%04d.png", blurred},
    };
    std::istringstream examples(run("sed -n '/^```sh/,/^```$/ { /^```/! p }' '" HOSTS_PAGE "'").out);
    std::string example;
    for (const auto& [output, expected] : kExamples) {
        std::getline(examples, example);
        run(example);
        const Bytes made = outputOf("ffmpeg -v error -i " + output + kRaw);
        EXPECT_LE(largestDifference(made, expected), 1) << example;
        std::filesystem::remove(mFolder / output);
    }
    EXPECT_FALSE(std::getline(examples, example)) << "not tested: " << example;
}

// Through a pipe, where one foreign byte would spoil all that follows.
TEST_F(Frei0rPrograms, GiveThePicturesOfTheEffectThroughAPipe) {
    const Bytes at6 = reference(mFrames, kSize, {6});
    const Bytes twice = reference(reference(mFrames, kSize, {12}), kSize, {6});
    const std::string kGstFilter = "frei0r-filter-bilateral-blur blur-scale=";
    const std::pair<std::string, Bytes> kRuns[] = {
        // The command-line program, which the others are to agree with.
        {"'" PROGRAM "' --quiet frame-%04d.png blurred-%04d.png --blur-scale 6 >&2 && "
         "ffmpeg -v error -i blurred-%04d.png" +
             kRaw,
         at6},
        // Two filters in one graph, side by side and one behind the other.
        {"ffmpeg -v error -filter_complex_threads 4 -i clip.mkv -filter_complex "
         "'split[a][b];[a]frei0r=bilateral_blur:0.1[c];[b]frei0r=bilateral_blur:1[d];[c][d]hstack,crop=64:48:"
         "0:0'" +
             kRaw,
         at6},
        {"ffmpeg -v error -i clip.mkv -vf frei0r=bilateral_blur:0.2,frei0r=bilateral_blur:0.1" + kRaw, twice},
        {kMelt + "0=0.2 -filter frei0r.bilateral_blur 0=0.1" + kMeltRaw + "-1", twice},
        {kGst + kGstFilter + "0.2 ! queue ! " + kGstFilter + "0.1" + kGstRaw, twice},
        // An instance for each of four threads, and bands of one frame on two.
        {kMelt + "0=0.1" + kMeltRaw + "-4", at6},
        {kMelt + "0=0.1 threads=2" + kMeltRaw + "-4", reference(mFrames, {64, 24}, {6})},
    };
    for (const auto& [command, expected] : kRuns)
        EXPECT_LE(largestDifference(outputOf(command), expected), 1) << command;
}

TEST_F(Frei0rPrograms, NeedNoMoreMemoryForMoreFrames) {
    const Size size{256, 192};
    write(makeFrames(size, 200), size, "clip.mkv");
    for (const std::string command :
         {"ffmpeg -v error -threads 1 -i clip.mkv -frames:v $COUNT -vf frei0r=bilateral_blur:0.04 -f null -",
          "melt -silent clip.mkv out=$COUNT -filter frei0r.bilateral_blur 0=0.04 "
          "-consumer avformat:/dev/null f=rawvideo vcodec=rawvideo an=1 real_time=-1"}) {
        const long few = run("COUNT=40; " + command).peakMiB, many = run("COUNT=199; " + command).peakMiB;
        // A frame has 192 kB, so one kept of each would show as 30 MB.
        EXPECT_LT(many - few, 10) << command;
    }
}

TEST_F(Frei0rPrograms, NeedNoGL) {
    const Bytes expected = reference(mFrames, kSize, {30});
    for (const std::string& command : {"ffmpeg -v error -i clip.mkv -vf frei0r=bilateral_blur:0.5" + kRaw,
                                       kMelt + "0=0.5" + kMeltRaw + "-2",
                                       kGst + "frei0r-filter-bilateral-blur blur-scale=0.5" + kGstRaw}) {
        const Bytes made = outputOf("export __EGL_VENDOR_LIBRARY_FILENAMES=/nonexistent; " + command);
        EXPECT_LE(largestDifference(made, expected), 1) << command;
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Bridges::Test
