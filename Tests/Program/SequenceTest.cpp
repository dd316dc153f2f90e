// Numbered sequences through the real program: which frames, what is reported, what is left after failures and
// signals.

#include "Program/Sequence.h"
#include "Program/Errors.h"
#include "Tests/Program/Blur.h"

#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using namespace testing;

TEST(Frames, AreReadFromTheirText) {
    EXPECT_THAT(parseFrames("1-10x4"), ElementsAre(1, 5, 9));
    EXPECT_THAT(parseFrames("7,0010-12,11,2-2"), ElementsAre(2, 7, 10, 11, 12));
    for (const char* wrong :
         {"", "1-", "-3", "1,,2", "1-2x", "1-5x0", "1 - 2", "1-2-3", "9999999999", "1.5", "0-999999,1000000"})
        EXPECT_THROW(parseFrames(wrong), WrongUse) << wrong;
}

template<class Condition>
void waitUntil(Condition condition) {
    for (int i = 0; i < 10000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

class Sequence : public testing::Test {
protected:
    void makeFrames(int first, int last, int width = 200, int height = 150) const {
        for (int frame = first; frame <= last; ++frame)
            save(noise(width, height, 3, frame), FramePattern::parse(mInput)->file(frame));
    }

    /// Checks that a run ended with one cause, which every frame would meet, and the frames that remain.
    static void expectStopped(const Outcome& outcome, const std::string& cause) {
        EXPECT_EQ(outcome.exitCode, 1);
        const std::string counts = "[0-9]+ frames? filtered, 0 failed, not done: [0-9,-]*6";
        EXPECT_THAT(outcome.err, MatchesRegex("bilateral-blur: [^\n]*" + cause +
                                              "[^\n]*\nbilateral-blur: " + counts + "\n"));
    }

    const Directory mIn, mOut;
    const std::string mInput = mIn / "in.####.png", mOutput = mOut / "out.####.png";
};

TEST_F(Sequence, IsFilteredFrameByFrameAndItsGapsAreReported) {
    makeFrames(1, 2);
    for (const char* deep : {"in.0004.png", "in.0009.png"})
        save(noise(33, 70, 3, 0, true), mIn / deep);
    for (const char* other : {"in.3.png", "in.00003.png", "xin.0003.png", "in.0003.png~", "in.-003.png"})
        std::ofstream(mIn / other) << "not of the pattern";
    EXPECT_EQ(blur(mInput, mOut / "%02d.png").err,
              "bilateral-blur: " + mInput + ": missing frames 3,5-8\nbilateral-blur: " + mIn / "in.0004.png" +
                  ": 16-bit input is reduced to 8 bits per channel\n"
                  "bilateral-blur: 4 frames filtered, 0 failed\n");
    EXPECT_THAT(mOut.names(), ElementsAre("01.png", "02.png", "04.png", "09.png"));
}

TEST_F(Sequence, OrAListWithDirectoriesIsFilteredAsSingleImagesAre) {
    std::filesystem::create_directories(mIn / "more/deeper.png");
    save(noise(200, 150, 3), mIn / "-a b.png");
    save(noise(33, 70, 2, 1, true), mIn / "[b#].tif");
    save(shading(64, 40, 3), mIn / "c\n.jpg");
    save(noise(20, 10, 4), mIn / "more/d.png");
    for (const char* other : {"more/.e.png", "more/notes.txt"})
        std::ofstream(mIn / other) << "not meant";
    const std::string list = "blur --format png --skip-existing -- -* '[b#].tif' c* more ";
    EXPECT_EQ(ProcessRun(shell(mIn, list + mOut / "")).wait().err,
              "bilateral-blur: more: no images by their names, so left out: .e.png, deeper.png, notes.txt\n"
              "bilateral-blur: [b#].tif: 16-bit input is reduced to 8 bits per channel\n"
              "bilateral-blur: 4 images filtered, 0 failed\n");
    EXPECT_THAT(mOut.names(), ElementsAre("-a b.png", "[b#].png", "c\n.png", "d.png"));
    for (const std::string name : {"-a b.png", "[b#].tif", "c\n.jpg", "more/d.png"}) {
        ASSERT_EQ(blur(mIn / name, mIn / "alone.png").exitCode, 0);
        const std::string written = mOut / std::filesystem::path(name).filename().replace_extension(".png");
        EXPECT_EQ(contents(mIn / "alone.png"), contents(written)) << name;
    }
    std::ofstream(mIn / "more/f.png") << "no image";
    const Outcome again = ProcessRun(shell(mIn, list + "none.jpg " + mOut / "")).wait();
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_THAT(again.err, HasSubstr("4 outputs exist already\n"));
    EXPECT_THAT(again.err, EndsWith("0 images filtered, 2 failed: more/f.png, none.jpg\n"));
}

TEST_F(Sequence, GoesOnAfterFramesThatFail) {
    makeFrames(1, 5);
    std::ofstream(mIn / "in.0002.png") << "no image";
    std::filesystem::create_directory(mOut / "out.0003.png");
    const int part = open((mOut / ".out.0004.png.part").c_str(), O_CREAT | O_WRONLY, 0666);
    ASSERT_EQ(flock(part, LOCK_EX), 0);
    // A little less, and more, than the memory that is allowed.
    std::ofstream(mIn / "in.0006.png") << pngWithoutPixels(6000);
    std::ofstream(mIn / "in.0007.png") << pngWithoutPixels(7000);
    const Outcome outcome = blur(mInput, mOutput, {"--frames", "1-9", "--quiet", "--memory", "1G"});
    close(part);
    EXPECT_EQ(outcome.exitCode, 1);
    for (const char* words :
         {"in.0002.png: this isn't an image", "out.0003.png: this is a directory",
          "out.0004.png: another program is writing it", "in.####.png: no such frames: 8-9\n",
          "in.0006.png: the image is damaged", "in.0007.png: 7000 x 7000 pixels need 1.2 GB of memory, and "})
        EXPECT_THAT(outcome.err, HasSubstr(words));
    EXPECT_THAT(outcome.err, EndsWith("bilateral-blur: 2 frames filtered, 7 failed: 2-4,6-9\n"));
    EXPECT_THAT(mOut.names(),
                ElementsAre(".out.0004.png.part", "out.0001.png", "out.0003.png", "out.0005.png"));
}

TEST_F(Sequence, InterruptedAtAnyMomentIsFinishedByTheSameCommand) {
    makeFrames(1, 100);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL, SIGKILL, SIGKILL}) {
        const std::size_t before = mOut.names().size();
        ProcessRun run(command(mInput, mOutput, {"--skip-existing"}));
        waitUntil([&] { return mOut.names().size() >= before + 3; });
        const pid_t child = run.child();
        run.send(signal);
        const Outcome outcome = run.wait();
        ASSERT_EQ(outcome.exitCode, -signal);
        int status = SIGKILL;
        waitpid(child, &status, 0); // where the program couldn't wait for it
        EXPECT_EQ(status, SIGKILL);
        if (signal != SIGKILL) {
            EXPECT_THAT(outcome.err, AllOf(HasSubstr("interrupted: "), EndsWith(" frames filtered\n")));
            EXPECT_THAT(mOut.names(), Each(StartsWith("out.")));
        }
    }
    // What a killed run left may be longer than the frame.
    std::ofstream(mOut / ".out.0100.png.part") << std::string(1'000'000, 'x');
    EXPECT_EQ(blur(mInput, mOutput, {"--skip-existing"}).exitCode, 0);
    const Directory undisturbed;
    ASSERT_EQ(blur(mInput, undisturbed / "out.####.png").exitCode, 0);
    ASSERT_EQ(mOut.names(), undisturbed.names());
    for (const std::string& name : mOut.names())
        ASSERT_EQ(contents(mOut / name), contents(undisturbed / name)) << name;
}

