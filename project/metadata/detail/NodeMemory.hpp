/// Memory for the nodes of a file, which come in great numbers and mostly go together.
///
/// One thread at a time may take memory of a block; what was taken may be given back on any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "project/metadata/MetadataNodeSpecification.hpp"

namespace project::metadata::detail {

/// Memory that is taken in parts, one behind the other. It lives until its maker has released it and the last part has
/// been given back: a node that is kept longer than its tree keeps its block.
class MemoryBlock {
public:
    /// @throws std::bad_alloc
    static MemoryBlock* make(std::size_t size);

    std::size_t getSize() const noexcept { return size_; }
    bool isFull() const noexcept { return used_ >= size_; }

    /// @return memory for `size` bytes, from the heap if there is not enough left here; aligned for pointers
    /// @throws std::bad_alloc
    void* take(std::size_t size);

    void giveBack(void* part) noexcept;
    void release() noexcept;

private:
    explicit MemoryBlock(std::size_t size) noexcept : size_(size) {}

    std::byte* begin() noexcept { return reinterpret_cast<std::byte*>(this + 1); }

    std::size_t size_;
    std::size_t used_ = 0;
    std::atomic<std::size_t> owners_ = 1;  ///< the maker and the parts
};

/// Lets the standard library put its objects into a block, or on the heap where there is none.
template <class T>
class BlockAllocator {
public:
    using value_type = T;

    explicit BlockAllocator(MemoryBlock* block) noexcept : block_(block) {}
    template <class Other>
    BlockAllocator(const BlockAllocator<Other>& other) noexcept : block_(other.getBlock()) {}

    T* allocate(std::size_t count) {
        static_assert(alignof(T) <= alignof(void*));
        return static_cast<T*>(block_ ? block_->take(count * sizeof(T)) : ::operator new(count * sizeof(T)));
    }
    void deallocate(T* part, std::size_t /*count*/) noexcept {
        if (block_)
            block_->giveBack(part);
        else
            ::operator delete(part);
    }

    MemoryBlock* getBlock() const noexcept { return block_; }

    friend bool operator==(const BlockAllocator& a, const BlockAllocator& b) noexcept { return a.block_ == b.block_; }
    friend bool operator!=(const BlockAllocator& a, const BlockAllocator& b) noexcept { return a.block_ != b.block_; }

private:
    MemoryBlock* block_;
};

/// A fixed number of texts that never move, behind this head.
class Values {
public:
    /// @param block where to take the memory; null: from the heap
    /// @return `size` empty texts
    /// @throws std::bad_alloc
    static std::unique_ptr<Values, ValuesDeleter> make(std::size_t size, MemoryBlock* block);

    std::size_t getSize() const noexcept { return size_; }
    std::u16string* begin() noexcept { return reinterpret_cast<std::u16string*>(this + 1); }

private:
    friend struct ValuesDeleter;

    Values(std::size_t size, MemoryBlock* block) noexcept : size_(size), block_(block) {}

    std::size_t size_;
    MemoryBlock* block_;
};

}  // namespace project::metadata::detail
