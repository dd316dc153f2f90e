#include "Tests/Support/AllocationLimit.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace Tessaloom::BilateralBlur::AllocationLimit {

std::atomic<std::size_t> largest{SIZE_MAX};

namespace {

void* allocate(std::size_t size, std::size_t alignment) {
    if (size > largest)
        return nullptr;
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* orThrow(void* memory) {
    return memory ? memory : throw std::bad_alloc();
}

} // namespace

} // namespace Tessaloom::BilateralBlur::AllocationLimit

using namespace Tessaloom::BilateralBlur::AllocationLimit;

// A program's own functions come before those of its libraries, for the libraries and modules as well.
#pragma GCC visibility push(default)

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size) {
    return orThrow(allocate(size, alignof(std::max_align_t)));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return orThrow(allocate(size, static_cast<std::size_t>(alignment)));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}

#pragma GCC visibility pop
