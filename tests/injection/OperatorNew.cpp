// The program's own operator new, so that it can fail in the product; in a sanitized program too.
#include <cstdlib>
#include <new>

#include "shim/FaultShim.h"

// NOLINTBEGIN(cppcoreguidelines-no-malloc, misc-new-delete-overloads)

void* operator new(std::size_t size) {
    void* const memory = kvfault::NewFails() ? nullptr : kvfault::Allocate(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

// NOLINTEND(cppcoreguidelines-no-malloc, misc-new-delete-overloads)
