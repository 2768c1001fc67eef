#include "tests/framework/test_support.h"

#include <algorithm>

#include "host/framework/clock.h"

namespace host::framework::testing {

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
    auto deviceAdd = [](WDFDRIVER, PWDFDEVICE_INIT deviceInit) {
        WdfDeviceInitSetPnpPowerEventCallbacks(deviceInit, &MiniDriver().callbacks);
        WDFDEVICE device = nullptr;
        return WdfDeviceCreate(&deviceInit, nullptr, &device);
    };
    WDF_DRIVER_CONFIG config{sizeof(config), deviceAdd, MiniDriver().unload, 0, 0};
    return WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr);
}

WDF_OBJECT_ATTRIBUTES Attributes(WDFOBJECT parent, PCWDF_OBJECT_CONTEXT_TYPE_INFO context)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = parent;
    attributes.ContextTypeInfo = context;
    return attributes;
}

WDF_IO_TARGET_OPEN_PARAMS OpenByFile()
{
    WDF_IO_TARGET_OPEN_PARAMS params{};
    params.Size = sizeof(params);
    params.Type = WdfIoTargetOpenLocalTargetByFile;
    return params;
}

void HostTest::SetUp()
{
    Faults().Reset();
    MiniDriver() = MiniDriverConfig{};
    MiniDriver().callbacks.Size = sizeof(WDF_PNPPOWER_EVENT_CALLBACKS);
    host_ = std::make_unique<DriverHost>(mode_, StartTime());
}

void HostTest::TearDown()
{
    host_->Unload();
    EXPECT_EQ(host_->Leaks(), "");
    const auto violations = host_->Violations();
    EXPECT_TRUE(violations.empty()) << violations.size() << " violation(s), first: " << violations.front();
    ClearViolations();
    host_.reset();
    Faults().Reset();
}

void HostTest::ExpectViolations(std::initializer_list<const char*> texts, std::size_t count)
{
    const auto violations = host_->Violations();
    for (const std::string text : texts) {
        const bool found = std::any_of(violations.begin(), violations.end(),
                                       [&](const std::string& v) { return v.find(text) != std::string::npos; });
        EXPECT_TRUE(found) << "no violation mentions \"" << text << "\"";
    }
    if (count != 0) {
        EXPECT_EQ(violations.size(), count);
    }
    ClearViolations();
}

void DeviceTest::SetUp()
{
    HostTest::SetUp();
    ASSERT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
    ASSERT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
}

WDFIOTARGET DeviceTest::OpenTarget()
{
    WDFIOTARGET target = nullptr;
    EXPECT_EQ(WdfIoTargetCreate(Device(), nullptr, &target), STATUS_SUCCESS);
    WDF_IO_TARGET_OPEN_PARAMS params = OpenByFile();
    EXPECT_EQ(WdfIoTargetOpen(target, &params), STATUS_SUCCESS);
    return target;
}

}  // namespace host::framework::testing
