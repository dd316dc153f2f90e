// Wrong use and failures of the real program: exit code, one line in words, nothing left behind.

#include "Tests/Program/Blur.h"

#include <linux/capability.h>
#include <sys/stat.h>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::HasSubstr;

void writeBadFiles(const Directory& directory) {
    const auto write = [&](const std::string& name, const std::string& bytes, mode_t mode = 0644) {
        std::ofstream(directory / name) << bytes;
        chmod((directory / name).c_str(), mode);
    };
    const vips::VImage small = noise(20, 10, 3);
    save(noise(200, 150, 3), directory / "in.1.png");
    save(noise(20, 10, 4), directory / "alpha.png");
    save(small.colourspace(VIPS_INTERPRETATION_CMYK), directory / "cmyk.tif");
    save(paged(noise(20, 40, 3), 10), directory / "pages.tif");
    for (const char* name : {"small.jpg", "small.png", "small.tif", "small.webp", "small.heic"})
        save(small, directory / name);
    blur(directory / "alpha.png", directory / "small.exr");
    for (const std::string name : {"small.jpg", "small.tif", "small.webp", "small.exr", "pages.tif"}) {
        const std::string whole = contents(directory / name);
        write("cut." + name, whole.substr(0, whole.size() - 13));
    }
    write("cut.heic", contents(directory / "small.heic").substr(0, 200));
    const std::string good = contents(directory / "in.1.png"), jpeg = contents(directory / "small.jpg");
    write("damaged.png", good.substr(0, 900) + "????" + good.substr(904));
    write("damaged.jpg", jpeg.substr(0, jpeg.size() - 60) + "\xff\xd9");
    const std::size_t frame = jpeg.find("\xff\xc0"), scan = jpeg.find("\xff\xda");
    write("arithmetic.jpg", replaced(jpeg, "\xff\xc0", "\xff\xc9"));
    write("12bits.jpg", jpeg.substr(0, frame + 4) + "\xc" + jpeg.substr(frame + 5));
    std::string scans = jpeg.substr(0, jpeg.size() - 2);
    for (int i = 0; i < 200; ++i)
        scans += jpeg.substr(scan, jpeg.size() - 2 - scan);
    write("scans.jpg", scans + "\xff\xd9");
    save(noise(20, 10, 1), directory / "grey.tif");
    save(small.cast(VIPS_FORMAT_FLOAT)[0], directory / "float.tif");
    save(noise(200, 200, 1), directory / "tiles.tif[tile,tile-width=16,tile-height=16]");
    write("old-jpeg.tif", withTag(contents(directory / "grey.tif"), 259, 1, 6));
    write("half.tif", withTag(contents(directory / "float.tif"), 258, 32, 16));
    write("tiles.tif", withTag(withTag(contents(directory / "tiles.tif"), 322, 16, 1), 323, 16, 1));
    const std::string animation = pngChunk("acTL", std::string("\0\0\0\2\0\0\0\0", 8));
    write("animated.png", good.substr(0, 33) + animation + good.substr(33));
    const std::string exr = contents(directory / "small.exr");
    // In its first window the farther corner, 19 and 9.
    write("wide.exr", replaced(exr, std::string("\x13\0\0\0\x9", 5), std::string("\x13\0\0\x70\x9", 5)));
    write("parts.exr", exr.substr(0, 5) + "\x10" + exr.substr(6));
    write("huge.png", pngWithoutPixels(60000));
    write("text.png", "this is no image\n");
    write("padded.01.png", "");
    write("empty.png", "");
    write("old.png", "old");
    write("secret.png", "", 0);
    write("protected.png", "", 0444);
    mkdir((directory / "closed").c_str(), 0555);
}

