// The per-device object: the HID collection's two I/O targets, what discovery
// learnt about the collection, and the sensor objects, in discovery order.
#pragma once

#include <atomic>

#include "driver/heap.h"
#include "driver/wide_string.h"
#include "hid/sensor_array.h"
#include "hid/sensor_factory.h"
#include "platform/hidpi.h"
#include "platform/wdf.h"

class HidIoTarget;
class HidSensor;
struct SensorConstructionArgs;

inline constexpr ULONG kMaxFeatureReportBytes = 4096;
inline constexpr USAGE kSensorsUsagePage = 0x20;
inline constexpr USAGE kSensorCollectionUsage = 0x0001;
inline constexpr USAGE kCustomSensorUsage = 0x00E1;

// The HidDevice's state block, allocated by its constructor.
struct HidDeviceState : HeapObject {
    // Diagnostics only; copied from the device context by Open.
    WCHAR FriendlyName[kDeviceStringChars] = u"HID Sensor Class Device";
    // First part of every sensor's InstanceName; copied by Open.
    WCHAR DevicePath[kDeviceStringChars] = u"HID\\VID_5A3C&PID_0002\\6&1AA1B311&0&0000";
    SensorArray Sensors;
    ULONG SensorCount = 0;  // set after discovery, before the first Initialize
    std::atomic<ULONG> IsOpen{0};
    HeapArray<BYTE> PreparsedData;
    HeapArray<HIDP_LINK_COLLECTION_NODE> LinkCollectionNodes;
    HIDP_CAPS Caps = {};
    WDFDEVICE Device = nullptr;
    HidIoTarget* IoctlTarget = nullptr;  // every IOCTL and feature report
    HidIoTarget* ReaderTarget = nullptr;  // the continuous read only
    const SensorFactory* Factory = nullptr;
};

class HidDevice : public HeapObject {
public:
    // `factory` chooses the class of each sensor object; null means the
    // driver's own classes.
    explicit HidDevice(WDFDEVICE device, const SensorFactory* factory = nullptr) noexcept;
    ~HidDevice();
    HidDevice(const HidDevice&) = delete;
    HidDevice& operator=(const HidDevice&) = delete;

    // False when the state block could not be allocated; delete the object then.
    bool IsValid() const noexcept { return state_ != nullptr; }

    // Creates and opens both I/O targets. The names (null: keep the defaults)
    // are copied.
    NTSTATUS Open(PCWSTR friendlyName, PCWSTR devicePath);
    // Stops the reader, uninitializes every sensor and marks the device closed.
    void Close();
    NTSTATUS StartReader();
    NTSTATUS StopReader();

    // Discovers the sensor collections, creates one sensor object each and
    // initializes them. Returns the status of the last Initialize.
    NTSTATUS EnumerateSensors();
    // The discovery proper; each buffer holds kSensorStringChars characters.
    NTSTATUS DiscoverCollections(WCHAR* manufacturer, WCHAR* product, WCHAR* serialNumber,
                                 WCHAR* instanceName);

    // Fetches feature report `reportId` into `buffer` (length bytes, at most
    // 4096), trying twice when the device fails or answers with zeros.
    NTSTATUS GetFeatureReport(UCHAR reportId, BYTE* buffer, ULONG length, PCWSTR name);

    // The reader's callback: cuts a completed read into input reports and
    // hands each to its sensor's ProcessInputReport. `context` is the HidDevice.
    static NTSTATUS DispatchInputReports(BYTE* reports, ULONG length, void* context);

    // What sensor objects and diagnostics read.
    WDFDEVICE Device() const noexcept { return state_->Device; }
    const HIDP_CAPS& Caps() const noexcept { return state_->Caps; }
    PHIDP_PREPARSED_DATA PreparsedData() const noexcept
    {
        return reinterpret_cast<PHIDP_PREPARSED_DATA>(state_->PreparsedData.Get());
    }
    ULONG PreparsedDataLength() const noexcept { return static_cast<ULONG>(state_->PreparsedData.Count()); }
    const HIDP_LINK_COLLECTION_NODE* LinkCollectionNodes() const noexcept
    {
        return state_->LinkCollectionNodes.Get();
    }
    ULONG SensorCount() const noexcept { return state_->SensorCount; }
    HidSensor* Sensor(ULONG index) const noexcept
    {
        return index < state_->Sensors.Size() ? state_->Sensors[index] : nullptr;
    }
    bool IsOpen() const noexcept { return state_->IsOpen.load(std::memory_order_relaxed) == 1; }
    HidIoTarget* IoctlTarget() const noexcept { return state_->IoctlTarget; }
    PCWSTR FriendlyName() const noexcept { return state_->FriendlyName; }
    PCWSTR DevicePath() const noexcept { return state_->DevicePath; }

private:
    NTSTATUS RouteReports(BYTE* reports, ULONG length);
    // One string IOCTL into `scratch`, copied into `target` on success.
    NTSTATUS ReadDeviceString(ULONG ioctlCode, WCHAR* scratch, WCHAR* target);
    NTSTATUS DiscoverSensorCollectionChildren(const WCHAR* deviceTag, WCHAR* manufacturer,
                                              WCHAR* product, WCHAR* serialNumber,
                                              WCHAR* instanceName);
    void BuildInstanceName(WCHAR* instanceName, const WCHAR* deviceTag, ULONG sensorIndex) const;
    // Creates one sensor object and appends it; a failure is traced and leaves
    // the collection without an object.
    void AddSensor(SensorClass sensorClass, const SensorConstructionArgs& args);

    HidDeviceState* state_ = nullptr;
};
