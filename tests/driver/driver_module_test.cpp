// The driver module itself: driver entry, device add, the plug-and-play and
// power callbacks around the SensorDevice context, and the sensor callback
// trampolines, loaded by the host as the framework would load it.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "driver/driver.h"
#include "driver/sensor_callbacks.h"
#include "driver/sensor_device.h"
#include "hid/hid_device.h"
#include "host/common/fault_injection.h"
#include "host/framework/driver_host.h"
#include "host/hidparser/sensor_descriptor.h"
#include "host/hidsim/simulated_hid_device.h"
#include "host/sensorscx/client.h"
#include "host/sensorscx/violations.h"
#include "sensors/hid_sensor.h"
#include "sensors/sensor_instance_extension.h"
#include "tracing/trace_provider.h"

namespace {

namespace hs = host::hid::sensor;
using host::framework::DriverHost;
using host::framework::ClockMode;
using host::hidsim::HidDeviceConfig;
using host::hidsim::SimulatedHidDevice;

// The real module on a simulated device.
class ModuleBed {
public:
    explicit ModuleBed(const HidDeviceConfig& config)
    {
        host::hidsim::DeviceError error;
        sim_ = SimulatedHidDevice::Create(config, error);
        EXPECT_NE(sim_, nullptr) << error.message;
        host_ = std::make_unique<DriverHost>(ClockMode::Deterministic, FILETIME{0, 0x01DC0000});
        host::sensorscx::ViolationLog::Instance().Reset();
    }
    ~ModuleBed()
    {
        host_->Unload();
        EXPECT_EQ(host_->Leaks(), "");
        EXPECT_TRUE(host_->Violations().empty());
        EXPECT_EQ(host::sensorscx::ViolationLog::Instance().Count(), 0u);
    }

    NTSTATUS Load() { return host_->LoadDriver(FxDriverEntryUm); }
    NTSTATUS Add() { return host_->AddDevice(sim_->DriverEndpoint()); }
    NTSTATUS StartAll()
    {
        NTSTATUS status = Load();
        if (NT_SUCCESS(status))
            status = Add();
        if (NT_SUCCESS(status))
            status = host_->PrepareHardware();
        if (NT_SUCCESS(status))
            status = host_->D0Entry();
        return status;
    }

    DriverHost& Host() { return *host_; }
    SimulatedHidDevice& Sim() { return *sim_; }
    SensorDevice* Context() { return GetSensorDevice(host_->Device()); }
    bool ReadPending() { return sim_->DriverCollection().HasPendingRead(); }

private:
    std::unique_ptr<SimulatedHidDevice> sim_;
    std::unique_ptr<DriverHost> host_;
};

HidDeviceConfig AccelerometerDevice()
{
    hs::SensorShape accel;
    accel.usage = hs::kAccelerometer3D;
    for (std::uint16_t axis = 0; axis < 3; ++axis)
        accel.inputs.push_back(hs::Property(static_cast<std::uint16_t>(0x453 + axis), 16, -32767, 32767));
    return HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(accel));
}

TEST(DriverModule, LifecycleFillsAndClearsTheSensorDeviceContext)
{
    ModuleBed bed(AccelerometerDevice());
    ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Add(), STATUS_SUCCESS);

    SensorDevice* context = bed.Context();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->IsPrepared, 0u);
    EXPECT_EQ(context->Device, nullptr);
    host::sensorscx::Client client(bed.Host().Device());
    ASSERT_TRUE(client.Bound());
    EXPECT_EQ(client.DriverIsPowerPolicyOwner(), WdfTrue);

    ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(context->IsPrepared, 1u);
    ASSERT_NE(context->Device, nullptr);
    EXPECT_TRUE(context->Device->IsOpen());
    EXPECT_EQ(std::u16string(context->FriendlyName), kSensorFriendlyName);
    EXPECT_EQ(std::u16string(context->DevicePath), kSensorDevicePath);
    EXPECT_EQ(std::u16string(context->Device->DevicePath()), kSensorDevicePath);
    EXPECT_EQ(context->Device->SensorCount(), 1u);
    EXPECT_EQ(client.SensorCount(), 0u);  // a placeholder is never published
    EXPECT_FALSE(bed.ReadPending());

    ASSERT_EQ(bed.Host().D0Entry(), STATUS_SUCCESS);
    EXPECT_TRUE(bed.ReadPending());
    ASSERT_EQ(bed.Host().D0Exit(), STATUS_SUCCESS);
    EXPECT_FALSE(bed.ReadPending());
    ASSERT_EQ(bed.Host().ReleaseHardware(), STATUS_SUCCESS);
    EXPECT_EQ(context->IsPrepared, 0u);
    EXPECT_EQ(context->Device, nullptr);
}

