#include "tests/sensorscx/fake_sensor_driver.h"

#include <cstring>
#include <utility>

#include "platform/sensorsutils.h"

struct FAKE_SENSOR_CONTEXT {
    host::sensorscx::testing::FakeSensor* sensor;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(FAKE_SENSOR_CONTEXT, FakeSensorContext)

namespace host::sensorscx::testing {
namespace {

constexpr ULONG kEntriesPerRecord = 3;

// The sensor behind a callback's handle, or null when the handle is not its
// own (an impostor leads to the same context but is another handle).
FakeSensor* Own(SENSOROBJECT handle)
{
    FAKE_SENSOR_CONTEXT* context = FakeSensorContext(handle);
    if (context == nullptr || context->sensor == nullptr || context->sensor->handle != handle)
        return nullptr;
    return context->sensor;
}

NTSTATUS EvtStart(SENSOROBJECT h)
{
    FakeSensor* s = Own(h);
    return s == nullptr ? STATUS_UNSUCCESSFUL : (++s->starts, STATUS_SUCCESS);
}

// Callbacks no test reaches: present, so the class extension accepts the driver.
template <class... Args>
NTSTATUS Unused(SENSOROBJECT, Args...)
{
    return STATUS_NOT_SUPPORTED;
}

NTSTATUS EvtSetDataThresholds(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list)
{
    FakeSensor* s = Own(h);
    if (s == nullptr || list == nullptr)
        return STATUS_INVALID_PARAMETER;
    s->lastThresholds = CollectionListCopy::FromList(*list);
    list->Count = 0;  // scribbles on what it was given; the client's own list must not change
    return STATUS_SUCCESS;
}

NTSTATUS EvtGetDataInterval(SENSOROBJECT h, ULONG* ms)
{
    FakeSensor* s = Own(h);
    if (s == nullptr || ms == nullptr)
        return STATUS_INVALID_PARAMETER;
    *ms = s->intervalMs;
    return STATUS_SUCCESS;
}

NTSTATUS EvtSetDataInterval(SENSOROBJECT h, ULONG ms)
{
    FakeSensor* s = Own(h);
    return s == nullptr ? STATUS_UNSUCCESSFUL : (s->intervalMs = ms, STATUS_SUCCESS);
}

// As a sensor that handles no private IOCTL: the request is completed here.
NTSTATUS EvtDeviceIoControl(SENSOROBJECT, WDFREQUEST request, SIZE_T, SIZE_T, ULONG)
{
    WdfRequestComplete(request, STATUS_NOT_SUPPORTED);
    return STATUS_NOT_SUPPORTED;
}

// The size-query convention of the list callbacks, broken as `misbehave` says.
NTSTATUS EvtGetProperties(SENSOROBJECT h, PSENSOR_COLLECTION_LIST out, ULONG* size)
{
    FakeSensor* s = Own(h);
    if (size == nullptr)
        return STATUS_INVALID_PARAMETER;
    *size = 0;
    if (s == nullptr)
        return STATUS_UNSUCCESSFUL;
    const Misbehaviour& m = s->misbehave;
    PSENSOR_COLLECTION_LIST source = s->properties.get();
    const ULONG needed = CollectionsListGetMarshalledSize(source);
    if (out == nullptr)
        return *size = needed - m.sizeQueryShortBy, STATUS_SUCCESS;
    const ULONG allocated = out->AllocatedSizeInBytes;
    if (allocated < needed)
        return STATUS_INSUFFICIENT_RESOURCES;
    if (m.shallowCopy) {
        std::memcpy(out->List, source->List, sizeof(SENSOR_VALUE_PAIR) * source->Count);
        out->Count = source->Count;
    } else if (const NTSTATUS status = CollectionsListCopyAndMarshall(out, source); !NT_SUCCESS(status)) {
        return status;
    }
    if (m.countBeyondBuffer)
        out->Count = (allocated - 8) / ULONG{sizeof(SENSOR_VALUE_PAIR)} + 1;
    if (m.overrun) {  // and claims the buffer was bigger
        reinterpret_cast<BYTE*>(out)[allocated] = 0x5A;
        out->AllocatedSizeInBytes = allocated + 8;
    }
    *size = needed;
    return STATUS_SUCCESS;
}

// Accepts one retrieval at a time; the test completes it with CompleteHistory.
NTSTATUS EvtStartHistoryRetrieval(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list, ULONG bytes)
{
    FakeSensor* s = Own(h);
    if (s == nullptr || list == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (bytes < 8 + kEntriesPerRecord * sizeof(SENSOR_VALUE_PAIR))
        return STATUS_BUFFER_TOO_SMALL;
    if (s->historyList != nullptr)
        return STATUS_DEVICE_BUSY;
    s->historyList = list;
    return STATUS_SUCCESS;
}

NTSTATUS EvtCancelHistoryRetrieval(SENSOROBJECT h, ULONG* written)
{
    FakeSensor* s = Own(h);
    if (s == nullptr || written == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (s->historyList == nullptr)
        return *written = 0, STATUS_INVALID_DEVICE_STATE;
    *written = CollectionsListGetMarshalledSizeWithoutSerialization(std::exchange(s->historyList, nullptr));
    return STATUS_SUCCESS;
}

constexpr SENSOR_CONTROLLER_CONFIG kCallbacks = {
    sizeof(SENSOR_CONTROLLER_CONFIG), WdfTrue, EvtStart, Unused, Unused, Unused,
    EvtGetDataInterval, EvtSetDataInterval, Unused, EvtSetDataThresholds, EvtGetProperties,
    EvtDeviceIoControl, Unused,
    Unused, Unused, EvtStartHistoryRetrieval, EvtCancelHistoryRetrieval, nullptr,
};

NTSTATUS FakeDeviceAdd(WDFDRIVER, PWDFDEVICE_INIT init)
{
    const FakeDriverConfig& c = FakeDriver();
    NTSTATUS status = c.skipInitConfig ? STATUS_SUCCESS : SensorsCxDeviceInitConfig(init, nullptr, 0);
    WDFDEVICE device = nullptr;
    if (NT_SUCCESS(status))
        status = WdfDeviceCreate(&init, nullptr, &device);
    if (!NT_SUCCESS(status))
        return status;
    SENSOR_CONTROLLER_CONFIG config = kCallbacks;
    config.Size = c.configSize;
    if (c.nullStart)
        config.EvtSensorStart = nullptr;
    status = SensorsCxDeviceInitialize(device, &config);
    for (int i = 0; i < c.sensorCount && NT_SUCCESS(status); ++i) {
        FakeSensor& s = *FakeSensors().emplace_back(std::make_unique<FakeSensor>());
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&attributes, WDF_GET_CONTEXT_TYPE_INFO(FAKE_SENSOR_CONTEXT));
        status = SensorsCxSensorCreate(device, &attributes, &s.handle);
        if (!NT_SUCCESS(status))
            break;
        FakeSensorContext(s.handle)->sensor = &s;
        SENSOR_CONFIG sensorConfig{sizeof(SENSOR_CONFIG), s.enumeration.get()};
        if (c.initializeCount < 0 || i < c.initializeCount)
            status = SensorsCxSensorInitialize(s.handle, &sensorConfig);
    }
    return status;
}

}  // namespace

NTSTATUS FakeDriverEntry(void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath)
{
    WDF_DRIVER_CONFIG config{};
    config.Size = sizeof(config);
    config.EvtDriverDeviceAdd = FakeDeviceAdd;
    WDFDRIVER driver = nullptr;
    return WdfDriverCreate(driverObject, registryPath, nullptr, &config, &driver);
}

FakeSensor::FakeSensor()
{
    enumeration.Set(0, 2, Clsid(kDataFmtid));
    enumeration.Set(1, 6, Str(u"Fake sensor"));
    enumeration.Set(2, 24, Ui4(1000));  // keeps a history
    properties.Set(0, 20, Ui4(0));
    properties.Set(1, 7, Str(u"Manufacturer \"quoted\""));
    properties.Set(2, 21, Ui4(50));
    data.Set(0, 2, FileTime(0), kDataFmtid);
    data.Set(1, 7, Ui4(0), kDataFmtid);
    data.Set(2, 8, R4(0), kDataFmtid);
}

void FakeSensor::CompleteHistory(ULONG records, ULONG shortBy, int times)
{
    PSENSOR_COLLECTION_LIST list = std::exchange(historyList, nullptr);  // holds `records` records
    for (ULONG r = 0; r < records; ++r) {
        SENSOR_VALUE_PAIR* e = &list->List[r * kEntriesPerRecord];
        e[0] = {kTimestampKey, FileTime(1000 + r)};
        e[1] = {{kDataFmtid, 130}, Ui4(0x08)};
        e[2] = {{kDataFmtid, 131}, Ui2(static_cast<USHORT>(50 + r))};
    }
    list->Count = records * kEntriesPerRecord;
    const ULONG size = CollectionsListGetMarshalledSizeWithoutSerialization(list) - shortBy;
    for (; times > 0; --times)
        SensorsCxSensorHistoryRetrievalComplete(handle, size, STATUS_SUCCESS);
}

NTSTATUS FakeSensor::Deliver(ULONG value, float reading)
{
    data.get()->List[1].Value.ulVal = value;
    data.get()->List[2].Value.fltVal = reading;
    return SensorsCxSensorDataReady(handle, data.get());
}

void FakeDriverTest::SetUp()
{
    LedgerTest::SetUp();
    FakeDriver() = FakeDriverConfig{};
    FakeSensors().clear();
    host_ = std::make_unique<framework::DriverHost>(mode_, FILETIME{0, 0x01DC0000});
}

void FakeDriverTest::Start()
{
    ASSERT_EQ(host_->LoadDriver(FakeDriverEntry), STATUS_SUCCESS);
    host_->AddDevice(endpoint_);
    client_.emplace(host_->Device());
}

void FakeDriverTest::TearDown()
{
    client_.reset();
    // Tests take the violations they provoke; any left over is a failure.
    EXPECT_EQ(TakeViolations(), std::vector<ViolationKind>{});
    host_->Unload();
    FakeSensors().clear();
    EXPECT_EQ(host_->Leaks(), "");
    EXPECT_TRUE(host_->Violations().empty());
    host_.reset();
    LedgerTest::TearDown();
}

}  // namespace host::sensorscx::testing
