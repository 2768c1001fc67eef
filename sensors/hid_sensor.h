// The root of every sensor object. A plain HidSensor stands for a sensor
// collection that is not a HID custom sensor: it is never registered with the
// class extension, keeps its SensorIndex so that the report IDs of the other
// sensors stay aligned, and ignores the input reports routed to it.
#pragma once

#include "driver/heap.h"
#include "platform/sensorscx.h"
#include "platform/wdf.h"
#include "sensors/hid_collection_record.h"

class HidDevice;

// The ten arguments every sensor class is constructed with, in this order.
struct SensorConstructionArgs {
    WDFDEVICE Device;
    HidDevice* Owner;
    ULONG SensorObjectKind;  // kCustomSensorObjectKind or kOtherSensorObjectKind
    ULONG Usage;             // 0xE1, or the collection's own usage
    USHORT LinkCollection;   // node index of the collection, 0 for a top-level sensor
    ULONG SensorIndex;
    PCWSTR Manufacturer;     // may be empty; copied
    PCWSTR Product;
    PCWSTR SerialNumber;
    PCWSTR InstanceName;
};

class HidSensor : public HeapObject {
public:
    HidSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
              USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer, PCWSTR product,
              PCWSTR serialNumber, PCWSTR instanceName) noexcept;
    HidSensor(const HidSensor&) = delete;
    HidSensor& operator=(const HidSensor&) = delete;

    // The operation table. Its order is fixed; subclasses add only after the
    // destructor. Operations taking a SENSOROBJECT are reached from the class
    // extension's callbacks with that callback's arguments.
    virtual NTSTATUS Initialize();
    virtual NTSTATUS Uninitialize();
    virtual NTSTATUS Start(SENSOROBJECT sensor);
    virtual NTSTATUS Stop(SENSOROBJECT sensor);
    virtual NTSTATUS GetSupportedDataFields(SENSOROBJECT sensor, PSENSOR_PROPERTY_LIST fields,
                                            ULONG* size);
    virtual NTSTATUS GetProperties(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST properties,
                                   ULONG* size);
    virtual NTSTATUS GetDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                            PSENSOR_COLLECTION_LIST properties, ULONG* size);
    virtual NTSTATUS GetDataInterval(SENSOROBJECT sensor, ULONG* dataRateMs);
    virtual NTSTATUS SetDataInterval(SENSOROBJECT sensor, ULONG dataRateMs);
    virtual NTSTATUS GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds,
                                       ULONG* size);
    virtual NTSTATUS SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds);
    virtual NTSTATUS DeviceIoControl(SENSOROBJECT sensor, WDFREQUEST request,
                                     SIZE_T outputBufferLength, SIZE_T inputBufferLength,
                                     ULONG ioControlCode);
    virtual NTSTATUS StartHistory(SENSOROBJECT sensor);
    virtual NTSTATUS StopHistory(SENSOROBJECT sensor);
    virtual NTSTATUS ClearHistory(SENSOROBJECT sensor);
    virtual NTSTATUS StartHistoryRetrieval(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST historyBuffer,
                                           ULONG historySizeInBytes);
    virtual NTSTATUS CancelHistoryRetrieval(SENSOROBJECT sensor, ULONG* bytesWritten);
    virtual NTSTATUS ReadFeatureReport(ULONG writeBack);
    virtual NTSTATUS UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value);
    virtual NTSTATUS ProcessInputReport(BYTE* report, ULONG length, ULONG firstInRead);
    virtual ~HidSensor();

    // False when a constructor of the class chain could not allocate its
    // state; the creator then deletes the object (see CreateSensorObject).
    bool IsValid() const noexcept { return record_ != nullptr && !constructionFailed_; }

    HidCollectionRecord* Record() const noexcept { return record_; }
    PCWSTR GetFriendlyName() const noexcept;

    // Wait lock and one-shot timer for the history code of subclasses.
    NTSTATUS CreateLock();
    NTSTATUS AcquireLock();
    void ReleaseLock();
    void DeleteLock();
    NTSTATUS CreateTimer(PWDF_TIMER_CONFIG config, PWDF_OBJECT_ATTRIBUTES attributes);
    bool StartTimer(ULONG milliseconds);
    bool StopTimer();
    void DeleteTimer();

protected:
    // For subclass constructors whose own state block cannot be allocated.
    void MarkConstructionFailed() noexcept { constructionFailed_ = true; }
    // Frees the four capability arrays.
    void FreeCapabilities() noexcept;
    void DeleteSensorObject() noexcept;

private:
    NTSTATUS ReadCapabilities();

    HidCollectionRecord* record_ = nullptr;
    bool constructionFailed_ = false;
};

// Creates a T from the ten construction arguments. STATUS_NO_MEMORY when the
// object or a state block its constructor needs cannot be allocated; nothing
// is left behind then.
template <class T>
NTSTATUS CreateSensorObject(const SensorConstructionArgs& args, HidSensor** sensor) noexcept
{
    *sensor = nullptr;
    T* created = new (std::nothrow)
        T(args.Device, args.Owner, args.SensorObjectKind, args.Usage, args.LinkCollection,
          args.SensorIndex, args.Manufacturer, args.Product, args.SerialNumber, args.InstanceName);
    if (created == nullptr)
        return STATUS_NO_MEMORY;
    if (!created->IsValid()) {
        delete created;
        return STATUS_NO_MEMORY;
    }
    *sensor = created;
    return STATUS_SUCCESS;
}
