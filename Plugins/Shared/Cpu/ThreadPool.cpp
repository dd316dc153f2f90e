#include "Plugins/Shared/Cpu/ThreadPool.h"

#include "Platform/SignalsBlocked.h"
#include "Platform/UsableCpus.h"

#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace Tessaloom::BilateralBlur {
namespace {

constexpr std::align_val_t kCacheLine{64};

} // namespace

/// The threads, and what they share with the callers.
struct ThreadPool::Crew {
    ~Crew();
    void start(unsigned threads);
    void run(std::size_t jobs, const std::function<void(std::size_t, unsigned)>& job);
    void serve(unsigned worker);
    void takeJobs(std::unique_lock<std::mutex>& lock, unsigned worker);

    std::mutex turn;  // held for the length of a run
    std::mutex mutex; // guards everything below but the threads
    std::condition_variable frameBegun;
    std::condition_variable frameEnded;
    const std::function<void(std::size_t, unsigned)>* job = nullptr;
    std::size_t next = 0;
    std::size_t jobs = 0;
    unsigned busy = 0; // pool threads that take jobs now
    bool stopping = false;
    std::exception_ptr failure;
    std::vector<std::thread> threads;
};

void ThreadPool::Crew::start(unsigned count) {
    threads.reserve(count - 1);
    const SignalsBlocked blocked;
    try {
        for (unsigned worker = 1; worker < count; ++worker)
            threads.emplace_back([this, worker] { serve(worker); });
    } catch (const std::system_error&) {
        // Fewer threads only make a frame slower.
    }
}

ThreadPool::Crew::~Crew() {
    {
        const std::lock_guard lock(mutex);
        stopping = true;
    }
    frameBegun.notify_all();
    for (std::thread& thread : threads)
        thread.join();
}

void ThreadPool::Crew::run(std::size_t count, const std::function<void(std::size_t, unsigned)>& function) {
    const std::lock_guard turnLock(turn);
    std::unique_lock lock(mutex);
    job = &function;
    next = 0;
    jobs = count;
    // A single job is the caller's: waking a thread costs more than it could take over.
    if (jobs > 1)
        frameBegun.notify_all();
    takeJobs(lock, 0);
    frameEnded.wait(lock, [this] { return busy == 0; });
    job = nullptr;
    if (failure)
        std::rethrow_exception(std::exchange(failure, nullptr));
}

void ThreadPool::Crew::serve(unsigned worker) {
    std::unique_lock lock(mutex);
    while (true) {
        frameBegun.wait(lock, [this] { return stopping || next < jobs; });
        if (stopping)
            return;
        ++busy;
        takeJobs(lock, worker);
        if (--busy == 0)
            frameEnded.notify_one();
    }
}

void ThreadPool::Crew::takeJobs(std::unique_lock<std::mutex>& lock, unsigned worker) {
    while (next < jobs) {
        const std::size_t index = next++;
        lock.unlock();
        std::exception_ptr caught;
        try {
            (*job)(index, worker);
        } catch (...) {
            caught = std::current_exception();
        }
        lock.lock();
        if (caught) {
            failure = caught;
            next = jobs;
        }
    }
}

ThreadPool::ThreadPool(unsigned threads)
    : mScratch(threads ? threads : usableCpus()), mCrew(std::make_unique<Crew>()) {
    mCrew->start(static_cast<unsigned>(mScratch.size()));
}

ThreadPool::~ThreadPool() {
    if (!mMaker.isThisOne())
        static_cast<void>(mCrew.release());
}

unsigned ThreadPool::threads() const {
    return mMaker.isThisOne() ? static_cast<unsigned>(mCrew->threads.size()) + 1 : 1;
}

void ThreadPool::run(std::size_t jobs, const std::function<void(std::size_t, unsigned)>& job) {
    if (mMaker.isThisOne())
        return mCrew->run(jobs, job);
    for (std::size_t index = 0; index < jobs; ++index)
        job(index, 0);
}

void* ThreadPool::scratch(unsigned worker, std::size_t bytes) {
    Scratch& scratch = mScratch[worker];
    if (scratch.bytes < bytes) {
        scratch.memory.reset(::operator new(bytes, kCacheLine));
        scratch.bytes = bytes;
    }
    return scratch.memory.get();
}

void ThreadPool::Scratch::Free::operator()(void* memory) const {
    ::operator delete(memory, kCacheLine);
}

} // namespace Tessaloom::BilateralBlur
