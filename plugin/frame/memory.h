// Owning pointers for blocks from malloc. Nothing here throws: running out of memory yields null.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

namespace kv {

struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};

template <typename T>
using Owned = std::unique_ptr<T, FreeBlock>;

// Allocates a zero-filled record, or returns null. Release also frees what the record points to.
template <typename T, typename Release = FreeBlock>
std::unique_ptr<T, Release> allocateRecord() {
    static_assert(std::is_trivial_v<T>, "records are plain C data: zero bytes are their initial state");
    void *record = std::malloc(sizeof(T));  // glibc's calloc does not use its cache of free blocks
    if (record != nullptr) std::memset(record, 0, sizeof(T));
    return std::unique_ptr<T, Release>(static_cast<T *>(record));
}

// Frees the records of a list that are linked by next.
struct FreeLinked {
    template <typename Node>
    void operator()(Node *node) const {
        while (node != nullptr) {
            Node *next = node->next;
            std::free(node);
            node = next;
        }
    }
};

}  // namespace kv
