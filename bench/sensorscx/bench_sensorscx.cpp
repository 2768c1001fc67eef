// SensorsCxSensorDataReady with a typical activity sample (15 entries: a
// FILETIME and seven state/confidence pairs), with and without a subscriber,
// and the SensorsUtilsV2 list utilities on that sample and on an enumeration
// list carrying strings and CLSIDs.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "host/common/hid_collection_endpoint.h"
#include "host/framework/driver_host.h"
#include "host/sensorscx/client.h"
#include "platform/sensorsutils.h"

namespace {

constexpr GUID kDataFmtid = {0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}};
constexpr GUID kPropertyFmtid = {0xD4247382, 0x969D, 0x4F24, {0xBB, 0x14, 0xFB, 0x96, 0x71, 0x87, 0x0B, 0xBF}};

// A collection list in its own buffer; owns the strings and CLSIDs of its values.
class OwnedList {
public:
    explicit OwnedList(ULONG capacity) : storage_((SENSOR_COLLECTION_LIST_SIZE(capacity) + 7) / 8, 0)
    {
        get()->AllocatedSizeInBytes = SENSOR_COLLECTION_LIST_SIZE(capacity);
    }
    ~OwnedList()
    {
        for (ULONG i = 0; i < get()->Count; ++i)
            PropVariantClear(&get()->List[i].Value);
    }
    void Add(const GUID& fmtid, DWORD pid, const PROPVARIANT& value)
    {
        get()->List[get()->Count++] = {{fmtid, pid}, value};
    }
    PSENSOR_COLLECTION_LIST get() { return reinterpret_cast<PSENSOR_COLLECTION_LIST>(storage_.data()); }

private:
    std::vector<std::uint64_t> storage_;
};

PROPVARIANT Scalar(VARTYPE vt, ULONG value)
{
    PROPVARIANT v{};
    v.vt = vt;
    v.ulVal = value;
    if (vt == VT_UI2)
        v.uiVal = static_cast<USHORT>(value);
    return v;
}

std::unique_ptr<OwnedList> ActivitySample()
{
    auto list = std::make_unique<OwnedList>(15);
    const FILETIME now{0x12345678, 0x01DC0000};
    PROPVARIANT time{};
    InitPropVariantFromFileTime(&now, &time);
    list->Add(kDataFmtid, 2, time);
    for (ULONG j = 0; j < 7; ++j) {
        list->Add(kDataFmtid, 130, Scalar(VT_UI4, 1u << j));
        list->Add(kDataFmtid, 131, Scalar(VT_UI2, 10 * j));
    }
    return list;
}

std::unique_ptr<OwnedList> EnumerationList()
{
    auto list = std::make_unique<OwnedList>(10);
    PROPVARIANT v{};
    for (DWORD pid : {2u, 9u, 3u}) {
        InitPropVariantFromCLSID(kDataFmtid, &v);
        list->Add(kPropertyFmtid, pid, v);
    }
    for (DWORD pid : {6u, 7u, 8u}) {
        InitPropVariantFromString(u"HID Sensor Collection V2: Activity-0", &v);
        list->Add(kPropertyFmtid, pid, v);
    }
    for (DWORD pid : {21u, 60u, 24u}) 
        list->Add(kPropertyFmtid, pid, Scalar(VT_UI4, pid));
    InitPropVariantFromFloat(2.0f, &v);
    list->Add(kPropertyFmtid, 23, v);
    return list;
}

// A driver whose device has one sensor that reached SensorsCxSensorInitialize.
SENSOROBJECT g_sensor = nullptr;

template <class... Args>
NTSTATUS Accept(SENSOROBJECT, Args...)
{
    return STATUS_SUCCESS;
}

NTSTATUS DeviceAdd(WDFDRIVER, PWDFDEVICE_INIT init)
{
    SensorsCxDeviceInitConfig(init, nullptr, 0);
    WDFDEVICE device = nullptr;
    NTSTATUS status = WdfDeviceCreate(&init, nullptr, &device);
    if (!NT_SUCCESS(status))
        return status;
    SENSOR_CONTROLLER_CONFIG config = {
        sizeof(SENSOR_CONTROLLER_CONFIG), WdfTrue, Accept, Accept, Accept<PSENSOR_PROPERTY_LIST, ULONG*>,
        Accept<const PROPERTYKEY*, PSENSOR_COLLECTION_LIST, ULONG*>, Accept<ULONG*>, Accept<ULONG>,
        Accept<PSENSOR_COLLECTION_LIST, ULONG*>, Accept<PSENSOR_COLLECTION_LIST>, Accept<PSENSOR_COLLECTION_LIST, ULONG*>,
        Accept<WDFREQUEST, SIZE_T, SIZE_T, ULONG>, Accept, Accept, Accept, Accept<PSENSOR_COLLECTION_LIST, ULONG>,
        Accept<ULONG*>, nullptr,
    };
    status = SensorsCxDeviceInitialize(device, &config);
    if (NT_SUCCESS(status))
        status = SensorsCxSensorCreate(device, nullptr, &g_sensor);
    static auto enumeration = EnumerationList();
    SENSOR_CONFIG sensorConfig{sizeof(SENSOR_CONFIG), enumeration->get()};
    if (NT_SUCCESS(status))
        status = SensorsCxSensorInitialize(g_sensor, &sensorConfig);
    return status;
}

