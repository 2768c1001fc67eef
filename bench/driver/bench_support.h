// What the driver benchmarks share: a driver loaded on a simulated device,
// counting the driver's allocations and the feature report of a builder
// custom sensor.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "hid/hid_device.h"
#include "host/framework/driver_host.h"
#include "host/hidsim/simulated_hid_device.h"
#include "sensors/hid_sensor.h"

// The driver loaded, its device added and prepared on a deterministic host;
// unloaded when it goes. `hid` stays null when any step failed.
struct LoadedDriver {
    explicit LoadedDriver(const host::hidsim::HidDeviceConfig& config,
                          const std::function<void(host::framework::DriverHost&)>& beforeLoad = {});
    ~LoadedDriver();
    LoadedDriver(const LoadedDriver&) = delete;
    LoadedDriver& operator=(const LoadedDriver&) = delete;

    // Sensor `index` as a T, if it is one and registered with the class extension.
    template <class T>
    T* Registered(ULONG index) const
    {
        auto* sensor = hid != nullptr ? dynamic_cast<T*>(hid->Sensor(index)) : nullptr;
        return sensor != nullptr && sensor->Record()->IsRegistered.load() != 0 ? sensor : nullptr;
    }

    std::unique_ptr<host::hidsim::SimulatedHidDevice> sim;
    std::unique_ptr<host::framework::DriverHost> host;
    HidDevice* hid = nullptr;
};

// What the driver asks of the platform's allocators (driver heap, task
// memory, framework memory): Start restarts the count, the other reads it.
void StartCountingDriverAllocations();
std::uint64_t DriverAllocations();

// The feature report of a builder CustomSensor(16, ...): report `id`, the
// reporting and power selectors 1, a 100 ms interval and `description`
// padded to 16 UTF-16 characters.
std::vector<std::uint8_t> DescriptionFeatureReport(std::uint8_t id, std::u16string_view description);
