#include "tests/framework/test_support.h"

#include "host/framework/clock.h"

namespace host::framework::testing {
namespace {

NTSTATUS MiniDeviceAdd(WDFDRIVER /*driver*/, PWDFDEVICE_INIT deviceInit)
{
    MiniDriverConfig& config = MiniDriver();
    WdfDeviceInitSetPnpPowerEventCallbacks(deviceInit, &config.callbacks);
    if (!config.createDevice)
        return config.deviceAddResult;
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ContextTypeInfo = config.deviceContext;
    WDFDEVICE device = nullptr;
    const NTSTATUS status = WdfDeviceCreate(&deviceInit, &attributes, &device);
    if (!NT_SUCCESS(status))
        return status;
    return config.deviceAddResult;
}

}  // namespace

FILETIME StartTime()
{
    return TicksToFileTime(kDefaultStartTicks + 5 * kTicksPerMillisecond);
}

MiniDriverConfig& MiniDriver()
{
    static MiniDriverConfig config;
    return config;
}

NTSTATUS MiniDriverEntry(void* /*loaderInterface*/, void* /*context*/, PDRIVER_OBJECT driverObject,
                         PUNICODE_STRING registryPath)
{
    WDF_DRIVER_CONFIG config{};
    config.Size = sizeof(config);
    config.EvtDriverDeviceAdd = MiniDeviceAdd;
    config.EvtDriverUnload = MiniDriver().unload;
    return WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr);
}

void HostTest::SetUp()
{
    host::FaultInjector::Instance().Reset();
    MiniDriver() = MiniDriverConfig{};
    MiniDriver().callbacks.Size = sizeof(WDF_PNPPOWER_EVENT_CALLBACKS);
    host_ = std::make_unique<DriverHost>(mode_, StartTime());
}

void HostTest::TearDown()
{
    if (host_ != nullptr)
        ExpectCleanUnload();
    host_.reset();
    host::FaultInjector::Instance().Reset();
}

void HostTest::ExpectCleanUnload()
{
    host_->Unload();
    EXPECT_EQ(host_->Leaks(), "");
    const auto violations = host_->Violations();
    EXPECT_TRUE(violations.empty()) << violations.size() << " violation(s), first: " << violations.front();
    ClearViolations();
}

void DeviceTest::SetUp()
{
    HostTest::SetUp();
    ASSERT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
    ASSERT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
    ASSERT_NE(Device(), nullptr);
}

WDFIOTARGET DeviceTest::OpenTarget()
{
    WDFIOTARGET target = nullptr;
    EXPECT_EQ(WdfIoTargetCreate(Device(), nullptr, &target), STATUS_SUCCESS);
    WDF_IO_TARGET_OPEN_PARAMS params{};
    params.Size = sizeof(params);
    params.Type = WdfIoTargetOpenLocalTargetByFile;
    EXPECT_EQ(WdfIoTargetOpen(target, &params), STATUS_SUCCESS);
    return target;
}

bool HasViolation(const DriverHost& host, const std::string& text)
{
    for (const std::string& violation : host.Violations()) {
        if (violation.find(text) != std::string::npos)
            return true;
    }
    return false;
}

}  // namespace host::framework::testing
