// Memory for one parse: a fixed buffer on the parsing call's stack first,
// then the heap. A short descriptor's parser state and collection models fit
// in the buffer, which saves the dozen or so heap allocations that were most
// of the fixed cost of a parse. What outgrows the buffer comes from the heap
// and goes back there when freed, so a large descriptor needs no more memory
// than with plain vectors (buffer space is only reclaimed as a whole).
#pragma once

#include <cstddef>
#include <memory_resource>
#include <new>
#include <span>

namespace host::hid {

class ParseArena final : public std::pmr::memory_resource {
public:
    explicit ParseArena(std::span<std::byte> buffer) : buffer_(buffer) {}
    ParseArena(const ParseArena&) = delete;
    ParseArena& operator=(const ParseArena&) = delete;

private:
    void* do_allocate(std::size_t bytes, std::size_t alignment) override
    {
        const std::size_t start = (used_ + alignment - 1) & ~(alignment - 1);
        if (start <= buffer_.size() && bytes <= buffer_.size() - start) {
            used_ = start + bytes;
            return buffer_.data() + start;
        }
        if (alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__) return ::operator new(bytes, std::align_val_t{alignment});
        return ::operator new(bytes);
    }

    // Unsized deletes: clang declares the sized ones only with -fsized-deallocation.
    void do_deallocate(void* block, std::size_t, std::size_t alignment) override
    {
        if (InBuffer(block)) return;
        if (alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__)
            ::operator delete(block, std::align_val_t{alignment});
        else
            ::operator delete(block);
    }

    bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override { return this == &other; }

    bool InBuffer(const void* block) const
    {
        const auto* at = static_cast<const std::byte*>(block);
        return !buffer_.empty() && at >= buffer_.data() && at < buffer_.data() + buffer_.size();
    }

    std::span<std::byte> buffer_;
    std::size_t used_ = 0;
};

}  // namespace host::hid
