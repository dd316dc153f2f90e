#include "Plugins/Shared/Helper/Semaphore.h"

namespace Tessaloom::BilateralBlur {

Semaphore::Semaphore(unsigned count) {
    semaphore_create(mach_task_self_, &mSemaphore, SYNC_POLICY_LIFO, count);
}

Semaphore::~Semaphore() {
    semaphore_destroy(mach_task_self_, mSemaphore);
}

void Semaphore::wait() {
    ++mWaiters;
    semaphore_wait(mSemaphore);
    --mWaiters;
}

void Semaphore::signal() {
    semaphore_signal(mSemaphore);
}

void Semaphore::signal(unsigned count) {
    for (unsigned i = 0; i < count; ++i)
        signal();
}

void Semaphore::signalAll() {
    semaphore_signal_all(mSemaphore);
}

} // namespace Tessaloom::BilateralBlur
