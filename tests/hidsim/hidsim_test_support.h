// Shared helpers of the simulated-device tests: descriptors from the test data
// directory, IOCTL shorthands and a read completion that records what it got.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/hidsim/simulated_hid_device.h"
#include "platform/hidclass.h"
#include "tests/test_data.h"

namespace hidsim_test {

using host::HidCollectionEndpoint;
using host::hidsim::DeviceRule;
using host::hidsim::HidDeviceConfig;
using host::hidsim::RuleTrigger;
using host::hidsim::SimulatedHidDevice;
using Bytes = std::vector<std::uint8_t>;
using IoctlResult = HidCollectionEndpoint::IoctlResult;

using testdata::LoadDescriptor;
// A configuration with only the named descriptor.
inline HidDeviceConfig On(const std::string& descriptor)
{
    return HidDeviceConfig{}.WithDescriptor(LoadDescriptor(descriptor));
}
// Creates the device; adds a test failure (and returns null) when it cannot.
std::unique_ptr<SimulatedHidDevice> MakeDevice(const HidDeviceConfig& config);

struct Answer {
    IoctlResult result;
    Bytes bytes;  // the output buffer after the call, `information` bytes of it
};

// An IOCTL without input into a zeroed `length`-byte buffer whose byte 0 is `firstByte`.
Answer Query(HidCollectionEndpoint& endpoint, ULONG ioctlCode, ULONG length, std::uint8_t firstByte = 0);
inline Answer GetFeature(HidCollectionEndpoint& endpoint, std::uint8_t reportId, ULONG length)
{
    return Query(endpoint, IOCTL_HID_GET_FEATURE, length, reportId);
}
// SET_FEATURE with `report` as input and an output buffer of the same length.
IoctlResult SetFeature(HidCollectionEndpoint& endpoint, const Bytes& report);
// `report` padded with zeros to `length` bytes.
inline Bytes Padded(Bytes report, std::size_t length)
{
    report.resize(length, 0);
    return report;
}

// A read that records its completions; `onComplete` runs inside Complete().
class RecordingRead final : public HidCollectionEndpoint::ReadCompletion {
public:
    struct Completed {
        NTSTATUS status;
        Bytes data;
    };
    void Complete(NTSTATUS status, const BYTE* data, ULONG length) override
    {
        completions.push_back({status, data == nullptr ? Bytes{} : Bytes(data, data + length)});
        if (onComplete)
            onComplete(*this);
    }

    std::vector<Completed> completions;
    std::function<void(RecordingRead&)> onComplete;
};

// A device driven through its driver endpoint; `length_` is its feature report length.
class DeviceTest : public ::testing::Test {
protected:
    void Make(HidDeviceConfig config, std::vector<DeviceRule> rules = {})
    {
        config.rules.insert(config.rules.end(), rules.begin(), rules.end());
        device_ = MakeDevice(config);
        ASSERT_TRUE(device_);
        length_ = device_->DriverCollection().Caps().FeatureReportByteLength;
    }
    HidCollectionEndpoint& Endpoint() { return device_->DriverEndpoint(); }
    host::hidsim::SimulatedCollection& Collection() { return device_->DriverCollection(); }
    Answer Get(std::uint8_t reportId) { return GetFeature(Endpoint(), reportId, length_); }
    IoctlResult Set(const Bytes& report) { return SetFeature(Endpoint(), report); }
    void Submit(RecordingRead& read, ULONG capacity = 4096) { Endpoint().SubmitRead(&read, capacity); }
    bool Cancel(RecordingRead& read) { return Endpoint().CancelRead(&read); }
    void Feed(const Bytes& input) { device_->FeedInput(input); }

    std::unique_ptr<SimulatedHidDevice> device_;
    ULONG length_ = 0;
};

}  // namespace hidsim_test
