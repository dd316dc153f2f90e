#pragma once

#include "Platform/MakerProcess.h"

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <vector>

namespace Tessaloom::BilateralBlur {

/// Threads that share out the numbered jobs of one frame and sleep between frames.
///
/// Its own code and not a library's, because a plug-in must leave no threads in its host: those of the
/// parallel libraries live until the process ends, and would run code that the host may have unloaded.
///
/// The threads are made by the constructor and joined by the destructor; no other is made in between. They
/// block all signals. The calling thread works too, so a pool of one has no thread of its own. If the system
/// refuses a thread, the pool continues with those that it got.
///
/// Any thread may call `run`; calls from several threads take their turns. `run` isn't for use from inside a
/// job.
///
/// In a process forked from the one that made the pool there are no such threads, and another thread may have held a
/// lock at the fork. There `run` does all jobs on the calling thread, one call at a time, and the destructor
/// forgets the threads.
class ThreadPool {
public:
    /// @param threads how many threads work on a frame, the caller included; 0 takes what the process may use
    ///                at once, by the calling thread's CPU affinity and the cgroup's quota.
    explicit ThreadPool(unsigned threads = 0);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    /// How many threads work on a frame, the caller included: at least 1.
    unsigned threads() const;

    /// Calls `job(index, worker)` once for each index of 0 to `jobs` - 1, in any order and on any thread, and
    /// returns when all calls have ended. `worker`, 0 to threads() - 1, belongs to one thread for the length
    /// of the run: it can choose a thread's own scratch memory.
    ///
    /// An exception thrown by a job reaches the caller after the run; jobs not yet begun are left out then.
    void run(std::size_t jobs, const std::function<void(std::size_t index, unsigned worker)>& job);

    /// Memory of the worker's own for the length of a job, aligned to a cache line, its content undefined. It
    /// is kept for later jobs and freed with the pool; asking for more bytes than before moves it. For use by
    /// the job that was given `worker`. Throws std::bad_alloc.
    void* scratch(unsigned worker, std::size_t bytes);

private:
    struct Scratch {
        struct Free {
            void operator()(void* memory) const;
        };
        std::unique_ptr<void, Free> memory;
        std::size_t bytes = 0;
    };

    struct Crew;

    const MakerProcess mMaker;
    std::vector<Scratch> mScratch; // by worker, each used by its own thread
    std::unique_ptr<Crew> mCrew;
};

} // namespace Tessaloom::BilateralBlur
