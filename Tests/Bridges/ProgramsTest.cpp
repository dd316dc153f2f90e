#include "Tests/Bridges/Reference.h"
#include "Tests/Support/ProcessRun.h"

#include <regex>

// The filter in the programs that people use it in. Frames go in and come out without loss.

namespace Tessaloom::BilateralBlur::Bridges::Test {

namespace {

constexpr Size kSize{64, 48};
constexpr Size kWideSize{854, 480};

const std::string kRaw = " -f rawvideo -pix_fmt rgba -";
const std::string kMeltRaw = " -consumer avformat:pipe:1 f=rawvideo vcodec=rawvideo an=1 "
                             "mlt_image_format=rgba pix_fmt=rgba real_time=";

class Frei0rPrograms : public testing::Test {
protected:
    Frei0rPrograms() {
        setenv("FREI0R_PATH", std::filesystem::path(BLUR_FILTER).parent_path().c_str(), 1);
        // GStreamer keeps a list of what it found; it mustn't be the user's.
        setenv("GST_REGISTRY", (mDirectory / "registry.bin").c_str(), 1);
        write(mFrames, kSize, "clip.mkv");
        write(mFrames, kSize, "frame-%04d.png");
    }

    /// Runs a command of the shell in the directory and returns what it writes to standard output. melt 7.12 can
    /// end at once with nothing written, or hang, whatever the filter: Docs/hosts.md says to start it again
    /// then.
    std::string textOf(const std::string& command) const {
        int attempts = command.find("melt ") == command.npos ? 1 : 4;
        Outcome outcome;
        do {
            ProcessRun shell({"/usr/bin/timeout", "60", "/bin/sh", "-c", command},
                             [&] { std::filesystem::current_path(mDirectory / ""); });
            outcome = shell.wait();
        } while (outcome.out.empty() && --attempts > 0);
        EXPECT_EQ(outcome.exitCode, 0) << command << "\n" << outcome.err;
        return outcome.out;
    }

    Bytes outputOf(const std::string& command) const {
        const std::string text = textOf(command);
        return {text.begin(), text.end()};
    }

    /// Writes frames without loss into a file or numbered files.
    void write(const Bytes& frames, Size size, const std::string& name) const {
        std::ofstream(mDirectory / "in.rgba") << std::string(frames.begin(), frames.end());
        const std::string codec = name.ends_with(".mkv") ? " -c:v ffv1 -pix_fmt bgra " : " ";
        outputOf("ffmpeg -v error -y -f rawvideo -pix_fmt rgba -r 25 -s " + std::to_string(size.width) + "x" +
                 std::to_string(size.height) + " -i in.rgba" + codec + name);
    }

    /// The commands of the page, in its order.
    std::vector<std::string> examples() const {
        std::istringstream lines(textOf("sed -n '/^```sh/,/^```$/ { /^```/! p }' '" HOSTS_PAGE "'"));
        std::vector<std::string> examples;
        for (std::string line; std::getline(lines, line);)
            examples.push_back(line);
        return examples;
    }

