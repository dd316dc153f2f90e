// Wrong use and failures of the real program: exit code, one line in words, nothing left behind.

#include "Tests/Program/Blur.h"

#include <gmock/gmock.h>

#include <linux/capability.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/stat.h>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using vips::VImage;

class BadInput : public testing::Test {
protected:
    BadInput() {
        const VImage small = noise(20, 10, 3);
        save(noise(200, 150, 3), mFolder / "in.1.png");
        save(noise(20, 10, 4), mFolder / "alpha.png");
        save(small.colourspace(VIPS_INTERPRETATION_CMYK), mFolder / "cmyk.tif");
        save(small.cast(VIPS_FORMAT_FLOAT), mFolder / "float.tif");
        save(paged(noise(20, 40, 3), 10), mFolder / "pages.tif");
        writeCut("pages.tif", 10);
        for (const std::string name : {"small.jpg", "small.png", "small.tif", "small.webp"}) {
            save(small, mFolder / name);
            writeCut(name, name == "small.png" ? 13 : 1); // a PNG ends with a chunk of 12
        }
        const std::string good = contents(mFolder / "in.1.png"), jpeg = contents(mFolder / "small.jpg");
        write("damaged.png", good.substr(0, 900) + "????" + good.substr(904));
        write("damaged.jpg", jpeg.substr(0, jpeg.size() - 2) + std::string(80, '?') + "\xff\xd9");
        const std::string animation = pngChunk("acTL", std::string("\0\0\0\2\0\0\0\0", 8));
        write("animated.png", good.substr(0, 33) + animation + good.substr(33));
        write("huge.png", pngWithoutPixels(60000));
        write("text.png", "this is no picture\n");
        write("empty.png", "");
        write("old.png", "old");
        write("secret.png", "");
        chmod((mFolder / "secret.png").c_str(), 0);
        write("protected.png", "");
        chmod((mFolder / "protected.png").c_str(), 0444);
        mkdir((mFolder / "closed").c_str(), 0555);
        mBefore = mFolder.names();
    }

    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(mFolder / name) << bytes;
    }

    /// Writes "cut.NAME", without the last `bytes` of the file.
    void writeCut(const std::string& name, std::size_t bytes) const {
        const std::string whole = contents(mFolder / name);
        write("cut." + name, whole.substr(0, whole.size() - bytes));
    }

    /// A run in the folder, which it leaves as it was. Files can have 5000 bytes. Root passes over permissions
    /// by two capabilities, which it does without.
    void expectRefused(
        const std::string& arguments, int exitCode, const std::string& words,
        const std::function<void()>& inChild = [] {}) {
        SCOPED_TRACE(arguments);
        std::vector<std::string> command{PROGRAM};
        std::istringstream stream(arguments);
        command.insert(command.end(), std::istream_iterator<std::string>(stream), {});
        const Outcome outcome = ProcessRun(command, [&] {
                                    std::filesystem::current_path(mFolder / "");
                                    prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
                                    prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
                                    const rlimit limit{5000, 5000};
                                    setrlimit(RLIMIT_FSIZE, &limit);
                                    inChild();
                                }).wait();
        EXPECT_EQ(outcome.exitCode, exitCode);
        EXPECT_THAT(outcome.err, StartsWith("bilateral-blur: "));
        EXPECT_THAT(outcome.err, HasSubstr(words));
        EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
        EXPECT_EQ(mFolder.names(), mBefore);
        EXPECT_EQ(contents(mFolder / "old.png"), "old");
    }

    const Folder mFolder;
    std::vector<std::string> mBefore;
};

TEST_F(BadInput, OnTheCommandLineIsReportedInOneLine) {
    const std::pair<std::string, const char*> kCases[] = {
        {"", "INPUT is missing"},
        {"in.1.png out.png 3 4 5", "unexpected argument 3 and 2 more (see --help)"},
        {"in.1.png out.png --fast", "unknown option --fast"},
        {"in.1.png out.png --blur-scale 61", "--blur-scale 61: must be an integer from 0 to 60"},
        {"in.1.png out.png --blur-scale 2.5", "--blur-scale 2.5: must be"},
        {"in.1.png out.xcf", "use .jpg, .jpeg, .png, .tif, .tiff or .webp"},
        {"in.1.png out.png --frames 1", "--frames needs a sequence"},
        {"in.1.png out.png --threads 0", "--threads 0: must be an integer from 1"},
        {"in.1.png out.png --memory 2X", "2X: must be a size such as 800M or 4G"},
        {"in.1.png out.png --memory 17179869184G", "must be a size such as"},
        {"in.1.png out.png --format gif", "gif: must be one of jpeg, png, tiff, webp"},
        {"in.#.png out.png", "out.png: a sequence as INPUT needs one as OUTPUT"},
        {"in.##.%d.png out.#.png", "the name holds two frame numbers"},
        {"in.#.png ./in.%d.png", "the output's frames would replace the input's"},
        {"in.#.png out.#.png --frames 3-1", "3-1: the range 3-1 is reversed"},
    };
    for (const auto& [arguments, words] : kCases)
        expectRefused("--blur-scale 1 " + arguments, 2, words);
    expectRefused("in.1.png out.png", 2, "--blur-scale is missing: an integer from 0 to 60");
}

