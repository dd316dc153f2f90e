#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

namespace Tessaloom::BilateralBlur::Program {

/// The memory that the images on their way may need together.
class Budget {
public:
    /// A part of the budget, given back when it is destroyed; before the budget.
    using Share = std::shared_ptr<void>;

    explicit Budget(std::uint64_t bytes) : mBytes(bytes) {}

    /// Waits until `bytes` are left, or nothing is taken: an image too large for the budget is alone.
    Share take(std::uint64_t bytes) {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [&] { return mShares == 0 || mTaken + bytes <= mBytes || mIsClosed; });
        mTaken += bytes;
        ++mShares;
        return Share(this, [bytes](void* budget) { static_cast<Budget*>(budget)->giveBack(bytes); });
    }

    /// Nobody waits any more.
    void close() {
        const std::lock_guard lock(mMutex);
        mIsClosed = true;
        mChanged.notify_all();
    }

private:
    void giveBack(std::uint64_t bytes) {
        const std::lock_guard lock(mMutex);
        mTaken -= bytes;
        --mShares;
        mChanged.notify_all();
    }

    const std::uint64_t mBytes;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::uint64_t mTaken = 0;
    int mShares = 0;
    bool mIsClosed = false;
};

} // namespace Tessaloom::BilateralBlur::Program
