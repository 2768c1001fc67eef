#include "sensors/hid_sensor.h"

#include "hid/hid_device.h"
#include "sensors/sensor_lists.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x884384E3, 0xEB21, 0x48E9, {0x95, 0x6A, 0x14, 0xA6, 0x5C, 0x36, 0xDE, 0x7D}};

void CopyOrDefault(WCHAR (&target)[kSensorStringChars], PCWSTR value, PCWSTR fallback)
{
    WideCopy(target, value != nullptr && value[0] != 0 ? value : fallback);
}

template <class Caps, class Reader>
NTSTATUS ReadCapsArray(USHORT count, HeapArray<Caps>& caps, Reader read)
{
    if (count == 0)
        return STATUS_SUCCESS;
    if (!caps.AllocateZeroed(count))
        return STATUS_NO_MEMORY;
    USHORT length = count;
    const NTSTATUS status = read(caps.Get(), &length);
    return NT_SUCCESS(status) ? STATUS_SUCCESS : status;
}
}  // namespace

HidSensor::HidSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                     USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer, PCWSTR product,
                     PCWSTR serialNumber, PCWSTR instanceName) noexcept
{
    record_ = new (std::nothrow) HidCollectionRecord;
    if (record_ == nullptr) {
        TRACE_ERROR(STATUS_NO_MEMORY, sensorIndex);
        return;
    }
    HidCollectionRecord& record = *record_;
    record.Device = device;
    record.Owner = owner;
    record.SensorObjectKind = sensorObjectKind;
    record.Usage = usage;
    record.SensorIndex = sensorIndex;
    record.LinkCollection = linkCollection;
    CopyOrDefault(record.Manufacturer, manufacturer, u"Orvex");
    CopyOrDefault(record.Model, product, u"0002");
    CopyOrDefault(record.SerialNumber, serialNumber, u"0000");
    WideCopy(record.InstanceName, instanceName);
    WideCopy(record.FriendlyName, u"Unknown");
}

HidSensor::~HidSensor()
{
    if (record_ == nullptr)
        return;
    FreeCapabilities();
    DeleteSensorObject();
    DeleteLock();
    DeleteTimer();
    DriverHeapFree(record_->HistoryBuffer);
    record_->HistoryBuffer = nullptr;
    delete record_;
    record_ = nullptr;
}

PCWSTR HidSensor::GetFriendlyName() const noexcept
{
    return record_ != nullptr ? record_->FriendlyName : nullptr;
}

void HidSensor::FreeCapabilities() noexcept
{
    record_->InputValueCaps.Reset();
    record_->InputButtonCaps.Reset();
    record_->FeatureValueCaps.Reset();
    record_->FeatureButtonCaps.Reset();
}

void HidSensor::DeleteSensorObject() noexcept
{
    HidCollectionRecord& record = *record_;
    record.IsRegistered.store(0, std::memory_order_relaxed);
    if (record.SensorObject == nullptr)
        return;
    // The lists die with the SENSOROBJECT; the strings and CLSIDs their values
    // own are task memory and go first.
    ReleaseListValues(record.EnumerationProperties);
    ReleaseListValues(record.SensorProperties);
    ReleaseListValues(record.DataFieldProperties);
    ReleaseListValues(record.Thresholds);
    ReleaseListValues(record.Data);
    // A history timer is the SENSOROBJECT's child: deleted first, not left dangling.
    DeleteTimer();
    WdfObjectDelete(record.SensorObject);
    record.SensorObject = nullptr;
    record.EnumerationProperties = nullptr;
    record.SensorProperties = nullptr;
    record.SupportedDataFields = nullptr;
    record.DataFieldProperties = nullptr;
    record.Thresholds = nullptr;
    record.Data = nullptr;
}

