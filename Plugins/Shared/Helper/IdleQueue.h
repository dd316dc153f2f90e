#pragma once

#include <deque>
#include <functional>

namespace Tessaloom::BilateralBlur {

class Semaphore;

/// A first-in, first-out queue of deferred closures. Any number of threads may post and run work at the same
/// time. clearAsyncQueue and the destructor take no lock: no other thread may be using the queue then.
class IdleQueue {
public:
    IdleQueue();
    /// Destroys pending closures without running them.
    virtual ~IdleQueue();
    IdleQueue(const IdleQueue&) = delete;
    IdleQueue& operator=(const IdleQueue&) = delete;

    /// Appends a copy of the closure.
    void async(const std::function<void()>& closure);
    /// Whether a closure is pending; one that is running doesn't count.
    bool hasTask();
    /// Takes the oldest closure, if any, off the queue and runs it. No lock is held meanwhile, so it may use
    /// the queue itself. Exceptions pass to the caller, std::bad_function_call of an empty closure included.
    void updateQueue();
    /// Destroys all pending closures without running them.
    void clearAsyncQueue();

private:
    /// Starts with the count 1 and so works as a mutex. Owned.
    Semaphore* mLock;
    /// The oldest closure is at the front.
    std::deque<std::function<void()>> mQueue;
};

} // namespace Tessaloom::BilateralBlur
