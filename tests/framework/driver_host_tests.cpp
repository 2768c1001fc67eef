// The driver host: loading, device add and the PnP/power sequence.
#include <string>
#include <vector>

#include "host/framework/device.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

std::vector<std::string> calls;
NTSTATUS prepareResult = STATUS_SUCCESS;
NTSTATUS d0EntryResult = STATUS_SUCCESS;

std::string StateName(WDF_POWER_DEVICE_STATE state)
{
    return state == WdfPowerDeviceD3 ? "D3" : state == WdfPowerDeviceD3Final ? "D3Final" : "other";
}

void OnUnload(WDFDRIVER)
{
    calls.push_back("unload");
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
        calls.clear();
        prepareResult = STATUS_SUCCESS;
        d0EntryResult = STATUS_SUCCESS;
        WDF_PNPPOWER_EVENT_CALLBACKS& callbacks = MiniDriver().callbacks;
        callbacks.EvtDevicePrepareHardware = [](WDFDEVICE, WDFCMRESLIST, WDFCMRESLIST) {
            calls.push_back("prepare");
            return prepareResult;
        };
        callbacks.EvtDeviceReleaseHardware = [](WDFDEVICE, WDFCMRESLIST) {
            calls.push_back("release");
            return STATUS_UNSUCCESSFUL;  // ignored: release-hardware always moves on
        };
        callbacks.EvtDeviceD0Entry = [](WDFDEVICE, WDF_POWER_DEVICE_STATE previous) {
            calls.push_back("D0Entry from " + StateName(previous));
            return d0EntryResult;
        };
        callbacks.EvtDeviceD0Exit = [](WDFDEVICE, WDF_POWER_DEVICE_STATE target) {
            calls.push_back("D0Exit to " + StateName(target));
            return STATUS_SUCCESS;
        };
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
    EXPECT_EQ(GetDeviceState(host_->Device())->value, 0);
    EXPECT_EQ(DeviceEndpoint(host_->Device()), &endpoint_);
    EXPECT_EQ(DeviceRegistry(host_->Device()), &host_->Registry());
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
    host_->Unload();  // takes the started device down, then EvtDriverUnload
    EXPECT_FALSE(host_->Loaded());
    const std::vector<std::string> expected = {
        "prepare", "D0Entry from D3Final", "D0Exit to D3", "D0Entry from D3", "D0Exit to D3", "release",
        "prepare", "D0Entry from D3Final", "D0Exit to D3", "release",        "unload"};
    EXPECT_EQ(calls, expected);
    host_->Unload();  // nothing left to do
    EXPECT_EQ(calls.size(), expected.size());
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
    EXPECT_EQ(calls, (std::vector<std::string>{"prepare", "D0Entry from D3Final"}));
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
    EXPECT_EQ(calls, (std::vector<std::string>{"prepare", "release", "prepare", "D0Entry from D3Final",
                                               "D0Entry from D3Final"}));
}

TEST_F(PnpTest, FailedDriverEntryLeavesNothingAndIsNotUnloaded)
{
    auto failsAfterCreating = [](void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath) {
        WDF_DRIVER_CONFIG config{sizeof(config), nullptr, OnUnload, 0, 0};
        EXPECT_EQ(WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr), STATUS_SUCCESS);
        EXPECT_EQ(WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr), STATUS_INVALID_DEVICE_STATE);
        return STATUS_UNSUCCESSFUL;
    };
    EXPECT_EQ(host_->LoadDriver(failsAfterCreating), STATUS_UNSUCCESSFUL);
    EXPECT_FALSE(host_->Loaded());
    EXPECT_EQ(host_->LoadDriver([](void*, void*, PDRIVER_OBJECT, PUNICODE_STRING) { return STATUS_SUCCESS; }),
              STATUS_UNSUCCESSFUL);
    ExpectViolations({"called twice", "without creating the driver object"});
    EXPECT_TRUE(calls.empty());
}

TEST_F(PnpTest, DeviceFromAFailedDeviceAddIsDeletedAndNoDeviceIsRefused)
{
    MiniDriver().deviceAddResult = STATUS_INSUFFICIENT_RESOURCES;
    ASSERT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(host_->Device(), nullptr);
    EXPECT_EQ(Object::LiveCounts()[static_cast<unsigned>(ObjectKind::Device)], 0);
    MiniDriver().deviceAddResult = STATUS_SUCCESS;
    MiniDriver().createDevice = false;
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_INVALID_DEVICE_STATE);
    ExpectViolations({"without creating a device"});
    MiniDriver().createDevice = true;
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
}

PWDFDEVICE_INIT keptInit = nullptr;

TEST_F(PnpTest, DeviceInitIsConsumedAndUnusableAfterDeviceAdd)
{
    auto entry = [](void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath) {
        WDF_DRIVER_CONFIG config{sizeof(config), [](WDFDRIVER, PWDFDEVICE_INIT deviceInit) {
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
                                 },
                                 nullptr, 0, 0};
        return WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr);
    };
    ASSERT_EQ(host_->LoadDriver(entry), STATUS_SUCCESS);
    ASSERT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
    EXPECT_TRUE(DeviceClassExtensionConfigured(host_->Device()));
    EXPECT_FALSE(static_cast<DeviceObject*>(Object::FromHandle(host_->Device()))->PowerPolicyOwner());
    // The record is gone once device add returned; using it is reported, not followed.
    WdfDeviceInitSetPowerPolicyOwnership(keptInit, TRUE);
    ExpectViolations({"wrong Size", "not the current one"});
    // No callbacks registered: every PnP step succeeds without calling anything.
    EXPECT_EQ(host_->PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
}

}  // namespace
}  // namespace host::framework::testing
