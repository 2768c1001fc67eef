// Every allocation the driver makes goes through the process heap, so that the
// host can account for it and make it fail. Nothing here throws: a failed
// allocation is a null pointer or a false result that the caller turns into
// STATUS_NO_MEMORY where the object is created.
#pragma once

#include <cstddef>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "platform/system.h"

inline void* DriverHeapAlloc(std::size_t bytes) noexcept
{
    return HeapAlloc(GetProcessHeap(), 0, bytes);
}

inline void* DriverHeapAllocZeroed(std::size_t bytes) noexcept
{
    return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes);
}

inline void DriverHeapFree(void* block) noexcept
{
    if (block != nullptr)
        HeapFree(GetProcessHeap(), 0, block);
}

// Base of every class the driver creates with new. Only the nothrow form of
// new exists, so a creation site cannot forget that allocation may fail.
// Constructors that allocate a state block of their own report a failure
// through IsValid() of their class; the creation site checks it and deletes
// the half-built object.
class HeapObject {
public:
    static void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
    {
        return DriverHeapAlloc(bytes);
    }
    static void operator delete(void* block) noexcept { DriverHeapFree(block); }
    static void operator delete(void* block, const std::nothrow_t&) noexcept
    {
        DriverHeapFree(block);
    }

protected:
    HeapObject() = default;
    ~HeapObject() = default;
};

// An owned, fixed-size array of plain data on the process heap.
template <class T>
class HeapArray {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                  "HeapArray holds plain data only");

public:
    HeapArray() = default;
    ~HeapArray() { Reset(); }
    HeapArray(const HeapArray&) = delete;
    HeapArray& operator=(const HeapArray&) = delete;
    HeapArray(HeapArray&& other) noexcept : data_(other.data_), count_(other.count_)
    {
        other.data_ = nullptr;
        other.count_ = 0;
    }
    HeapArray& operator=(HeapArray&& other) noexcept
    {
        if (this != &other) {
            Reset();
            data_ = other.data_;
            count_ = other.count_;
            other.data_ = nullptr;
            other.count_ = 0;
        }
        return *this;
    }

    // Replaces the contents with `count` zeroed elements. False (and empty)
    // when the heap refuses or the byte count would overflow. A count of 0
    // succeeds with no storage.
    bool AllocateZeroed(std::size_t count) noexcept
    {
        Reset();
        if (count == 0)
            return true;
        if (count > std::numeric_limits<std::size_t>::max() / sizeof(T))
            return false;
        void* block = DriverHeapAlloc(count * sizeof(T));
        if (block == nullptr)
            return false;
        std::memset(block, 0, count * sizeof(T));
        data_ = static_cast<T*>(block);
        count_ = count;
        return true;
    }

    void Reset() noexcept
    {
        DriverHeapFree(data_);
        data_ = nullptr;
        count_ = 0;
    }

    T* Get() const noexcept { return data_; }
    std::size_t Count() const noexcept { return count_; }
    std::size_t Bytes() const noexcept { return count_ * sizeof(T); }
    bool Empty() const noexcept { return data_ == nullptr; }
    T& operator[](std::size_t index) const noexcept { return data_[index]; }

private:
    T* data_ = nullptr;
    std::size_t count_ = 0;
};
