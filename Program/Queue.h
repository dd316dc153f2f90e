#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

/// A bounded queue between threads. Own code, since the standard library has none and what Debian offers
/// brings a scheduler of its own.
template<class Value>
class Queue {
public:
    explicit Queue(std::size_t capacity) : mCapacity(capacity) {}

    /// Waits until there is room or the queue is closed. Still true afterwards if this thread is the only
    /// producer.
    void waitForRoom() {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [this] { return hasRoom(); });
    }

    /// Waits until there is room. On a closed queue the value is dropped.
    void push(Value value) {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [this] { return hasRoom(); });
        if (mIsClosed)
            return;
        mValues.push_back(std::move(value));
        mChanged.notify_all();
    }

    /// Waits for a value; nothing when the queue is closed and empty.
    std::optional<Value> pop() {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [this] { return !mValues.empty() || mIsClosed; });
        return takeFirst();
    }

    /// A value if there is one.
    std::optional<Value> tryPop() {
        const std::lock_guard lock(mMutex);
        return takeFirst();
    }

    /// Ends the queue, from either side: consumers get what is in it, producers don't wait any more.
    void close() {
        const std::lock_guard lock(mMutex);
        mIsClosed = true;
        mChanged.notify_all();
    }

private:
    bool hasRoom() const { return mValues.size() < mCapacity || mIsClosed; }

    std::optional<Value> takeFirst() {
        if (mValues.empty())
            return std::nullopt;
        std::optional<Value> value(std::move(mValues.front()));
        mValues.pop_front();
        mChanged.notify_all();
        return value;
    }

    const std::size_t mCapacity;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::deque<Value> mValues;
    bool mIsClosed = false;
};

} // namespace Tessaloom::BilateralBlur::Program
