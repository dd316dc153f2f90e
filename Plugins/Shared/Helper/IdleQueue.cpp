#include "Plugins/Shared/Helper/IdleQueue.h"

#include "Plugins/Shared/Helper/Semaphore.h"

#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

// Gives the lock back on every way out, that of an exception included.
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
    // Copied ahead of the lock: what the closure holds may use the queue as it is copied.
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
        if (mQueue.empty()) {
            return;
        }
        // Moved, so that nothing of the closure is destroyed under the lock.
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
