// Numbered sequences through the real program: which frames, what is reported, what is left after failures and
// signals.

#include "Program/Sequence.h"
#include "Program/Errors.h"
#include "Tests/Program/Blur.h"

#include <gmock/gmock.h>

#include <chrono>
#include <sys/file.h>
#include <sys/mount.h>
#include <thread>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

TEST(Frames, AreReadFromTheirText) {
    EXPECT_THAT(parseFrames("1-10x4"), ElementsAre(1, 5, 9));
    EXPECT_THAT(parseFrames("7,0010-12,11,2-2"), ElementsAre(2, 7, 10, 11, 12));
    for (const char* wrong : {"", "1-", "-3", "1,,2", "1-2x", "1-5x0", "1 - 2", "1-2-3", "0x10", "9999999999",
                              "0-1000000", "1.5"})
        EXPECT_THROW(parseFrames(wrong), WrongUse) << wrong;
}

TEST(Frames, HaveTheNamesOfTheirPattern) {
    const struct {
        const char *pattern, *fileOf7, *fileOf12345;
        std::vector<std::string> others;
    } kCases[] = {
        {"a/s.####.png", "a/s.0007.png", "a/s.12345.png", {"s.7.png", "s.00007.png", "xs.0007.png"}},
        {"s%04d.png", "./s0007.png", "./s12345.png", {"s007.png", "s-007.png", "s.png", "s0007.png~"}},
        {"%d.tif", "./7.tif", "./12345.tif", {"07.tif", ".tif", "12345678901.tif"}},
        {"100%.#", "./100%.7", "./100%.12345", {"100%.07"}},
    };
    for (const auto& [text, seventh, large, others] : kCases) {
        const FramePattern pattern = FramePattern::parse(text).value();
        EXPECT_EQ(pattern.file(7), seventh);
        EXPECT_EQ(pattern.file(12345), large);
        EXPECT_EQ(pattern.frameOf(pattern.file(12345).filename()), 12345);
        for (const std::string& other : others)
            EXPECT_EQ(pattern.frameOf(other), std::nullopt) << other << " of " << text;
    }
    for (const char* single : {"a.####/shot.png", "shot.0001.png", "shot%0", "shot%04", "shot%04x", "%4d"})
        EXPECT_FALSE(FramePattern::parse(single)) << single;
}

class Sequence : public testing::Test {
protected:
    std::string file(const std::string& name) const { return mFolder / name; }

    void makeFrames(int first, int last, int width = 60, int height = 40) const {
        for (int frame = first; frame <= last; ++frame)
            save(noise(width, height, 3, frame), FramePattern::parse(mInput)->file(frame));
    }

    std::vector<std::string> outputs() const {
        std::vector<std::string> names = mFolder.names();
        std::erase_if(names, [](const std::string& name) { return name.starts_with("in."); });
        return names;
    }

    /// Every output is that of a run which nothing disturbed.
    void expectComplete() const {
        const Folder undisturbed;
        ASSERT_EQ(blur(mInput, undisturbed / "out.####.png", 3).exitCode, 0);
        ASSERT_EQ(outputs(), undisturbed.names());
        for (const std::string& name : outputs())
            ASSERT_EQ(contents(file(name)), contents(undisturbed / name)) << name;
    }

    const Folder mFolder;
    const std::string mInput = file("in.####.png"), mOutput = file("out.####.png");
};

TEST_F(Sequence, IsFilteredFrameByFrameAndItsGapsAreReported) {
    makeFrames(1, 2);
    makeFrames(4, 5, 33, 70);
    makeFrames(9, 9);
    const Outcome all = blur(mInput, mOutput, 3);
    EXPECT_EQ(all.exitCode, 0);
    EXPECT_THAT(all.err, HasSubstr("in.####.png: missing frames 3,6-8\n"));
    EXPECT_THAT(all.err, EndsWith("bilateral-blur: 5 frames filtered, 0 failed\n"));
    for (const char* frame : {"0001", "0002", "0004", "0005", "0009"}) {
        const std::string in = file(std::string("in.") + frame + ".png");
        ASSERT_EQ(blur(in, file("alone.png"), 3).exitCode, 0);
        EXPECT_EQ(contents(file("alone.png")), contents(file(std::string("out.") + frame + ".png"))) << frame;
    }
    const Folder few;
    EXPECT_EQ(blur(file("in.%04d.png"), few / "%d.tif", 3, {"--frames", "1-9x4"}).exitCode, 0);
    EXPECT_THAT(few.names(), ElementsAre("1.tif", "5.tif", "9.tif"));
}

