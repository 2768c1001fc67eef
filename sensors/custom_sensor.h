// The sensor object of a HID custom-sensor collection (usage 0xE1): it names
// itself after the kind its description string gives it, keeps the device's
// feature report in its SensorPropertyCache, registers a platform sensor with
// the class extension and publishes six lists for it, answers the class
// extension's callbacks and turns input reports into samples.
//
// The callbacks and the input reader run on different threads without a lock:
// the fields they share are single 32-bit values (requested states, intervals,
// forceDelivery, thresholds) held as relaxed atomics in the record. The data
// list and PendingFieldCount are written only by the reader. Two callbacks may
// run at once on the class extension's threads; the two lists that a callback
// writes while another may be copying them (the sensor state in the property
// list, the threshold value) are guarded by publishedListsLock_, which the
// reader never takes.
#pragma once

#include <atomic>
#include <mutex>

#include "feature/sensor_property_cache.h"
#include "hid/custom_sensor_kind.h"
#include "input/input_report.h"
#include "sensors/hid_sensor.h"
#include "sensors/sensor_lists.h"

inline constexpr ULONG kDefaultReportIntervalMs = 100;
inline constexpr ULONG kMinimumReportIntervalMs = 50;

// Values of the sensor-state property.
inline constexpr ULONG kSensorStateStarted = 2;
inline constexpr ULONG kSensorStateStopped = 1;

class CustomSensor : public HidSensor {
public:
    CustomSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                 USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer, PCWSTR product,
                 PCWSTR serialNumber, PCWSTR instanceName) noexcept;
    ~CustomSensor() override;

    NTSTATUS Initialize() override;
    // The base destruction frees what is left; nothing to do here.
    NTSTATUS Uninitialize() override;
    NTSTATUS Start(SENSOROBJECT sensor) override;
    NTSTATUS Stop(SENSOROBJECT sensor) override;
    NTSTATUS GetSupportedDataFields(SENSOROBJECT sensor, PSENSOR_PROPERTY_LIST fields,
                                    ULONG* size) override;
    NTSTATUS GetProperties(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST properties,
                           ULONG* size) override;
    NTSTATUS GetDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                    PSENSOR_COLLECTION_LIST properties, ULONG* size) override;
    NTSTATUS GetDataInterval(SENSOROBJECT sensor, ULONG* dataRateMs) override;
    NTSTATUS SetDataInterval(SENSOROBJECT sensor, ULONG dataRateMs) override;
    NTSTATUS GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds,
                               ULONG* size) override;
    NTSTATUS SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds) override;
    // Reports the request as handled and leaves it alone: it is neither
    // completed nor forwarded. The class extension keeps it; the base class's
    // STATUS_NOT_SUPPORTED completion is not wanted for custom sensors.
    NTSTATUS DeviceIoControl(SENSOROBJECT sensor, WDFREQUEST request, SIZE_T outputBufferLength,
                             SIZE_T inputBufferLength, ULONG ioControlCode) override;
    // Fetches and parses the feature report into the cache, then writes the
    // requested settings back (thresholds and vendor values only when
    // writeSettings is 1). Serialised per sensor.
    NTSTATUS ReadFeatureReport(ULONG writeSettings) override;
    // Stores the field in the data list and delivers the sample once every
    // data field but the timestamp has been updated since the last reset.
    NTSTATUS UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value) override;
    // Decodes one input report into UpdateDataField calls (input/).
    NTSTATUS ProcessInputReport(BYTE* report, ULONG length, ULONG firstInRead) override;

    // Creates the platform sensor, binds it to this object and publishes its lists.
    virtual NTSTATUS RegisterSensor();

    SensorPropertyCache* PropertyCache() const noexcept { return cache_; }

