// Fixtures for the framework tests: a deterministic host with a minimal driver
// (a device add that only creates the device) and a fake HID collection.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "host/common/fault_injection.h"
#include "host/framework/driver_host.h"
#include "host/framework/violations.h"
#include "tests/framework/fake_endpoint.h"

namespace host::framework::testing {

FILETIME StartTime();

// What the minimal driver does; reset before every test.
struct MiniDriverConfig {
    WDF_PNPPOWER_EVENT_CALLBACKS callbacks{};
    PFN_WDF_DRIVER_UNLOAD unload = nullptr;
};
MiniDriverConfig& MiniDriver();
NTSTATUS MiniDriverEntry(void* loaderInterface, void* context, PDRIVER_OBJECT driverObject,
                         PUNICODE_STRING registryPath);

WDF_OBJECT_ATTRIBUTES Attributes(WDFOBJECT parent, PCWDF_OBJECT_CONTEXT_TYPE_INFO context = nullptr);
WDF_IO_TARGET_OPEN_PARAMS OpenByFile();
// A UNICODE_STRING over a string that outlives it (a literal).
inline UNICODE_STRING Name(const char16_t* text)
{
    const auto length = static_cast<USHORT>(std::char_traits<char16_t>::length(text) * 2);
    return UNICODE_STRING{length, length, const_cast<PWSTR>(text)};
}
inline FaultInjector& Faults() { return FaultInjector::Instance(); }

// A clean process state and a host, no driver yet. TearDown unloads and fails
// the test if anything is left or a violation is still recorded.
class HostTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Expects a recorded violation mentioning each text (and exactly `count`
    // violations when given), then clears them.
    void ExpectViolations(std::initializer_list<const char*> texts, std::size_t count = 0);

    ClockMode mode_ = ClockMode::Deterministic;  // set by a fixture before SetUp
    FakeEndpoint endpoint_;
    std::unique_ptr<DriverHost> host_;
};

// A host with the minimal driver loaded and its device added.
class DeviceTest : public HostTest {
protected:
    void SetUp() override;

    WDFDEVICE Device() const { return host_->Device(); }
    WDFDRIVER Driver() const { return host_->Driver(); }
    // A target created on the device and opened by file.
    WDFIOTARGET OpenTarget();
};

}  // namespace host::framework::testing
