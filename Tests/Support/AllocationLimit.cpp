#include "Tests/Support/AllocationLimit.h"

#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <link.h>
#include <new>
#include <string_view>

namespace Tessaloom::BilateralBlur::AllocationLimit {

std::atomic<std::size_t> largest{SIZE_MAX};
constinit thread_local int left = kUnlimited;

namespace {

bool mayFail(void* caller) {
    dl_find_object found{};
    if (_dl_find_object(caller, &found) != 0)
        return false;
    const std::string_view file = found.dlfo_link_map->l_name; // empty for the program
    return file.empty() || file.find("libglbinding.so") != file.npos;
}

void* allocate(std::size_t size, std::size_t alignment, void* caller) {
    const bool isCounted = left != kUnlimited && mayFail(caller);
    if (size > largest || (isCounted && left-- <= 0))
        return nullptr;
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::AllocationLimit

using Tessaloom::BilateralBlur::AllocationLimit::allocate;

// A program's own functions come before those of its libraries, for the libraries and modules as well.
#pragma GCC visibility push(default)

// Not inlined, or their caller would be another.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, alignof(std::max_align_t), __builtin_return_address(0));
}
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const memory = allocate(size, alignof(std::max_align_t), __builtin_return_address(0));
    return memory ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
    void* const memory = allocate(size, static_cast<std::size_t>(alignment), __builtin_return_address(0));
    return memory ? memory : throw std::bad_alloc();
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
