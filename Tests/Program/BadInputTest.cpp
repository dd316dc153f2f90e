// Wrong use and failures of the real program: exit code, one line in words, nothing left behind.

#include "Tests/Program/Blur.h"

#include <gmock/gmock.h>

#include <linux/capability.h>
#include <sys/prctl.h>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using vips::VImage;

class BadInput : public testing::Test {
protected:
    BadInput() {
        save(noise(200, 150, 3), mFolder / "good.png");
        save(noise(20, 10, 4), mFolder / "alpha.png");
        const VImage small = noise(20, 10, 3);
        save(small, mFolder / "in.1.png");
        save(small.colourspace(VIPS_INTERPRETATION_CMYK), mFolder / "cmyk.tif");
        save(small.cast(VIPS_FORMAT_FLOAT), mFolder / "float.tif");
        std::ofstream(mFolder / "text.png") << "this is no picture\n";
        std::filesystem::copy_file(ENTRY_LESS, mFolder / "other.so");
        std::filesystem::copy_file(std::filesystem::path(MODULE).replace_extension(".plist"),
                                   mFolder / "other.plist");
        std::ofstream(mFolder / "old.png") << "old";
        const std::string good = contents(mFolder / "good.png");
        std::ofstream(mFolder / "cut.png") << good.substr(0, good.size() / 2);
        std::ofstream(mFolder / "tiny.webp") << "RIFF@";
        for (const char* name : {"small.jpg", "small.tif", "small.webp"}) {
            save(noise(40, 30, 3), mFolder / name);
            std::ofstream(mFolder / (std::string("cut.") + name))
                << contents(mFolder / name).substr(0, std::filesystem::file_size(mFolder / name) - 1);
        }
        std::string jpeg = contents(mFolder / "small.jpg");
        std::ofstream(mFolder / "damaged.jpg") << jpeg.insert(jpeg.size() - 2, 80, '?');
        VImage tall = noise(20, 40, 3).copy();
        tall.set(VIPS_META_PAGE_HEIGHT, 10);
        save(tall, mFolder / "pages.tif");
        save(tall, mFolder / "frames.webp");
        const std::string pages = contents(mFolder / "pages.tif");
        std::ofstream(mFolder / "cut.pages.tif") << pages.substr(0, pages.size() - 10);
        std::ofstream(mFolder / "empty.png");
        std::ofstream(mFolder / "animated.png")
            << good.substr(0, 33) << pngChunk("acTL", std::string("\0\0\0\2\0\0\0\0", 8)) << good.substr(33);
        // 60000 by 60000 pixels in 165 bytes.
        std::ofstream(mFolder / "huge.png")
            << good.substr(0, 8) << pngChunk("IHDR", std::string("\0\0\xea\x60\0\0\xea\x60\x8\2\0\0\0", 13))
            << pngChunk("IDAT", "x") << pngChunk("IEND", "");
        std::ofstream(mFolder / "damaged.png") << good.substr(0, 900) + "????" + good.substr(904);
        mBefore = mFolder.names();
    }

    /// A run in the folder, which it leaves as it was.
    void expectRefused(
        const std::string& arguments, int exitCode, const std::string& words,
        const std::function<void()>& inChild = [] {}) {
        SCOPED_TRACE(arguments);
        std::vector<std::string> command{PROGRAM};
        std::istringstream stream(arguments);
        for (std::string argument; stream >> argument;)
            command.push_back(argument == "''" ? "" : argument);
        const Outcome outcome = ProcessRun(command, [&] {
                                    std::filesystem::current_path(mFolder / "");
                                    inChild();
                                }).wait();
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
        EXPECT_THAT(outcome.err, AllOf(StartsWith("bilateral-blur: "), HasSubstr(words), EndsWith("\n")));
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_EQ(mFolder.names(), mBefore);
        EXPECT_EQ(contents(mFolder / "old.png"), "old");
    }

    const Folder mFolder;
    std::vector<std::string> mBefore;
};

