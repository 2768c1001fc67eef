// The device registry: keys, dispositions, values, preload and read-back.
#include <string>

#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

class RegistryTest : public DeviceTest {
protected:
    void SetUp() override
    {
        DeviceTest::SetUp();
        ASSERT_EQ(WdfDeviceOpenRegistryKey(Device(), PLUGPLAY_REGKEY_DRIVER | WDF_REGKEY_DRIVER_SUBKEY, KEY_READ,
                                           nullptr, &driverKey),
                  STATUS_SUCCESS);
    }
    WDFKEY CreateSubkey(const char16_t* text, ULONG expectedDisposition)
    {
        UNICODE_STRING name = Name(text);
        WDFKEY key = nullptr;
        ULONG disposition = 0;
        EXPECT_EQ(WdfRegistryCreateKey(driverKey, &name, KEY_ALL_ACCESS, REG_OPTION_NON_VOLATILE, &disposition,
                                       nullptr, &key),
                  STATUS_SUCCESS);
        EXPECT_EQ(disposition, expectedDisposition);
        return key;
    }
    static NTSTATUS Query(WDFKEY key, const char16_t* name, ULONG* value)
    {
        UNICODE_STRING string = Name(name);
        return WdfRegistryQueryULong(key, &string, value);
    }

    WDFKEY driverKey = nullptr;
};

TEST_F(RegistryTest, SubkeyIsCreatedOnceThenOpenedCaseBlindWithValuesKept)
{
    WDFKEY subkey = CreateSubkey(u"KPX_ActivitySensor", REG_CREATED_NEW_KEY);
    UNICODE_STRING value = Name(u"HistorySampleReportInterval");
    EXPECT_EQ(WdfRegistryAssignULong(subkey, &value, 60000), STATUS_SUCCESS);
    WdfRegistryClose(subkey);

    subkey = CreateSubkey(u"kpx_activitysensor", REG_OPENED_EXISTING_KEY);
    ULONG read = 0;
    EXPECT_EQ(Query(subkey, u"HISTORYSAMPLEREPORTINTERVAL", &read), STATUS_SUCCESS);
    EXPECT_EQ(read, 60000u);
    EXPECT_EQ(host_->Registry().Read("KPX_ActivitySensor", "HistorySampleReportInterval"), 60000u);
    // Keys left open are closed with the device (the teardown checks for leaks).
}

TEST_F(RegistryTest, PreloadedValuesAreSeenByTheDriverAndAbsentOnesAreNotFound)
{
    host_->Registry().Preload("KPX_PedometerSensor", "HistoryMaxEntries", 7);
    WDFKEY subkey = CreateSubkey(u"KPX_PedometerSensor", REG_OPENED_EXISTING_KEY);
    ULONG read = 123;
    EXPECT_EQ(Query(subkey, u"HistoryMaxEntries", &read), STATUS_SUCCESS);
    EXPECT_EQ(read, 7u);
    read = 123;
    EXPECT_EQ(Query(subkey, u"HistorySampleReportInterval", &read), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(read, 123u);
    EXPECT_EQ(Query(driverKey, u"HistoryMaxEntries", &read), STATUS_OBJECT_NAME_NOT_FOUND) << "not the subkey's";
}

}  // namespace
}  // namespace host::framework::testing
