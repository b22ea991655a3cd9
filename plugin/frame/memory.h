// Owning pointers for blocks that free() releases. Nothing here throws: running out of memory yields null.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <type_traits>

namespace kv {

struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};

template <typename T>
using Owned = std::unique_ptr<T, FreeBlock>;

// A zero-filled record from the heap, or null.
template <typename T>
Owned<T> allocateRecord() {
    static_assert(std::is_trivial_v<T>, "records are plain C data: zero bytes are their initial state");
    return Owned<T>(static_cast<T *>(std::calloc(1, sizeof(T))));
}

// count zero-filled bytes from the heap, or null.
inline Owned<uint8_t[]> allocateBytes(size_t count) {
    return Owned<uint8_t[]>(static_cast<uint8_t *>(std::calloc(count, 1)));
}

}  // namespace kv
