#include <gtest/gtest.h>

#include <string>

#include "host/common/fault_injection.h"
#include "host/common/resource_ledger.h"
#include "host/sensorscx/guid.h"
#include "platform/com.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

class ComTest : public LedgerTest {};

TEST_F(ComTest, ClsidFromStringTakesOnlyBracedGuidsInEitherCase)
{
    CLSID clsid{};
    ASSERT_EQ(CLSIDFromString(u"{c458f8a7-4AE8-4777-9607-2e9bdd65110a}", &clsid), S_OK);
    EXPECT_TRUE(IsEqualGUID(clsid, kDataFmtid));
    const char16_t* rejected[] = {
        u"HID\\VID_0483&PID_5750&MI_00#0100:-0",       // an instance name the driver builds
        u"C458F8A7-4AE8-4777-9607-2E9BDD65110A",       // no braces
        u"{C458F8A7-4AE8-4777-9607-2E9BDD65110A",      // no closing brace
        u"{C458F8A7-4AE8-4777-9607-2E9BDD65110A}x",    // trailing text
        u"{C458F8A7-4AE8-4777-9607+2E9BDD65110A}",     // wrong separator
        u"{C458F8A7-4AE8-4777-9607-2E9BDD65110G}",     // not hex
        u"{C458F8A74-AE8-4777-9607-2E9BDD65110A}",     // dash in the wrong place
        u" {C458F8A7-4AE8-4777-9607-2E9BDD65110A}",    // leading space
        u"",
    };
    for (const char16_t* text : rejected) {
        clsid = kDataFmtid;
        EXPECT_EQ(CLSIDFromString(text, &clsid), CO_E_CLASSSTRING);
        EXPECT_TRUE(IsEqualGUID(clsid, GUID{}));
    }
    EXPECT_EQ(CLSIDFromString(nullptr, &clsid), E_INVALIDARG);
    EXPECT_EQ(CLSIDFromString(u"{C458F8A7-4AE8-4777-9607-2E9BDD65110A}", nullptr), E_INVALIDARG);

    LPOLESTR text = nullptr;
    ASSERT_EQ(StringFromCLSID(kDataFmtid, &text), S_OK);
    EXPECT_EQ(std::u16string(text), u"{C458F8A7-4AE8-4777-9607-2E9BDD65110A}");
    CoTaskMemFree(text);
    FaultInjector::Instance().FailNth(FaultPoint::CoTaskMem, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(StringFromCLSID(kDataFmtid, &text), E_OUTOFMEMORY);
    EXPECT_EQ(text, nullptr);
}

TEST_F(ComTest, SeededGuidsRepeatAndAreVersionFour)
{
    host::com::SeedGuidGenerator(42);
    GUID first[3];
    for (GUID& g : first)
        ASSERT_EQ(CoCreateGuid(&g), S_OK);
    host::com::SeedGuidGenerator(42);
    for (const GUID& expected : first) {
        GUID again{};
        CoCreateGuid(&again);
        EXPECT_TRUE(IsEqualGUID(again, expected));
        EXPECT_EQ(again.Data3 >> 12, 4);
        EXPECT_EQ(again.Data4[0] & 0xC0, 0x80);
    }
    EXPECT_FALSE(IsEqualGUID(first[0], first[1]));
    host::com::SeedGuidGenerator(43);
    GUID other{};
    CoCreateGuid(&other);
    EXPECT_FALSE(IsEqualGUID(other, first[0]));
    EXPECT_EQ(CoCreateGuid(nullptr), E_INVALIDARG);
    host::com::SeedGuidGenerator(1);
}

TEST_F(ComTest, TaskMemoryIsCountedAndFaultable)
{
    void* block = CoTaskMemAlloc(0);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(ResourceLedger::Instance().Live(ResourceKind::CoTaskMem), 1);
    CoTaskMemFree(block);
    CoTaskMemFree(nullptr);
    FaultInjector::Instance().FailNth(FaultPoint::CoTaskMem, 2, STATUS_NO_MEMORY);
    void* ok = CoTaskMemAlloc(8);
    EXPECT_NE(ok, nullptr);
    EXPECT_EQ(CoTaskMemAlloc(8), nullptr);
    CoTaskMemFree(ok);
}

}  // namespace
}  // namespace host::sensorscx::testing