/// A command of the shell on a terminal of 20 columns, whose text comes to standard output.
std::vector<std::string> onTerminal(const std::string& command) {
    return {"/usr/bin/script", "-qec", "stty cols 20; " + command, "/dev/null"};
}

TEST_F(Sequence, ShowsProgressAsWideAsTheTerminalAfterAHangUpThatIsIgnored) {
    makeFrames(1, 40);
    ProcessRun run(onTerminal("trap '' HUP; exec '" PROGRAM "' --blur-scale 3 " + mInput + " " + mOutput));
    waitUntil([&] { return !mOut.names().empty(); });
    kill(run.child(), SIGHUP);
    const Outcome outcome = run.wait();
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.out, MatchesRegex("(\r\x1b\\[K[^\r]{19})+"
                                          "\r\x1b\\[Kbilateral-blur: 40 frames filtered, 0 failed\r\n"));
}

TEST_F(Sequence, AndASingleImageShowThatTheProgramIsAtWork) {
    ASSERT_EQ(mkfifo((mIn / "pipe").c_str(), 0666), 0);
    ProcessRun run(onTerminal("cd " + mIn / "" + "; '" PROGRAM "' pipe x.png --blur-scale 1"));
    const int reached = open((mIn / "pipe").c_str(), O_WRONLY);
    std::this_thread::sleep_for(std::chrono::milliseconds(600)); // longer than nothing new is waited for
    close(reached);
    const Outcome outcome = run.wait();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.out, MatchesRegex("(\r\x1b\\[Kreading pipe, 0:[0-9][0-9])+\r\x1b\\[K"
                                          "bilateral-blur: pipe: the file is empty\r\n"));
}

// As where a library ends the process for want of memory. The pipe without a writer holds the reader.
TEST_F(Sequence, GoesOnAfterAFrameThatTheProcessDiesOf) {
    makeFrames(1, 5);
    const std::string pipe = mIn / "in.0003.png";
    std::filesystem::remove(pipe);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
    std::ofstream(mOut / ".out.0003.png.part") << "half";
    ProcessRun run(command(mInput, mOutput));
    for (int deaths = 0; deaths < 2; ++deaths) {
        const int reached = open(pipe.c_str(), O_WRONLY);
        const pid_t child = run.child();
        kill(child, SIGTERM);
        waitUntil([&] { return run.child() != child; });
        close(reached);
    }
    const Outcome outcome = run.wait();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, HasSubstr("in.0003.png: out of memory, or a library crashed (Terminated)\n"));
    EXPECT_THAT(outcome.err, EndsWith("4 frames filtered, 1 failed: 3\n"));
    EXPECT_THAT(mOut.names(), ElementsAre("out.0001.png", "out.0002.png", "out.0004.png", "out.0005.png"));
}

