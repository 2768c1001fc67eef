// What the class extension keeps per device: the driver's callbacks, the
// visible sensors in initialization order and the clients' subscriptions. It
// hangs off the WDFDEVICE in a private context and is shared with clients, so
// a client outlives the device safely.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "host/framework/object.h"
#include "host/sensorscx/sample.h"
#include "platform/sensorscx.h"

namespace host::sensorscx {

class SensorState;

class DeviceState {
public:
    explicit DeviceState(const SENSOR_CONTROLLER_CONFIG& config) : config_(config) {}

    // Fixed at SensorsCxDeviceInitialize.
    const SENSOR_CONTROLLER_CONFIG& Config() const { return config_; }

    // Creation ordinal for the next SensorsCxSensorCreate; names sensors in messages.
    std::uint32_t NextSensorOrdinal() { return nextOrdinal_.fetch_add(1, std::memory_order_relaxed); }

    // Appends a sensor that reached SensorsCxSensorInitialize; its index.
    std::size_t AddVisible(std::shared_ptr<SensorState> sensor);
    void RemoveVisible(const SensorState* sensor);
    std::vector<std::shared_ptr<SensorState>> Visible() const;
    std::shared_ptr<SensorState> VisibleAt(std::size_t index) const;
    std::optional<std::size_t> IndexOf(const SensorState* sensor) const;

    std::uint64_t AddSampleCallback(SampleCallback callback);
    std::uint64_t AddSensorCallback(SensorCallback callback);
    void RemoveCallback(std::uint64_t id);

    // Stamps the sample's sequence and sensor index and hands it to every
    // sample subscriber, on the calling thread, outside the lock.
    void Publish(Sample& sample, const SensorState* sensor);
    void Announce(const SensorInfo& info);

    void MarkGone() { gone_.store(true, std::memory_order_release); }
    bool Gone() const { return gone_.load(std::memory_order_acquire); }

private:
    template <class Callback>
    struct Subscriber {
        std::uint64_t id;
        std::shared_ptr<const Callback> callback;
    };

    const SENSOR_CONTROLLER_CONFIG config_;
    std::atomic<std::uint32_t> nextOrdinal_{0};
    std::atomic<bool> gone_{false};
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<SensorState>> visible_;
    std::vector<Subscriber<SampleCallback>> sampleSubscribers_;
    std::vector<Subscriber<SensorCallback>> sensorSubscribers_;
    std::uint64_t nextSubscriberId_ = 1;
    std::uint64_t nextSequence_ = 1;
};

// Binds a fresh state to the device object. STATUS_OBJECT_NAME_EXISTS when the
// device already has one (initialized twice).
NTSTATUS AttachDeviceState(framework::Object* device, std::shared_ptr<DeviceState> state);

// The state of a device, or null when the handle is no live device or
// SensorsCxDeviceInitialize has not succeeded on it.
std::shared_ptr<DeviceState> DeviceStateOf(const void* device);

}  // namespace host::sensorscx