TEST_F(Sequence, GoesOnAfterFramesThatFail) {
    makeFrames(1, 5);
    std::ofstream(file("in.0002.png")) << "no picture";
    std::filesystem::create_directory(file("out.0003.png"));
    const int part = open(file(".out.0004.png.part").c_str(), O_CREAT | O_WRONLY, 0666);
    ASSERT_EQ(flock(part, LOCK_EX), 0);
    const Outcome outcome = blur(mInput, mOutput, 3, {"--frames", "1-9", "--quiet"});
    close(part);
    EXPECT_EQ(outcome.exitCode, 1);
    for (const char* words :
         {"in.0002.png: this isn't an image", "out.0003.png: this is a directory",
          "out.0004.png: another program is writing it", "in.####.png: no such frames: 6-9\n"})
        EXPECT_THAT(outcome.err, HasSubstr(words));
    EXPECT_THAT(outcome.err, EndsWith("bilateral-blur: 2 frames filtered, 7 failed\n"));
    EXPECT_THAT(outputs(), ElementsAre(".out.0004.png.part", "out.0001.png", "out.0003.png", "out.0005.png"));
}

TEST_F(Sequence, InterruptedAtAnyMomentIsFinishedByTheSameCommand) {
    makeFrames(1, 100, 200, 150);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL, SIGKILL, SIGKILL}) {
        const std::size_t before = outputs().size();
        ProcessRun run(command(mInput, mOutput, 3, {"--skip-existing"}));
        for (int i = 0; i < 10000 && outputs().size() < before + 3; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        run.send(signal);
        const Outcome outcome = run.wait();
        ASSERT_EQ(outcome.signal, signal);
        if (signal != SIGKILL) {
            EXPECT_THAT(outcome.err, AllOf(HasSubstr("interrupted: "), EndsWith(" frames filtered\n")));
            EXPECT_THAT(outputs(), Each(StartsWith("out.")));
        }
    }
    const auto written = std::filesystem::last_write_time(file("out.0001.png"));
    // What a killed run left may be longer than the frame.
    std::ofstream(file(".out.0100.png.part")) << std::string(1'000'000, 'x');
    EXPECT_EQ(blur(mInput, mOutput, 3, {"--skip-existing"}).exitCode, 0);
    EXPECT_EQ(std::filesystem::last_write_time(file("out.0001.png")), written);
    expectComplete();
}

