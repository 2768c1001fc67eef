// Everything a simulated HID device is made of, mirroring the scenario file's
// "device" section, so the tool can build a device straight from a parsed
// scenario and tests can build one in a line:
//
//   HidDeviceConfig{}.WithDescriptor(bytes).WithManufacturer(u"Contoso")
//       .WithFeature(1, {0x01, 0x64}).WithRule(DeviceRule::Clamp(0x030E, 10, 1000))
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/hidsim/device_rules.h"
#include "host/hidsim/feature_store.h"
#include "platform/basetypes.h"

namespace host::hidsim {

// What IOCTL_HID_GET_COLLECTION_INFORMATION reports besides the descriptor size.
struct CollectionInformation {
    USHORT vendorId = 0;
    USHORT productId = 0;
    USHORT versionNumber = 0x0100;
    bool polled = false;
};

// An absent string makes its IOCTL fail with STATUS_INVALID_PARAMETER, as for
// a device without that string descriptor.
struct DeviceStrings {
    std::optional<std::u16string> manufacturer;
    std::optional<std::u16string> product;
    std::optional<std::u16string> serialNumber;
};

struct HidDeviceConfig {
    std::vector<std::uint8_t> descriptor;  // the report descriptor
    CollectionInformation information;
    DeviceStrings strings;
    FeatureMap features;                   // GET_FEATURE answers by report ID, byte 0 included
    std::vector<DeviceRule> rules;
    // Top-level collection the driver is loaded on, by index in descriptor
    // order. Absent: the first on usage page 0x20, else collection 0.
    std::optional<std::size_t> driverCollection;
    std::size_t readQueueCapacity = 32;    // completed reads kept while none is pending
    std::size_t trafficCapacity = 4096;    // traffic events kept for Traffic()

    HidDeviceConfig& WithDescriptor(std::vector<std::uint8_t> bytes) { descriptor = std::move(bytes); return *this; }
    HidDeviceConfig& WithInformation(CollectionInformation info) { information = info; return *this; }
    HidDeviceConfig& WithManufacturer(std::u16string text) { strings.manufacturer = std::move(text); return *this; }
    HidDeviceConfig& WithProduct(std::u16string text) { strings.product = std::move(text); return *this; }
    HidDeviceConfig& WithSerialNumber(std::u16string text) { strings.serialNumber = std::move(text); return *this; }
    HidDeviceConfig& WithFeature(std::uint8_t reportId, std::vector<std::uint8_t> report)
    {
        features[reportId] = std::move(report);
        return *this;
    }
    HidDeviceConfig& WithRule(DeviceRule rule) { rules.push_back(std::move(rule)); return *this; }
    HidDeviceConfig& WithDriverCollection(std::size_t index) { driverCollection = index; return *this; }
};

}  // namespace host::hidsim
