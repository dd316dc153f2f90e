#pragma once

#include <deque>
#include <functional>

namespace Tessaloom::BilateralBlur {

class Semaphore;

/// A first-in, first-out queue of deferred closures. Any number of threads may post work and run it at once,
/// several consumers included. clearAsyncQueue and the destructor take no lock: no other thread may be using
/// the queue then.
class IdleQueue {
public:
    IdleQueue();
    /// Destroys pending closures without running them.
    virtual ~IdleQueue();
    IdleQueue(const IdleQueue&) = delete;
    IdleQueue& operator=(const IdleQueue&) = delete;

    /// Appends a copy of the closure.
    void async(const std::function<void()>& closure);
    /// Whether a closure is pending at this moment; one that is being run is not.
    bool hasTask();
    /// Runs the oldest closure, if any, without holding the lock, so that it may use the queue itself. What
    /// it throws passes out, std::bad_function_call of an empty closure included; it has left the queue by
    /// then.
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
