// A tiny sensor driver for the class-extension tests: one device, a few
// sensors with small lists, the callbacks the tests call following the
// size-query convention, and switches that make it break the contract in the
// ways the class extension must notice.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "host/common/fault_injection.h"
#include "host/common/hid_collection_endpoint.h"
#include "host/common/resource_ledger.h"
#include "host/framework/driver_host.h"
#include "host/sensorscx/client.h"
#include "host/sensorscx/violations.h"
#include "platform/com.h"
#include "platform/propsys.h"
#include "platform/sensorscx.h"
#include "platform/system.h"

namespace host::sensorscx::testing {

inline constexpr GUID kDataFmtid = {0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}};
inline constexpr GUID kPropertyFmtid = {0xD4247382, 0x969D, 0x4F24, {0xBB, 0x14, 0xFB, 0x96, 0x71, 0x87, 0x0B, 0xBF}};
inline constexpr PROPERTYKEY kTimestampKey = {kDataFmtid, 2};

// A list in driver memory whose values (strings, CLSIDs) the list owns.
class DriverList {
public:
    explicit DriverList(ULONG capacity) : storage_((SENSOR_COLLECTION_LIST_SIZE(capacity) + 7) / 8, 0)
    {
        get()->AllocatedSizeInBytes = SENSOR_COLLECTION_LIST_SIZE(capacity);
    }
    ~DriverList()
    {
        for (ULONG i = 0; i < (get()->AllocatedSizeInBytes - 8) / sizeof(SENSOR_VALUE_PAIR); ++i)
            PropVariantClear(&get()->List[i].Value);
    }
    DriverList(const DriverList&) = delete;
    DriverList& operator=(const DriverList&) = delete;

    // Takes ownership of `value`; Count grows to cover entry i.
    void Set(ULONG i, DWORD pid, const PROPVARIANT& value, const GUID& fmtid = kPropertyFmtid)
    {
        PropVariantClear(&get()->List[i].Value);
        get()->List[i] = {{fmtid, pid}, value};
        get()->Count = std::max(get()->Count, i + 1);
    }
    PSENSOR_COLLECTION_LIST get() { return reinterpret_cast<PSENSOR_COLLECTION_LIST>(storage_.data()); }

private:
    std::vector<std::uint64_t> storage_;
};

template <class T>
PROPVARIANT Value(VARTYPE vt, T PROPVARIANT::*field, T v)
{
    PROPVARIANT p{};
    p.vt = vt;
    p.*field = v;
    return p;
}
inline PROPVARIANT Of(VARTYPE vt) { return Value(vt, &PROPVARIANT::ulVal, ULONG{0}); }
inline PROPVARIANT Ui4(ULONG v) { return Value(VT_UI4, &PROPVARIANT::ulVal, v); }
inline PROPVARIANT Ui2(USHORT v) { return Value(VT_UI2, &PROPVARIANT::uiVal, v); }
inline PROPVARIANT R4(float v) { return Value(VT_R4, &PROPVARIANT::fltVal, v); }
inline PROPVARIANT R8(double v) { return Value(VT_R8, &PROPVARIANT::dblVal, v); }
inline PROPVARIANT FileTime(ULONGLONG ticks)
{
    return Value(VT_FILETIME, &PROPVARIANT::filetime, FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)});
}
// These own a copy of their argument.
inline PROPVARIANT Str(const char16_t* s) { PROPVARIANT p{}; EXPECT_EQ(InitPropVariantFromString(s, &p), S_OK); return p; }
inline PROPVARIANT Clsid(const GUID& g) { PROPVARIANT p{}; EXPECT_EQ(InitPropVariantFromCLSID(g, &p), S_OK); return p; }

// Ways to break the contract in the list callbacks.
struct Misbehaviour {
    ULONG sizeQueryShortBy = 0;     // the size query answers this much less than needed
    bool countBeyondBuffer = false; // Count set past what the caller's buffer holds
    bool shallowCopy = false;       // entries copied as they are: pointers into driver memory
    bool overrun = false;           // one byte written past the caller's buffer, AllocatedSizeInBytes changed
};