NTSTATUS HidSensor::ReadCapabilities()
{
    HidCollectionRecord& record = *record_;
    if (record.Owner == nullptr)
        return STATUS_INVALID_PARAMETER;
    const HIDP_CAPS& caps = record.Owner->Caps();
    PHIDP_PREPARSED_DATA preparsed = record.Owner->PreparsedData();

    NTSTATUS status = ReadCapsArray(caps.NumberInputValueCaps, record.InputValueCaps,
                                    [&](HIDP_VALUE_CAPS* array, USHORT* length) {
                                        return HidP_GetValueCaps(HidP_Input, array, length, preparsed);
                                    });
    if (!NT_SUCCESS(status))
        return status;
    if (!record.InputValueCaps.Empty())
        record.InputReportId = record.InputValueCaps[0].ReportID;

    status = ReadCapsArray(caps.NumberFeatureValueCaps, record.FeatureValueCaps,
                           [&](HIDP_VALUE_CAPS* array, USHORT* length) {
                               return HidP_GetValueCaps(HidP_Feature, array, length, preparsed);
                           });
    if (!NT_SUCCESS(status))
        return status;
    if (!record.FeatureValueCaps.Empty()) {
        record.FeatureReportId = record.FeatureValueCaps[0].ReportID;
        record.HasFeatureReport = 1;
    }

    status = ReadCapsArray(caps.NumberInputButtonCaps, record.InputButtonCaps,
                           [&](HIDP_BUTTON_CAPS* array, USHORT* length) {
                               return HidP_GetButtonCaps(HidP_Input, array, length, preparsed);
                           });
    if (!NT_SUCCESS(status))
        return status;

    return ReadCapsArray(caps.NumberFeatureButtonCaps, record.FeatureButtonCaps,
                         [&](HIDP_BUTTON_CAPS* array, USHORT* length) {
                             return HidP_GetButtonCaps(HidP_Feature, array, length, preparsed);
                         });
}

NTSTATUS HidSensor::Initialize()
{
    TRACE_ENTRY();
    NTSTATUS status = ReadCapabilities();
    if (NT_SUCCESS(status))
        status = ReadFeatureReport(0);
    if (!NT_SUCCESS(status)) {
        FreeCapabilities();
        DeleteSensorObject();
        TRACE_ERROR(status, GetFriendlyName());
        TRACE_EXIT(status);
        return status;
    }
    record_->CapabilitiesRead = 1;
    record_->IsInitialized.store(1, std::memory_order_relaxed);
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::Uninitialize()
{
    TRACE_ENTRY();
    FreeCapabilities();
    DeleteSensorObject();
    record_->IsInitialized.store(0, std::memory_order_relaxed);
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

// The defaults below belong to sensors that were never registered with the
// class extension, so that no callback reaches them; they answer without
// looking at the handle.

NTSTATUS HidSensor::Start(SENSOROBJECT /*sensor*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::Stop(SENSOROBJECT /*sensor*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::GetSupportedDataFields(SENSOROBJECT /*sensor*/, PSENSOR_PROPERTY_LIST /*fields*/,
                                           ULONG* /*size*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::GetProperties(SENSOROBJECT /*sensor*/, PSENSOR_COLLECTION_LIST /*properties*/,
                                  ULONG* /*size*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::GetDataFieldProperties(SENSOROBJECT /*sensor*/, const PROPERTYKEY* /*dataField*/,
                                           PSENSOR_COLLECTION_LIST /*properties*/, ULONG* /*size*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::GetDataInterval(SENSOROBJECT /*sensor*/, ULONG* /*dataRateMs*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::SetDataInterval(SENSOROBJECT /*sensor*/, ULONG /*dataRateMs*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::GetDataThresholds(SENSOROBJECT /*sensor*/, PSENSOR_COLLECTION_LIST /*thresholds*/,
                                      ULONG* /*size*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::SetDataThresholds(SENSOROBJECT /*sensor*/, PSENSOR_COLLECTION_LIST /*thresholds*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::DeviceIoControl(SENSOROBJECT /*sensor*/, WDFREQUEST request,
                                    SIZE_T /*outputBufferLength*/, SIZE_T /*inputBufferLength*/,
                                    ULONG ioControlCode)
{
    TRACE_ENTRY();
    TRACE_ERROR(STATUS_NOT_SUPPORTED, GetFriendlyName(), ioControlCode);
    if (request != nullptr)
        WdfRequestComplete(request, STATUS_NOT_SUPPORTED);
    TRACE_EXIT(STATUS_NOT_SUPPORTED);
    return STATUS_NOT_SUPPORTED;
}

NTSTATUS HidSensor::StartHistory(SENSOROBJECT /*sensor*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::StopHistory(SENSOROBJECT /*sensor*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::ClearHistory(SENSOROBJECT /*sensor*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::StartHistoryRetrieval(SENSOROBJECT /*sensor*/,
                                          PSENSOR_COLLECTION_LIST /*historyBuffer*/,
                                          ULONG /*historySizeInBytes*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::CancelHistoryRetrieval(SENSOROBJECT /*sensor*/, ULONG* bytesWritten)
{
    TRACE_ENTRY();
    if (bytesWritten != nullptr)
        *bytesWritten = 0;
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::ReadFeatureReport(ULONG /*writeBack*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::UpdateDataField(const PROPERTYKEY* /*key*/, const PROPVARIANT* /*value*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidSensor::ProcessInputReport(BYTE* /*report*/, ULONG /*length*/, ULONG /*firstInRead*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}
