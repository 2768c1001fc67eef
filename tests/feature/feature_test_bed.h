// A custom sensor on the simulated device, ready for ReadFeatureReport: the
// driver is loaded and prepared, the sensor's traffic so far is forgotten.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "feature/sensor_property_cache.h"
#include "sensors/custom_sensor.h"
#include "tests/driver/driver_test_bed.h"

namespace featuretest {

using testdriver::Bytes;
namespace hs = host::hid::sensor;
using host::hidsim::DeviceRule;
using host::hidsim::HidDeviceConfig;
using host::hidsim::RuleTrigger;

// Little-endian report bytes, field by field.
class ReportBytes {
public:
    explicit ReportBytes(std::uint8_t reportId) : bytes_{reportId} {}
    ReportBytes& U8(std::uint32_t value) { return Put(value, 1); }
    ReportBytes& U16(std::uint32_t value) { return Put(value, 2); }
    ReportBytes& U32(std::uint32_t value) { return Put(value, 4); }
    // UTF-16 text in a field of `chars` characters, zero-filled.
    ReportBytes& Text(std::u16string text, std::size_t chars);
    operator Bytes() const { return bytes_; }

private:
    ReportBytes& Put(std::uint32_t value, int bytes);
    Bytes bytes_;
};

// A field with a unit.
hs::ValueField WithUnit(hs::ValueField field, std::uint32_t unit);

// GET_FEATURE and SET_FEATURE requests as "get 01 64 00" / "set 01 64 00"
// (a failed request ends in " ! 0xC0000185"); every other request is left out.
std::vector<std::string> FeatureTraffic(const std::vector<host::hidsim::TrafficEvent>& traffic);

class FeatureBed {
public:
    // `config` with the custom sensor(s); sensor `index` is the one under test.
    explicit FeatureBed(const HidDeviceConfig& config, ULONG index = 0);
    // A single custom sensor with report ID 1 and this feature report.
    FeatureBed(hs::SensorShape shape, const Bytes& report);

    bool Ready() const { return sensor_ != nullptr; }
    CustomSensor& Sensor() { return *sensor_; }
    SensorPropertyCache& Cache() { return *sensor_->PropertyCache(); }
    HidCollectionRecord& Record() { return *sensor_->Record(); }
    testdriver::DriverTestBed& Bed() { return *bed_; }
    // Rules from now on; Initialize's traffic is behind us.
    void Rules(std::vector<DeviceRule> rules);
    // Marks custom value k as a data field with threshold `threshold`.
    void SeeField(ULONG k, float threshold);
    // Runs ReadFeatureReport and returns the feature traffic it caused.
    std::vector<std::string> Read(ULONG writeSettings, NTSTATUS* status = nullptr);

private:
    std::unique_ptr<testdriver::DriverTestBed> bed_;
    CustomSensor* sensor_ = nullptr;
};

}  // namespace featuretest
