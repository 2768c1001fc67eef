// The HidDevice's growable array of owned sensor objects, on the process heap.
#pragma once

#include <cstddef>

#include "driver/heap.h"

class HidSensor;

class SensorArray {
public:
    SensorArray() = default;
    ~SensorArray() { Clear(); }
    SensorArray(const SensorArray&) = delete;
    SensorArray& operator=(const SensorArray&) = delete;

    // Takes ownership of `sensor`. False when the array cannot grow; the
    // caller still owns the sensor then.
    bool Append(HidSensor* sensor) noexcept;
    // Destroys every sensor, newest last, and frees the storage.
    void Clear() noexcept;

    std::size_t Size() const noexcept { return size_; }
    HidSensor* operator[](std::size_t index) const noexcept { return items_[index]; }

private:
    HidSensor** items_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};
