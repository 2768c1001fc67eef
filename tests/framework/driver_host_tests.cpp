// The driver host: loading, device add, the PnP/power sequence and the leak report.
#include <string>
#include <vector>

#include "host/framework/device.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

std::vector<std::string>& Calls()
{
    static std::vector<std::string> calls;
    return calls;
}

NTSTATUS prepareResult = STATUS_SUCCESS;
NTSTATUS d0EntryResult = STATUS_SUCCESS;

const char* StateName(WDF_POWER_DEVICE_STATE state)
{
    switch (state) {
    case WdfPowerDeviceD3:
        return "D3";
    case WdfPowerDeviceD3Final:
        return "D3Final";
    default:
        return "other";
    }
}

NTSTATUS OnPrepare(WDFDEVICE, WDFCMRESLIST, WDFCMRESLIST)
{
    Calls().push_back("prepare");
    return prepareResult;
}
NTSTATUS OnRelease(WDFDEVICE, WDFCMRESLIST)
{
    Calls().push_back("release");
    return STATUS_UNSUCCESSFUL;  // ignored: release-hardware always moves on
}
NTSTATUS OnD0Entry(WDFDEVICE, WDF_POWER_DEVICE_STATE previous)
{
    Calls().push_back(std::string("D0Entry from ") + StateName(previous));
    return d0EntryResult;
}
NTSTATUS OnD0Exit(WDFDEVICE, WDF_POWER_DEVICE_STATE target)
{
    Calls().push_back(std::string("D0Exit to ") + StateName(target));
    return STATUS_SUCCESS;
}
void OnUnload(WDFDRIVER)
{
    Calls().push_back("unload");
}

struct DeviceState {
    int value;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(DeviceState, GetDeviceState)

class PnpTest : public HostTest {
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        Calls().clear();
        prepareResult = STATUS_SUCCESS;
        d0EntryResult = STATUS_SUCCESS;
        WDF_PNPPOWER_EVENT_CALLBACKS& callbacks = MiniDriver().callbacks;
        callbacks.EvtDevicePrepareHardware = OnPrepare;
        callbacks.EvtDeviceReleaseHardware = OnRelease;
        callbacks.EvtDeviceD0Entry = OnD0Entry;
        callbacks.EvtDeviceD0Exit = OnD0Exit;
        MiniDriver().unload = OnUnload;
        MiniDriver().deviceContext = WDF_GET_CONTEXT_TYPE_INFO(DeviceState);
    }

    void LoadAndAdd()
    {
        ASSERT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
        ASSERT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
    }
};

