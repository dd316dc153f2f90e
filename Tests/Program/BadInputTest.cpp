// Wrong use and failures of the real program: exit code, one line in words, nothing left behind.

#include "Tests/Program/Blur.h"

#include <gmock/gmock.h>

#include <linux/capability.h>
#include <sys/prctl.h>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using vips::VImage;

class BadInput : public testing::Test {
protected:
    BadInput() {
        const VImage small = noise(20, 10, 3);
        const VImage pages = paged(noise(20, 40, 3), 10);
        save(noise(200, 150, 3), mFolder / "good.png");
        save(noise(20, 10, 4), mFolder / "alpha.png");
        save(small, mFolder / "in.1.png");
        save(small.colourspace(VIPS_INTERPRETATION_CMYK), mFolder / "cmyk.tif");
        save(small.cast(VIPS_FORMAT_FLOAT), mFolder / "float.tif");
        save(pages, mFolder / "frames.webp");
        save(pages, mFolder / "pages.tif");
        for (const std::string name : {"small.jpg", "small.png", "small.tif", "small.webp"}) {
            save(small, mFolder / name);
            writeCut(name, name == "small.png" ? 13 : 1); // a PNG ends with a chunk of 12
        }
        writeCut("good.png", 20000);
        writeCut("pages.tif", 10);
        const std::string good = contents(mFolder / "good.png"), jpeg = contents(mFolder / "small.jpg");
        write("damaged.png", good.substr(0, 900) + "????" + good.substr(904));
        write("damaged.jpg", jpeg.substr(0, jpeg.size() - 2) + std::string(80, '?') + "\xff\xd9");
        const std::string animation = pngChunk("acTL", std::string("\0\0\0\2\0\0\0\0", 8));
        write("animated.png", good.substr(0, 33) + animation + good.substr(33));
        // 60000 by 60000 pixels in 165 bytes.
        const std::string size = pngChunk("IHDR", std::string("\0\0\xea\x60\0\0\xea\x60\x8\2\0\0\0", 13));
        write("huge.png", good.substr(0, 8) + size + pngChunk("IDAT", "x") + pngChunk("IEND", ""));
        write("text.png", "this is no picture\n");
        write("tiny.webp", "RIFF@");
        write("empty.png", "");
        write("old.png", "old");
        std::filesystem::copy_file(ENTRY_LESS, mFolder / "other.so");
        std::filesystem::copy_file(std::filesystem::path(MODULE).replace_extension(".plist"),
                                   mFolder / "other.plist");
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

    /// A run in the folder, which it leaves as it was.
    void expectRefused(
        const std::string& arguments, int exitCode, const std::string& words,
        const std::function<void()>& inChild = [] {}) {
        SCOPED_TRACE(arguments);
        std::vector<std::string> command{PROGRAM};
        std::istringstream stream(arguments);
        command.insert(command.end(), std::istream_iterator<std::string>(stream), {});
        const Outcome outcome = ProcessRun(command, [&] {
                                    std::filesystem::current_path(mFolder / "");
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
    const std::pair<const char*, const char*> kCases[] = {
        {"", "INPUT is missing"},
        {"good.png", "OUTPUT is missing"},
        {"good.png out.png 3 4 5 --blur-scale 1", "unexpected argument 3 and 2 more (see --help)"},
        {"good.png out.png", "--blur-scale is missing: an integer from 0 to 60"},
        {"good.png out.png --blur-scale", "--blur-scale"},
        {"good.png out.png --blur-scale 61", "--blur-scale 61: must be an integer from 0 to 60"},
        {"good.png out.png --blur-scale -1", "--blur-scale -1: must be"},
        {"good.png out.png --blur-scale 2.5", "--blur-scale 2.5: must be"},
        {"good.png out.png --blur-scale 1 --fast", "unknown option --fast"},
        {"good.png out.xcf --blur-scale 1", "use .jpg, .jpeg, .png, .tif, .tiff or .webp"},
        {"good.png out.png --blur-scale 1 --frames 1", "--frames needs a sequence"},
        {"good.png out.png --blur-scale 1 --threads 0", "--threads 0: must be an integer from 1"},
        {"good.png out.png --blur-scale 1 --quality 101", "must be an integer from 1 to 100"},
        {"good.png out.png --blur-scale 1 --memory 2X", "2X: must be a size such as 800M or 4G"},
        {"good.png out.png --blur-scale 1 --format gif", "gif: must be one of jpeg, png, tiff, webp"},
        {"in.#.png out.png --blur-scale 1", "out.png: a sequence as INPUT needs one as OUTPUT"},
        {"in.##.%d.png out.#.png --blur-scale 1", "the name holds two frame numbers"},
        {"in.#.png ./in.%d.png --blur-scale 1", "the output's frames would replace the input's"},
        {"in.#.png out.#.png --blur-scale 1 --frames 3-1", "3-1: the range 3-1 is reversed"},
        {"good.png out.png --blur-scale 1 --memory 17179869184G", "must be a size such as"},
        {"in.#.png out.#.png --blur-scale 1 --frames one", "\"one\" is not a frame range"},
        {"in.#.png out.#.png --blur-scale 1 --frames 0-999999,1000000", "more than 1000000 frames"},
    };
    for (const auto& [arguments, words] : kCases)
        expectRefused(arguments, 2, words);
}

TEST_F(BadInput, InFilesIsReportedInOneLine) {
    const std::pair<std::string, const char*> kCases[] = {
        {"none.png old.png", "none.png: no such file"},
        {". old.png", "this is a directory; an image is needed (JPEG, PNG, TIFF or WebP)"},
        {"text.png old.png", "text.png: this isn't an image in JPEG, PNG, TIFF or WebP"},
        {"tiny.webp old.png", "tiny.webp: this isn't an image"},
        {"empty.png old.png", "empty.png: the file is empty"},
        {"/dev/zero old.png", "/dev/zero: this isn't an image"},
        {"/proc/self/mem old.png", "/proc/self/mem: can't be read: Input/output error"},
        {"cut.good.png old.png", "cut.good.png: the image can't be read: the file is cut short"},
        {"cut.small.png old.png", "cut.small.png: the image can't be read: the file is cut short"},
        {"cut.small.jpg old.png", "cut.small.jpg: the image can't be read: the file is cut"},
        {"cut.small.webp old.png", "cut.small.webp: the image can't be read: the file is cut"},
        {"cut.small.tif old.png", "the directory of its first page is damaged or cut off"},
        {"cut.pages.tif old.png", "the directory of page 4 is damaged or cut off"},
        {"damaged.png old.png", "damaged.png: the image is damaged or cut short"},
        {"damaged.jpg old.png", "damaged.jpg: the image is damaged or cut short"},
        {"pages.tif old.png",
         "PNG can't hold the 4 pages of the input; use TIFF, or choose one with --page N"},
        {"pages.tif out.webp", "WebP can't hold the 4 pages of the input; use TIFF"},
        {"frames.webp old.png", "PNG can't hold the 4 pages of the input; use WebP"},
        {"pages.tif old.png --page 5", "pages.tif: there is no page 5; it has 4"},
        {"animated.png old.png", "an animated PNG; only its still image can be read, with --page 1"},
        {"huge.png old.png", "60000 x 60000 pixels need "},
        {"good.png old.png --memory 1M", "need 1 MB of memory, and 0 MB are available; --memory SIZE"},
        {"cmyk.tif old.png", "its colours are cmyk; grey and RGB images"},
        {"float.tif old.png", "its samples are of type float; grey and RGB images"},
        {"alpha.png out.jpg", "out.jpg: JPEG can't hold the image's alpha"},
        {"good.png none/out.png", "none/out.png: there is no directory"},
        {"good.png /dev/null/out.png", "out.png: there is no directory"},
        {"good.png out.png --module /none.so", "/none.so: there is no such module"},
        {"good.png out.png --module good.png", "good.plist: the module's property list is missing"},
        {"good.png out.png --module other.so", "lacks the entry \"EntryPointFunc\""},
        {"in.####.png out.#.png", "in.####.png: no frames found"},
        {"in.#.png out.#.png --frames 10-20", "no frames found with a number of --frames 10-20"},
        {"none/in.#.png out.#.png", "none: No such file or directory"},
    };
    for (const auto& [arguments, words] : kCases)
        expectRefused(arguments + " --blur-scale 1", 1, words);
}

// Root passes over permissions by two capabilities, which it does without here.
TEST_F(BadInput, OfTheSystemIsReportedInOneLine) {
    using std::filesystem::perms;
    const auto limited = [] {
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
        const rlimit limit{5000, 5000};
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    const struct {
        const char *file, *words;
        perms permissions, before;
    } kCases[] = {
        {"old.png", "old.png: can't be written: File too large", perms(0644), perms(0644)},
        {"old.png", "old.png: can't be replaced: Permission denied", perms(0444), perms(0644)},
        {"", "old.png: the directory can't be written to: Permission denied", perms(0555), perms(0755)},
        {"good.png", "good.png: Permission denied", perms::none, perms(0644)},
    };
    for (const auto& [file, words, permissions, before] : kCases) {
        std::filesystem::permissions(mFolder / file, permissions);
        expectRefused("good.png old.png --blur-scale 1", 1, words, limited);
        std::filesystem::permissions(mFolder / file, before);
    }
}

TEST_F(BadInput, OfStandardOutputAndThreadsIsReportedInOneLine) {
    expectRefused("--help", 1, "standard output: No space left on device",
                  [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); });
    expectRefused("good.png - --blur-scale 1", 1, "standard output: Broken pipe", [] {
        int ends[2];
        dup2(pipe(ends) == 0 ? ends[1] : -1, STDOUT_FILENO);
        close(ends[0]);
    });
    expectRefused("good.png - --blur-scale 1", 2, "standard output is a terminal; redirect it", [] {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
        unlockpt(terminal);
        dup2(open(ptsname(terminal), O_RDWR | O_NOCTTY), STDOUT_FILENO);
    });
    // A stack larger than the address space keeps every thread from being started.
    expectRefused("good.png out.png --blur-scale 1", 1, "thread: Resource temporarily unavailable", [] {
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
                                     {"--format", "", "png jpeg tiff webp\n"},
                                     {"--format", "=", "png jpeg tiff webp\n"},
                                     {"--quiet", "i", "\n"}};
    for (const auto& [before, word, completed] : kCases)
        EXPECT_EQ(ProcessRun({"/bin/bash", folder / "script", before, word}).wait().out, completed);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
