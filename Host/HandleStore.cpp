#include "Host/HandleStore.h"

#include <new>
#include <utility>

namespace Tessaloom::BilateralBlur::Host {

HandleStore::HandleStore(Ledger& ledger, std::string kind) : mLedger(ledger), mKind(std::move(kind)) {}

std::string HandleStore::nameOf(const void* handle) const {
    return mKind + " " + std::to_string(reinterpret_cast<std::uintptr_t>(handle));
}

HandleStore::Block* HandleStore::find(void* handle) {
    const auto found = mBlocks.find(handle);
    if (found != mBlocks.end())
        return &found->second;
    mLedger.noteMistake(nameOf(handle) + " is unknown");
    return nullptr;
}

HandleStore::Block HandleStore::blockOf(std::size_t size) {
    Block spare = std::exchange(mSpare, {});
    if (spare.bytes && spare.size == size)
        return spare;
    // Before the new memory is taken, so that the two don't add up.
    spare.bytes.reset();
    return {std::unique_ptr<std::byte[]>(new std::byte[size]), size};
}

void* HandleStore::make(std::size_t size) {
    const std::lock_guard lock(mMutex);
    try {
        void* handle = reinterpret_cast<void*>(mHandles + 1);
        mBlocks.emplace(handle, blockOf(size));
        mLedger.acquire(nameOf(handle));
        ++mHandles;
        return handle;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* HandleStore::lock(void* handle) {
    const std::lock_guard lock(mMutex);
    Block* block = find(handle);
    if (!block)
        return nullptr;
    ++block->locks;
    return block->bytes.get();
}

void HandleStore::unlock(void* handle) {
    const std::lock_guard lock(mMutex);
    Block* block = find(handle);
    if (!block)
        return;
    if (block->locks == 0)
        mLedger.noteMistake(nameOf(handle) + " was unlocked more often than locked");
    else
        --block->locks;
}

bool HandleStore::dispose(void* handle, bool locksEndToo) {
    const std::lock_guard lock(mMutex);
    Block* block = find(handle);
    if (!block)
        return false;
    if (block->locks > 0 && !locksEndToo)
        mLedger.noteMistake(nameOf(handle) + " was still locked when it was disposed of");
    mSpare = {std::move(block->bytes), block->size};
    mBlocks.erase(handle);
    mLedger.release(nameOf(handle));
    return true;
}

void HandleStore::clear() {
    const std::lock_guard lock(mMutex);
    mBlocks.clear();
}

} // namespace Tessaloom::BilateralBlur::Host