    const Directory mDirectory;
    const Bytes mFrames = makeFrames(kSize, 6);
};

TEST_F(Frei0rPrograms, TheExamplesOfThePageGiveTheImagesOfTheEffect) {
    // Opaque, as ffmpeg's own conversion for fillborders moves alpha by 1.
    const Bytes wide = makeFrames(kWideSize, 1, true);
    write(wide, kWideSize, "clip-854.mkv");
    const Bytes twenty = blurred()(mFrames, kSize, {{20}});
    const std::pair<std::string, Bytes> kExamples[] = {
        {"blurred.mkv", twenty},
        {"blurred-854.mkv", blurred()(wide, kWideSize, {{20}})},
        {"changing.mkv", blurred()(mFrames, kSize, {{0}, {0}, {0}, {0}, {20}})},
        {"blurred.mkv", twenty},
        {"changing.mkv", blurred()(mFrames, kSize, {{0}, {5}, {10}, {15}, {20}})},
        {"blurred-%04d.png", twenty},
    };
    const std::vector<std::string> examples = this->examples();
    ASSERT_EQ(examples.size(), 1 + std::size(kExamples)); // the first is H.264, which isn't exact
    for (std::size_t i = 0; i < std::size(kExamples); ++i) {
        const auto& [output, expected] = kExamples[i];
        const std::string& example = examples[i + 1];
        const Bytes made = outputOf("{ " + example + "; } >&2 && ffmpeg -v error -i " + output + kRaw);
        EXPECT_EQ(made, expected) << example;
        std::filesystem::remove(mDirectory / output);
    }
}

TEST_F(Frei0rPrograms, TheFirstExampleOfThePageKeepsColoursInAFormatForAllPlayers) {
    outputOf("ffmpeg -v error -y -f lavfi -i color=0xBF2040:64x48 -frames:v 1 -pix_fmt yuv420p "
             "-vf scale=out_color_matrix=bt709:out_range=tv -colorspace bt709 -c:v libx264 -qp 0 clip.mkv");
    std::string example =
        std::regex_replace(examples().front(), std::regex("(bilateral_blur:)[.0-9]+"), "$010");
    example = std::regex_replace(example, std::regex("libx264"), "libx264 -qp 0"); // what it loses is its own
    outputOf(example);
    EXPECT_EQ(textOf("ffprobe -v error -show_entries stream=pix_fmt,color_space -of csv=p=0 blurred.mp4"),
              "yuv420p,bt709\n");
    const std::string decoded =
        " -vf scale=in_color_matrix=bt709:flags=accurate_rnd+full_chroma_int+full_chroma_inp" + kRaw;
    const Bytes before = outputOf("ffmpeg -v error -i clip.mkv" + decoded);
    const Bytes made = outputOf("ffmpeg -v error -i blurred.mp4" + decoded);
    for (std::size_t channel = 0; channel < 4; ++channel)
        EXPECT_NEAR(made.at(channel), before.at(channel), 1) << channel;
}

// One foreign byte on standard output would spoil the frames that a program writes there.
TEST_F(Frei0rPrograms, SayWhatTheEffectRunsOnOnlyWhenAsked) {
    const auto messages = [&](const std::string& environment) {
        return textOf("env " + environment +
                      " ffmpeg -v error -i clip.mkv -vf frei0r=bilateral_blur:0.2 -f null - 2>&1");
    };
    EXPECT_EQ(messages("--unset=BILATERAL_BLUR_VERBOSE"), "");
    EXPECT_THAT(messages("BILATERAL_BLUR_VERBOSE=1"), testing::HasSubstr("\nOpenGL Renderer: "));
    EXPECT_THAT(messages("BILATERAL_BLUR_VERBOSE=1 __EGL_VENDOR_LIBRARY_FILENAMES=/nonexistent"),
                testing::EndsWith("; filtering on the CPU\n"));
}

// The filters as the editors set them, by what their files say: with keyframes of every parameter, its least value in
// the first frame and the end in the fifth.
TEST_F(Frei0rPrograms, TheEditorsFilesFitTheFilters) {
    const std::tuple<std::string, std::vector<double>, std::vector<double>, Bytes> kFilters[] = {
        {"bilateral_blur", {20}, {0}, blurred()(mFrames, kSize, {{0}, {5}, {10}, {15}, {20}})},
        {"bilateral_smooth",
         {20, 0.2},
         {5, 0.1},
         smoothed()(mFrames, kSize, {{0, 1}, {5, 50}, {10, 100}, {15, 150}, {20, 200}})},
    };
    // What the parentheses of an expression hold wherever it fits the text of a file.
    const auto found = [](const std::string& file, const std::string& expression) {
        const std::string text = contents(EDITORS_FILES "/" + file);
        const std::regex pattern(expression);
        return std::vector<std::string>(std::sregex_token_iterator(text.begin(), text.end(), pattern, 1), {});
    };
    for (const auto& [filter, ends, defaults, expected] : kFilters) {
        const std::string kdenlive = "kdenlive/frei0r_" + filter + ".xml", shotcut = "shotcut/" + filter;
        const std::string meta = shotcut + "/meta.qml", panel = shotcut + "/ui.qml";
        const struct {
            std::vector<std::string> service, names, maxima, defaults;
            bool hasDefaultsOfUnits; // not divided by the maximum yet
        } kEditors[] = {
            {found(kdenlive, " tag=\"(.*?)\""), found(kdenlive, "<parameter.* name=\"(.*?)\""),
             found(kdenlive, "factor=\"(.*?)\""), found(kdenlive, " default=\"(.*?)\""), false},
            {found(meta, "mlt_service: '(.*)'"), found(meta, "property: '(.*)'"),
             found(panel, "maximumValue: (.*)"), found(panel, "[[,]([.0-9]+) / "), true},
        };
        for (const auto& editor : kEditors) {
            std::string command = "melt -silent clip.mkv -filter " + editor.service.at(0);
            for (std::size_t i = 0; i < ends.size(); ++i) {
                const double maximum = std::stod(editor.maxima.at(i));
                const double factor = editor.hasDefaultsOfUnits ? 1 : maximum;
                EXPECT_NEAR(std::stod(editor.defaults.at(i)) * factor, defaults[i], 0.01);
                command += " '" + editor.names.at(i) + "=0=0;4=" + std::to_string(ends[i] / maximum) + "'";
            }
            EXPECT_EQ(outputOf(command + kMeltRaw + "-1"), expected) << command;
        }
        outputOf(QMLLINT " " EDITORS_FILES "/" + shotcut + "/*.qml");
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Bridges::Test
