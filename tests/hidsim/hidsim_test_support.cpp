#include "hidsim_test_support.h"

#include <gtest/gtest.h>

namespace hidsim_test {

std::unique_ptr<SimulatedHidDevice> MakeDevice(const HidDeviceConfig& config)
{
    host::hidsim::DeviceError error;
    auto device = SimulatedHidDevice::Create(config, error);
    if (!device)
        ADD_FAILURE() << "device not created: " << error.message;
    return device;
}

Answer Query(HidCollectionEndpoint& endpoint, ULONG ioctlCode, ULONG length, std::uint8_t firstByte)
{
    Bytes buffer(length, 0);
    if (length != 0)
        buffer[0] = firstByte;
    Answer answer{endpoint.DeviceControl(ioctlCode, nullptr, 0, buffer.data(), length), {}};
    buffer.resize(answer.result.information);
    answer.bytes = std::move(buffer);
    return answer;
}

IoctlResult SetFeature(HidCollectionEndpoint& endpoint, const Bytes& report)
{
    Bytes output(report.size(), 0);
    return endpoint.DeviceControl(IOCTL_HID_SET_FEATURE, report.data(), static_cast<ULONG>(report.size()),
                                  output.data(), static_cast<ULONG>(output.size()));
}

}  // namespace hidsim_test