TEST_F(Sequence, GoesOnAfterAHangUpThatIsIgnoredAsUnderNohup) {
    makeFrames(1, 20, 200, 150);
    ProcessRun run(command(mInput, mOutput, 3), [] { signal(SIGHUP, SIG_IGN); });
    for (int i = 0; i < 10000 && outputs().empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    run.send(SIGHUP);
    EXPECT_EQ(run.wait().exitCode, 0);
}

// As where a library ends the process for want of memory. The pipe without a writer holds the reader.
TEST_F(Sequence, GoesOnAfterAFrameThatTheProcessDiesOf) {
    makeFrames(1, 5);
    const std::string pipe = file("in.0003.png");
    std::filesystem::remove(pipe);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
    std::ofstream(file(".out.0003.png.part")) << "half";
    ProcessRun run(command(mInput, mOutput, 3));
    for (int deaths = 0; deaths < 2; ++deaths) {
        int reached = -1;
        for (int i = 0; i < 10000 && (reached = open(pipe.c_str(), O_WRONLY | O_NONBLOCK)) < 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_GE(reached, 0);
        const pid_t child = run.child();
        kill(child, SIGTERM);
        while (run.child() == child)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        close(reached);
    }
    const Outcome outcome = run.wait();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, HasSubstr("in.0003.png: out of memory, or a library crashed (Terminated)\n"));
    EXPECT_THAT(outcome.err, EndsWith("4 frames filtered, 1 failed\n"));
    EXPECT_THAT(outputs(), ElementsAre("out.0001.png", "out.0002.png", "out.0004.png", "out.0005.png"));
}

TEST_F(Sequence, OnADiskThatFillsKeepsItsCompleteFrames) {
    const Folder disk;
    if (mount("tmpfs", (disk / "").c_str(), "tmpfs", 0, "size=256k") != 0)
        GTEST_SKIP() << "needs to mount a small disk";
    makeFrames(1, 6, 200, 150); // some 90 kB each, as noise doesn't compress
    const Outcome full = blur(mInput, disk / "out.####.png", 3);
    mount("", (disk / "").c_str(), "", MS_REMOUNT | MS_RDONLY, nullptr);
    const Outcome readOnly = blur(mInput, disk / "out.####.png", 3);
    const std::vector<std::string> kept = disk.names();
    for (const std::string& name : kept)
        EXPECT_EQ(load(disk / name).copy_memory().width(), 200) << name;
    umount((disk / "").c_str());

    EXPECT_EQ(full.exitCode, 1);
    EXPECT_EQ(std::count(full.err.begin(), full.err.end(), '\n'), 2) << full.err;
    EXPECT_THAT(full.err, HasSubstr("can't be written: No space left on device\n"));
    EXPECT_THAT(full.err, HasSubstr(std::to_string(kept.size()) + " frames filtered, 0 failed, not done: "));
    EXPECT_THAT(full.err, EndsWith("6\n"));
    EXPECT_THAT(kept, AllOf(Each(StartsWith("out.")), SizeIs(testing::Gt(0u)), SizeIs(testing::Lt(6u))));
    EXPECT_THAT(readOnly.err, EndsWith("the directory can't be written to: Read-only file system\n"));
}

TEST_F(Sequence, NeedsNoMoreMemoryTheLongerItIs) {
    makeFrames(1, 40, 640, 480);
    // An address sanitizer would keep what is freed.
    setenv("ASAN_OPTIONS", "quarantine_size_mb=1", 1);
    const Outcome few = blur(mInput, mOutput, 3, {"--frames", "1-6"});
    const Outcome many = blur(mInput, mOutput, 3, {"--frames", "1-40"});
    ASSERT_EQ(few.exitCode + many.exitCode, 0);
    EXPECT_LE(many.peakMiB, few.peakMiB + 15);
}

TEST(Output, HasTheNameThatIsAskedFor) {
    const Folder folder;
    save(noise(8, 8, 3), folder / "in.png");
    for (const std::string& name :
         {std::string("#1.png"), std::string("50%d.png"), std::string(251, 'x') + ".png"}) {
        EXPECT_EQ(blur(folder / "in.png", folder / name, 0).exitCode, 0) << name;
        EXPECT_TRUE(std::filesystem::exists(folder / name)) << name;
    }
}

TEST(Output, OnStandardOutputIsTheFileAndNothingElse) {
    const Folder folder;
    save(noise(8, 8, 3), folder / "in.tif");
    for (const auto& [name, more] : {std::pair("out.tif", std::vector<std::string>{"--verbose"}),
                                     std::pair("out.png", std::vector<std::string>{"--format", "png"})}) {
        ASSERT_EQ(blur(folder / "in.tif", folder / name, 9).exitCode, 0);
        EXPECT_EQ(blur(folder / "in.tif", "-", 9, more).out, contents(folder / name)) << name;
    }
}

TEST(Output, ThroughALinkIsItsTarget) {
    const Folder folder;
    save(noise(8, 8, 3), folder / "in.png");
    std::filesystem::create_symlink("target.png", folder / "link.png");
    EXPECT_EQ(blur(folder / "in.png", folder / "link.png", 0).exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link.png"));
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / "target.png"));
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