TEST(BadInput, IsReportedInOneLine) {
    const Directory directory;
    writeBadFiles(directory);
    // Commands of a shell, each with its exit code and words of its line.
    const std::tuple<const char*, int, const char*> kCases[] = {
        {"blur", 2, "INPUT is missing"},
        {"blur in.1.png x.png 3 4 5", 2, "5: there is no such directory; several inputs"},
        {"blur in.1.png small.png -", 2, "standard output: not a directory; several inputs"},
        {"blur in.1.png none/", 2, "none/: there is no such directory"},
        {"blur - .", 2, "standard input has no name for a file in a directory"},
        {"blur in.1.png ./in.1.png closed", 2, "in.1.png and ./in.1.png would both be written to closed/"},
        {"blur small.jpg small.png closed --format webp", 2, "would both be written to closed/small.webp"},
        {"blur in.1.png .", 2, "./in.1.png: this input would be replaced"},
        {"blur closed .", 1, "closed: there are no images in it"},
        {"blur in.1.png x.png --sigma 3 --range=2", 2, "unknown option --sigma and 1 more (see --help)"},
        {"program in.1.png x.png", 2, "--blur-scale is missing: an integer from 0 to 60 (see --help)"},
        {"blur in.1.png x.png --blur-scale 61", 2, "--blur-scale: must be an integer from 0 to 60, not 61"},
        {"program in.1.png x.png --effect none", 2, "there is no module for none, only for bilateral-blur, "},
        {"smooth in.1.png x.png --threshold 0.0009", 2, "--threshold: must be a number from 0.001 to 1, not"},
        {"smooth in.1.png x.png --module '" MODULE "'", 2, " excludes "},
        {"blur in.1.png x.png --effect bilateral-smooth", 2, "unknown option --blur-scale"},
        {"blur in.1.png x.xcf", 2, "use .jpg, .jpeg, .png, .tif, .tiff, .webp or .exr"},
        {"blur in.1.png x.png --frames 1", 2, "--frames needs a sequence"},
        {"blur in.1.png x.png --memory 2X", 2, "--memory: must be a size such as 800M or 4G, not 2X"},
        {"blur in.1.png x.png --format gif", 2, "must be one of jpeg, png, tiff, webp, exr, not gif"},
        {"blur in.1.png x.png --compression 10", 2, "must be an integer from 0 to 9, or lzw, not 10"},
        {"blur in.1.png x.png --compression lzw", 2, "x.png: --compression lzw is for TIFF, not for PNG"},
        {"blur in.1.png x.jpg --compression 1", 2, "--compression is for PNG or TIFF, not for JPEG"},
        {"blur in.1.png - --compression 1 | cat", 2, "is for PNG or TIFF; name it with --format"},
        {"blur in.#.png x.png", 2, "x.png: a sequence as INPUT needs one as OUTPUT"},
        {"blur padded.%d.png out.#.png", 2, "leading zeros; name them all with ./padded.##.png"},
        {"blur in.##.%d.png out.#.png", 2, "the name holds two frame numbers"},
        {"blur in.#.png ./in.%d.png", 2, "the output's frames would replace the input's"},
        {"blur in.1.png - >/dev/ptmx", 2, "standard output is a terminal; redirect it"},
        {"blur . old.png", 2, "old.png: not a directory"},
        {"blur $'no\\nsuch\\e[31m.png' old.png", 1, R"(no\nsuch\x1b[31m.png: no such file)"},
        {"blur arithmetic.jpg old.png", 1, "JPEG with arithmetic coding isn't supported"},
        {"blur 12bits.jpg old.png", 1, "JPEG with 12 bits a channel isn't supported; 8 are"},
        {"blur scans.jpg old.png", 1, "scans.jpg: the image can't be read: it has more than 200 scans"},
        {"blur tiles.tif old.png", 1, "its tiles of 1 x 1 pixels are too small"},
        {"blur half.tif old.png", 1, "floats of 16 bits isn't supported; floats of 32 bits are"},
        {"blur old-jpeg.tif old.png", 1, "JPEG of the old kind isn't supported"},
        {"blur small.exr old.png", 1, "its samples are of type float; grey and RGB images"},
        {"smooth wide.exr old.png", 1, "or says that a side has more than 1000000 pixels"},
        {"smooth parts.exr old.png", 1, "OpenEXR of several parts isn't supported"},
        {"smooth cut.small.exr x.exr", 1, "the image is damaged or cut short"},
        {"blur cut.heic old.png", 1, "cut.heic: the image can't be read: its header is damaged"},
        {"blur small.heic - | cat", 1, "HEIC can be read, but not written; name a format with --format"},
        {"blur in.1.png x.jxl", 2, "JPEG XL can be read, but not written; use .jpg"},
        {"blur secret.png old.png", 1, "secret.png: Permission denied"},
        {"blur text.png old.png", 1, "text.png: this isn't an image in JPEG, PNG, TIFF, WebP, OpenEXR, "},
        {"blur empty.png old.png", 1, "empty.png: the file is empty"},
        {"blur /proc/self/mem old.png", 1, "/proc/self/mem: can't be read: Input/output error"},
        {"blur cut.small.jpg old.png", 1, "the image can't be read: the file is cut short"},
        {"blur cut.small.tif old.png", 1, "the directory of its first page is damaged or cut off"},
        {"blur cut.pages.tif old.png", 1, "the directory of page 4 is damaged or cut off"},
        {"blur cut.small.webp old.png", 1, "the image can't be read: the file is cut short"},
        {"blur damaged.png old.png", 1, "damaged.png: the image is damaged or cut short"},
        {"blur damaged.jpg old.png", 1, "damaged.jpg: the image is damaged or cut short"},
        {"blur pages.tif x.webp", 1, "WebP can't hold the 4 pages of the input; use TIFF"},
        {"blur pages.tif old.png --page 5", 1, "pages.tif: there is no page 5; it has 4"},
        {"blur animated.png old.png", 1, "an animated PNG; only its still image can be read"},
        {"blur huge.png old.png", 1, "60000 x 60000 pixels need "},
        {"blur cmyk.tif old.png", 1, "its colours are cmyk; grey and RGB images"},
        {"blur alpha.png x.jpg", 1, "JPEG can't hold the image's alpha channel; use PNG, TIFF, WebP or "},
        {"blur in.1.png old.png", 1, "old.png: can't be written: File too large"},
        {"blur in.1.png protected.png", 1, "protected.png: can't be replaced: Permission denied"},
        {"blur in.1.png closed/x.png", 1, "the directory can't be written to: Permission denied"},
        {"blur in.1.png none/x.png", 1, "none/x.png: there is no directory"},
        {"blur in.1.png x.png --module /none.so", 1, "/none.so: there is no such module; --effect takes "},
        {"blur in.#.png out.#.png --frames 10-20", 1, "no frames found with a number of --frames 10-20"},
        {"blur --help >/dev/full", 1, "standard output: No space left on device"},
        {"blur in.1.png - | :", 1, "standard output: Broken pipe"},
        // A stack larger than the address space keeps every thread from being started. GLib leaks it.
        {"ulimit -s 137438953472; ASAN_OPTIONS=detect_leaks=0 blur in.1.png x.png", 1,
         "thread: Resource temporarily unavailable"},
    };
    setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent", 1); // which takes half of a run's time
    const std::vector<std::string> before = directory.names();
    for (const auto& [command, exitCode, words] : kCases) {
        SCOPED_TRACE(command);
        const Outcome outcome = ProcessRun(shell(directory, command), [] {
                                    const rlimit limit{5000, 5000};
                                    setrlimit(RLIMIT_FSIZE, &limit);
                                    // By these two root passes over permissions.
                                    prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
                                    prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
                                }).wait();
        EXPECT_EQ(outcome.exitCode, exitCode);
        EXPECT_THAT(outcome.err, testing::StartsWith("bilateral-blur: "));
        EXPECT_THAT(outcome.err, HasSubstr(words));
        EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
        EXPECT_EQ(directory.names(), before);
        EXPECT_EQ(contents(directory / "old.png"), "old");
    }
}

