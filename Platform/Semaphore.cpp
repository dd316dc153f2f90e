#include "Platform/Semaphore.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>

namespace {

// One blocked thread, on that thread's stack.
struct Waiter {
    std::condition_variable wake;
    bool released = false;
    Waiter* earlier = nullptr;
};

} // namespace

// A signal is handed directly to one blocked thread and doesn't go through the count: a thread that arrives
// after the signal can't take it, and waking all reaches exactly those that are blocked.
struct PlatformSemaphore {
    std::mutex lock;
    std::uint64_t count = 0;
    Waiter* latest = nullptr;

    // The lock must be held, also past the notification: the waiter is gone as soon as it gets the lock.
    void releaseLatest() {
        Waiter& waiter = *latest;
        latest = waiter.earlier;
        waiter.released = true;
        waiter.wake.notify_one();
    }
};

kern_return_t semaphore_create(task_t, semaphore_t* semaphore, int policy, unsigned value) {
    *semaphore = nullptr;
    if (policy != SYNC_POLICY_LIFO)
        return KERN_INVALID_ARGUMENT;
    *semaphore = new (std::nothrow) PlatformSemaphore;
    if (!*semaphore)
        return KERN_RESOURCE_SHORTAGE;
    (*semaphore)->count = value;
    return KERN_SUCCESS;
}

kern_return_t semaphore_destroy(task_t, semaphore_t semaphore) {
    delete semaphore;
    return !semaphore ? KERN_INVALID_ARGUMENT : KERN_SUCCESS;
}

kern_return_t semaphore_wait(semaphore_t semaphore) {
    if (!semaphore)
        return KERN_INVALID_ARGUMENT;
    std::unique_lock hold(semaphore->lock);
    if (semaphore->count > 0) {
        --semaphore->count;
        return KERN_SUCCESS;
    }
    Waiter self;
    self.earlier = semaphore->latest;
    semaphore->latest = &self;
    self.wake.wait(hold, [&self] { return self.released; });
    return KERN_SUCCESS;
}

kern_return_t semaphore_signal(semaphore_t semaphore) {
    if (!semaphore)
        return KERN_INVALID_ARGUMENT;
    const std::lock_guard hold(semaphore->lock);
    if (semaphore->latest)
        semaphore->releaseLatest();
    else
        ++semaphore->count;
    return KERN_SUCCESS;
}

kern_return_t semaphore_signal_all(semaphore_t semaphore) {
    if (!semaphore)
        return KERN_INVALID_ARGUMENT;
    const std::lock_guard hold(semaphore->lock);
    while (semaphore->latest)
        semaphore->releaseLatest();
    return KERN_SUCCESS;
}
