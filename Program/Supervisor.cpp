#include "Program/Supervisor.h"

#include "Platform/EndingSignals.h"
#include "Program/Errors.h"
#include "Program/Events.h"
#include "Program/Files/ImageLibrary.h"
#include "Program/OutputFile.h"
#include "Program/Sequence.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <iterator>
#include <new>
#include <numeric>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

class Supervisor {
public:
    Supervisor(const std::vector<Job>& jobs, const Settings& settings, Report& report)
        : mJobs(jobs), mSettings(settings), mReport(report), mStates(jobs.size(), State::Waiting) {}

    void run();

private:
    enum class State : char { Waiting, Started, Finished };
    using Round = std::vector<int>; ///< indices of jobs

    int runChild(const Round& round);
    [[noreturn]] void beChild(const Round& round, pid_t parent, int pipe) const;
    void receiveAll(int pipe, pid_t child);
    void handle(const Event& event);
    [[noreturn]] void endBy(int signal, pid_t child);
    void removeHalfWritten() const;
    void retry(const Round& round, const std::string& cause);
    Round those(const Round& round, State state) const;
    std::string remaining() const;

    const std::vector<Job>& mJobs;
    const Settings& mSettings;
    Report& mReport;
    std::vector<State> mStates;
    std::deque<Round> mRounds;
    std::string mStopped; ///< why nothing more can be done
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

void Supervisor::run() {
    Round all(mJobs.size());
    std::iota(all.begin(), all.end(), 0);
    mRounds.push_back(std::move(all));
    while (!mRounds.empty() && mStopped.empty()) {
        const Round round = std::move(mRounds.front());
        mRounds.pop_front();
        const std::string cause = causeOf(runChild(round));
        if (!cause.empty())
            retry(round, cause);
    }
    if (mStopped.empty())
        mReport.finish();
    else
        mReport.stopped(mStopped, remaining());
}

/// Plans what a child left that died.
void Supervisor::retry(const Round& round, const std::string& cause) {
    const Round suspects = those(round, State::Started);
    removeHalfWritten();
    if (suspects.empty()) {
        mStopped = cause;
    } else if (round.size() == 1) {
        mStates[round.front()] = State::Finished;
        mReport.framesFailed(mJobs[round.front()].input.string() + ": " + cause);
    } else {
        if (Round rest = those(round, State::Waiting); !rest.empty())
            mRounds.push_front(std::move(rest));
        for (const int suspect : suspects) {
            mStates[suspect] = State::Waiting;
            mRounds.push_front({suspect});
        }
    }
}

/// Does a round in a child process, and gives what `waitpid` says of its end.
int Supervisor::runChild(const Round& round) {
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
    waitpid(child, &status, 0);
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
        // The effect does without GL where there is none.
        if (!mSettings.verbose)
            setenv("EGL_LOG_LEVEL", "fatal", 0);
        // The module prints what it runs on, and standard output may be the image's.
        const int standardOutput = dup(STDOUT_FILENO);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        if (!mSettings.verbose)
            std::cout.rdbuf(nullptr);
        runPipeline(mJobs, round, mSettings, standardOutput, events);
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
    pollfd inputs[] = {{pipe, POLLIN, 0}, {mSignals.descriptor(), POLLIN, 0}};
    for (;;) {
        if (poll(inputs, 2, -1) < 0)
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
    switch (event.kind) {
    case Event::Kind::Started:
        mStates[event.frame] = State::Started;
        break;
    case Event::Kind::Done:
        mStates[event.frame] = State::Finished;
        mReport.frameDone();
        break;
    case Event::Kind::Failed:
        mStates[event.frame] = State::Finished;
        mReport.framesFailed(event.text);
        break;
    case Event::Kind::Note:
        mReport.note(mJobs[event.frame].input.string(), event.text);
        break;
    case Event::Kind::Stopped:
        mStopped = event.text;
        break;
    }
}

void Supervisor::endBy(int signal, pid_t child) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    removeHalfWritten();
    mReport.interrupted();
    endBySignal(signal);
}

void Supervisor::removeHalfWritten() const {
    for (std::size_t i = 0; i < mJobs.size(); ++i)
        if (mStates[i] == State::Started)
            removeTemporary(mJobs[i].output);
}

Supervisor::Round Supervisor::those(const Round& round, State state) const {
    Round jobs;
    std::copy_if(round.begin(), round.end(), std::back_inserter(jobs),
                 [&](int job) { return mStates[job] == state; });
    return jobs;
}

/// The frames that nothing came of, as --frames takes them.
std::string Supervisor::remaining() const {
    std::vector<int> frames;
    for (std::size_t i = 0; i < mJobs.size(); ++i)
        if (mStates[i] != State::Finished)
            frames.push_back(mJobs[i].frame);
    return framesText(frames);
}

} // namespace

void superviseJobs(const std::vector<Job>& jobs, const Settings& settings, Report& report) {
    Supervisor(jobs, settings, report).run();
}

} // namespace Tessaloom::BilateralBlur::Program
