// The tests' own C++ allocations are neither counted nor failed: where the C++ runtime is linked statically its
// operator new would go through the wrapped malloc and pass for the library's. The sanitizers bring their own
// operators.
#include <cstddef>
#include <new>

#ifndef BRIDGE_SANITIZED

extern "C" void *__real_malloc(size_t size);
extern "C" void __real_free(void *block);

void *operator new(size_t size) {
    void *block = __real_malloc(size != 0 ? size : 1);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void *block) noexcept {
    __real_free(block);
}

void operator delete(void *block, size_t) noexcept {
    __real_free(block);
}

#endif