NTSTATUS Entry(void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath)
{
    WDF_DRIVER_CONFIG config{};
    config.Size = sizeof(config);
    config.EvtDriverDeviceAdd = DeviceAdd;
    WDFDRIVER driver = nullptr;
    return WdfDriverCreate(driverObject, registryPath, nullptr, &config, &driver);
}

class NoDevice final : public host::HidCollectionEndpoint {
public:
    IoctlResult DeviceControl(ULONG, const BYTE*, ULONG, BYTE*, ULONG) override
    {
        return {STATUS_INVALID_DEVICE_REQUEST, 0, true};
    }
    void SubmitRead(ReadCompletion*, ULONG) override {}
    bool CancelRead(ReadCompletion*) override { return false; }
};

struct LoadedDriver {
    LoadedDriver() : host(host::framework::ClockMode::Deterministic, FILETIME{0, 0x01DC0000})
    {
        host.LoadDriver(Entry);
        host.AddDevice(endpoint);
    }
    ~LoadedDriver() { host.Unload(); }
    NoDevice endpoint;
    host::framework::DriverHost host;
};

void BM_DataReadyNoSubscriber(benchmark::State& state)
{
    LoadedDriver driver;
    auto sample = ActivitySample();
    for (auto _ : state)
        benchmark::DoNotOptimize(SensorsCxSensorDataReady(g_sensor, sample->get()));
}
BENCHMARK(BM_DataReadyNoSubscriber);

void BM_DataReadyWithSubscriber(benchmark::State& state)
{
    LoadedDriver driver;
    host::sensorscx::Client client(driver.host.Device());
    std::uint64_t received = 0;
    auto subscription = client.Subscribe([&](const host::sensorscx::Sample& s) { received += s.values.Count(); });
    auto sample = ActivitySample();
    for (auto _ : state)
        benchmark::DoNotOptimize(SensorsCxSensorDataReady(g_sensor, sample->get()));
    benchmark::DoNotOptimize(received);
}
BENCHMARK(BM_DataReadyWithSubscriber);

void BM_GetMarshalledSize(benchmark::State& state, std::unique_ptr<OwnedList> (*make)())
{
    auto list = make();
    for (auto _ : state)
        benchmark::DoNotOptimize(CollectionsListGetMarshalledSize(list->get()));
}
BENCHMARK_CAPTURE(BM_GetMarshalledSize, activity_sample, ActivitySample);
BENCHMARK_CAPTURE(BM_GetMarshalledSize, enumeration, EnumerationList);

void BM_CopyAndMarshall(benchmark::State& state, std::unique_ptr<OwnedList> (*make)())
{
    auto list = make();
    const ULONG size = CollectionsListGetMarshalledSize(list->get());
    std::vector<std::uint64_t> storage((size + 7) / 8, 0);
    auto* target = reinterpret_cast<PSENSOR_COLLECTION_LIST>(storage.data());
    target->AllocatedSizeInBytes = size;
    for (auto _ : state)
        benchmark::DoNotOptimize(CollectionsListCopyAndMarshall(target, list->get()));
}
BENCHMARK_CAPTURE(BM_CopyAndMarshall, activity_sample, ActivitySample);
BENCHMARK_CAPTURE(BM_CopyAndMarshall, enumeration, EnumerationList);

void BM_PropertiesListCopy(benchmark::State& state)
{
    std::vector<std::uint64_t> source((SENSOR_PROPERTY_LIST_SIZE(5) + 7) / 8, 0);
    std::vector<std::uint64_t> target(source.size(), 0);
    auto* from = reinterpret_cast<PSENSOR_PROPERTY_LIST>(source.data());
    auto* to = reinterpret_cast<PSENSOR_PROPERTY_LIST>(target.data());
    from->AllocatedSizeInBytes = to->AllocatedSizeInBytes = SENSOR_PROPERTY_LIST_SIZE(5);
    from->Count = 5;
    for (DWORD i = 0; i < 5; ++i)
        from->List[i] = {kDataFmtid, 140 + i};
    for (auto _ : state)
        benchmark::DoNotOptimize(PropertiesListCopy(to, from));
}
BENCHMARK(BM_PropertiesListCopy);

}  // namespace
