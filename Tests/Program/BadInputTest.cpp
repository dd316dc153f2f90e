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
using vips::VImage;

void expectOneLine(const Outcome& outcome, int exitCode, const std::string& words) {
    EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
    EXPECT_THAT(outcome.err, AllOf(StartsWith("bilateral-blur: "), HasSubstr(words), EndsWith("\n")));
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
}

class BadInput : public testing::Test {
protected:
    BadInput() {
        noise<std::uint8_t>(200, 150, 3, 1).save(file("good.png"));
        noise<std::uint8_t>(20, 10, 4, 1).save(file("alpha.png"));
        std::ofstream(file("text.png")) << "this is no picture\n";
        std::ofstream(file("empty.png"));
        std::ofstream(file("old.png")) << "old";
        const std::string good = contents(file("good.png"));
        std::ofstream(file("cut.png")) << good.substr(0, good.size() / 2);
        std::ofstream(file("damaged.png")) << good.substr(0, 900) + "????" + good.substr(904);
        const VImage image = noise<std::uint8_t>(20, 10, 3, 1).image();
        image.colourspace(VIPS_INTERPRETATION_CMYK).write_to_file(file("cmyk.tif").c_str());
        image.cast(VIPS_FORMAT_FLOAT).write_to_file(file("float.tif").c_str());
        mBefore = mFolder.names();
    }

    std::string file(const std::string& name) const { return mFolder / name; }

    /// A run that leaves the folder as it was.
    void expectRefused(
        const std::vector<std::string>& arguments, int exitCode, const std::string& words,
        const std::function<void()>& inChild = [] {}) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        expectOneLine(ProgramRun(arguments, inChild).wait(), exitCode, words);
        EXPECT_EQ(mFolder.names(), mBefore);
        EXPECT_EQ(contents(file("old.png")), "old");
    }

    const Folder mFolder;
    std::vector<std::string> mBefore;
};

TEST_F(BadInput, WrongUseIsTold) {
    const std::string good = file("good.png"), out = file("out.png");
    const struct {
        std::vector<std::string> arguments;
        const char* words;
    } kCases[] = {
        {{}, "INPUT is missing"},
        {{good}, "OUTPUT is missing"},
        {{good, out, "third.png", "--blur-scale", "1"}, "not expected: third.png"},
        {{good, out}, "--blur-scale is missing: a whole number, 0 to 60"},
        {{good, out, "--blur-scale"}, "--blur-scale"},
        {{good, out, "--blur-scale", "61"}, "--blur-scale 61: needed is a whole number, 0 to 60"},
        {{good, out, "--blur-scale", "-1"}, "--blur-scale -1"},
        {{good, out, "--blur-scale", "2.5"}, "--blur-scale 2.5"},
        {{good, out, "--blur-scale", "1", "--fast"}, "--fast"},
        {{good, file("out.xcf"), "--blur-scale", "1"}, "use .jpg, .jpeg, .png, .tif, .tiff or .webp"},
        {{good, out, "--blur-scale", "1", "--frames", "1"}, "--frames needs a sequence"},
        {{good, file("out.##.png"), "--blur-scale", "1"}, "a sequence as OUTPUT needs one as INPUT"},
    };
    for (const auto& [arguments, words] : kCases)
        expectRefused(arguments, 2, words);
}

TEST_F(BadInput, FailuresNameTheFile) {
    const std::string good = file("good.png"), old = file("old.png");
    const struct {
        std::string input, output;
        std::string words;
    } kCases[] = {
        {file("none.png"), old, "none.png: no such file"},
        {mFolder / "", old, "this is a folder; a picture is needed (JPEG, PNG, TIFF or WebP)"},
        {file("text.png"), old, "text.png: this isn't a picture in JPEG, PNG, TIFF or WebP"},
        {file("empty.png"), old, "empty.png: this isn't a picture"},
        {file("cut.png"), old, "cut.png: the picture can't be read"},
        {file("damaged.png"), old, "damaged.png: the picture can't be read"},
        {file("cmyk.tif"), old, "its colours are cmyk; grey and RGB pictures"},
        {file("float.tif"), old, "its samples are of type float; grey and RGB pictures"},
        {file("alpha.png"), file("out.jpg"), "out.jpg: JPEG can't hold the picture's alpha"},
        {good, file("none/out.png"), "there is no folder " + file("none")},
        {good, "/dev/null/out.png", "out.png: there is no folder"},
    };
    for (const auto& [input, output, words] : kCases)
        expectRefused({input, output, "--blur-scale", "1"}, 1, words);
}

TEST_F(BadInput, ModulesThatAreNoneAreTold) {
    const std::string good = file("good.png"), out = file("out.png");
    for (const auto& [module, words] :
         {std::pair<std::string, const char*>{file("none.so"), "no such module"},
          {good, "isn't a module that can be loaded"},
          {ENTRY_LESS, "lacks the entry \"EntryPointFunc\""},
          {"/", "isn't a module"}})
        expectRefused({good, out, "--blur-scale", "1", "--module", module}, 1, words);
}

// Permissions don't hold the superuser back, so these runs are another user's.
// Root passes over permissions by two capabilities, which it does without here.
TEST_F(BadInput, WhatIsNotPermittedIsTold) {
    using std::filesystem::perms;
    const auto withoutPrivilege = [] {
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
    };
    std::filesystem::permissions(file("good.png"), perms::none);
    expectRefused({file("good.png"), file("out.png"), "--blur-scale", "1"}, 1, "good.png: Permission denied",
                  withoutPrivilege);
    std::filesystem::permissions(mFolder / "", perms(0555));
    expectRefused({file("alpha.png"), file("out.png"), "--blur-scale", "1"}, 1,
                  "out.png: the folder can't be written to: Permission denied", withoutPrivilege);
    std::filesystem::permissions(mFolder / "", perms(0755));
}

TEST_F(BadInput, AFullDiskLeavesTheOldOutput) {
    expectRefused({file("good.png"), file("old.png"), "--blur-scale", "1"}, 1,
                  "old.png: can't be written: File too large", [] {
                      const rlimit limit{5000, 5000};
                      setrlimit(RLIMIT_FSIZE, &limit);
                  });
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
