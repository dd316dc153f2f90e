// Wrong use and failures of the real program: exit code, one line in words, nothing left behind.

#include "Tests/Program/ProgramRun.h"
#include "Tests/Program/TestPictures.h"

#include <gmock/gmock.h>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class BadInput : public testing::Test {
protected:
    BadInput() {
        noise<std::uint8_t>(200, 150, 3, 1).save(mFolder / "good.png");
        noise<std::uint8_t>(20, 10, 3, 1).save(mFolder / "in.1.png");
        noise<std::uint8_t>(20, 10, 4, 1).save(mFolder / "alpha.png");
        std::ofstream(mFolder / "text.png") << "this is no picture\n";
        std::ofstream(mFolder / "empty.png");
        std::ofstream(mFolder / "old.png") << "old";
        const std::string good = contents(mFolder / "good.png");
        std::ofstream(mFolder / "cut.png") << good.substr(0, good.size() / 2);
        std::ofstream(mFolder / "damaged.png") << good.substr(0, 900) + "????" + good.substr(904);
        const vips::VImage image = noise<std::uint8_t>(20, 10, 3, 1).image();
        image.colourspace(VIPS_INTERPRETATION_CMYK).write_to_file((mFolder / "cmyk.tif").c_str());
        image.cast(VIPS_FORMAT_FLOAT).write_to_file((mFolder / "float.tif").c_str());
        mBefore = mFolder.names();
    }

    /// A run in the folder, which it leaves as it was.
    void expectRefused(
        const std::vector<std::string>& arguments, int exitCode, const std::string& words,
        const std::function<void()>& inChild = [] {}) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const Outcome outcome = ProgramRun(arguments, [&] {
                                    if (chdir((mFolder / "").c_str()) != 0)
                                        _exit(126);
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

TEST_F(BadInput, WrongUseIsTold) {
    const struct {
        std::vector<std::string> arguments;
        const char* words;
    } kCases[] = {
        {{}, "INPUT is missing"},
        {{"good.png"}, "OUTPUT is missing"},
        {{"good.png", "out.png", "third.png", "--blur-scale", "1"}, "not expected: third.png"},
        {{"good.png", "out.png"}, "--blur-scale is missing: a whole number, 0 to 60"},
        {{"good.png", "out.png", "--blur-scale"}, "--blur-scale"},
        {{"good.png", "out.png", "--blur-scale", "61"}, "61: needed is a whole number, 0 to 60"},
        {{"good.png", "out.png", "--blur-scale", "-1"}, "--blur-scale -1: needed"},
        {{"good.png", "out.png", "--blur-scale", "2.5"}, "--blur-scale 2.5: needed"},
        {{"good.png", "out.png", "--blur-scale", "1", "--fast"}, "--fast"},
    };
    for (const auto& [arguments, words] : kCases)
        expectRefused(arguments, 2, words);
}

TEST_F(BadInput, FilesThatDoNotFitAreNamed) {
    const struct {
        const char *input, *output;
        int exitCode;
        const char* words;
        std::vector<std::string> more;
    } kCases[] = {
        {"none.png", "old.png", 1, "none.png: no such file", {}},
        {".", "old.png", 1, "this is a folder; a picture is needed (JPEG, PNG, TIFF or WebP)", {}},
        {"text.png", "old.png", 1, "text.png: this isn't a picture in JPEG, PNG, TIFF or WebP", {}},
        {"empty.png", "old.png", 1, "empty.png: this isn't a picture", {}},
        {"cut.png", "old.png", 1, "cut.png: the picture can't be read", {}},
        {"damaged.png", "old.png", 1, "damaged.png: the picture can't be read", {}},
        {"cmyk.tif", "old.png", 1, "its colours are cmyk; grey and RGB pictures", {}},
        {"float.tif", "old.png", 1, "its samples are of type float; grey and RGB pictures", {}},
        {"alpha.png", "out.jpg", 1, "out.jpg: JPEG can't hold the picture's alpha", {}},
        {"good.png", "none/out.png", 1, "none/out.png: there is no folder", {}},
        {"good.png", "/dev/null/out.png", 1, "out.png: there is no folder", {}},
        {"good.png", "out.xcf", 2, "use .jpg, .jpeg, .png, .tif, .tiff or .webp", {}},
        {"good.png", "out.png", 1, "/none.so: there is no such module", {"--module", "/none.so"}},
        {"good.png", "out.png", 1, "isn't a module that can be loaded", {"--module", "good.png"}},
        {"good.png", "out.png", 1, "lacks the entry \"EntryPointFunc\"", {"--module", ENTRY_LESS}},
        {"good.png", "out.png", 2, "--frames needs a sequence", {"--frames", "1"}},
        {"good.png", "out.##.png", 2, "a sequence as OUTPUT needs one as INPUT", {}},
        {"in.#.png", "out.png", 2, "out.png: a sequence as INPUT needs one as OUTPUT", {}},
        {"in.##.%d.png", "out.#.png", 2, "the name holds two frame numbers", {}},
        {"in.#.png", "out.##.%d.png", 2, "the name holds two frame numbers", {}},
        {"in.#.png", "./in.%d.png", 2, "in.1.png: the output's frames would replace the input's", {}},
        {"in.####.png", "out.#.png", 1, "in.####.png: no file of this name with a number", {}},
        {"in.#.png", "out.#.png", 1, "with a number of --frames 10-20", {"--frames", "10-20"}},
        {"in.#.png", "out.#.png", 2, "3-1: the range 3-1 is reversed", {"--frames", "3-1"}},
        {"in.#.png", "out.#.png", 2, "\"one\" is no range of frames", {"--frames", "one"}},
        {"none/in.#.png", "out.#.png", 1, "none: No such file or directory", {}},
    };
    for (const auto& [input, output, exitCode, words, more] : kCases) {
        std::vector<std::string> arguments{input, output, "--blur-scale", "1"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        expectRefused(arguments, exitCode, words);
    }
}

// Root passes over permissions by two capabilities, which it does without here.
TEST_F(BadInput, WhatIsNotPermittedIsTold) {
    using std::filesystem::perms;
    const auto withoutPrivilege = [] {
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
    };
    std::filesystem::permissions(mFolder / "good.png", perms::none);
    expectRefused({"good.png", "out.png", "--blur-scale", "1"}, 1, "good.png: Permission denied",
                  withoutPrivilege);
    std::filesystem::permissions(mFolder / "", perms(0555));
    expectRefused({"alpha.png", "out.png", "--blur-scale", "1"}, 1,
                  "out.png: the folder can't be written to: Permission denied", withoutPrivilege);
    std::filesystem::permissions(mFolder / "", perms(0755));
}

TEST_F(BadInput, AFullDiskLeavesTheOldOutput) {
    const rlimit limit{5000, 5000};
    expectRefused({"good.png", "old.png", "--blur-scale", "1"}, 1,
                  "old.png: can't be written: File too large", [&] { setrlimit(RLIMIT_FSIZE, &limit); });
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
