// The device registry: keys, dispositions, values, preload and read-back.
#include <string>

#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

// A UNICODE_STRING over a string that outlives it (a literal or a constant).
UNICODE_STRING Name(const char16_t* text)
{
    UNICODE_STRING name;
    name.Length = static_cast<USHORT>(std::char_traits<char16_t>::length(text) * 2);
    name.MaximumLength = name.Length;
    name.Buffer = const_cast<PWSTR>(text);
    return name;
}

constexpr const char16_t* kSubkey = u"KPX_ActivitySensor";
constexpr const char16_t* kInterval = u"HistorySampleReportInterval";

class RegistryTest : public DeviceTest {
protected:
    WDFKEY OpenDriverKey()
    {
        WDFKEY key = nullptr;
        EXPECT_EQ(WdfDeviceOpenRegistryKey(Device(), PLUGPLAY_REGKEY_DRIVER | WDF_REGKEY_DRIVER_SUBKEY, KEY_READ,
                                           nullptr, &key),
                  STATUS_SUCCESS);
        return key;
    }

    WDFKEY CreateSubkey(WDFKEY parent, const char16_t* text, ULONG* disposition)
    {
        UNICODE_STRING name = Name(text);
        WDFKEY key = nullptr;
        EXPECT_EQ(WdfRegistryCreateKey(parent, &name, KEY_ALL_ACCESS, REG_OPTION_NON_VOLATILE, disposition, nullptr,
                                       &key),
                  STATUS_SUCCESS);
        return key;
    }
};

TEST_F(RegistryTest, SubkeyIsCreatedOnceThenOpenedWithValuesKept)
{
    WDFKEY driverKey = OpenDriverKey();
    ULONG disposition = 0;
    WDFKEY subkey = CreateSubkey(driverKey, kSubkey, &disposition);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    UNICODE_STRING value = Name(kInterval);
    EXPECT_EQ(WdfRegistryAssignULong(subkey, &value, 60000), STATUS_SUCCESS);
    WdfRegistryClose(subkey);

    subkey = CreateSubkey(driverKey, u"kpx_activitysensor", &disposition);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    ULONG read = 0;
    UNICODE_STRING shouting = Name(u"HISTORYSAMPLEREPORTINTERVAL");
    EXPECT_EQ(WdfRegistryQueryULong(subkey, &shouting, &read), STATUS_SUCCESS);
    EXPECT_EQ(read, 60000u);
    WdfRegistryClose(subkey);
    WdfRegistryClose(driverKey);

    EXPECT_EQ(host_->Registry().Read("KPX_ActivitySensor", "HistorySampleReportInterval"), 60000u);
}