TEST_F(Sequence, EndsWithOneCauseWhereTheSetupDies) {
    makeFrames(1, 6);
    std::filesystem::copy_file(FAULTY_LIBRARY, mIn / "dying.so");
    std::filesystem::copy_file(std::filesystem::path(MODULE).replace_extension(".plist"),
                               mIn / "dying.plist");
    // A caller that ignores its children's ends doesn't make this one look like a success.
    ProcessRun run(command(mInput, mOutput, {"--module", mIn / "dying.so"}),
                   [] { signal(SIGCHLD, SIG_IGN); });
    expectStopped(run.wait(), "out of memory, or a library crashed \\(Aborted\\)");
}

TEST_F(Sequence, GoesOnWithoutLocksAndWithoutGLWhereADriverDiesInItsSetup) {
    makeFrames(1, 3);
    std::ofstream(mIn / "driver.json")
        << R"({"file_format_version": "1.0.0", "ICD": {"library_path": ")" << FAULTY_LIBRARY << "\"}}";
    // The sanitizer wants to be the first library. Nothing else may take the numbers of the closed streams.
    ProcessRun run(shell(mIn, "export __EGL_VENDOR_LIBRARY_FILENAMES=driver.json LD_PRELOAD='" FAULTY_LIBRARY
                              "'"
                              " ASAN_OPTIONS=verify_asan_link_order=0; blur " +
                                  mInput + " " + mOutput + " <&- >&- 2>&-"));
    EXPECT_EQ(run.wait().exitCode, 0);
    EXPECT_THAT(mOut.names(), ElementsAre("out.0001.png", "out.0002.png", "out.0003.png"));
}

TEST_F(Sequence, TakesNothingForItsOwnTemporary) {
    makeFrames(1, 4);
    const auto part = [&](int frame) { return mOut / (".out.000" + std::to_string(frame) + ".png.part"); };
    std::ofstream(mIn / "other") << "other";
    ASSERT_EQ(mkfifo(part(1).c_str(), 0666), 0);
    std::filesystem::create_hard_link(mIn / "other", part(2));
    std::filesystem::create_symlink(mIn / "other", part(3));
    std::ofstream(part(4)) << "of another user";
    const bool isAnothers = chown(part(4).c_str(), 1234, 5678) == 0;
    const Outcome outcome = blur(mInput, mOutput);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(contents(mIn / "other"), "other");
    EXPECT_EQ(contents(part(4)), isAnothers ? "of another user" : "");
    for (int frame = 1; frame <= 4; ++frame)
        EXPECT_TRUE(std::filesystem::is_regular_file(FramePattern::parse(mOutput)->file(frame))) << frame;
}

TEST_F(Sequence, OnADiskThatFillsKeepsItsCompleteFrames) {
    if (mount("tmpfs", (mOut / "").c_str(), "tmpfs", 0, "size=256k") != 0)
        GTEST_SKIP() << "needs to mount a small disk";
    makeFrames(1, 6); // some 90 kB each, as noise doesn't compress
    const Outcome full = blur(mInput, mOutput);
    const std::vector<std::string> kept = mOut.names();
    for (const std::string& name : kept)
        EXPECT_EQ(load(mOut / name).copy_memory().width(), 200) << name;
    umount((mOut / "").c_str());
    expectStopped(full, "can't be written: No space left on device");
    EXPECT_THAT(kept, AllOf(Each(StartsWith("out.")), SizeIs(Ge(1u))));
    EXPECT_THAT(full.err, HasSubstr(std::to_string(kept.size()) + " frame"));
}

TEST_F(Sequence, NeedsNoMoreMemoryTheLongerItIsAndLessWhereItIsBound) {
    makeFrames(1, 12, 1400, 1000);
    // An address sanitizer would keep what is freed.
    setenv("ASAN_OPTIONS", "quarantine_size_mb=1", 1);
    const Outcome few = blur(mInput, mOutput, {"--frames", "1-5"});
    const Outcome many = blur(mInput, mOutput);
    // Each needs 42 MB beside what the program has at its start and takes in its setup.
    const long promised = ProcessRun({PROGRAM, "--version"}).wait().peakMiB + 130;
    const Outcome bound = blur(mInput, mOutput, {"--memory", std::to_string(promised) + "M"});
    ASSERT_EQ(few.exitCode + many.exitCode + bound.exitCode, 0);
    EXPECT_LE(many.peakMiB, few.peakMiB + 15);
#ifndef __SANITIZE_ADDRESS__ // needs so much for one that more don't show
    EXPECT_LE(bound.peakMiB, promised);
#endif
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