TEST_F(BadInput, InFilesIsReportedInOneLine) {
    const std::pair<std::string, const char*> kCases[] = {
        {"none.png old.png", "none.png: no such file"},
        {". old.png", "this is a directory; an image is needed (JPEG, PNG, TIFF or WebP)"},
        {"secret.png old.png", "secret.png: Permission denied"},
        {"text.png old.png", "text.png: this isn't an image in JPEG, PNG, TIFF or WebP"},
        {"empty.png old.png", "empty.png: the file is empty"},
        {"/dev/zero old.png", "/dev/zero: this isn't an image"},
        {"/proc/self/mem old.png", "/proc/self/mem: can't be read: Input/output error"},
        {"cut.small.jpg old.png", "cut.small.jpg: the image can't be read: the file is cut short"},
        {"cut.small.png old.png", "cut.small.png: the image can't be read: the file is cut short"},
        {"cut.small.tif old.png", "the directory of its first page is damaged or cut off"},
        {"cut.pages.tif old.png", "the directory of page 4 is damaged or cut off"},
        {"cut.small.webp old.png", "cut.small.webp: the image can't be read: the file is cut short"},
        {"damaged.png old.png", "damaged.png: the image is damaged or cut short"},
        {"damaged.jpg old.png", "damaged.jpg: the image is damaged or cut short"},
        {"pages.tif out.webp", "WebP can't hold the 4 pages of the input; use TIFF, or choose one"},
        {"pages.tif old.png --page 5", "pages.tif: there is no page 5; it has 4"},
        {"animated.png old.png", "an animated PNG; only its still image can be read, with --page 1"},
        {"huge.png old.png", "60000 x 60000 pixels need "},
        {"cmyk.tif old.png", "its colours are cmyk; grey and RGB images"},
        {"float.tif old.png", "its samples are of type float; grey and RGB images"},
        {"alpha.png out.jpg", "out.jpg: JPEG can't hold the image's alpha channel; use PNG, TIFF or WebP"},
        {"in.1.png old.png", "old.png: can't be written: File too large"},
        {"in.1.png protected.png", "protected.png: can't be replaced: Permission denied"},
        {"in.1.png closed/out.png", "out.png: the directory can't be written to: Permission denied"},
        {"in.1.png none/out.png", "none/out.png: there is no directory"},
        {"in.1.png out.png --module /none.so", "/none.so: there is no such module"},
        {"in.#.png out.#.png --frames 10-20", "no frames found with a number of --frames 10-20"},
        {"none/in.#.png out.#.png", "none: No such file or directory"},
    };
    for (const auto& [arguments, words] : kCases)
        expectRefused(arguments + " --blur-scale 1", 1, words);
}

TEST_F(BadInput, OfStandardOutputAndThreadsIsReportedInOneLine) {
    expectRefused("--help", 1, "standard output: No space left on device",
                  [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); });
    expectRefused("in.1.png - --blur-scale 1", 1, "standard output: Broken pipe", [] {
        int ends[2];
        dup2(pipe(ends) == 0 ? ends[1] : -1, STDOUT_FILENO);
        close(ends[0]);
    });
    expectRefused("in.1.png - --blur-scale 1", 2, "standard output is a terminal; redirect it", [] {
        int terminal, end;
        openpty(&terminal, &end, nullptr, nullptr, nullptr);
        dup2(end, STDOUT_FILENO);
    });
    // A stack larger than the address space keeps every thread from being started.
    expectRefused("in.1.png out.png --blur-scale 1", 1, "thread: Resource temporarily unavailable", [] {
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // GLib leaks the thread that it didn't start
        const rlimit limit{rlim_t{1} << 47, RLIM_INFINITY};
        setrlimit(RLIMIT_STACK, &limit);
    });
}

TEST(Program, PrintsWhatTheModuleDeclares) {
    const auto printed = [](const char* option) { return ProcessRun({PROGRAM, option}).wait().out; };
    const std::string help = printed("--help");
    EXPECT_THAT(help, HasSubstr("--blur-scale=N      Blur Scale, an integer from 0 to 60; required\n"));
    EXPECT_EQ(printed("--about"), "Bilateral Blur v1.0\nBilateral Blur\n");
    EXPECT_EQ(printed("--version"), "bilateral-blur " BILATERAL_BLUR_VERSION "\n");
    std::string page = contents(MANUAL_PAGE);
    std::erase(page, '\\');
    for (std::size_t at = 0; (at = help.find(" --", at)) != std::string::npos; ++at)
        EXPECT_THAT(page, HasSubstr(help.substr(at + 1, help.find_first_of("= \n", at + 1) - at - 1)));
}

TEST(Program, CompletesItsOptionsInBash) {
    const Folder folder;
    std::ofstream(folder / "script") << ProcessRun({PROGRAM, "--completion", "bash"}).wait().out
                                     << "COMP_WORDS=(bilateral-blur \"$@\") COMP_CWORD=$#; _bilateral_blur\n"
                                     << "echo ${COMPREPLY[@]}\n";
    const std::string kCases[][3] = {{"in.png", "--bl", "--blur-scale\n"},
                                     {"--format", "=", "jpeg png tiff webp\n"}};
    for (const auto& [before, word, completed] : kCases)
        EXPECT_EQ(ProcessRun({"/bin/bash", folder / "script", before, word}).wait().out, completed);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
