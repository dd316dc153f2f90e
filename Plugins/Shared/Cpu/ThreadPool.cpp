#include "Plugins/Shared/Cpu/ThreadPool.h"

#include "Platform/SignalsBlocked.h"
#include "Platform/UsableCpus.h"

#include <new>
#include <system_error>
#include <utility>

namespace Tessaloom::BilateralBlur {
namespace {

constexpr std::align_val_t kCacheLine{64};

} // namespace

ThreadPool::ThreadPool(unsigned threads) {
    if (threads == 0)
        threads = usableCpus();
    mScratch.resize(threads);
    mThreads.reserve(threads - 1);
    const SignalsBlocked blocked;
    try {
        for (unsigned worker = 1; worker < threads; ++worker)
            mThreads.emplace_back([this, worker] { serve(worker); });
    } catch (const std::system_error&) {
        // Fewer threads only make a frame slower.
    } catch (...) {
        stop();
        throw;
    }
}

ThreadPool::~ThreadPool() {
    stop();
}

void ThreadPool::stop() {
    {
        const std::lock_guard lock(mMutex);
        mStopping = true;
    }
    mFrameBegun.notify_all();
    for (std::thread& thread : mThreads)
        thread.join();
}

void ThreadPool::run(std::size_t jobs, const std::function<void(std::size_t, unsigned)>& job) {
    const std::lock_guard turn(mTurn);
    std::unique_lock lock(mMutex);
    mJob = &job;
    mNext = 0;
    mJobs = jobs;
    // A single job is the caller's: waking a thread costs more than it could take over.
    if (jobs > 1)
        mFrameBegun.notify_all();
    takeJobs(lock, 0);
    mFrameEnded.wait(lock, [this] { return mBusy == 0; });
    mJob = nullptr;
    if (mFailure)
        std::rethrow_exception(std::exchange(mFailure, nullptr));
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

void ThreadPool::serve(unsigned worker) {
    std::unique_lock lock(mMutex);
    while (true) {
        mFrameBegun.wait(lock, [this] { return mStopping || mNext < mJobs; });
        if (mStopping)
            return;
        ++mBusy;
        takeJobs(lock, worker);
        if (--mBusy == 0)
            mFrameEnded.notify_one();
    }
}

void ThreadPool::takeJobs(std::unique_lock<std::mutex>& lock, unsigned worker) {
    while (mNext < mJobs) {
        const std::size_t index = mNext++;
        lock.unlock();
        std::exception_ptr failure;
        try {
            (*mJob)(index, worker);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        if (failure) {
            mFailure = failure;
            mNext = mJobs;
        }
    }
}

} // namespace Tessaloom::BilateralBlur
