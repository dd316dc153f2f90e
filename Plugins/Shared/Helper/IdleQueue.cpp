#include "Plugins/Shared/Helper/IdleQueue.h"

#include "Plugins/Shared/Helper/Semaphore.h"

#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

// Releases the lock also when an exception passes.
class Hold {
public:
    explicit Hold(Semaphore& lock) : mLock(lock) { mLock.wait(); }
    ~Hold() { mLock.signal(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

private:
    Semaphore& mLock;
};

} // namespace

IdleQueue::IdleQueue() : mLock(new Semaphore(1)) {}

IdleQueue::~IdleQueue() {
    delete mLock;
}

void IdleQueue::async(const std::function<void()>& closure) {
    // Copied before the lock is taken: the copying may itself use the queue.
    std::function<void()> copy = closure;
    const Hold hold(*mLock);
    mQueue.push_back(std::move(copy));
}

bool IdleQueue::hasTask() {
    const Hold hold(*mLock);
    return !mQueue.empty();
}

void IdleQueue::updateQueue() {
    std::function<void()> closure;
    {
        // The test and the pop under one hold, or a second consumer could empty the queue in between.
        const Hold hold(*mLock);
        if (mQueue.empty())
            return;
        // Moved, so that no part of the closure is destroyed under the lock.
        closure = std::move(mQueue.front());
        mQueue.pop_front();
    }
    closure();
}

void IdleQueue::clearAsyncQueue() {
    std::deque<std::function<void()>> dropped;
    dropped.swap(mQueue);
}

} // namespace Tessaloom::BilateralBlur