struct FakeSensor {
    FakeSensor();
    FakeSensor(const FakeSensor&) = delete;
    FakeSensor& operator=(const FakeSensor&) = delete;

    SENSOROBJECT handle = nullptr;
    DriverList enumeration{3};  // type, name, history size
    DriverList properties{3};  // 8 + 3 * 48 + 2 * 22 bytes marshalled
    DriverList data{3};
    Misbehaviour misbehave;
    std::optional<CollectionListCopy> lastThresholds;
    std::atomic<int> starts{0};
    ULONG intervalMs = 100;
    PSENSOR_COLLECTION_LIST historyList = nullptr;  // the accepted retrieval's buffer

    // Writes `records` records of 3 entries and reports completion `times`
    // times with the size written less `shortBy`.
    void CompleteHistory(ULONG records, ULONG shortBy = 0, int times = 1);
    // Sets data entries 1 and 2 and calls SensorsCxSensorDataReady.
    NTSTATUS Deliver(ULONG value, float reading);
};

struct FakeDriverConfig {
    int sensorCount = 2;
    int initializeCount = -1;  // sensors that reach SensorsCxSensorInitialize; -1: all
    bool nullStart = false;    // EvtSensorStart left null
    ULONG configSize = sizeof(SENSOR_CONTROLLER_CONFIG);
    bool skipInitConfig = false;
};

// The fake driver's module entry, for tests that drive a host of their own.
NTSTATUS FakeDriverEntry(void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath);

inline FakeDriverConfig& FakeDriver() { static FakeDriverConfig config; return config; }
inline std::vector<std::unique_ptr<FakeSensor>>& FakeSensors() { static std::vector<std::unique_ptr<FakeSensor>> s; return s; }

// A HID collection nobody talks to; the fake driver never reads.
class SilentEndpoint final : public HidCollectionEndpoint {
public:
    IoctlResult DeviceControl(ULONG, const BYTE*, ULONG, BYTE*, ULONG) override { return {STATUS_INVALID_DEVICE_REQUEST, 0, true}; }
    void SubmitRead(ReadCompletion* read, ULONG) override { read->Complete(STATUS_INVALID_DEVICE_REQUEST, nullptr, 0); }
    bool CancelRead(ReadCompletion*) override { return false; }
};

// Resets faults and violations, checks the ledger is clean at the end.
class LedgerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        FaultInjector::Instance().Reset();
        ViolationLog::Instance().Reset();
    }
    void TearDown() override
    {
        LedgerTest::SetUp();  // not the derived fixture's
        EXPECT_EQ(ResourceLedger::Instance().Leaks(), "");
    }
    // The kinds reported so far; the log is emptied.
    static std::vector<ViolationKind> TakeViolations()
    {
        std::vector<ViolationKind> kinds;
        for (const Violation& v : ViolationLog::Instance().Entries())
            kinds.push_back(v.kind);
        ViolationLog::Instance().Reset();
        return kinds;
    }
};

// The fake driver loaded on a deterministic host, and a client once Start() added the device.
class FakeDriverTest : public LedgerTest {
protected:
    void SetUp() override;
    void TearDown() override;
    // Loads the driver and adds the device with the current FakeDriver() settings.
    void Start();

    FakeSensor& Sensor(std::size_t i) { return *FakeSensors().at(i); }
    Client& TheClient() { return *client_; }

    framework::ClockMode mode_ = framework::ClockMode::Deterministic;  // set before SetUp
    SilentEndpoint endpoint_;
    std::unique_ptr<framework::DriverHost> host_;
    std::optional<Client> client_;
};

class StartedDriverTest : public FakeDriverTest {
protected:
    void SetUp() override
    {
        FakeDriverTest::SetUp();
        Start();
    }
};

}  // namespace host::sensorscx::testing
