#include "Program/Supervisor.h"

#include "Platform/EndingSignals.h"
#include "Platform/GpuDevices.h"
#include "Program/Errors.h"
#include "Program/Events.h"
#include "Program/Files/ImageLibrary.h"
#include "Program/ModuleOutput.h"
#include "Program/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <new>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

namespace {

class Supervisor {
public:
    Supervisor(Run& run, const Settings& settings, Report& report)
        : mRun(run), mSettings(settings), mReport(report) {}

    void run();

private:
    int runChild(const Round& round);
    [[noreturn]] void beChild(const Round& round, pid_t parent, int pipe) const;
    void receiveAll(int pipe, pid_t child);
    void handle(const Event& event);
    [[noreturn]] void endBy(int signal, pid_t child);
    void removeHalfWritten() const;
    void planSetupAgain(const Round& round, const std::string& cause);
    void planAgain(const Round& round, const std::string& cause);
    std::vector<int> those(const Round& round, Job::State state) const;
    void fail(int job, const std::string& reason);

    Run& mRun;
    const Settings& mSettings;
    Report& mReport;
    std::deque<Round> mRounds;
    bool mUsesGl = true;
    bool mIsReady = false; ///< the child that works has set up the effect
    const EndingSignals mSignals{};
};

/// Why a child ended; empty where it did its work.
std::string causeOf(int status) {
    if (WIFSIGNALED(status))
        return std::string("out of memory, or a library crashed (") + strsignal(WTERMSIG(status)) + ")";
    return WEXITSTATUS(status) == 0
               ? ""
               : "the process that filters ended with exit code " + std::to_string(WEXITSTATUS(status));
}

/// What isn't a regular file can be read only once, so not by a process that may die of something else.
bool canBeReadAgain(const std::filesystem::path& input) {
    std::error_code ignored;
    return std::filesystem::is_regular_file(input, ignored);
}

void Supervisor::run() {
    const bool readsAhead = mRun.jobs.size() != 1 || canBeReadAgain(mRun.jobs.front().input);
    if (Round all{mRun.those(Job::State::Waiting), readsAhead}; !all.jobs.empty())
        mRounds.push_back(std::move(all));
    while (!mRounds.empty() && mRun.stopped.empty()) {
        const Round round = std::move(mRounds.front());
        mRounds.pop_front();
        const std::string cause = causeOf(runChild(round));
        if (cause.empty())
            continue;
        removeHalfWritten();
        mIsReady ? planAgain(round, cause) : planSetupAgain(round, cause);
    }
    mReport.end();
}

/// Plans a round again whose child died before the effect was set up.
void Supervisor::planSetupAgain(const Round& round, const std::string& cause) {
    for (const int job : those(round, Job::State::Started))
        mRun.jobs[job].state = Job::State::Waiting;
    if (!round.readsAhead && !mUsesGl) {
        mRun.stopped = cause;
        return;
    }
    if (!round.readsAhead)
        mUsesGl = false;
    mRounds.push_front({round.jobs, false});
}

/// Plans what a child left that died later.
void Supervisor::planAgain(const Round& round, const std::string& cause) {
    const std::vector<int> suspects = those(round, Job::State::Started);
    if (suspects.empty()) {
        mRun.stopped = cause;
    } else if (round.jobs.size() == 1) {
        fail(round.jobs.front(), mRun.jobs[round.jobs.front()].input.string() + ": " + cause);
    } else {
        if (Round rest{those(round, Job::State::Waiting), true}; !rest.jobs.empty())
            mRounds.push_front(std::move(rest));
        for (const int suspect : suspects) {
            mRun.jobs[suspect].state = Job::State::Waiting;
            mRounds.push_front({{suspect}, false});
        }
    }
}

void Supervisor::fail(int job, const std::string& reason) {
    mRun.jobs[job].state = Job::State::Failed;
    mRun.jobs[job].reason = reason;
    mReport.failed(mRun.jobs[job]);
}

/// Does a round in a child process, and gives what `waitpid` says of its end.
int Supervisor::runChild(const Round& round) {
    mIsReady = false;
    int pipe[2];
    const pid_t parent = getpid();
    const pid_t child = pipe2(pipe, O_CLOEXEC) == 0 ? fork() : -1;
    if (child < 0)
        throw Failure(std::string("can't start a process: ") + std::strerror(errno));
    if (child == 0)
        beChild(round, parent, pipe[1]);
    close(pipe[1]);
    receiveAll(pipe[0], child);
    close(pipe[0]);
    int status = 0;
    if (waitpid(child, &status, 0) != child)
        throw Failure(std::string("can't see how the process that filters ended: ") + std::strerror(errno));
    return status;
}

void Supervisor::beChild(const Round& round, pid_t parent, int pipe) const {
    mSignals.release();
    // Between the fork and this call the parent may be gone already.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent)
        std::_Exit(EXIT_FAILURE);
    EventWriter events(pipe);
    // The parent says in its own words how this process ends.
    std::set_terminate(std::abort);
    try {
        startImageFiles(mSettings.verbose);
        // The loader of GL drivers then finds none. A software driver takes longer to load than a small image to
        // filter, and frames are filtered on the CPU with it too.
        const bool hasGpu = mayHaveGpu();
        if (!hasGpu && mSettings.verbose)
            std::fputs("no GPU: there is no device file of one, such as /dev/dri\n", stderr);
        if (!hasGpu || !mUsesGl)
            setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/dev/null", 1);
        const int standardOutput = takeStandardOutput(mSettings.verbose);
        runPipeline(mRun.jobs, round, mSettings, standardOutput, events);
    } catch (const std::bad_alloc&) {
        events.send({Event::Kind::Stopped, 0, "out of memory"});
    } catch (const std::exception& error) {
        events.send({Event::Kind::Stopped, 0, error.what()});
    }
#ifdef __SANITIZE_ADDRESS__ // looks for leaks in exit
    std::exit(EXIT_SUCCESS);
#else
    // The effect is set down and every file written. The destructors of a GL driver take time, and one that
    // crashed would make a complete run a failed one.
    std::fflush(nullptr);
    std::_Exit(EXIT_SUCCESS);
#endif
}

/// Handles what the child sends, until its end.
void Supervisor::receiveAll(int pipe, pid_t child) {
    EventReader events(pipe);
    constexpr int kPause = 500; // milliseconds
    pollfd inputs[] = {{pipe, POLLIN, 0}, {mSignals.descriptor(), POLLIN, 0}};
    for (;;) {
        const int ready = poll(inputs, 2, kPause);
        if (ready == 0)
            mReport.tick();
        if (ready <= 0)
            continue;
        if (inputs[1].revents != 0)
            endBy(mSignals.take(), child);
        if (inputs[0].revents != 0 && !events.receive())
            return;
        while (const std::optional<Event> event = events.next())
            handle(*event);
    }
}

void Supervisor::handle(const Event& event) {
    Job& job = mRun.jobs[event.job];
    switch (event.kind) {
    case Event::Kind::Ready:
        mIsReady = true;
        break;
    case Event::Kind::Started:
        job.state = Job::State::Started;
        break;
    case Event::Kind::Step:
        mReport.doing(event.text);
        break;
    case Event::Kind::Done:
        job.state = Job::State::Done;
        mReport.done();
        break;
    case Event::Kind::Failed:
        fail(event.job, event.text);
        break;
    case Event::Kind::Note:
        job.notes.push_back(event.text);
        mReport.noted(job);
        break;
    case Event::Kind::Stopped:
        mRun.stopped = event.text;
        break;
    }
}

void Supervisor::endBy(int signal, pid_t child) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    removeHalfWritten();
    mRun.isInterrupted = true;
    mReport.end();
    endBySignal(signal);
}

void Supervisor::removeHalfWritten() const {
    for (const int job : mRun.those(Job::State::Started))
        removeTemporary(mRun.jobs[job].output);
}

std::vector<int> Supervisor::those(const Round& round, Job::State state) const {
    std::vector<int> jobs;
    std::copy_if(round.jobs.begin(), round.jobs.end(), std::back_inserter(jobs),
                 [&](int job) { return mRun.jobs[job].state == state; });
    return jobs;
}

} // namespace

void superviseJobs(Run& run, const Settings& settings, Report& report) {
    Supervisor(run, settings, report).run();
}

} // namespace Tessaloom::BilateralBlur::Program
