// The driver host: loading, device add and the PnP/power sequence.
#include <string>
#include <vector>

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
        MiniDriver().unload = [](WDFDRIVER) { calls.push_back("unload"); };
        ASSERT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
    }
};

TEST_F(PnpTest, CallbacksRunInFrameworkOrderWithThePowerStatesOfEachCycle)
{
    ASSERT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
    EXPECT_EQ(host_->PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Exit(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(host_->D0Exit(), STATUS_SUCCESS);
    EXPECT_EQ(host_->ReleaseHardware(), STATUS_UNSUCCESSFUL);
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

TEST_F(PnpTest, CallsOutOfOrderAreRefusedAndFailedStepsAreUndone)
{
    EXPECT_EQ(host_->PrepareHardware(), STATUS_INVALID_DEVICE_STATE);  // no device yet
    ASSERT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
    EXPECT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->AddDevice(endpoint_), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->D0Entry(), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->ReleaseHardware(), STATUS_INVALID_DEVICE_STATE);
    prepareResult = STATUS_INSUFFICIENT_RESOURCES;
    EXPECT_EQ(host_->PrepareHardware(), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(host_->State(), PnpState::Added);
    prepareResult = STATUS_SUCCESS;
    EXPECT_EQ(host_->PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(host_->PrepareHardware(), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(host_->D0Exit(), STATUS_INVALID_DEVICE_STATE);
    d0EntryResult = STATUS_IO_DEVICE_ERROR;
    EXPECT_EQ(host_->D0Entry(), STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(host_->State(), PnpState::Prepared);
    d0EntryResult = STATUS_SUCCESS;
    EXPECT_EQ(host_->D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(host_->ReleaseHardware(), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(calls, (std::vector<std::string>{"prepare", "release", "prepare", "D0Entry from D3Final",
                                               "D0Entry from D3Final"}));
}

}  // namespace
}  // namespace host::framework::testing
