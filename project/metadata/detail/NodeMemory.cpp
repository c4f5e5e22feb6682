#include "project/metadata/detail/NodeMemory.hpp"

#include <functional>
#include <new>

namespace project::metadata::detail {

MemoryBlock* MemoryBlock::make(std::size_t size) {
    return new (::operator new(sizeof(MemoryBlock) + size)) MemoryBlock(size);
}

void* MemoryBlock::take(std::size_t size) {
    constexpr std::size_t alignment = alignof(void*);
    const std::size_t begin = (used_ + alignment - 1) / alignment * alignment;
    void* part = nullptr;
    if (begin + size <= size_) {
        part = this->begin() + begin;
        used_ = begin + size;
    } else {
        part = ::operator new(size);
        used_ = size_;
    }
    owners_.fetch_add(1, std::memory_order_relaxed);
    return part;
}

void MemoryBlock::giveBack(void* part) noexcept {
    const std::less<void*> before;
    if (before(part, begin()) || !before(part, begin() + size_))
        ::operator delete(part);
    release();
}

void MemoryBlock::release() noexcept {
    if (owners_.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    this->~MemoryBlock();
    ::operator delete(this);
}

std::unique_ptr<Values, ValuesDeleter> Values::make(std::size_t size, MemoryBlock* block) {
    const std::size_t bytes = sizeof(Values) + size * sizeof(std::u16string);
    void* const memory = block ? block->take(bytes) : ::operator new(bytes);
    std::unique_ptr<Values, ValuesDeleter> values(new (memory) Values(size, block));
    std::uninitialized_default_construct_n(values->begin(), size);
    return values;
}

void ValuesDeleter::operator()(Values* values) const noexcept {
    std::destroy_n(values->begin(), values->getSize());
    MemoryBlock* const block = values->block_;
    values->~Values();
    if (block)
        block->giveBack(values);
    else
        ::operator delete(values);
}

}  // namespace project::metadata::detail
