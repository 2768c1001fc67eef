// Custom sensors on a simulated device, seen through the class extension's
// client: devices built with the descriptor builder, their feature and input
// reports as bytes, and lists rendered one "KEY VT value" line per entry.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/sensorscx/client.h"
#include "host/sensorscx/list_format.h"
#include "sensors/custom_sensor.h"
#include "tests/driver/driver_test_bed.h"

namespace testdriver {

namespace cx = host::sensorscx;

// "KEY VT value" of every entry, in order.
std::vector<std::string> Lines(const cx::CollectionListCopy& list);
std::vector<std::string> Lines(const SENSOR_COLLECTION_LIST& list);
// "KEY" of every key.
std::vector<std::string> KeyLines(const std::vector<PROPERTYKEY>& keys);

// Expected lines, by the names the lists use.
std::string Custom(int pid, const std::string& vtAndValue);  // {B14C764F-...} pid
std::string Data(int pid, const std::string& vtAndValue);    // {C458F8A7-...} pid
std::string Prop(int pid, const std::string& vtAndValue);    // {D4247382-...} pid
std::string Dev(int pid, const std::string& vtAndValue);     // {7F8383EC-...} pid
std::string TimestampLine(ULONGLONG ticks);

// A feature report: report ID, the reporting and power selectors, a 32-bit
// interval and the UTF-16 strings, each padded to `chars` characters; the
// layout of a builder CustomSensor whose features are, in this order,
// ReportIntervalProperty() and StringProperty(usage, chars) per string.
Bytes FeatureReport(std::uint8_t reportId, std::uint32_t intervalMs, const std::vector<std::u16string>& strings,
                    std::uint16_t chars = 16, std::uint8_t reportingSelector = 1, std::uint8_t powerSelector = 1);

// An input report of the collection's input length: ID, state and event
// selectors, then `fields` little-endian in `widths` bytes each; zero padded.
Bytes InputReport(HidDevice& device, std::uint8_t reportId, const std::vector<std::uint32_t>& fields,
                  const std::vector<int>& widths, std::uint8_t stateSelector = 1, std::uint8_t eventSelector = 3);

// A custom sensor of the builder with features interval, description and
// (when `withName`) friendly name, all strings of 16 characters.
hs::SensorShape CustomWithStrings(std::vector<hs::ValueField> values, bool withName);

// A loaded, prepared and started bed with a client and a sample queue.
struct ClientBed {
    explicit ClientBed(const HidDeviceConfig& config);
    DriverTestBed bed;
    std::unique_ptr<cx::Client> client;
    std::unique_ptr<cx::SampleQueue> samples;

    CustomSensor* Sensor(ULONG index) const { return dynamic_cast<CustomSensor*>(bed.Sensor(index)); }
    HidDevice& Hid() const { return *bed.Hid(); }
    // Feeds one read and returns the samples it gave.
    std::vector<cx::Sample> Feed(const Bytes& read);
};

}  // namespace testdriver