TEST_F(BadInput, ReportsErrorsInOneLine) {
    const struct {
        std::string arguments;
        int exitCode;
        const char* words;
    } kCases[] = {
        {"", 2, "INPUT is missing"},
        {"good.png", 2, "OUTPUT is missing"},
        {"good.png out.png third.png --blur-scale 1", 2, "unexpected argument third.png (see --help)"},
        {"good.png out.png 3 4 5 --blur-scale 1", 2, "unexpected argument 3 and 2 more"},
        {"good.png out.png", 2, "--blur-scale is missing: an integer from 0 to 60"},
        {"good.png out.png --blur-scale", 2, "--blur-scale"},
        {"good.png out.png --blur-scale 61", 2, "--blur-scale 61: must be an integer from 0 to 60"},
        {"good.png out.png --blur-scale -1", 2, "--blur-scale -1: must be"},
        {"good.png out.png --blur-scale 2.5", 2, "--blur-scale 2.5: must be"},
        {"good.png out.png --blur-scale 1 --fast", 2, "unknown option --fast"},
        {"none.png old.png --blur-scale 1", 1, "none.png: no such file"},
        {". old.png --blur-scale 1", 1, "this is a directory; an image is needed (JPEG, PNG, TIFF or WebP)"},
        {"text.png old.png --blur-scale 1", 1, "text.png: this isn't an image in JPEG, PNG, TIFF or WebP"},
        {"cut.png old.png --blur-scale 1", 1, "cut.png: the image can't be read: the file is cut short"},
        {"tiny.webp old.png --blur-scale 1", 1, "tiny.webp: this isn't an image"},
        {"damaged.png old.png --blur-scale 1", 1, "damaged.png: the image is damaged or cut short"},
        {"cut.small.jpg old.png --blur-scale 1", 1,
         "cut.small.jpg: the image can't be read: the file is cut"},
        {"cut.small.webp old.png --blur-scale 1", 1,
         "cut.small.webp: the image can't be read: the file is cut"},
        {"cut.small.tif old.png --blur-scale 1", 1, "the directory of its first page is damaged or cut off"},
        {"cut.pages.tif old.png --blur-scale 1", 1, "the directory of page 4 is damaged or cut off"},
        {"damaged.jpg old.png --blur-scale 1", 1, "damaged.jpg: the image is damaged or cut short"},
        {"empty.png old.png --blur-scale 1", 1, "empty.png: the file is empty"},
        {"/dev/zero old.png --blur-scale 1", 1, "/dev/zero: this isn't an image"},
        {"/proc/self/mem old.png --blur-scale 1", 1, "/proc/self/mem: can't be read: Input/output error"},
        {"pages.tif old.png --blur-scale 1", 1,
         "PNG can't hold the 4 pages of the input; use .tif, or choose one with --page N"},
        {"pages.tif out.webp --blur-scale 1", 1, "WebP can't hold the 4 pages of the input; use .tif"},
        {"frames.webp old.png --blur-scale 1", 1, "PNG can't hold the 4 pages of the input; use .webp"},
        {"pages.tif old.png --blur-scale 1 --page 5", 1, "pages.tif: there is no page 5; it has 4"},
        {"animated.png old.png --blur-scale 1", 1,
         "an animated PNG; only its still image can be read, with --page 1"},
        {"huge.png old.png --blur-scale 1", 1, "60000 x 60000 pixels need "},
        {"good.png old.png --blur-scale 1 --memory 1M", 1,
         "need 1 MB of memory, and 0 MB are available; --memory SIZE"},
        {"cmyk.tif old.png --blur-scale 1", 1, "its colours are cmyk; grey and RGB images"},
        {"float.tif old.png --blur-scale 1", 1, "its samples are of type float; grey and RGB images"},
        {"alpha.png out.jpg --blur-scale 1", 1, "out.jpg: JPEG can't hold the image's alpha"},
        {"good.png none/out.png --blur-scale 1", 1, "none/out.png: there is no directory"},
        {"good.png /dev/null/out.png --blur-scale 1", 1, "out.png: there is no directory"},
        {"good.png out.xcf --blur-scale 1", 2, "use .jpg, .jpeg, .png, .tif, .tiff or .webp"},
        {"good.png out.png --blur-scale 1 --module /none.so", 1, "/none.so: there is no such module"},
        {"good.png out.png --blur-scale 1 --module good.png", 1,
         "good.plist: the module's property list is missing"},
        {"good.png out.png --blur-scale 1 --module other.so", 1, "lacks the entry \"EntryPointFunc\""},
        {"good.png out.png --blur-scale 1 --frames 1", 2, "--frames needs a sequence"},
        {"good.png out.png --blur-scale 1 --threads 0", 2, "--threads 0: must be an integer from 1"},
        {"good.png out.png --blur-scale 1 --quality 101", 2, "must be an integer from 1 to 100"},
        {"good.png out.png --blur-scale 1 --memory 2X", 2, "--memory 2X: must be a size such as 800M or 4G"},
        {"good.png out.png --blur-scale 1 --format gif", 2, "gif: must be one of png, jpeg, tiff, webp"},
        {"in.#.png out.png --blur-scale 1", 2, "out.png: a sequence as INPUT needs one as OUTPUT"},
        {"in.##.%d.png out.#.png --blur-scale 1", 2, "the name holds two frame numbers"},
        {"in.#.png ./in.%d.png --blur-scale 1", 2, "the output's frames would replace the input's"},
        {"in.####.png out.#.png --blur-scale 1", 1, "in.####.png: no frames found"},
        {"in.#.png out.#.png --blur-scale 1 --frames 10-20", 1,
         "no frames found with a number of --frames 10-20"},
        {"in.#.png out.#.png --blur-scale 1 --frames 3-1", 2, "3-1: the range 3-1 is reversed"},
        {"in.#.png out.#.png --blur-scale 1 --frames one", 2, "\"one\" is not a frame range"},
        {"in.#.png out.#.png --blur-scale 1 --frames ''", 2, "\"\" is not a frame range"},
        {"in.#.png out.#.png --blur-scale 1 --frames 1-3x-1", 2, "\"1-3x-1\" is not a frame range"},
        {"in.#.png out.#.png --blur-scale 1 --frames 1-600000,600001-1200000", 2, "more than 1000000 frames"},
        {"none/in.#.png out.#.png --blur-scale 1", 1, "none: No such file or directory"},
    };
    for (const auto& [arguments, exitCode, words] : kCases)
        expectRefused(arguments, exitCode, words);
}