TEST_F(PnpTest, CallbacksRunInFrameworkOrderWithThePowerStatesOfEachCycle)
{
    LoadAndAdd();
    EXPECT_EQ(host_->PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(host_->State(), PnpState::Started);
    EXPECT_EQ(host_->D0Exit(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Exit(), STATUS_SUCCESS);
    EXPECT_EQ(host_->ReleaseHardware(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(host_->State(), PnpState::Added);
    EXPECT_EQ(host_->PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
    const std::vector<std::string> expected = {
        "prepare", "D0Entry from D3Final", "D0Exit to D3", "D0Entry from D3", "D0Exit to D3", "release",
        "prepare", "D0Entry from D3Final"};
    EXPECT_EQ(Calls(), expected);
}

TEST_F(PnpTest, CallsOutOfOrderAreRefusedWithoutReachingTheDriver)
{
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_INVALID_DEVICE_STATE);  // no driver yet
    EXPECT_EQ(host_->PrepareHardware(), STATUS_INVALID_DEVICE_STATE);
    LoadAndAdd();
    EXPECT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->D0Entry(), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->ReleaseHardware(), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(host_->PrepareHardware(), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->D0Exit(), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(host_->ReleaseHardware(), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(Calls(), (std::vector<std::string>{"prepare", "D0Entry from D3Final"}));
}

TEST_F(PnpTest, FailedPrepareIsUndoneWithReleaseAndFailedD0EntryStaysPrepared)
{
    LoadAndAdd();
    prepareResult = STATUS_INSUFFICIENT_RESOURCES;
    EXPECT_EQ(host_->PrepareHardware(), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(host_->State(), PnpState::Added);
    prepareResult = STATUS_SUCCESS;
    EXPECT_EQ(host_->PrepareHardware(), STATUS_SUCCESS);
    d0EntryResult = STATUS_IO_DEVICE_ERROR;
    EXPECT_EQ(host_->D0Entry(), STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(host_->State(), PnpState::Prepared);
    d0EntryResult = STATUS_SUCCESS;
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
    const std::vector<std::string> expected = {"prepare", "release", "prepare", "D0Entry from D3Final",
                                               "D0Entry from D3Final"};
    EXPECT_EQ(Calls(), expected);
}

TEST_F(PnpTest, UnloadTakesAStartedDeviceDownThenCallsEvtDriverUnload)
{
    LoadAndAdd();
    host_->PrepareHardware();
    host_->D0Entry();
    host_->Unload();
    EXPECT_FALSE(host_->Loaded());
    const std::vector<std::string> expected = {"prepare", "D0Entry from D3Final", "D0Exit to D3", "release",
                                               "unload"};
    EXPECT_EQ(Calls(), expected);
    EXPECT_EQ(host_->Leaks(), "");
    host_->Unload();  // nothing left to do
    EXPECT_EQ(Calls().size(), expected.size());
}

TEST_F(PnpTest, DeviceAddGivesTheDeviceItsContextEndpointAndRegistry)
{
    LoadAndAdd();
    ASSERT_NE(GetDeviceState(host_->Device()), nullptr);
    EXPECT_EQ(GetDeviceState(host_->Device())->value, 0);
    EXPECT_EQ(DeviceEndpoint(host_->Device()), &endpoint_);
    EXPECT_EQ(DeviceRegistry(host_->Device()), &host_->Registry());
    EXPECT_FALSE(DeviceClassExtensionConfigured(host_->Device()));
    EXPECT_EQ(Object::FromHandle(host_->Device())->Parent(), Object::FromHandle(host_->Driver()));
}

// ---- Driver entry and device add failures ----------------------------------------

NTSTATUS EntryThatFailsAfterCreating(void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath)
{
    WDF_DRIVER_CONFIG config{sizeof(config), nullptr, OnUnload, 0, 0};
    EXPECT_EQ(WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr), STATUS_INVALID_DEVICE_STATE);
    return STATUS_UNSUCCESSFUL;
}

NTSTATUS EntryThatCreatesNothing(void*, void*, PDRIVER_OBJECT, PUNICODE_STRING)
{
    return STATUS_SUCCESS;
}

TEST_F(PnpTest, FailedDriverEntryLeavesNothingAndIsNotUnloaded)
{
    EXPECT_EQ(host_->LoadDriver(EntryThatFailsAfterCreating), STATUS_UNSUCCESSFUL);
    EXPECT_FALSE(host_->Loaded());
    EXPECT_TRUE(HasViolation(*host_, "called twice"));
    EXPECT_EQ(host_->LoadDriver(EntryThatCreatesNothing), STATUS_UNSUCCESSFUL);
    EXPECT_TRUE(HasViolation(*host_, "without creating the driver object"));
    ClearViolations();
    EXPECT_TRUE(Calls().empty());
}

TEST_F(PnpTest, DriverCreateFaultFailsTheEntry)
{
    host::FaultInjector::Instance().FailNth(host::FaultPoint::DriverCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_FALSE(host_->Loaded());
    EXPECT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
}

TEST_F(PnpTest, DeviceFromAFailedDeviceAddIsDeleted)
{
    MiniDriver().deviceAddResult = STATUS_INSUFFICIENT_RESOURCES;
    ASSERT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(host_->Device(), nullptr);
    EXPECT_EQ(Object::LiveCounts()[static_cast<unsigned>(ObjectKind::Device)], 0);

    MiniDriver().deviceAddResult = STATUS_SUCCESS;
    host::FaultInjector::Instance().FailNth(host::FaultPoint::DeviceCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_INSUFFICIENT_RESOURCES);

    MiniDriver().createDevice = false;
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_INVALID_DEVICE_STATE);
    EXPECT_TRUE(HasViolation(*host_, "without creating a device"));
    ClearViolations();

    MiniDriver().createDevice = true;
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
}

PWDFDEVICE_INIT keptInit = nullptr;
NTSTATUS DeviceAddKeepingInit(WDFDRIVER, PWDFDEVICE_INIT deviceInit)
{
    keptInit = deviceInit;
    deviceInit->classExtensionConfigured = true;  // as SensorsCxDeviceInitConfig does
    WdfDeviceInitSetPowerPolicyOwnership(deviceInit, FALSE);
    WDF_PNPPOWER_EVENT_CALLBACKS wrongSize{};
    WdfDeviceInitSetPnpPowerEventCallbacks(deviceInit, &wrongSize);
    WDFDEVICE device = nullptr;
    PWDFDEVICE_INIT init = deviceInit;
    const NTSTATUS status = WdfDeviceCreate(&init, nullptr, &device);
    EXPECT_EQ(init, nullptr);  // consumed
    return status;
}

NTSTATUS EntryKeepingInit(void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath)
{
    WDF_DRIVER_CONFIG config{sizeof(config), DeviceAddKeepingInit, nullptr, 0, 0};
    return WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr);
}

TEST_F(PnpTest, DeviceInitIsConsumedAndUnusableAfterDeviceAdd)
{
    ASSERT_EQ(host_->LoadDriver(EntryKeepingInit), STATUS_SUCCESS);
    ASSERT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
    EXPECT_TRUE(DeviceClassExtensionConfigured(host_->Device()));
    auto* device = static_cast<DeviceObject*>(Object::FromHandle(host_->Device()));
    EXPECT_FALSE(device->PowerPolicyOwner());
    EXPECT_TRUE(HasViolation(*host_, "wrong Size"));
    // The record is gone once device add returned; using it is reported, not followed.
    WdfDeviceInitSetPowerPolicyOwnership(keptInit, TRUE);
    EXPECT_TRUE(HasViolation(*host_, "not the current one"));
    ClearViolations();
    // No callbacks registered: every PnP step succeeds without calling anything.
    EXPECT_EQ(host_->PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
}

TEST_F(PnpTest, LeakReportNamesWhatIsLeftByKind)
{
    LoadAndAdd();
    host_->Unload();
    // Created after unload, with no driver to parent it: a root nobody deletes.
    WDFMEMORY orphan = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &orphan, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(host_->Leaks(), "framework memory: 1 (live objects: Memory 1)");
    WdfObjectDelete(orphan);
    EXPECT_EQ(host_->Leaks(), "");
}

}  // namespace
}  // namespace host::framework::testing
