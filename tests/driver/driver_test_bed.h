// A simulated HID device with the test driver module loaded on it, driven
// through the host's PnP/power calls, with tracing enabled into memory.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "hid/hid_device.h"
#include "host/common/fault_injection.h"
#include "host/framework/driver_host.h"
#include "host/hidparser/sensor_descriptor.h"
#include "host/hidsim/simulated_hid_device.h"
#include "host/sensorscx/tracing.h"
#include "sensors/hid_sensor.h"
#include "tests/driver/endpoint_shim.h"
#include "tests/driver/recording_sensors.h"
#include "tests/driver/test_driver_module.h"
#include "tests/test_data.h"

namespace testdriver {

using Bytes = std::vector<std::uint8_t>;

using testdata::LoadDescriptor;

void PutLittleEndian(Bytes& bytes, std::uint32_t value, int width);
std::uint32_t GetLittleEndian(const Bytes& bytes, std::size_t offset, int width);

// A feature report: report ID, the reporting and power selectors, a 32-bit
// interval and the UTF-16 strings, each padded to `chars` characters; the
// layout of a builder CustomSensor whose features are, in this order,
// ReportIntervalProperty() and StringProperty(usage, chars) per string.
Bytes FeatureReport(std::uint8_t reportId, std::uint32_t intervalMs, const std::vector<std::u16string>& strings,
                    std::uint16_t chars = 16, std::uint8_t reportingSelector = 1, std::uint8_t powerSelector = 1);

namespace hs = host::hid::sensor;
using host::hidsim::HidDeviceConfig;
using host::hidsim::TrafficKind;

// An accelerometer with `axes` 16-bit inputs (0x453...).
hs::SensorShape Accelerometer(int axes = 1);
// A custom sensor with 16-character descriptions and `values` 16-bit values:
// input reports of 3 + 2 * values bytes.
hs::SensorShape Custom(int values = 2);
// A container of an accelerometer, an activity (0x232) and a pedometer (0x230)
// custom sensor, with serial number, manufacturer and product.
HidDeviceConfig AccelerometerActivityPedometer();
// Report IDs of the GET_FEATURE requests in `traffic`.
std::vector<int> FeatureIds(const std::vector<host::hidsim::TrafficEvent>& traffic);

class DriverTestBed {
public:
    explicit DriverTestBed(const host::hidsim::HidDeviceConfig& config,
                           const SensorFactory* factory = &kRecordingFactory,
                           host::framework::ClockMode mode = host::framework::ClockMode::Deterministic);
    ~DriverTestBed();

    // Loads the module and adds the device (once), then prepare-hardware.
    NTSTATUS Load();
    NTSTATUS Prepare()
    {
        const NTSTATUS status = Load();
        return NT_SUCCESS(status) ? host_->PrepareHardware() : status;
    }
    NTSTATUS Start() { return host_->D0Entry(); }
    NTSTATUS Stop() { return host_->D0Exit(); }
    // Unloads and returns what was left behind ("" when nothing). A bed
    // destroyed while loaded checks this itself.
    std::string UnloadAndCollectLeaks();

    HidDevice* Hid() const { return HidDeviceOf(host_->Device()); }
    HidSensor* Sensor(ULONG index) const { return Hid() != nullptr ? Hid()->Sensor(index) : nullptr; }
    host::hidsim::SimulatedHidDevice& Sim() { return *sim_; }
    // The endpoint the device is added on.
    EndpointShim& Shim() { return *shim_; }
    host::framework::DriverHost& Host() { return *host_; }
    host::tracing::MemoryTraceSink& Trace() { return *sink_; }
    // Starts at level 5 with every class (0x3D).
    host::tracing::TraceSession& Session() { return *session_; }
    // One completed read carrying `bytes`, run to the end.
    void Feed(const Bytes& bytes) { sim_->FeedInput(bytes), host_->RunPending(); }
    bool ReadPending() { return sim_->DriverCollection().HasPendingRead(); }
    std::vector<host::hidsim::TrafficEvent> Traffic() const { return sim_->Traffic(); }

private:
    std::unique_ptr<host::hidsim::SimulatedHidDevice> sim_;
    std::unique_ptr<EndpointShim> shim_;
    std::shared_ptr<host::tracing::MemoryTraceSink> sink_;
    std::unique_ptr<host::framework::DriverHost> host_;
    std::unique_ptr<host::tracing::TraceSession> session_;
    bool added_ = false;
    bool unloaded_ = false;
};

// How often prepare-hardware on a fresh bed of `config` calls `point`.
std::uint64_t CallsDuringPrepare(const HidDeviceConfig& config, const SensorFactory* factory, host::FaultPoint point);

// Plays `cycle` on a bed of `makeBed` once to count the driver's platform
// calls, then once per call with that call failing: every run must end with
// nothing left behind. Returns the fault points that were failed.
std::set<host::FaultPoint> SweepEveryDriverCall(const std::function<std::unique_ptr<DriverTestBed>()>& makeBed,
                                                const std::function<void(DriverTestBed&)>& cycle);

}  // namespace testdriver
