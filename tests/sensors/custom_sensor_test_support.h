// Custom sensors on a simulated device, seen through the class extension's
// client: devices built with the descriptor builder, their feature and input
// reports as bytes, and lists rendered one "KEY VT value" line per entry.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
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
std::string Clsid(const std::string& guid);  // CLSID "guid"
std::string Str(const std::string& text);    // LPWSTR "text"

// Keys and values as clients send them.
PROPERTYKEY DataKey(DWORD pid);    // {C458F8A7-...} pid
PROPERTYKEY CustomKey(DWORD pid);  // {B14C764F-...} pid
PROPVARIANT UInt(ULONG value);
PROPVARIANT Float(float value);
cx::CollectionListCopy ValueList(std::initializer_list<std::pair<PROPERTYKEY, PROPVARIANT>> entries);

// An input report of the collection's input length: ID, state and event
// selectors, then `fields` little-endian in `widths` bytes each; zero padded.
Bytes InputReport(HidDevice& device, std::uint8_t reportId, const std::vector<std::uint32_t>& fields,
                  const std::vector<int>& widths, std::uint8_t stateSelector = 1, std::uint8_t eventSelector = 3);

// A custom sensor of the builder with features interval, description and
// (when `withName`) friendly name, all strings of 16 characters.
hs::SensorShape CustomWithStrings(std::vector<hs::ValueField> values, bool withName);

// A loaded, prepared and started bed with a client and a sample queue;
// `beforePrepare` may preload the registry.
struct ClientBed {
    explicit ClientBed(const HidDeviceConfig& config,
                       host::framework::ClockMode mode = host::framework::ClockMode::Deterministic,
                       const std::function<void(DriverTestBed&)>& beforePrepare = {});
    DriverTestBed bed;
    std::unique_ptr<cx::Client> client;
    std::unique_ptr<cx::SampleQueue> samples;

    CustomSensor* Sensor(ULONG index) const { return dynamic_cast<CustomSensor*>(bed.Sensor(index)); }
    HidDevice& Hid() const { return *bed.Hid(); }
    // Feeds one read and returns the samples it gave.
    std::vector<cx::Sample> Feed(const Bytes& read);
};

// A client call and the status it must answer.
struct ExpectedCall {
    const char* what;
    std::function<cx::CallResult()> call;
    NTSTATUS status;
};
// Makes each call: each answers its status, a failed one reports no size,
// and none reaches the device.
void ExpectStatuses(ClientBed& t, const std::vector<ExpectedCall>& calls);

// Feeds a read on a thread of its own until destroyed; constructed, the first
// read has been fed. `read(i)` gives the i-th read.
class ReportStream {
public:
    ReportStream(DriverTestBed& bed, std::function<Bytes(std::uint32_t)> read);
    ~ReportStream() { Stop(); }
    void Stop();
    int Fed() const { return fed_.load(); }

private:
    std::atomic<bool> feeding_{true};
    std::atomic<int> fed_{0};
    std::thread thread_;
};

}  // namespace testdriver
