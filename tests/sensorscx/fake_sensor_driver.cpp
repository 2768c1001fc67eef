#include "tests/sensorscx/fake_sensor_driver.h"

#include <cstring>

#include "host/common/fault_injection.h"
#include "host/common/resource_ledger.h"
#include "platform/com.h"
#include "platform/sensorsutils.h"

struct FAKE_SENSOR_CONTEXT {
    host::sensorscx::testing::FakeSensor* sensor;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(FAKE_SENSOR_CONTEXT, FakeSensorContext)

namespace host::sensorscx::testing {
namespace {

constexpr GUID kSensorType = {0x9D9E0118, 0x1807, 0x4F2E, {0x96, 0xE4, 0x2C, 0xE5, 0x71, 0x42, 0xE1, 0x96}};
constexpr GUID kLinearFmtid = {0xB14C764F, 0x07CF, 0x41E8, {0x9D, 0x82, 0xEB, 0xE3, 0xD0, 0x77, 0x6A, 0x6F}};
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

template <class Body>
NTSTATUS With(SENSOROBJECT h, NTSTATUS refused, Body body)
{
    FakeSensor* s = Own(h);
    return s != nullptr ? body(*s) : refused;
}

// The size-query convention shared by every list callback; `copy` fills `out`.
template <class Copy>
NTSTATUS Serve(FakeSensor* s, ULONG needed, void* out, ULONG* size, ULONG entryBytes, Copy copy)
{
    if (size == nullptr)
        return STATUS_INVALID_PARAMETER;
    *size = 0;
    if (s == nullptr)
        return STATUS_UNSUCCESSFUL;
    if (out == nullptr) {
        *size = needed - s->misbehave.sizeQueryShortBy;
        return STATUS_SUCCESS;
    }
    ULONG allocated = 0;
    std::memcpy(&allocated, out, sizeof(allocated));
    if (allocated < needed)
        return STATUS_INSUFFICIENT_RESOURCES;
    const NTSTATUS status = copy();
    if (!NT_SUCCESS(status))
        return status;
    auto* bytes = static_cast<BYTE*>(out);
    const Misbehaviour& m = s->misbehave;
    if (m.countBeyondBuffer) {
        const ULONG count = (allocated - 8) / entryBytes + 1;
        std::memcpy(bytes + 4, &count, sizeof(count));
    }
    if (m.overrun)
        bytes[allocated] = 0x5A;
    if (m.rewriteAllocated) {
        const ULONG changed = allocated + 8;
        std::memcpy(bytes, &changed, sizeof(changed));
    }
    *size = needed;
    return STATUS_SUCCESS;
}

NTSTATUS ServeList(FakeSensor* s, PSENSOR_COLLECTION_LIST source, PSENSOR_COLLECTION_LIST out, ULONG* size)
{
    const ULONG needed = CollectionsListGetMarshalledSize(source);
    return Serve(s, needed, out, size, sizeof(SENSOR_VALUE_PAIR), [&] {
        if (!s->misbehave.shallowCopy)
            return CollectionsListCopyAndMarshall(out, source);
        std::memcpy(out->List, source->List, sizeof(SENSOR_VALUE_PAIR) * source->Count);
        out->Count = source->Count;
        return STATUS_SUCCESS;
    });
}

NTSTATUS EvtStart(SENSOROBJECT h)
{
    return With(h, STATUS_UNSUCCESSFUL, [](FakeSensor& s) { return ++s.starts, STATUS_SUCCESS; });
}

template <NTSTATUS refused>
NTSTATUS Succeed(SENSOROBJECT h)
{
    return Own(h) != nullptr ? STATUS_SUCCESS : refused;
}

NTSTATUS EvtGetSupportedDataFields(SENSOROBJECT h, PSENSOR_PROPERTY_LIST fields, ULONG* size)
{
    FakeSensor* s = Own(h);
    const ULONG needed = s != nullptr ? s->Fields()->AllocatedSizeInBytes : 0;
    return Serve(s, needed, fields, size, sizeof(PROPERTYKEY), [&] { return PropertiesListCopy(fields, s->Fields()); });
}

NTSTATUS EvtGetDataFieldProperties(SENSOROBJECT h, const PROPERTYKEY* field, PSENSOR_COLLECTION_LIST list, ULONG* size)
{
    FakeSensor* s = Own(h);
    if (field == nullptr || size == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (!IsEqualPropertyKey(*field, kTimestampKey))
        return *size = 0, STATUS_NOT_SUPPORTED;
    return ServeList(s, s != nullptr ? s->fieldProperties.get() : nullptr, list, size);
}

NTSTATUS EvtGetDataInterval(SENSOROBJECT h, ULONG* ms)
{
    return With(h, STATUS_UNSUCCESSFUL, [ms](FakeSensor& s) {
        return ms == nullptr ? STATUS_INVALID_PARAMETER : (*ms = s.intervalMs, STATUS_SUCCESS);
    });
}

NTSTATUS EvtSetDataInterval(SENSOROBJECT h, ULONG ms)
{
    return With(h, STATUS_UNSUCCESSFUL, [ms](FakeSensor& s) {
        return ms < 50 ? STATUS_UNSUCCESSFUL : (s.intervalMs = ms, STATUS_SUCCESS);
    });
}

NTSTATUS EvtGetDataThresholds(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list, ULONG* size)
{
    FakeSensor* s = Own(h);
    return ServeList(s, s != nullptr ? s->thresholds.get() : nullptr, list, size);
}

NTSTATUS EvtSetDataThresholds(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list)
{
    return With(h, STATUS_UNSUCCESSFUL, [list](FakeSensor& s) {
        if (list == nullptr)
            return STATUS_INVALID_PARAMETER;
        s.lastThresholds = CollectionListCopy::FromList(*list);
        list->Count = 0;  // scribbles on what it was given; the client's own list must not change
        return STATUS_SUCCESS;
    });
}

NTSTATUS EvtGetProperties(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list, ULONG* size)
{
    FakeSensor* s = Own(h);
    return ServeList(s, s != nullptr ? s->properties.get() : nullptr, list, size);
}

NTSTATUS EvtDeviceIoControl(SENSOROBJECT h, WDFREQUEST request, SIZE_T, SIZE_T, ULONG)
{
    return With(h, STATUS_UNSUCCESSFUL, [request](FakeSensor&) {
        WdfRequestComplete(request, STATUS_NOT_SUPPORTED);
        return STATUS_SUCCESS;
    });
}

void HistoryWorker(FakeSensor* s, ULONG bytes)
{
    {
        std::unique_lock lock(s->workerMutex);
        s->workerWake.wait(lock, [s] { return !s->holdWorker || s->released || s->cancelled; });
        if (s->cancelled)
            return;
    }
    PSENSOR_COLLECTION_LIST list = s->historyList;
    const ULONG records = std::min((bytes - 8) / (kEntriesPerRecord * ULONG{sizeof(SENSOR_VALUE_PAIR)}), s->historyRecords);
    for (ULONG r = 0; r < records; ++r) {
        SENSOR_VALUE_PAIR* e = &list->List[r * kEntriesPerRecord];
        e[0] = {kTimestampKey, FileTime(1000 + r)};
        e[1] = {{kDataFmtid, 130}, Ui4(0x08)};
        e[2] = {{kDataFmtid, 131}, Ui2(static_cast<USHORT>(50 + r))};
    }
    list->Count = records * kEntriesPerRecord;
    const ULONG size = CollectionsListGetMarshalledSizeWithoutSerialization(list) - (s->reportShortSize ? 1 : 0);
    const NTSTATUS status = records == 0 ? STATUS_NO_MORE_ENTRIES : STATUS_SUCCESS;
    for (int i = s->completeTwice ? 2 : 1; i > 0; --i)
        SensorsCxSensorHistoryRetrievalComplete(s->handle, size, status);
}

NTSTATUS EvtStartHistoryRetrieval(SENSOROBJECT h, PSENSOR_COLLECTION_LIST list, ULONG bytes)
{
    return With(h, STATUS_INVALID_PARAMETER, [list, bytes](FakeSensor& s) {
        if (list == nullptr)
            return STATUS_INVALID_PARAMETER;
        if (bytes < 8 + kEntriesPerRecord * sizeof(SENSOR_VALUE_PAIR))
            return STATUS_BUFFER_TOO_SMALL;
        std::lock_guard lock(s.workerMutex);
        if (s.worker.joinable())
            return STATUS_DEVICE_BUSY;
        s.historyList = list;
        s.released = s.cancelled = false;
        s.worker = std::thread(HistoryWorker, &s, bytes);
        return STATUS_SUCCESS;
    });
}

NTSTATUS EvtCancelHistoryRetrieval(SENSOROBJECT h, ULONG* written)
{
    return With(h, STATUS_INVALID_PARAMETER, [written](FakeSensor& s) {
        if (written == nullptr)
            return STATUS_INVALID_PARAMETER;
        *written = 0;
        {
            std::lock_guard lock(s.workerMutex);
            if (!s.worker.joinable())
                return STATUS_INVALID_DEVICE_STATE;
            s.cancelled = true;
        }
        s.workerWake.notify_all();
        s.worker.join();
        *written = CollectionsListGetMarshalledSizeWithoutSerialization(s.historyList);
        return STATUS_SUCCESS;
    });
}

constexpr SENSOR_CONTROLLER_CONFIG kCallbacks = {
    sizeof(SENSOR_CONTROLLER_CONFIG), WdfTrue, EvtStart, Succeed<STATUS_UNSUCCESSFUL>, EvtGetSupportedDataFields,
    EvtGetDataFieldProperties, EvtGetDataInterval, EvtSetDataInterval, EvtGetDataThresholds,
    EvtSetDataThresholds, EvtGetProperties, EvtDeviceIoControl, Succeed<STATUS_INVALID_PARAMETER>,
    Succeed<STATUS_INVALID_PARAMETER>, Succeed<STATUS_INVALID_PARAMETER>, EvtStartHistoryRetrieval,
    EvtCancelHistoryRetrieval, nullptr,
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
    if (c.nullCallback >= 0)  // the fifteen callbacks follow Size and the owner flag, one pointer each
        reinterpret_cast<void**>(&config.EvtSensorStart)[c.nullCallback] = nullptr;
    status = SensorsCxDeviceInitialize(device, &config);
    for (int i = 0; i < c.sensorCount && NT_SUCCESS(status); ++i) {
        FakeSensor& s = *FakeSensors().emplace_back(std::make_unique<FakeSensor>(i));
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

NTSTATUS FakeDriverEntry(void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath)
{
    WDF_DRIVER_CONFIG config{};
    config.Size = sizeof(config);
    config.EvtDriverDeviceAdd = FakeDeviceAdd;
    WDFDRIVER driver = nullptr;
    return WdfDriverCreate(driverObject, registryPath, nullptr, &config, &driver);
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

bool SilentEndpoint::CancelRead(ReadCompletion* read)
{
    if (pending_ != read)
        return false;
    pending_ = nullptr;
    read->Complete(STATUS_CANCELLED, nullptr, 0);
    return true;
}

FakeSensor::FakeSensor(int n) : fieldsStorage((SENSOR_PROPERTY_LIST_SIZE(2) + 7) / 8, 0)
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
    data.Set(1, 7, Ui4(0), kLinearFmtid);
    data.Set(2, 8, R4(0), kLinearFmtid);
    *Fields() = {SENSOR_PROPERTY_LIST_SIZE(2), 2, {kTimestampKey}};
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

void LedgerTest::SetUp()
{
    FaultInjector::Instance().Reset();
    ViolationLog::Instance().Reset();
}

void LedgerTest::TearDown()
{
    FaultInjector::Instance().Reset();
    ViolationLog::Instance().Reset();
    EXPECT_EQ(ResourceLedger::Instance().Leaks(), "");
}

std::vector<ViolationKind> LedgerTest::TakeViolations()
{
    std::vector<ViolationKind> kinds;
    for (const Violation& v : ViolationLog::Instance().Entries())
        kinds.push_back(v.kind);
    ViolationLog::Instance().Reset();
    return kinds;
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
}

void FakeDriverTest::TearDown()
{
    for (auto& sensor : FakeSensors())
        sensor->JoinWorker();
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
