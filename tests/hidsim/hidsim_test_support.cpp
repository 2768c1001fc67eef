#include "hidsim_test_support.h"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "host/hidparser/descriptor_text.h"

namespace hidsim_test {

Bytes LoadDescriptor(const std::string& name)
{
    const std::string path = std::string(HIDSIM_TEST_DATA_DIR) + "/" + name + ".hex";
    std::ifstream file(path);
    if (!file) {
        ADD_FAILURE() << "cannot open " << path;
        return {};
    }
    std::stringstream text;
    text << file.rdbuf();
    Bytes bytes;
    std::string error;
    if (!host::hid::ParseHexDescriptor(text.str(), bytes, error))
        ADD_FAILURE() << path << ": " << error;
    return bytes;
}

std::unique_ptr<SimulatedHidDevice> MakeDevice(const HidDeviceConfig& config)
{
    host::hidsim::DeviceError error;
    auto device = SimulatedHidDevice::Create(config, error);
    if (!device)
        ADD_FAILURE() << "device not created: " << error.message;
    return device;
}

Answer GetFeature(HidCollectionEndpoint& endpoint, std::uint8_t reportId, ULONG length)
{
    Bytes buffer(length, 0);
    if (length != 0)
        buffer[0] = reportId;
    Answer answer;
    answer.result = endpoint.DeviceControl(IOCTL_HID_GET_FEATURE, nullptr, 0, buffer.data(), length);
    buffer.resize(answer.result.information);
    answer.bytes = std::move(buffer);
    return answer;
}

HidCollectionEndpoint::IoctlResult SetFeature(HidCollectionEndpoint& endpoint, const Bytes& report)
{
    Bytes output(report.size(), 0);
    return endpoint.DeviceControl(IOCTL_HID_SET_FEATURE, report.data(), static_cast<ULONG>(report.size()),
                                  output.data(), static_cast<ULONG>(output.size()));
}

Answer Query(HidCollectionEndpoint& endpoint, ULONG ioctlCode, ULONG length)
{
    Bytes buffer(length, 0);
    Answer answer;
    answer.result = endpoint.DeviceControl(ioctlCode, nullptr, 0, buffer.data(), length);
    buffer.resize(answer.result.information);
    answer.bytes = std::move(buffer);
    return answer;
}

void RecordingRead::Complete(NTSTATUS status, const BYTE* data, ULONG length)
{
    completions.push_back({status, data == nullptr ? Bytes{} : Bytes(data, data + length)});
    if (onComplete)
        onComplete(*this);
}

}  // namespace hidsim_test