TEST_F(RegistryTest, PreloadedValuesAreSeenByTheDriverAndAbsentOnesAreNotFound)
{
    host_->Registry().Preload("KPX_PedometerSensor", "HistoryMaxEntries", 7);
    WDFKEY driverKey = OpenDriverKey();
    ULONG disposition = 0;
    WDFKEY subkey = CreateSubkey(driverKey, u"KPX_PedometerSensor", &disposition);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    UNICODE_STRING entries = Name(u"HistoryMaxEntries");
    UNICODE_STRING interval = Name(kInterval);
    ULONG read = 123;
    EXPECT_EQ(WdfRegistryQueryULong(subkey, &entries, &read), STATUS_SUCCESS);
    EXPECT_EQ(read, 7u);
    read = 123;
    EXPECT_EQ(WdfRegistryQueryULong(subkey, &interval, &read), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(read, 123u);
    // Values of the driver key itself are not those of the subkey.
    EXPECT_EQ(WdfRegistryQueryULong(driverKey, &entries, &read), STATUS_OBJECT_NAME_NOT_FOUND);
}

TEST_F(RegistryTest, KeysLeftOpenAreClosedWithTheDevice)
{
    ULONG disposition = 0;
    CreateSubkey(OpenDriverKey(), kSubkey, &disposition);
    host_->Unload();
    EXPECT_EQ(host_->Leaks(), "");
    EXPECT_TRUE(host_->Registry().HasSubkey("KPX_ActivitySensor"));
}

TEST_F(RegistryTest, OnlyTheDriverKeyOpensAndMalformedNamesAreRefused)
{
    WDFKEY key = nullptr;
    EXPECT_EQ(WdfDeviceOpenRegistryKey(Device(), PLUGPLAY_REGKEY_DEVICE, KEY_READ, nullptr, &key),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(WdfDeviceOpenRegistryKey(Device(), PLUGPLAY_REGKEY_DRIVER, KEY_READ, nullptr, &key), STATUS_SUCCESS);
    UNICODE_STRING odd{3, 4, const_cast<PWSTR>(u"ab")};
    UNICODE_STRING empty{0, 0, nullptr};
    UNICODE_STRING noBuffer{4, 4, nullptr};
    WDFKEY subkey = nullptr;
    EXPECT_EQ(WdfRegistryCreateKey(key, &odd, KEY_ALL_ACCESS, 0, nullptr, nullptr, &subkey), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(WdfRegistryCreateKey(key, &empty, KEY_ALL_ACCESS, 0, nullptr, nullptr, &subkey), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(WdfRegistryCreateKey(key, nullptr, KEY_ALL_ACCESS, 0, nullptr, nullptr, &subkey), STATUS_INVALID_PARAMETER);
    ULONG value = 0;
    EXPECT_EQ(WdfRegistryQueryULong(key, &noBuffer, &value), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(WdfRegistryAssignULong(key, &odd, 1), STATUS_INVALID_PARAMETER);
}

TEST_F(RegistryTest, EachRegistryFaultPointFailsItsCall)
{
    auto& faults = host::FaultInjector::Instance();
    WDFKEY key = nullptr;
    faults.FailNth(host::FaultPoint::RegistryOpenKey, 1, STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(WdfDeviceOpenRegistryKey(Device(), 0x102, KEY_READ, nullptr, &key), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(key, nullptr);
    key = OpenDriverKey();

    UNICODE_STRING name = Name(kSubkey);
    WDFKEY subkey = nullptr;
    faults.FailNth(host::FaultPoint::RegistryCreateKey, 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(WdfRegistryCreateKey(key, &name, KEY_ALL_ACCESS, 0, nullptr, nullptr, &subkey),
              STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_FALSE(host_->Registry().HasSubkey("KPX_ActivitySensor"));

    UNICODE_STRING value = Name(kInterval);
    faults.FailNth(host::FaultPoint::RegistryAssignValue, 1, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(WdfRegistryAssignULong(key, &value, 5), STATUS_UNSUCCESSFUL);
    EXPECT_FALSE(host_->Registry().Read("", "HistorySampleReportInterval").has_value());
    EXPECT_EQ(WdfRegistryAssignULong(key, &value, 5), STATUS_SUCCESS);

    ULONG read = 0;
    faults.FailNth(host::FaultPoint::RegistryQueryValue, 1, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(WdfRegistryQueryULong(key, &value, &read), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(WdfRegistryQueryULong(key, &value, &read), STATUS_SUCCESS);
    EXPECT_EQ(read, 5u);
}

TEST(RegistryStoreTest, FoldsLatinLettersButNotOtherCharacters)
{
    RegistryStore store;
    store.Preload("Key", "\xE9t\xE9", 1);  // "été" in Latin-1
    EXPECT_EQ(store.Query(u"KEY", u"\u00C9T\u00C9"), 1u);
    EXPECT_FALSE(store.Query(u"KEY", u"\u0395").has_value());
    EXPECT_FALSE(store.Assign(u"Missing", u"v", 1));
    EXPECT_TRUE(store.HasKey(u""));  // the driver key always exists
}

}  // namespace
}  // namespace host::framework::testing
