#pragma once

#include "Host/Ledger.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace Tessaloom::BilateralBlur::Host {

/// Host memory behind handles. A handle is a number and never comes twice: an effect that takes it for an
/// address, or goes on using it after its end, is found out at once. A handle that this store didn't give
/// out, or a lock too few, is noted in the ledger as a mistake and changes nothing. Any thread may use it.
class HandleStore {
public:
    /// `kind` names the handles in the ledger's texts.
    HandleStore(Ledger& ledger, std::string kind);

    /// A handle on `size` bytes, not initialised; null when memory is exhausted.
    void* make(std::size_t size);

    /// The address of the bytes, null for an unknown handle. Locks are counted.
    void* lock(void* handle);
    void unlock(void* handle);

    /// Frees the memory. To dispose of a locked handle is a mistake, unless `locksEndToo`.
    /// Returns false for an unknown handle.
    bool dispose(void* handle, bool locksEndToo = false);

    /// Frees all memory, whoever still has handles on it.
    void clear();

private:
    struct Block {
        std::unique_ptr<std::byte[]> bytes;
        int locks = 0;
    };

    std::string nameOf(const void* handle) const;
    Block* find(void* handle);

    Ledger& mLedger;
    const std::string mKind;
    std::uintptr_t mHandles = 0; ///< how many were given out
    std::mutex mMutex;
    std::unordered_map<void*, Block> mBlocks;
};

} // namespace Tessaloom::BilateralBlur::Host
