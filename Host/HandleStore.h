#pragma once

#include "Host/Ledger.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace Tessaloom::BilateralBlur::Host {

/// Host memory, given out by handles. A handle is a number and is never reused, so dereferencing it, or using
/// it after its end, fails at once. An unknown handle, or an unlock too many, is noted in the ledger as a
/// mistake and changes nothing. Any thread may use it.
///
/// The memory of the last handle that was disposed of is kept for the next handle of the same size: a frame
/// then takes no fresh pages after the first. Any other size frees it.
class HandleStore {
public:
    /// `kind` names the handles in the ledger's texts.
    HandleStore(Ledger& ledger, std::string kind);

    /// A handle for `size` bytes, not initialised; null when memory is exhausted.
    void* make(std::size_t size);

    /// The address of the bytes, null for an unknown handle. Locks are counted.
    void* lock(void* handle);
    void unlock(void* handle);

    /// Ends the handle. If it is locked that is a mistake, unless `locksEndToo`.
    /// Returns false for an unknown handle.
    bool dispose(void* handle, bool locksEndToo = false);

    /// Ends all handles.
    void clear();

private:
    struct Block {
        std::unique_ptr<std::byte[]> bytes{};
        std::size_t size = 0;
        int locks = 0;
    };

    Block blockOf(std::size_t size);
    std::string nameOf(const void* handle) const;
    Block* find(void* handle);

    Ledger& mLedger;
    const std::string mKind;
    std::uintptr_t mHandles = 0; ///< number of handles given out
    std::mutex mMutex;
    std::unordered_map<void*, Block> mBlocks;
    Block mSpare;
};

} // namespace Tessaloom::BilateralBlur::Host