TEST(DriverModule, RepeatedPowerAndHardwareCyclesRearmOneReadAndLeakNothing)
{
    ModuleBed bed(AccelerometerDevice());
    ASSERT_EQ(bed.StartAll(), STATUS_SUCCESS);
    for (int cycle = 0; cycle < 3; ++cycle) {
        SCOPED_TRACE(cycle);
        ASSERT_EQ(bed.Host().D0Exit(), STATUS_SUCCESS);
        EXPECT_FALSE(bed.ReadPending());
        ASSERT_EQ(bed.Host().D0Entry(), STATUS_SUCCESS);
        EXPECT_TRUE(bed.ReadPending());
        // A read completed while running is re-armed exactly once.
        bed.Sim().FeedInput(std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6});
        bed.Host().RunPending();
        EXPECT_TRUE(bed.ReadPending());
    }
    for (int cycle = 0; cycle < 3; ++cycle) {
        ASSERT_EQ(bed.Host().D0Exit(), STATUS_SUCCESS);
        ASSERT_EQ(bed.Host().ReleaseHardware(), STATUS_SUCCESS);
        ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
        ASSERT_EQ(bed.Context()->Device->SensorCount(), 1u);
        ASSERT_EQ(bed.Host().D0Entry(), STATUS_SUCCESS);
        EXPECT_TRUE(bed.ReadPending());
    }
}

TEST(DriverModule, ACollectionOffTheSensorsPageStartsWithoutSensors)
{
    // A vendor-page collection: one 8-bit input.
    const std::vector<std::uint8_t> vendor = {0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x09, 0x02, 0x15, 0x00,
                                              0x26, 0xFF, 0x00, 0x75, 0x08, 0x95, 0x01, 0x81, 0x02, 0xC0};
    ModuleBed bed(HidDeviceConfig{}.WithDescriptor(vendor));
    ASSERT_EQ(bed.StartAll(), STATUS_SUCCESS);
    ASSERT_NE(bed.Context()->Device, nullptr);
    EXPECT_EQ(bed.Context()->IsPrepared, 1u);
    EXPECT_TRUE(bed.Context()->Device->IsOpen());
    EXPECT_EQ(bed.Context()->Device->SensorCount(), 0u);
}

