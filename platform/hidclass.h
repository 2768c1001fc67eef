// What the HID class driver answers on a top-level collection: IOCTL codes and
// the collection information structure.
#pragma once

#include "platform/basetypes.h"

inline constexpr ULONG IOCTL_HID_GET_COLLECTION_INFORMATION = 0x000B01A8;
inline constexpr ULONG IOCTL_HID_GET_COLLECTION_DESCRIPTOR = 0x000B0193;
inline constexpr ULONG IOCTL_HID_GET_MANUFACTURER_STRING = 0x000B01BA;
inline constexpr ULONG IOCTL_HID_GET_PRODUCT_STRING = 0x000B01BE;
inline constexpr ULONG IOCTL_HID_GET_SERIALNUMBER_STRING = 0x000B01C2;
inline constexpr ULONG IOCTL_HID_GET_FEATURE = 0x000B0192;
inline constexpr ULONG IOCTL_HID_SET_FEATURE = 0x000B0191;

struct HID_COLLECTION_INFORMATION {
    ULONG DescriptorSize;  // bytes of preparsed data
    BOOLEAN Polled;
    UCHAR Reserved1[1];
    USHORT VendorID;
    USHORT ProductID;
    USHORT VersionNumber;
};
using PHID_COLLECTION_INFORMATION = HID_COLLECTION_INFORMATION*;
static_assert(sizeof(HID_COLLECTION_INFORMATION) == 12);