protected:
    // STATUS_UNSUCCESSFUL unless `sensor` is this object's own SENSOROBJECT.
    NTSTATUS CheckHandle(SENSOROBJECT sensor) const noexcept;
    // Builds the data-field key vector from the sensor's own input report and
    // sets the presence flags of the fields it finds.
    NTSTATUS BuildDataFieldKeys();
    // Writes `state` into the sensor-state entry of the sensor property list.
    void SetSensorStateProperty(ULONG state) noexcept;
    // Where the one-argument form writes it: 3 in the custom sensor's own list,
    // whose third entry is the HID usage; 2 in the subclasses', which have none.
    void SetSensorStateEntry(ULONG entry) noexcept { sensorStateEntry_ = entry; }
    // Guards the published lists a callback writes while another copies them.
    std::mutex& PublishedListsLock() noexcept { return publishedListsLock_; }

    // The steps that every registration shares, in their order. The first
    // builds the key vector and sets the persistent unique ID; the second
    // creates the platform sensor bound to this object (failing to bind
    // deletes it again: STATUS_INSUFFICIENT_RESOURCES); the last initializes
    // it with the enumeration list and marks the sensor registered.
    NTSTATUS BuildKeysAndIdentity();
    NTSTATUS CreateBoundSensorObject();
    NTSTATUS InitializeSensorObject();
    // The shared steps around `createLists`, the subclass's own lists. The
    // first failure is returned; cleaning up after a failed `createLists` is
    // the subclass's call.
    template <class CreateLists>
    NTSTATUS RegisterWithLists(CreateLists createLists)
    {
        NTSTATUS status = BuildKeysAndIdentity();
        if (NT_SUCCESS(status))
            status = CreateBoundSensorObject();
        if (NT_SUCCESS(status))
            status = createLists();
        if (NT_SUCCESS(status))
            status = InitializeSensorObject();
        return status;
    }

    // The interval callbacks over `requested`, the interval the client asked
    // for: a history sensor keeps its own, a plain custom sensor's is the
    // record's report interval itself. Get reads the feature report and falls
    // back to the default when the minimum has risen above `requested`; Set
    // refuses an interval below the minimum, stores it in `requested` and as
    // the report interval, reads the feature report and forces the next delivery.
    NTSTATUS GetRequestedInterval(SENSOROBJECT sensor, ULONG* dataRateMs, std::atomic<ULONG>& requested);
    NTSTATUS SetRequestedInterval(SENSOROBJECT sensor, ULONG dataRateMs, std::atomic<ULONG>& requested);

    // Answers the data-field property list for `servedKey` only: any other
    // key gives STATUS_NOT_SUPPORTED, and every failure stores size 0.
    NTSTATUS AnswerDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                       const PROPERTYKEY& servedKey, PSENSOR_COLLECTION_LIST properties,
                                       ULONG* size);

    // Answers the threshold list as it stands (a wrong handle gives size 0):
    // for sensors whose thresholds are kept in the list itself.
    NTSTATUS AnswerPublishedThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds, ULONG* size);

    // Answers a published list that callbacks may rewrite: a wrong handle
    // gives STATUS_UNSUCCESSFUL (size 0 when asked for), then the size-query
    // pattern, with `refresh` run on the list first, under the lock.
    template <class Refresh>
    NTSTATUS AnswerGuardedList(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST source, PSENSOR_COLLECTION_LIST target,
                               ULONG* size, Refresh refresh)
    {
        if (!NT_SUCCESS(CheckHandle(sensor))) {
            if (size != nullptr)
                *size = 0;
            return STATUS_UNSUCCESSFUL;
        }
        if (size == nullptr)
            return STATUS_INVALID_PARAMETER;
        std::lock_guard lock(publishedListsLock_);
        if (source != nullptr)
            refresh(source);
        return AnswerCollectionList(source, target, size);
    }

private:
    // Start and Stop: force the next delivery (Start only), ask for reporting
    // on or off, write it back and publish the sensor state.
    NTSTATUS SwitchReporting(SENSOROBJECT sensor, bool on);

    // The usages every custom sensor handles alike (state and event as values,
    // custom usage); `handled` tells whether `usage` (low 12 bits) was one.
    NTSTATUS HandleCommonInputUsage(USHORT usage, LONG signedValue, ULONG raw,
                                    SensorStateAndEvent* decoded, bool* handled);

    // Records where each custom data key sits in `data`, so that an update
    // finds its entries without scanning the list.
    void IndexDataFields(PSENSOR_COLLECTION_LIST data) noexcept;

    SensorPropertyCache* cache_ = nullptr;
    std::mutex publishedListsLock_;
    ULONG sensorStateEntry_ = 3;
    // The data list the index below was built for (null: none), and per custom
    // data pid 5..34 the entries holding it, one bit per entry. The keys of a
    // data list never change, so the index stays exact; a list of more than
    // 64 entries is not indexed and is scanned instead.
    PSENSOR_COLLECTION_LIST indexedData_ = nullptr;
    ULONGLONG customFieldEntries_[30] = {};
    // Once-only diagnostics of the input path.
    bool stateAsValueNoted_ = false;
    bool eventAsValueNoted_ = false;
};
