// A simulated HID device: the HID class driver's side of every top-level
// collection of one report descriptor, with the device's feature reports,
// programmable misbehaviour (rules), input reports and a log of its traffic.
//
//   DeviceError error;
//   auto device = SimulatedHidDevice::Create(config, error);
//   if (!device) { /* error.message, error.descriptorOffset */ }
//   host::HidCollectionEndpoint& endpoint = device->DriverEndpoint();
//   device->FeedInput(bytes);  // one completed read
//
// Thread-safe. Read completions and the traffic listener are never called with
// the device's lock held, so both may call back into the device. The device
// must outlive every user of its endpoints.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/hidsim/device_rules.h"
#include "host/hidsim/device_state.h"
#include "host/hidsim/hid_device_config.h"
#include "host/hidsim/simulated_collection.h"
#include "host/hidsim/traffic_log.h"

namespace host::hidsim {

struct DeviceError {
    std::string message;
    std::optional<std::size_t> descriptorOffset;  // set when the report descriptor does not parse
};

class SimulatedHidDevice {
public:
    // Null, with `error` filled, when the descriptor does not parse, declares
    // no top-level collection, a rule is unusable or driverCollection is out of
    // range. Never throws.
    static std::unique_ptr<SimulatedHidDevice> Create(const HidDeviceConfig& config, DeviceError& error);

    SimulatedHidDevice(const SimulatedHidDevice&) = delete;
    SimulatedHidDevice& operator=(const SimulatedHidDevice&) = delete;
    ~SimulatedHidDevice();

    // Top-level collections, in descriptor order.
    std::size_t CollectionCount() const { return collections_.size(); }
    // Null when `index` is out of range.
    SimulatedCollection* Collection(std::size_t index)
    {
        return index < collections_.size() ? collections_[index].get() : nullptr;
    }
    // First collection on `usagePage` (and with `usage`, when given).
    std::optional<std::size_t> FindCollection(USAGE usagePage, std::optional<USAGE> usage = std::nullopt) const;

    // The collection the driver is loaded on.
    std::size_t DriverCollectionIndex() const { return driverCollection_; }
    SimulatedCollection& DriverCollection() { return *collections_[driverCollection_]; }
    HidCollectionEndpoint& DriverEndpoint() { return DriverCollection(); }

    // Feature reports. UpdateFeatures sets the listed report IDs and keeps the
    // others, as the scenario's device step does. Both false when memory runs out.
    bool UpdateFeatures(const FeatureMap& reports);
    bool SetFeature(std::uint8_t reportId, std::vector<std::uint8_t> report);
    // The stored report, as SET_FEATURE or the configuration left it.
    std::optional<std::vector<std::uint8_t>> Feature(std::uint8_t reportId) const;

    // Replaces the whole rule list (remaining counts start afresh). False, with
    // `error`, when a rule is unusable; the old list then stays.
    bool SetRules(std::vector<DeviceRule> rules, std::string& error);

    // One completed read on the driver's collection carrying exactly `input`
    // (one or more input reports, concatenated).
    void FeedInput(std::span<const std::uint8_t> input) { DriverCollection().FeedInput(input); }

    // Traffic of all collections, in the order the device saw it.
    bool SetTrafficListener(TrafficListener listener) { return state_->traffic.SetListener(std::move(listener)); }
    std::vector<TrafficEvent> Traffic() const { return state_->traffic.Events(); }
    void ClearTraffic() { state_->traffic.Clear(); }
    std::uint64_t TrafficOverflowed() const { return state_->traffic.Overflowed(); }

private:
    explicit SimulatedHidDevice(const HidDeviceConfig& config);

    std::unique_ptr<DeviceState> state_;
    std::vector<std::unique_ptr<SimulatedCollection>> collections_;
    std::size_t driverCollection_ = 0;
};

}  // namespace host::hidsim
