// Numbered sequences through the real program: which frames, what is told, what is left after failures and
// signals.

#include "Host/Program/Sequence.h"
#include "Host/Program/Errors.h"
#include "Tests/Program/ProgramRun.h"
#include "Tests/Program/TestPictures.h"

#include <gmock/gmock.h>

#include <chrono>
#include <sys/file.h>
#include <sys/mount.h>
#include <thread>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

TEST(Frames, AreReadFromTheirText) {
    EXPECT_THAT(parseFrames("5"), ElementsAre(5));
    EXPECT_THAT(parseFrames("1-4"), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(parseFrames("1-10x4"), ElementsAre(1, 5, 9));
    EXPECT_THAT(parseFrames("7,0010-12,11,2-2"), ElementsAre(2, 7, 10, 11, 12));
    for (const char* wrong : {"", "1-", "-3", "a", "1,,2", "1-2x", "4-3", "1-5x0", "1 - 2", "1-2-3", "0x10",
                              "9999999999", "0-999999999", "1.5"})
        EXPECT_THROW(parseFrames(wrong), WrongUse) << wrong;
    for (const char* text : {"1", "1-3", "1,3,5-7,9", "0-1,100000"})
        EXPECT_EQ(framesText(parseFrames(text)), text);
}

TEST(Frames, HaveTheNamesOfTheirPattern) {
    const struct {
        const char *pattern, *fileOf7, *fileOf12345;
        std::vector<std::string> others;
    } kCases[] = {
        {"a/s.####.png",
         "a/s.0007.png",
         "a/s.12345.png",
         {"s.7.png", "s.00007.png", "s.0007.png~", "xs.0007.png"}},
        {"s%04d.png", "./s0007.png", "./s12345.png", {"s007.png", "s-007.png", "s00012345.png", "s.png"}},
        {"%d.tif", "./7.tif", "./12345.tif", {"07.tif", ".tif", "12345678901.tif"}},
        {"100%.#", "./100%.7", "./100%.12345", {"100%.07"}},
    };
    for (const auto& [text, seventh, large, others] : kCases) {
        const auto pattern = FramePattern::parse(text);
        ASSERT_TRUE(pattern) << text;
        EXPECT_EQ(pattern->file(7), seventh);
        EXPECT_EQ(pattern->file(12345), large);
        EXPECT_EQ(pattern->frameOf(pattern->file(12345).filename()), 12345);
        for (const std::string& other : others)
            EXPECT_EQ(pattern->frameOf(other), std::nullopt) << other << " of " << text;
    }
    for (const char* single :
         {"a.####/shot.png", "shot.0001.png", "shot%", "shot%0", "shot%04", "shot%04x", "%4d"})
        EXPECT_FALSE(FramePattern::parse(single)) << single;
    EXPECT_THROW(FramePattern::parse("shot.##.%04d.png"), WrongUse);
}

class Sequence : public testing::Test {
protected:
    std::string file(const std::string& name) const { return mFolder / name; }

    void makeFrame(int frame, int width = 60, int height = 40) const {
        noise<std::uint8_t>(width, height, 3, frame)
            .save(FramePattern::parse(file("in.####.png"))->file(frame));
    }

    void makeFrames(int last, int width = 60, int height = 40) const {
        for (int frame = 1; frame <= last; ++frame)
            makeFrame(frame, width, height);
    }

    std::vector<std::string> arguments(std::vector<std::string> more = {}) const {
        more.insert(more.begin(), {file("in.####.png"), file("out.####.png"), "--blur-scale", "3"});
        return more;
    }

    std::vector<std::string> outputs() const {
        std::vector<std::string> names = mFolder.names();
        std::erase_if(names, [](const std::string& name) { return name.rfind("in.", 0) == 0; });
        return names;
    }

    /// Every output decodes to its end and equals that of a run that nothing disturbed.
    void expectComplete(const std::vector<std::string>& names) const {
        if (mUndisturbed.names().empty()) {
            ASSERT_EQ(runProgram({file("in.####.png"), mUndisturbed / "out.####.png", "--blur-scale", "3"})
                          .exitCode,
                      0);
        }
        for (const std::string& name : names)
            ASSERT_EQ(load<std::uint8_t>(file(name)).values, load<std::uint8_t>(mUndisturbed / name).values)
                << name;
    }

    void waitForOutputs(std::size_t count) const {
        for (int i = 0; i < 3000 && outputs().size() < count; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }

    const Folder mFolder, mUndisturbed;
};

TEST_F(Sequence, IsFilteredFrameByFrameWithItsGapsTold) {
    for (const int frame : {1, 2, 4, 9})
        makeFrame(frame);
    makeFrame(5, 33, 70);
    Outcome outcome = runProgram(arguments());
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.err, HasSubstr("in.####.png: there are gaps, without frames 3,6-8\n"));
    EXPECT_THAT(outcome.err, EndsWith("bilateral-blur: 5 frames filtered, 0 failed\n"));
    EXPECT_THAT(outputs(),
                ElementsAre("out.0001.png", "out.0002.png", "out.0004.png", "out.0005.png", "out.0009.png"));
    expectComplete(outputs());

    outcome =
        runProgram({file("in.%04d.png"), file("other%d.tif"), "--blur-scale", "3", "--frames", "1-9x4"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_TRUE(std::filesystem::exists(file("other1.tif")) && std::filesystem::exists(file("other9.tif")));
    EXPECT_FALSE(std::filesystem::exists(file("other2.tif")));
}

TEST_F(Sequence, GoesOnAfterFramesThatFail) {
    makeFrames(4);
    std::ofstream(file("in.0002.png")) << "no picture";
    std::filesystem::create_directory(file("out.0003.png"));
    const Outcome outcome = runProgram(arguments({"--frames", "1-5", "--quiet"}));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, HasSubstr("in.0002.png: this isn't a picture"));
    EXPECT_THAT(outcome.err, HasSubstr("out.0003.png: can't be written: Is a directory"));
    EXPECT_THAT(outcome.err, HasSubstr("in.0005.png: no such file"));
    EXPECT_THAT(outcome.err, EndsWith("bilateral-blur: 2 frames filtered, 3 failed\n"));
    EXPECT_THAT(outputs(), ElementsAre("out.0001.png", "out.0003.png", "out.0004.png"));
}

TEST_F(Sequence, LeavesExistingOutputsAloneWhereAsked) {
    makeFrames(3);
    std::ofstream(file("out.0002.png")) << "old";
    std::ofstream(file(".out.0003.png.part")) << std::string(1'000'000, 'x'); // of a run that was killed
    const Outcome outcome = runProgram(arguments({"--skip-existing"}));
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(contents(file("out.0002.png")), "old");
    EXPECT_THAT(outputs(), ElementsAre("out.0001.png", "out.0002.png", "out.0003.png"));
    expectComplete({"out.0001.png", "out.0003.png"});
    EXPECT_LT(contents(file("out.0003.png")).size(), 100'000u);
}

TEST_F(Sequence, InterruptedLeavesNothingHalfDone) {
    makeFrames(60, 300, 200);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        for (const std::string& name : outputs())
            std::filesystem::remove(file(name));
        ProgramRun run(arguments());
        waitForOutputs(3);
        run.send(signal);
        const Outcome outcome = run.wait();
        EXPECT_EQ(outcome.signal, signal);
        EXPECT_THAT(outcome.err, HasSubstr("of 60 frames filtered\n"));
        const std::vector<std::string> names = outputs();
        EXPECT_LT(names.size(), 60u);
        EXPECT_THAT(names, Each(StartsWith("out.")));
        expectComplete({names.front(), names.back()});
    }
}

TEST_F(Sequence, KilledAtAnyMomentIsFinishedByTheSameCommand) {
    makeFrames(12, 150, 100);
    for (std::size_t wanted = 1; wanted <= 9; wanted += 2) {
        ProgramRun run(arguments({"--skip-existing"}));
        waitForOutputs(wanted);
        std::this_thread::sleep_for(std::chrono::milliseconds(wanted));
        run.send(SIGKILL);
        run.wait();
        for (const std::string& name : outputs())
            if (name.front() != '.')
                load<std::uint8_t>(file(name));
    }
    EXPECT_EQ(runProgram(arguments({"--skip-existing"})).exitCode, 0);
    EXPECT_EQ(outputs().size(), 12u) << testing::PrintToString(outputs());
    expectComplete(outputs());
}

TEST_F(Sequence, OnADiskThatFillsKeepsItsCompleteFrames) {
    const Folder disk;
    if (mount("tmpfs", (disk / "").c_str(), "tmpfs", 0, "size=256k") != 0)
        GTEST_SKIP() << "needs to mount a small disk";
    makeFrames(6, 200, 150); // some 90 kB each, as noise doesn't compress
    const Outcome full = runProgram({file("in.####.png"), disk / "out.####.png", "--blur-scale", "3"});
    mount("", (disk / "").c_str(), "", MS_REMOUNT | MS_RDONLY, nullptr);
    const Outcome readOnly = runProgram({file("in.####.png"), disk / "out.####.png", "--blur-scale", "3"});
    const std::vector<std::string> kept = disk.names();
    for (const std::string& name : kept)
        EXPECT_EQ(load<std::uint8_t>(disk / name).width, 200) << name;
    umount((disk / "").c_str());

    EXPECT_EQ(full.exitCode, 1);
    EXPECT_THAT(full.err, HasSubstr("out.0006.png: can't be written: No space left on device"));
    EXPECT_THAT(full.err, HasSubstr(std::to_string(kept.size()) + " frames filtered"));
    EXPECT_THAT(kept,
                testing::AllOf(Each(StartsWith("out.")), SizeIs(testing::Gt(0u)), SizeIs(testing::Lt(6u))));
    EXPECT_THAT(readOnly.err, EndsWith("the folder can't be written to: Read-only file system\n"));
}

TEST_F(Sequence, LeavesAFileToTheProgramThatWritesIt) {
    makeFrames(2);
    const int part = open(file(".out.0001.png.part").c_str(), O_CREAT | O_WRONLY, 0666);
    ASSERT_EQ(flock(part, LOCK_EX), 0);
    const Outcome outcome = runProgram(arguments());
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, HasSubstr("out.0001.png: another program is writing it"));
    EXPECT_THAT(outputs(), ElementsAre(".out.0001.png.part", "out.0002.png"));
    close(part);
}

TEST_F(Sequence, NeedsNoMoreMemoryTheLongerItIs) {
    makeFrames(40, 640, 480);
    // An address sanitizer would keep what is freed.
    const auto freeAtOnce = [] { setenv("ASAN_OPTIONS", "quarantine_size_mb=1", 1); };
    const Outcome few = ProgramRun(arguments({"--frames", "1-6"}), freeAtOnce).wait();
    const Outcome many = ProgramRun(arguments({"--frames", "1-40"}), freeAtOnce).wait();
    ASSERT_EQ(few.exitCode + many.exitCode, 0);
    EXPECT_LE(many.peakMiB, few.peakMiB + 15);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
