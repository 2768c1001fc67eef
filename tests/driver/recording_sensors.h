// Test-only sensor classes: each real class, plus a record of the input
// reports routed to it. A factory built on them lets discovery create objects
// of the right classes that tests can observe.
#pragma once

#include <cstdint>
#include <mutex>
#include <typeinfo>
#include <utility>
#include <vector>

#include "activity/activity_sensor.h"
#include "hid/sensor_factory.h"
#include "orientation/relative_orientation_sensor.h"
#include "orientation/simple_device_orientation_sensor.h"
#include "pedometer/pedometer_sensor.h"
#include "sensors/custom_sensor.h"
#include "sensors/hid_sensor.h"

namespace testdriver {

struct RoutedReport {
    ULONG sensorIndex;
    std::vector<std::uint8_t> bytes;
    ULONG firstInRead;
};

// Every ProcessInputReport call of every recording sensor, in call order.
class RoutingLog {
public:
    static RoutingLog& Instance();
    void Add(RoutedReport report) { std::lock_guard lock(mutex_); reports_.push_back(std::move(report)); }
    std::vector<RoutedReport> Take() { std::lock_guard lock(mutex_); return std::exchange(reports_, {}); }
    void Clear() { std::lock_guard lock(mutex_); reports_.clear(); nextResult_ = STATUS_SUCCESS; }
    // The next call of ProcessInputReport returns this status (once).
    void FailNext(NTSTATUS status) { std::lock_guard lock(mutex_); nextResult_ = status; }
    NTSTATUS ConsumeResult() { std::lock_guard lock(mutex_); return std::exchange(nextResult_, STATUS_SUCCESS); }

private:
    std::mutex mutex_;
    std::vector<RoutedReport> reports_;
    NTSTATUS nextResult_ = STATUS_SUCCESS;
};

template <class Base>
class Recording final : public Base {
public:
    using Base::Base;

    NTSTATUS ProcessInputReport(BYTE* report, ULONG length, ULONG firstInRead) override
    {
        RoutingLog::Instance().Add(
            {this->Record()->SensorIndex, std::vector<std::uint8_t>(report, report + length), firstInRead});
        return RoutingLog::Instance().ConsumeResult();
    }
};

// True for a CustomSensor that is not of a subclass (recording or not).
inline bool IsPlainCustomSensor(const HidSensor* sensor)
{
    return sensor != nullptr && (typeid(*sensor) == typeid(Recording<CustomSensor>) ||
                                 typeid(*sensor) == typeid(CustomSensor));
}

class RecordingSensorFactory final : public SensorFactory {
public:
    NTSTATUS Create(SensorClass sensorClass, const SensorConstructionArgs& args,
                    HidSensor** sensor) const noexcept override;
};

}  // namespace testdriver
