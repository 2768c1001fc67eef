// Test-only sensor classes: the real placeholder and custom classes, plus a
// record of the input reports routed to them. Other classes are the driver's.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <typeinfo>
#include <utility>
#include <vector>

#include "hid/sensor_factory.h"
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
    static RoutingLog& Instance()
    {
        static RoutingLog log;
        return log;
    }
    void Add(RoutedReport report) { std::lock_guard lock(mutex_); reports_.push_back(std::move(report)); }
    std::vector<RoutedReport> Take() { std::lock_guard lock(mutex_); return std::exchange(reports_, {}); }
    void Clear() { std::lock_guard lock(mutex_); reports_.clear(); nextResult_ = STATUS_SUCCESS; }
    // The next call of ProcessInputReport returns this status (once).
    void FailNext(NTSTATUS status) { std::lock_guard lock(mutex_); nextResult_ = status; }
    NTSTATUS ConsumeResult() { std::lock_guard lock(mutex_); return std::exchange(nextResult_, STATUS_SUCCESS); }

    // Holds the next ProcessInputReport call inside the dispatch until
    // Release(): a test can act while a completion is dispatching.
    void HoldNext() { std::lock_guard lock(mutex_); holdNext_ = true; held_ = false; }
    void WaitUntilHeld()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return held_; });
    }
    void Release()
    {
        std::lock_guard lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    // Called by the recording sensors on entry.
    void HoldIfAsked()
    {
        std::unique_lock lock(mutex_);
        if (!std::exchange(holdNext_, false)) return;
        held_ = true;
        changed_.notify_all();
        changed_.wait(lock, [&] { return !held_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<RoutedReport> reports_;
    NTSTATUS nextResult_ = STATUS_SUCCESS;
    bool holdNext_ = false;
    bool held_ = false;
};

template <class Base>
class Recording final : public Base {
public:
    using Base::Base;

    NTSTATUS ProcessInputReport(BYTE* report, ULONG length, ULONG firstInRead) override
    {
        RoutingLog::Instance().HoldIfAsked();
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
                    HidSensor** sensor) const noexcept override
    {
        if (sensorClass == SensorClass::Placeholder)
            return CreateSensorObject<Recording<HidSensor>>(args, sensor);
        if (sensorClass == SensorClass::Custom)
            return CreateSensorObject<Recording<CustomSensor>>(args, sensor);
        return SensorFactory::Default().Create(sensorClass, args, sensor);
    }
};
inline const RecordingSensorFactory kRecordingFactory;

}  // namespace testdriver
