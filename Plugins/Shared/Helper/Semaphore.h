#pragma once

#include "Platform/Semaphore.h"

#include <atomic>
#include <cstdint>

namespace Tessaloom::BilateralBlur {

/// A counting semaphore over the platform's. Any number of threads may use it at once; none may be inside an
/// operation when it is destroyed. The platform's result codes are ignored.
class Semaphore {
public:
    /// Starts with the given count: that many waits return at once before one blocks.
    explicit Semaphore(unsigned count);
    virtual ~Semaphore();
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    /// Blocks until the count is above 0 or a signal arrives, and takes one.
    void wait();
    /// Wakes one waiting thread or, if there is none, adds one to the count.
    void signal();
    /// The same `count` times.
    void signal(unsigned count);
    /// Wakes all threads that wait at this moment; the count stays as it is.
    void signalAll();

private:
    semaphore_t mSemaphore = nullptr;
    /// Threads inside wait().
    std::atomic<std::int64_t> mWaiters = 0;
};

} // namespace Tessaloom::BilateralBlur
