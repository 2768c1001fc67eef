#include "hid/sensor_array.h"

#include <cstring>

#include "sensors/hid_sensor.h"

bool SensorArray::Append(HidSensor* sensor) noexcept
{
    if (size_ == capacity_) {
        const std::size_t newCapacity = capacity_ == 0 ? 4 : capacity_ * 2;
        auto* grown = static_cast<HidSensor**>(DriverHeapAlloc(newCapacity * sizeof(HidSensor*)));
        if (grown == nullptr)
            return false;
        if (size_ != 0)
            std::memcpy(grown, items_, size_ * sizeof(HidSensor*));
        DriverHeapFree(items_);
        items_ = grown;
        capacity_ = newCapacity;
    }
    items_[size_++] = sensor;
    return true;
}

void SensorArray::Clear() noexcept
{
    for (std::size_t i = 0; i < size_; ++i)
        delete items_[i];
    DriverHeapFree(items_);
    items_ = nullptr;
    size_ = 0;
    capacity_ = 0;
}