// Root passes over permissions by two capabilities, which it does without here.
TEST_F(BadInput, ReportsSystemErrors) {
    using std::filesystem::perms;
    const auto limited = [] {
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
        const rlimit limit{5000, 5000};
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    const auto expectReported = [&](const std::string& words) {
        expectRefused("good.png old.png --blur-scale 1", 1, words, limited);
    };
    expectReported("old.png: can't be written: File too large");
    std::filesystem::permissions(mFolder / "old.png", perms(0444));
    expectReported("old.png: can't be replaced: Permission denied");
    std::filesystem::permissions(mFolder / "old.png", perms(0644));
    std::filesystem::permissions(mFolder / "", perms(0555));
    expectReported("old.png: the directory can't be written to: Permission denied");
    std::filesystem::permissions(mFolder / "", perms(0755));
    std::filesystem::permissions(mFolder / "good.png", perms::none);
    expectReported("good.png: Permission denied");
}

TEST_F(BadInput, OfStandardOutputEndsTheRun) {
    expectRefused("--help", 1, "standard output: No space left on device",
                  [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); });
}

TEST_F(BadInput, OfAPipeThatIsClosedEndsTheRun) {
    expectRefused("good.png - --blur-scale 1", 1, "standard output: Broken pipe", [] {
        int ends[2];
        dup2(pipe(ends) == 0 ? ends[1] : -1, STDOUT_FILENO);
        close(ends[0]);
    });
}

TEST_F(BadInput, IsNotSentToATerminal) {
    expectRefused("good.png - --blur-scale 1", 2, "standard output is a terminal; redirect it", [] {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
        unlockpt(terminal);
        dup2(open(ptsname(terminal), O_RDWR | O_NOCTTY), STDOUT_FILENO);
    });
}

// A stack larger than the address space keeps every thread from being started.
TEST_F(BadInput, OfThreadsIsReported) {
    expectRefused("good.png out.png --blur-scale 1", 1, "thread: Resource temporarily unavailable", [] {
        const rlimit limit{rlim_t{1} << 47, RLIM_INFINITY};
        setrlimit(RLIMIT_STACK, &limit);
    });
}

TEST(Program, PrintsWhatTheModuleDeclares) {
    const auto printed = [](const char* option) { return ProcessRun({PROGRAM, option}).wait().out; };
    EXPECT_EQ(printed("--about"), "Bilateral Blur v1.0\nBilateral Blur\n");
    EXPECT_THAT(printed("--help"),
                HasSubstr("--blur-scale=N      Blur Scale, an integer from 0 to 60; required\n"));
    EXPECT_EQ(printed("--version"), "bilateral-blur " BILATERAL_BLUR_VERSION "\n");
}

TEST(Program, CompletesItsOptionsInBash) {
    const Folder folder;
    std::ofstream(folder / "script") << ProcessRun({PROGRAM, "--completion", "bash"}).wait().out
                                     << "COMP_WORDS=(bilateral-blur \"$@\") COMP_CWORD=$#; _bilateral_blur\n"
                                     << "echo ${COMPREPLY[@]}\n";
    const auto completed = [&](const std::string& before, const std::string& word) {
        return ProcessRun({"/bin/bash", folder / "script", before, word}).wait().out;
    };
    EXPECT_EQ(completed("in.png", "--bl"), "--blur-scale\n");
    EXPECT_EQ(completed("--format", ""), "png jpeg tiff webp\n");
    EXPECT_EQ(completed("--format", "="), "png jpeg tiff webp\n");
    EXPECT_EQ(completed("--quiet", "i"), "\n");
}

TEST(Program, HasAllItsOptionsInTheManualPage) {
    const std::string help = ProcessRun({PROGRAM, "--help"}).wait().out;
    std::string page = contents(MANUAL_PAGE);
    page.erase(std::remove(page.begin(), page.end(), '\\'), page.end());
    for (std::size_t at = 0; (at = help.find(" --", at)) != std::string::npos; ++at) {
        const std::string option = help.substr(at + 1, help.find_first_of("= \n", at + 1) - at - 1);
        EXPECT_THAT(page, HasSubstr(option));
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
