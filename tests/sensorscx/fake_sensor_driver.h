// A tiny sensor driver for the class-extension tests: one device, a few
// sensors with small lists, the fifteen callbacks following the size-query
// convention, a history retrieval worker, and switches that make it break the
// contract in the ways the class extension must notice.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/common/hid_collection_endpoint.h"
#include "host/framework/driver_host.h"
#include "host/sensorscx/client.h"
#include "host/sensorscx/violations.h"
#include "platform/sensorscx.h"

namespace host::sensorscx::testing {

inline constexpr GUID kDataFmtid = {0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}};
inline constexpr GUID kPropertyFmtid = {0xD4247382, 0x969D, 0x4F24, {0xBB, 0x14, 0xFB, 0x96, 0x71, 0x87, 0x0B, 0xBF}};
inline constexpr PROPERTYKEY kTimestampKey = {kDataFmtid, 2};

// A list in driver memory whose values (strings, CLSIDs) the list owns.
class DriverList {
public:
    explicit DriverList(ULONG capacity);
    ~DriverList();
    DriverList(const DriverList&) = delete;
    DriverList& operator=(const DriverList&) = delete;

    // Takes ownership of `value`; Count grows to cover entry i.
    void Set(ULONG i, DWORD pid, const PROPVARIANT& value, const GUID& fmtid = kPropertyFmtid);
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
inline PROPVARIANT FileTime(ULONGLONG ticks)
{
    return Value(VT_FILETIME, &PROPVARIANT::filetime, FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)});
}
PROPVARIANT Str(const char16_t* s);   // owns a copy of s
PROPVARIANT Clsid(const GUID& g);     // owns a copy of g

// Ways to break the contract in the list callbacks.
struct Misbehaviour {
    ULONG sizeQueryShortBy = 0;     // the size query answers this much less than needed
    bool countBeyondBuffer = false; // Count set past what the caller's buffer holds
    bool shallowCopy = false;       // entries copied as they are: pointers into driver memory
    bool overrun = false;           // one byte written past the caller's buffer
    bool rewriteAllocated = false;  // the caller's AllocatedSizeInBytes changed
};

struct FakeSensor {
    explicit FakeSensor(int number);

    SENSOROBJECT handle = nullptr;
    DriverList enumeration{3};
    DriverList properties{3};  // 8 + 3 * 48 + 2 * 22 bytes marshalled
    DriverList thresholds{1};
    DriverList fieldProperties{2};
    DriverList data{3};
    std::vector<std::uint64_t> fieldsStorage;  // SENSOR_PROPERTY_LIST of 2 keys
    ULONG intervalMs = 100;
    Misbehaviour misbehave;
    std::optional<CollectionListCopy> lastThresholds;
    std::atomic<int> starts{0};

    // History retrieval: `historyRecords` records of 3 entries are written.
    ULONG historyRecords = 2;
    bool holdWorker = false;     // the worker waits for ReleaseWorker() or a cancel
    bool completeTwice = false;  // the worker reports completion twice
    bool reportShortSize = false;
    std::thread worker;
    std::mutex workerMutex;
    std::condition_variable workerWake;
    bool released = false;
    bool cancelled = false;
    PSENSOR_COLLECTION_LIST historyList = nullptr;

    PSENSOR_PROPERTY_LIST Fields() { return reinterpret_cast<PSENSOR_PROPERTY_LIST>(fieldsStorage.data()); }
    void ReleaseWorker();
    void JoinWorker();
    // Sets data entries 1 and 2 and calls SensorsCxSensorDataReady.
    NTSTATUS Deliver(ULONG value, float reading);
};

struct FakeDriverConfig {
    int sensorCount = 2;
    int initializeCount = -1;  // sensors that reach SensorsCxSensorInitialize; -1: all
    int nullCallback = -1;     // index (0..14) of a callback left null
    ULONG configSize = sizeof(SENSOR_CONTROLLER_CONFIG);
    bool skipInitConfig = false;
};

FakeDriverConfig& FakeDriver();
std::vector<std::unique_ptr<FakeSensor>>& FakeSensors();

// A HID collection nobody talks to.
class SilentEndpoint final : public HidCollectionEndpoint {
public:
    IoctlResult DeviceControl(ULONG, const BYTE*, ULONG, BYTE*, ULONG) override { return {STATUS_INVALID_DEVICE_REQUEST, 0, true}; }
    void SubmitRead(ReadCompletion* read, ULONG) override { pending_ = read; }
    bool CancelRead(ReadCompletion* read) override;

private:
    ReadCompletion* pending_ = nullptr;
};

// Resets faults and violations, checks the ledger is clean at the end.
class LedgerTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // The kinds reported so far; the log is emptied.
    static std::vector<ViolationKind> TakeViolations();
};

// The fake driver loaded on a deterministic host with its device added, and a client.
class FakeDriverTest : public LedgerTest {
protected:
    void SetUp() override;
    void TearDown() override;
    // Loads the driver and adds the device with the current FakeDriver() settings.
    void Start();

    FakeSensor& Sensor(std::size_t i) { return *FakeSensors().at(i); }
    Client& TheClient() { return *client_; }

    SilentEndpoint endpoint_;
    std::unique_ptr<framework::DriverHost> host_;
    std::optional<Client> client_;
};

}  // namespace host::sensorscx::testing