TEST(Program, PrintsWhatTheModuleDeclares) {
    const auto printed = [](const char* option) { return ProcessRun({PROGRAM, option}).wait().out; };
    const std::string help = printed("--help");
    EXPECT_THAT(help, HasSubstr("--blur-scale=N      How far the blur reaches, an integer from 0 to 60;\n"));
    EXPECT_EQ(printed("--about"), "Bilateral Blur v1.0\nBilateral Blur\n");
    EXPECT_EQ(printed("--version"), "bilateral-blur " BILATERAL_BLUR_VERSION "\n");
    std::string page = contents(MANUAL_PAGE);
    std::erase(page, '\\');
    const std::string smooth = ProcessRun({PROGRAM, "--help", "--effect=bilateral-smooth"}).wait().out;
    EXPECT_THAT(smooth, HasSubstr("a\n                      number from 0.001 to 1 (default: 0.1)\n"));
    for (const std::string& text : {help, smooth})
        for (std::size_t at = 0; (at = text.find(" --", at)) != std::string::npos; ++at)
            EXPECT_THAT(page, HasSubstr(text.substr(at + 1, text.find_first_of("= \n", at + 1) - at - 1)));
}

TEST(Program, ListsTheEffectsWhoseModulesAreThere) {
    const Directory directory;
    std::filesystem::copy_file(PROGRAM, directory / "program");
    std::ofstream(directory / "BilateralBlur.so") << "a module";
    const Outcome outcome = ProcessRun({directory / "program", "--effect=bilateral-smooth"}).wait();
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.err, HasSubstr("no module for bilateral-smooth, only for bilateral-blur (see"));
    std::filesystem::rename(directory / "BilateralBlur.so", directory / "BilateralSmooth.so");
    EXPECT_THAT(ProcessRun({directory / "program"}).wait().err, HasSubstr("only for bilateral-smooth (see"));
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
