#pragma once

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Tessaloom::BilateralBlur {

/// A new directory, gone with this object.
class Directory {
public:
    Directory() {
        std::string name = (std::filesystem::temp_directory_path() / "blur_test.XXXXXX").string();
        mPath = mkdtemp(name.data());
    }
    ~Directory() { std::filesystem::remove_all(mPath); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    std::string operator/(const std::string& name) const { return (mPath / name).string(); }

    /// Sorted names of all that is in it, hidden files too.
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(mPath))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::filesystem::path mPath;
};

inline std::string contents(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// How a process ended.
struct Outcome {
    int exitCode; ///< negative: the signal that ended it
    std::string out, err;
    long peakMiB; ///< of memory; of the largest process where there were several
};

/// A program at work in a process of its own, with nothing to read on standard input.
class ProcessRun {
public:
    /// `command` begins with the program's file. `inChild` runs in the new process before the program starts,
    /// to set limits and the like.
    explicit ProcessRun(
        std::vector<std::string> command, const std::function<void()>& inChild = [] {}) {
        std::vector<char*> argv;
        for (std::string& argument : command)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        const std::string out = mOutputs / "out", err = mOutputs / "err";
        mProcess = fork();
        if (mProcess > 0)
            setpgid(mProcess, mProcess);
        if (mProcess == 0) {
            setpgid(0, 0); // with all that it starts
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
            dup2(open(out.c_str(), O_WRONLY | O_CREAT, 0666), STDOUT_FILENO);
            dup2(open(err.c_str(), O_WRONLY | O_CREAT, 0666), STDERR_FILENO);
            inChild();
            execv(argv[0], argv.data());
            _exit(127);
        }
    }

    /// A test that fails before it has waited leaves no process behind.
    ~ProcessRun() {
        if (mProcess > 0) {
            kill(-mProcess, SIGKILL);
            waitpid(mProcess, nullptr, 0);
        }
    }
    ProcessRun(const ProcessRun&) = delete;
    ProcessRun& operator=(const ProcessRun&) = delete;

    /// A child of the process; 0 where it has none.
    pid_t child() const {
        const std::string process = std::to_string(mProcess);
        return std::atoi(contents("/proc/" + process + "/task/" + process + "/children").c_str());
    }

    void send(int signal) const { kill(mProcess, signal); }

    Outcome wait() {
        int status = 0;
        rusage usage{};
        wait4(std::exchange(mProcess, 0), &status, 0, &usage);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), contents(mOutputs / "out"),
                contents(mOutputs / "err"), usage.ru_maxrss / 1024};
    }

private:
    Directory mOutputs;
    pid_t mProcess = 0;
};

} // namespace Tessaloom::BilateralBlur