TEST(DriverModule, PowerAndReleaseBeforePrepareDoNothing)
{
    ModuleBed bed(AccelerometerDevice());
    ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Add(), STATUS_SUCCESS);
    // Straight into the callbacks, past the host's ordering.
    WDFDEVICE device = bed.Host().Device();
    EXPECT_EQ(D0Entry(device, WdfPowerDeviceD3Final), STATUS_SUCCESS);
    EXPECT_FALSE(bed.ReadPending());
    EXPECT_EQ(D0Exit(device, WdfPowerDeviceD3), STATUS_SUCCESS);
    EXPECT_EQ(ReleaseHardware(device, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(bed.Context()->IsPrepared, 0u);
}

TEST(DriverModule, FailuresOfEntryAndDeviceAddAreReturnedAndLeaveNothing)
{
    struct Case {
        host::FaultPoint point;
        bool atEntry;
    } cases[] = {
        {host::FaultPoint::DriverCreate, true},
        {host::FaultPoint::SensorsCxDeviceInitConfig, false},
        {host::FaultPoint::DeviceCreate, false},
        {host::FaultPoint::SensorsCxDeviceInitialize, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(host::FaultPointName(c.point));
        ModuleBed bed(AccelerometerDevice());
        host::FaultInjector::Instance().Reset();
        host::FaultInjector::Instance().FailNth(c.point, 1, STATUS_INSUFFICIENT_RESOURCES);
        const NTSTATUS entry = bed.Load();
        EXPECT_EQ(entry, c.atEntry ? STATUS_INSUFFICIENT_RESOURCES : STATUS_SUCCESS);
        EXPECT_EQ(TracingStarted(), !c.atEntry);
        if (!c.atEntry) {
            EXPECT_EQ(bed.Add(), STATUS_INSUFFICIENT_RESOURCES);
            // Device add stops at its first failure: nothing after it is called.
            const host::FaultPoint order[] = {host::FaultPoint::SensorsCxDeviceInitConfig,
                                              host::FaultPoint::DeviceCreate,
                                              host::FaultPoint::SensorsCxDeviceInitialize};
            bool after = false;
            for (host::FaultPoint point : order) {
                if (after) {
                    EXPECT_EQ(host::FaultInjector::Instance().Calls(point), 0u) << host::FaultPointName(point);
                }
                after = after || point == c.point;
            }
        }
        host::FaultInjector::Instance().Reset();
    }
}

TEST(DriverModule, CallbacksOnADeviceWithoutContextFail)
{
    ModuleBed bed(AccelerometerDevice());
    ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
    // The driver object has no SensorDevice context.
    auto* handle = reinterpret_cast<WDFDEVICE>(bed.Host().Driver());
    EXPECT_EQ(PrepareHardware(handle, nullptr, nullptr), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(ReleaseHardware(handle, nullptr), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(D0Entry(handle, WdfPowerDeviceD3Final), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(D0Exit(handle, WdfPowerDeviceD3), STATUS_UNSUCCESSFUL);
}

// ---- trampolines ----

// Records the operation called and its arguments, and answers with a status
// of its own per operation.
class ProbeSensor final : public HidSensor {
public:
    using HidSensor::HidSensor;

    std::string op;
    SENSOROBJECT handle = nullptr;
    std::uintptr_t args[4] = {};

    NTSTATUS Record(const char* name, SENSOROBJECT sensor, std::uintptr_t a = 0, std::uintptr_t b = 0,
                    std::uintptr_t c = 0, std::uintptr_t d = 0)
    {
        op = name;
        handle = sensor;
        args[0] = a, args[1] = b, args[2] = c, args[3] = d;
        return static_cast<NTSTATUS>(0x20000000u + static_cast<unsigned>(op.size()));
    }
    static std::uintptr_t P(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }

    NTSTATUS Start(SENSOROBJECT s) override { return Record("Start", s); }
    NTSTATUS Stop(SENSOROBJECT s) override { return Record("Stop", s); }
    NTSTATUS GetSupportedDataFields(SENSOROBJECT s, PSENSOR_PROPERTY_LIST f, ULONG* size) override
    {
        return Record("GetSupportedDataFields", s, P(f), P(size));
    }
    NTSTATUS GetProperties(SENSOROBJECT s, PSENSOR_COLLECTION_LIST p, ULONG* size) override
    {
        return Record("GetProperties", s, P(p), P(size));
    }
    NTSTATUS GetDataFieldProperties(SENSOROBJECT s, const PROPERTYKEY* k, PSENSOR_COLLECTION_LIST p,
                                    ULONG* size) override
    {
        return Record("GetDataFieldProperties", s, P(k), P(p), P(size));
    }
    NTSTATUS GetDataInterval(SENSOROBJECT s, ULONG* ms) override { return Record("GetDataInterval", s, P(ms)); }
    NTSTATUS SetDataInterval(SENSOROBJECT s, ULONG ms) override { return Record("SetDataInterval", s, ms); }
    NTSTATUS GetDataThresholds(SENSOROBJECT s, PSENSOR_COLLECTION_LIST t, ULONG* size) override
    {
        return Record("GetDataThresholds", s, P(t), P(size));
    }
    NTSTATUS SetDataThresholds(SENSOROBJECT s, PSENSOR_COLLECTION_LIST t) override
    {
        return Record("SetDataThresholds", s, P(t));
    }
    NTSTATUS DeviceIoControl(SENSOROBJECT s, WDFREQUEST r, SIZE_T out, SIZE_T in, ULONG code) override
    {
        return Record("DeviceIoControl", s, P(r), out, in, code);
    }
    NTSTATUS StartHistory(SENSOROBJECT s) override { return Record("StartHistory", s); }
    NTSTATUS StopHistory(SENSOROBJECT s) override { return Record("StopHistory", s); }
    NTSTATUS ClearHistory(SENSOROBJECT s) override { return Record("ClearHistory", s); }
    NTSTATUS StartHistoryRetrieval(SENSOROBJECT s, PSENSOR_COLLECTION_LIST b, ULONG bytes) override
    {
        return Record("StartHistoryRetrieval", s, P(b), bytes);
    }
    NTSTATUS CancelHistoryRetrieval(SENSOROBJECT s, ULONG* written) override
    {
        return Record("CancelHistoryRetrieval", s, P(written));
    }
};

struct Trampoline {
    const char* op;
    std::function<NTSTATUS(SENSOROBJECT)> call;
    std::uintptr_t args[4];
};

// Distinct fake pointers: the trampolines pass them on untouched and never
// dereference them.
auto* const kFields = reinterpret_cast<PSENSOR_PROPERTY_LIST>(0x1000);
auto* const kList = reinterpret_cast<PSENSOR_COLLECTION_LIST>(0x2000);
auto* const kSize = reinterpret_cast<ULONG*>(0x3000);
auto* const kKey = reinterpret_cast<const PROPERTYKEY*>(0x4000);
auto* const kRequest = reinterpret_cast<WDFREQUEST>(0x5000);

std::vector<Trampoline> Trampolines()
{
    using P = ProbeSensor;
    return {
        {"Start", [](SENSOROBJECT s) { return OnStart(s); }, {}},
        {"Stop", [](SENSOROBJECT s) { return OnStop(s); }, {}},
        {"GetSupportedDataFields", [](SENSOROBJECT s) { return OnGetSupportedDataFields(s, kFields, kSize); },
         {P::P(kFields), P::P(kSize)}},
        {"GetDataFieldProperties", [](SENSOROBJECT s) { return OnGetDataFieldProperties(s, kKey, kList, kSize); },
         {P::P(kKey), P::P(kList), P::P(kSize)}},
        {"GetDataInterval", [](SENSOROBJECT s) { return OnGetDataInterval(s, kSize); }, {P::P(kSize)}},
        {"SetDataInterval", [](SENSOROBJECT s) { return OnSetDataInterval(s, 250); }, {250}},
        {"GetDataThresholds", [](SENSOROBJECT s) { return OnGetDataThresholds(s, kList, kSize); },
         {P::P(kList), P::P(kSize)}},
        {"SetDataThresholds", [](SENSOROBJECT s) { return OnSetDataThresholds(s, kList); }, {P::P(kList)}},
        {"GetProperties", [](SENSOROBJECT s) { return OnGetProperties(s, kList, kSize); },
         {P::P(kList), P::P(kSize)}},
        {"DeviceIoControl", [](SENSOROBJECT s) { return OnDeviceIoControl(s, kRequest, 16, 8, 0x220003); },
         {P::P(kRequest), 16, 8, 0x220003}},
        {"StartHistory", [](SENSOROBJECT s) { return OnStartHistory(s); }, {}},
        {"StopHistory", [](SENSOROBJECT s) { return OnStopHistory(s); }, {}},
        {"ClearHistory", [](SENSOROBJECT s) { return OnClearHistory(s); }, {}},
        {"StartHistoryRetrieval", [](SENSOROBJECT s) { return OnStartHistoryRetrieval(s, kList, 4096); },
         {P::P(kList), 4096}},
        {"CancelHistoryRetrieval", [](SENSOROBJECT s) { return OnCancelHistoryRetrieval(s, kSize); },
         {P::P(kSize)}},
    };
}

SENSOROBJECT CreateSensorObject(WDFDEVICE device, bool withContext)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    if (withContext)
        WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&attributes, WDF_GET_CONTEXT_TYPE_INFO(SENSOR_INSTANCE_EXTENSION));
    SENSOROBJECT sensor = nullptr;
    EXPECT_EQ(SensorsCxSensorCreate(device, &attributes, &sensor), STATUS_SUCCESS);
    return sensor;
}

TEST(SensorCallbacks, TheConfigurationListsEveryTrampolineInFieldOrder)
{
    const SENSOR_CONTROLLER_CONFIG config = SensorControllerConfig();
    EXPECT_EQ(config.Size, 136u);
    EXPECT_EQ(config.DriverIsPowerPolicyOwner, WdfTrue);
    const void* expected[] = {
        reinterpret_cast<const void*>(OnStart), reinterpret_cast<const void*>(OnStop),
        reinterpret_cast<const void*>(OnGetSupportedDataFields), reinterpret_cast<const void*>(OnGetDataFieldProperties),
        reinterpret_cast<const void*>(OnGetDataInterval), reinterpret_cast<const void*>(OnSetDataInterval),
        reinterpret_cast<const void*>(OnGetDataThresholds), reinterpret_cast<const void*>(OnSetDataThresholds),
        reinterpret_cast<const void*>(OnGetProperties), reinterpret_cast<const void*>(OnDeviceIoControl),
        reinterpret_cast<const void*>(OnStartHistory), reinterpret_cast<const void*>(OnStopHistory),
        reinterpret_cast<const void*>(OnClearHistory), reinterpret_cast<const void*>(OnStartHistoryRetrieval),
        reinterpret_cast<const void*>(OnCancelHistoryRetrieval)};
    const void* const* slots = reinterpret_cast<const void* const*>(&config.EvtSensorStart);
    for (std::size_t i = 0; i < std::size(expected); ++i)
        EXPECT_EQ(slots[i], expected[i]) << "slot " << i;
    EXPECT_EQ(config.EvtSensorSetBatchLatency, nullptr);
}

TEST(SensorCallbacks, EachReachesItsOperationWithTheHandleAndArgumentsUnchanged)
{
    ModuleBed bed(AccelerometerDevice());
    ASSERT_EQ(bed.StartAll(), STATUS_SUCCESS);
    WDFDEVICE device = bed.Host().Device();
    ProbeSensor probe(device, nullptr, 0, 0xE1, 0, 0, u"", u"", u"", u"probe");
    ASSERT_TRUE(probe.IsValid());
    SENSOROBJECT sensor = CreateSensorObject(device, true);
    GetSensorInstanceExtension(sensor)->Sensor = &probe;

    for (const Trampoline& trampoline : Trampolines()) {
        SCOPED_TRACE(trampoline.op);
        probe.op.clear();
        const NTSTATUS status = trampoline.call(sensor);
        EXPECT_EQ(probe.op, trampoline.op);
        EXPECT_EQ(probe.handle, sensor);
        EXPECT_EQ(status, static_cast<NTSTATUS>(0x20000000u + std::string(trampoline.op).size()));
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(probe.args[i], trampoline.args[i]) << "argument " << i;
    }
    WdfObjectDelete(sensor);
}

TEST(SensorCallbacks, AHandleWithoutASensorObjectFailsAndCallsNothing)
{
    ModuleBed bed(AccelerometerDevice());
    ASSERT_EQ(bed.StartAll(), STATUS_SUCCESS);
    WDFDEVICE device = bed.Host().Device();
    // No context at all, and a context whose pointer was never set.
    for (bool withContext : {false, true}) {
        SCOPED_TRACE(withContext ? "empty context" : "no context");
        SENSOROBJECT sensor = CreateSensorObject(device, withContext);
        for (const Trampoline& trampoline : Trampolines()) {
            SCOPED_TRACE(trampoline.op);
            EXPECT_EQ(trampoline.call(sensor), STATUS_UNSUCCESSFUL);
        }
        WdfObjectDelete(sensor);
    }
}

TEST(SensorCallbacks, APlaceholderAnswersDeviceIoControlWithNotSupported)
{
    ModuleBed bed(AccelerometerDevice());
    ASSERT_EQ(bed.StartAll(), STATUS_SUCCESS);
    WDFDEVICE device = bed.Host().Device();
    HidSensor* placeholder = bed.Context()->Device->Sensor(0);
    ASSERT_NE(placeholder, nullptr);
    SENSOROBJECT sensor = CreateSensorObject(device, true);
    GetSensorInstanceExtension(sensor)->Sensor = placeholder;
    WDFREQUEST request = nullptr;
    ASSERT_EQ(WdfRequestCreate(nullptr, nullptr, &request), STATUS_SUCCESS);
    EXPECT_EQ(OnDeviceIoControl(sensor, request, 0, 0, 0x220003), STATUS_NOT_SUPPORTED);
    WdfObjectDelete(request);
    WdfObjectDelete(sensor);
}

}  // namespace
