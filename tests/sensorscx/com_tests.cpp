#include <gtest/gtest.h>

#include <string>

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
    EXPECT_EQ(CLSIDFromString(u"{C458F8A7-4AE8-4777-9607-2E9BDD65110A}", nullptr), E_INVALIDARG);

    LPOLESTR text = nullptr;
    ASSERT_EQ(StringFromCLSID(kDataFmtid, &text), S_OK);
    EXPECT_EQ(std::u16string(text), u"{C458F8A7-4AE8-4777-9607-2E9BDD65110A}");
    CoTaskMemFree(text);
}

TEST_F(ComTest, SeededGuidsRepeatAndAreVersionFour)
{
    GUID first[2], again[2];
    for (GUID* run : {first, again}) {
        host::com::SeedGuidGenerator(42);
        for (int i = 0; i < 2; ++i)
            ASSERT_EQ(CoCreateGuid(&run[i]), S_OK);
    }
    EXPECT_FALSE(IsEqualGUID(first[0], first[1]));
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(IsEqualGUID(again[i], first[i]));
        EXPECT_EQ(first[i].Data3 >> 12, 4);
        EXPECT_EQ(first[i].Data4[0] & 0xC0, 0x80);
    }
    host::com::SeedGuidGenerator(1);
}

}  // namespace
}  // namespace host::sensorscx::testing
