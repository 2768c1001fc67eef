#include "tests/sensorscx/fake_sensor_driver.h"

#include <cstring>

#include "host/common/fault_injection.h"
#include "host/common/resource_ledger.h"
#include "host/sensorscx/violations.h"
#include "platform/com.h"
#include "platform/sensorsutils.h"

struct FAKE_SENSOR_CONTEXT {
    host::sensorscx::testing::FakeSensor* sensor;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(FAKE_SENSOR_CONTEXT, FakeSensorContext)

namespace host::sensorscx::testing {
namespace {

constexpr GUID kSensorType = {0x9D9E0118, 0x1807, 0x4F2E, {0x96, 0xE4, 0x2C, 0xE5, 0x71, 0x42, 0xE1, 0x96}};
constexpr ULONG kHistoryEntriesPerRecord = 3;

// The sensor behind a callback's handle, or null when the handle is not its own.
FakeSensor* Own(SENSOROBJECT handle)
{
    FAKE_SENSOR_CONTEXT* context = FakeSensorContext(handle);
    if (context == nullptr || context->sensor == nullptr || context->sensor->handle != handle)
        return nullptr;
    return context->sensor;
}

void ApplyMisbehaviour(const Misbehaviour& m, void* out, ULONG headerCountBytesPerEntry)
{
    ULONG allocated = 0;
    std::memcpy(&allocated, out, sizeof(allocated));
    auto* bytes = static_cast<BYTE*>(out);
    if (m.countBeyondBuffer) {
        const ULONG count = (allocated - 8) / headerCountBytesPerEntry + 1;
        std::memcpy(bytes + 4, &count, sizeof(count));
    }
    if (m.overrun)
        bytes[allocated] = 0x5A;
    if (m.rewriteAllocated) {
        const ULONG changed = allocated + 8;
        std::memcpy(bytes, &changed, sizeof(changed));
    }
}

NTSTATUS ServeCollection(FakeSensor& s, PSENSOR_COLLECTION_LIST source, PSENSOR_COLLECTION_LIST out, ULONG* size)
{
    if (size == nullptr)
        return STATUS_INVALID_PARAMETER;
    *size = 0;
    const ULONG needed = CollectionsListGetMarshalledSize(source);
    if (out == nullptr) {
        *size = needed - s.misbehave.sizeQueryShortBy;
        return STATUS_SUCCESS;
    }
    if (out->AllocatedSizeInBytes < needed)
        return STATUS_INSUFFICIENT_RESOURCES;
    if (s.misbehave.shallowCopy) {
        std::memcpy(out->List, source->List, sizeof(SENSOR_VALUE_PAIR) * source->Count);
        out->Count = source->Count;
    } else {
        const NTSTATUS status = CollectionsListCopyAndMarshall(out, source);
        if (!NT_SUCCESS(status))
            return status;
    }
    ApplyMisbehaviour(s.misbehave, out, sizeof(SENSOR_VALUE_PAIR));
    *size = needed;
    return STATUS_SUCCESS;
}

NTSTATUS EvtStart(SENSOROBJECT h)
{
    FakeSensor* s = Own(h);
    if (s == nullptr)
        return STATUS_UNSUCCESSFUL;
    ++s->starts;
    return STATUS_SUCCESS;
}

NTSTATUS EvtStop(SENSOROBJECT h) { return Own(h) ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL; }

NTSTATUS EvtGetSupportedDataFields(SENSOROBJECT h, PSENSOR_PROPERTY_LIST fields, ULONG* size)
{
    FakeSensor* s = Own(h);
    if (s == nullptr)
        return STATUS_UNSUCCESSFUL;
    if (size == nullptr)
        return STATUS_INVALID_PARAMETER;
    *size = 0;
    const ULONG needed = s->Fields()->AllocatedSizeInBytes;
    if (fields == nullptr) {
        *size = needed - s->misbehave.sizeQueryShortBy;
        return STATUS_SUCCESS;
    }
    if (fields->AllocatedSizeInBytes < needed)
        return STATUS_INSUFFICIENT_RESOURCES;
    const NTSTATUS status = PropertiesListCopy(fields, s->Fields());
    if (!NT_SUCCESS(status))
        return status;
    ApplyMisbehaviour(s->misbehave, fields, sizeof(PROPERTYKEY));
    *size = needed;
    return STATUS_SUCCESS;
}

NTSTATUS EvtGetDataFieldProperties(SENSOROBJECT h, const PROPERTYKEY* field, PSENSOR_COLLECTION_LIST list,
                                   ULONG* size)
{
    FakeSensor* s = Own(h);
    if (s == nullptr)
        return STATUS_UNSUCCESSFUL;
    if (field == nullptr || size == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (!IsEqualPropertyKey(*field, kTimestampKey)) {
        *size = 0;
        return STATUS_NOT_SUPPORTED;
    }
    return ServeCollection(*s, s->fieldProperties.get(), list, size);
}

NTSTATUS EvtGetDataInterval(SENSOROBJECT h, ULONG* ms)
{
    FakeSensor* s = Own(h);
    if (s == nullptr)
        return STATUS_UNSUCCESSFUL;
    if (ms == nullptr)
        return STATUS_INVALID_PARAMETER;
    *ms = s->intervalMs;
    return STATUS_SUCCESS;
}

NTSTATUS EvtSetDataInterval(SENSOROBJECT h, ULONG ms)
{
    FakeSensor* s = Own(h);
    if (s == nullptr || ms < 50)
        return STATUS_UNSUCCESSFUL;
    s->intervalMs = ms;
    return STATUS_SUCCESS;
}

NTSTATUS EvtGetDataThresholds(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list, ULONG* size)
{
    FakeSensor* s = Own(h);
    if (s == nullptr) {
        if (size != nullptr)
            *size = 0;
        return STATUS_UNSUCCESSFUL;
    }
    return ServeCollection(*s, s->thresholds.get(), list, size);
}

NTSTATUS EvtSetDataThresholds(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list)
{
    FakeSensor* s = Own(h);
    if (s == nullptr)
        return STATUS_UNSUCCESSFUL;
    if (list == nullptr)
        return STATUS_INVALID_PARAMETER;
    s->lastThresholds = CollectionListCopy::FromList(*list);
    list->Count = 0;  // scribbles on what it was given; the client's own list must not change
    return STATUS_SUCCESS;
}

NTSTATUS EvtGetProperties(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list, ULONG* size)
{
    FakeSensor* s = Own(h);
    if (s == nullptr)
        return STATUS_UNSUCCESSFUL;
    return ServeCollection(*s, s->properties.get(), list, size);
}

NTSTATUS EvtDeviceIoControl(SENSOROBJECT h, WDFREQUEST request, SIZE_T, SIZE_T, ULONG)
{
    if (Own(h) == nullptr)
        return STATUS_UNSUCCESSFUL;
    WdfRequestComplete(request, STATUS_NOT_SUPPORTED);
    return STATUS_SUCCESS;
}

NTSTATUS EvtStartHistory(SENSOROBJECT h) { return Own(h) ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER; }
NTSTATUS EvtStopHistory(SENSOROBJECT h) { return Own(h) ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER; }
NTSTATUS EvtClearHistory(SENSOROBJECT h) { return Own(h) ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER; }

void HistoryWorker(FakeSensor* s, ULONG bytes)
{
    {
        std::unique_lock lock(s->workerMutex);
        s->workerWake.wait(lock, [s] { return !s->holdWorker || s->released || s->cancelled; });
        if (s->cancelled)
            return;
    }
    PSENSOR_COLLECTION_LIST list = s->historyList;
    const ULONG capacity = (bytes - 8) / (kHistoryEntriesPerRecord * sizeof(SENSOR_VALUE_PAIR));
    const ULONG records = std::min(capacity, s->historyRecords);
    for (ULONG r = 0; r < records; ++r) {
        SENSOR_VALUE_PAIR* e = &list->List[r * kHistoryEntriesPerRecord];
        e[0] = {kTimestampKey, FileTime(1000 + r)};
        e[1] = {{kDataFmtid, 130}, Ui4(0x08)};
        e[2] = {{kDataFmtid, 131}, Ui2(static_cast<USHORT>(50 + r))};
    }
    list->Count = records * kHistoryEntriesPerRecord;
    ULONG size = CollectionsListGetMarshalledSizeWithoutSerialization(list);
    if (s->reportShortSize)
        size -= 1;
    const NTSTATUS status = records == 0 ? STATUS_NO_MORE_ENTRIES : STATUS_SUCCESS;
    SensorsCxSensorHistoryRetrievalComplete(s->handle, size, status);
    if (s->completeTwice)
        SensorsCxSensorHistoryRetrievalComplete(s->handle, size, status);
}

NTSTATUS EvtStartHistoryRetrieval(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list, ULONG bytes)
{
    FakeSensor* s = Own(h);
    if (s == nullptr || list == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (bytes < 8 + kHistoryEntriesPerRecord * sizeof(SENSOR_VALUE_PAIR))
        return STATUS_BUFFER_TOO_SMALL;
    std::lock_guard lock(s->workerMutex);
    if (s->worker.joinable())
        return STATUS_DEVICE_BUSY;
    s->historyList = list;
    s->released = false;
    s->cancelled = false;
    s->worker = std::thread(HistoryWorker, s, bytes);
    return STATUS_SUCCESS;
}

NTSTATUS EvtCancelHistoryRetrieval(SENSOROBJECT h, ULONG* written)
{
    FakeSensor* s = Own(h);
    if (s == nullptr || written == nullptr)
        return STATUS_INVALID_PARAMETER;
    *written = 0;
    {
        std::lock_guard lock(s->workerMutex);
        if (!s->worker.joinable())
            return STATUS_INVALID_DEVICE_STATE;
        s->cancelled = true;
    }
    s->workerWake.notify_all();
    s->worker.join();
    *written = CollectionsListGetMarshalledSizeWithoutSerialization(s->historyList);
    return STATUS_SUCCESS;
}

constexpr SENSOR_CONTROLLER_CONFIG kCallbacks = {
    sizeof(SENSOR_CONTROLLER_CONFIG), WdfTrue, EvtStart, EvtStop, EvtGetSupportedDataFields,
    EvtGetDataFieldProperties, EvtGetDataInterval, EvtSetDataInterval, EvtGetDataThresholds,
    EvtSetDataThresholds, EvtGetProperties, EvtDeviceIoControl, EvtStartHistory, EvtStopHistory,
    EvtClearHistory, EvtStartHistoryRetrieval, EvtCancelHistoryRetrieval, nullptr,
};

NTSTATUS RegisterFakeSensor(WDFDEVICE device, FakeSensor& s, bool initialize)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&attributes, WDF_GET_CONTEXT_TYPE_INFO(FAKE_SENSOR_CONTEXT));
    NTSTATUS status = SensorsCxSensorCreate(device, &attributes, &s.handle);
    if (!NT_SUCCESS(status))
        return status;
    FakeSensorContext(s.handle)->sensor = &s;
    if (!initialize)
        return STATUS_SUCCESS;
    SENSOR_CONFIG config{sizeof(SENSOR_CONFIG), s.enumeration.get()};
    return SensorsCxSensorInitialize(s.handle, &config);
}

NTSTATUS FakeDeviceAdd(WDFDRIVER, PWDFDEVICE_INIT init)
{
    FakeDriverConfig& c = FakeDriver();
    NTSTATUS status = STATUS_SUCCESS;
    if (!c.skipInitConfig) {
        status = SensorsCxDeviceInitConfig(init, nullptr, 0);
        if (!NT_SUCCESS(status))
            return status;
    }
    WDFDEVICE device = nullptr;
    status = WdfDeviceCreate(&init, nullptr, &device);
    if (!NT_SUCCESS(status))
        return status;
    SENSOR_CONTROLLER_CONFIG config = kCallbacks;
    config.Size = c.configSize;
    if (c.nullCallback >= 0) {
        // The fifteen callbacks follow Size and DriverIsPowerPolicyOwner, one pointer each.
        auto* slots = reinterpret_cast<void**>(&config.EvtSensorStart);
        slots[c.nullCallback] = nullptr;
    }
    status = SensorsCxDeviceInitialize(device, &config);
    if (!NT_SUCCESS(status))
        return status;
    for (int i = 0; i < c.sensorCount; ++i) {
        FakeSensors().push_back(std::make_unique<FakeSensor>(i));
        const bool initialize = c.initializeCount < 0 || i < c.initializeCount;
        status = RegisterFakeSensor(device, *FakeSensors().back(), initialize);
        if (!NT_SUCCESS(status))
            return status;
    }
    return STATUS_SUCCESS;
}

}  // namespace

DriverList::DriverList(ULONG capacity) : storage_((SENSOR_COLLECTION_LIST_SIZE(capacity) + 7) / 8, 0)
{
    get()->AllocatedSizeInBytes = SENSOR_COLLECTION_LIST_SIZE(capacity);
}

DriverList::~DriverList()
{
    const ULONG capacity = (get()->AllocatedSizeInBytes - 8) / sizeof(SENSOR_VALUE_PAIR);
    for (ULONG i = 0; i < capacity; ++i)
        PropVariantClear(&get()->List[i].Value);
}

void DriverList::Set(ULONG i, DWORD pid, const PROPVARIANT& value, const GUID& fmtid)
{
    PropVariantClear(&get()->List[i].Value);
    get()->List[i] = {{fmtid, pid}, value};
    get()->Count = std::max(get()->Count, i + 1);
}

PROPVARIANT Ui4(ULONG v)
{
    PROPVARIANT p{};
    p.vt = VT_UI4;
    p.ulVal = v;
    return p;
}

PROPVARIANT Ui2(USHORT v)
{
    PROPVARIANT p{};
    p.vt = VT_UI2;
    p.uiVal = v;
    return p;
}

PROPVARIANT R4(float v)
{
    PROPVARIANT p{};
    InitPropVariantFromFloat(v, &p);
    return p;
}

PROPVARIANT Str(const char16_t* s)
{
    PROPVARIANT p{};
    EXPECT_EQ(InitPropVariantFromString(s, &p), S_OK);
    return p;
}

PROPVARIANT Clsid(const GUID& g)
{
    PROPVARIANT p{};
    EXPECT_EQ(InitPropVariantFromCLSID(g, &p), S_OK);
    return p;
}

PROPVARIANT FileTime(ULONGLONG ticks)
{
    const FILETIME ft{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    PROPVARIANT p{};
    InitPropVariantFromFileTime(&ft, &p);
    return p;
}

FakeSensor::FakeSensor(int n) : number(n), fieldsStorage((SENSOR_PROPERTY_LIST_SIZE(2) + 7) / 8, 0)
{
    enumeration.Set(0, 2, Clsid(kSensorType));
    enumeration.Set(1, 6, Str(n == 0 ? u"Fake sensor zero" : u"Fake sensor"));
    enumeration.Set(2, 9, Ui4(static_cast<ULONG>(n)));
    properties.Set(0, 20, Ui4(0));
    properties.Set(1, 7, Str(u"Manufacturer \"quoted\""));
    properties.Set(2, 21, Ui4(50));
    thresholds.Set(0, 161, R4(0.5f), kDataFmtid);
    fieldProperties.Set(0, 50, R4(0.1f));
    fieldProperties.Set(1, 52, R4(10000.0f));
    data.Set(0, 2, FileTime(0), kDataFmtid);
    data.Set(1, 7, Ui4(0), GUID{0xB14C764F, 0x07CF, 0x41E8, {0x9D, 0x82, 0xEB, 0xE3, 0xD0, 0x77, 0x6A, 0x6F}});
    data.Set(2, 8, R4(0), GUID{0xB14C764F, 0x07CF, 0x41E8, {0x9D, 0x82, 0xEB, 0xE3, 0xD0, 0x77, 0x6A, 0x6F}});
    Fields()->AllocatedSizeInBytes = SENSOR_PROPERTY_LIST_SIZE(2);
    Fields()->Count = 2;
    Fields()->List[0] = kTimestampKey;
    Fields()->List[1] = {kDataFmtid, 130};
}

void FakeSensor::ReleaseWorker()
{
    {
        std::lock_guard lock(workerMutex);
        released = true;
    }
    workerWake.notify_all();
}

void FakeSensor::JoinWorker()
{
    ReleaseWorker();
    if (worker.joinable())
        worker.join();
}

NTSTATUS FakeSensor::Deliver(ULONG value, float reading)
{
    data.get()->List[1].Value.ulVal = value;
    data.get()->List[2].Value.fltVal = reading;
    return SensorsCxSensorDataReady(handle, data.get());
}

FakeDriverConfig& FakeDriver()
{
    static FakeDriverConfig config;
    return config;
}

std::vector<std::unique_ptr<FakeSensor>>& FakeSensors()
{
    static std::vector<std::unique_ptr<FakeSensor>> sensors;
    return sensors;
}

NTSTATUS FakeDriverEntry(void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath)
{
    WDF_DRIVER_CONFIG config{};
    config.Size = sizeof(config);
    config.EvtDriverDeviceAdd = FakeDeviceAdd;
    WDFDRIVER driver = nullptr;
    return WdfDriverCreate(driverObject, registryPath, nullptr, &config, &driver);
}

void LedgerTest::SetUp()
{
    FaultInjector::Instance().Reset();
    ViolationLog::Instance().Reset();
}

void LedgerTest::TearDown()
{
    FaultInjector::Instance().Reset();
    EXPECT_EQ(ResourceLedger::Instance().Leaks(), "");
}

void FakeDriverTest::SetUp()
{
    LedgerTest::SetUp();
    FakeDriver() = FakeDriverConfig{};
    FakeSensors().clear();
    host_ = std::make_unique<framework::DriverHost>(framework::ClockMode::Deterministic, FILETIME{0, 0x01DC0000});
}

void FakeDriverTest::Start()
{
    ASSERT_EQ(host_->LoadDriver(FakeDriverEntry), STATUS_SUCCESS);
    host_->AddDevice(endpoint_);
    client_.emplace(host_->Device());
    started_ = true;
}

void FakeDriverTest::TearDown()
{
    for (auto& sensor : FakeSensors())
        sensor->JoinWorker();
    client_.reset();
    if (host_ != nullptr) {
        host_->Unload();
        FakeSensors().clear();
        EXPECT_EQ(host_->Leaks(), "");
        EXPECT_TRUE(host_->Violations().empty());
        host_.reset();
    }
    FakeSensors().clear();
    LedgerTest::TearDown();
}

std::vector<std::string> FakeDriverTest::ViolationTexts() const
{
    std::vector<std::string> texts;
    for (const Violation& v : ViolationLog::Instance().Entries())
        texts.push_back(v.what);
    return texts;
}

}  // namespace host::sensorscx::testing
