// Bad arguments every framework call refuses, and every fault-injection point:
// the armed call fails with the injected status, the next one succeeds, and
// nothing is left behind.
#include <functional>
#include <string>

#include "platform/system.h"
#include "tests/framework/test_support.h"

struct HOST_TEST_CONTEXT {
    int value;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(HOST_TEST_CONTEXT, HostTestContext)

namespace host::framework::testing {
namespace {

constexpr ULONG kIoctl = 0x000B01A8;

// A host with a driver and a device, and the objects the calls below work on.
// The out handles receive whatever the calls create.
class CallTest : public HostTest {
public:
    using HostTest::endpoint_;
    using HostTest::host_;

    void AddDevice()
    {
        ASSERT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
        ASSERT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
        ASSERT_EQ(WdfIoTargetCreate(Device(), nullptr, &target), STATUS_SUCCESS);
        ASSERT_EQ(WdfDeviceOpenRegistryKey(Device(), PLUGPLAY_REGKEY_DRIVER, KEY_READ, nullptr, &key), STATUS_SUCCESS);
        ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 16, &memory, nullptr), STATUS_SUCCESS);
        ASSERT_EQ(WdfRequestCreate(nullptr, target, &request), STATUS_SUCCESS);
    }
    WDFDEVICE Device() const { return host_->Device(); }
    NTSTATUS Open()
    {
        WDF_IO_TARGET_OPEN_PARAMS params = OpenByFile();
        return WdfIoTargetOpen(target, &params);
    }
    NTSTATUS CreateMemory(WDF_OBJECT_ATTRIBUTES attributes, size_t size = 8)
    {
        return WdfMemoryCreate(&attributes, PagedPool, 0, size, &outMemory, nullptr);
    }
    NTSTATUS CreateTimer(PFN_WDF_TIMER callback, WDFOBJECT parent)
    {
        WDF_TIMER_CONFIG config;
        WDF_TIMER_CONFIG_INIT(&config, callback);
        WDF_OBJECT_ATTRIBUTES attributes = Attributes(parent);
        return WdfTimerCreate(&config, &attributes, &outTimer);
    }
    // A read on the opened target; STATUS_SUCCESS once it is pending.
    NTSTATUS SendRead()
    {
        WDFREQUEST read = nullptr;
        NTSTATUS status = WdfRequestCreate(nullptr, target, &read);
        if (!NT_SUCCESS(status))
            return status;
        WdfIoTargetFormatRequestForRead(target, read, memory, nullptr, nullptr);
        WdfRequestSetCompletionRoutine(
            read, [](WDFREQUEST r, WDFIOTARGET, PWDF_REQUEST_COMPLETION_PARAMS, WDFCONTEXT) { WdfObjectDelete(r); },
            nullptr);
        if (WdfRequestSend(read, target, nullptr))
            return STATUS_SUCCESS;
        status = WdfRequestGetStatus(read);
        WdfObjectDelete(read);
        return status;
    }

    WDFIOTARGET target = nullptr;
    WDFKEY key = nullptr;
    WDFMEMORY memory = nullptr;
    WDFREQUEST request = nullptr;
    bool opened = false;
    WDFMEMORY outMemory = nullptr;
    WDFTIMER outTimer = nullptr;
    WDFKEY outKey = nullptr;
    WDFIOTARGET outTarget = nullptr;
    WDFREQUEST outRequest = nullptr;
    WDFWAITLOCK outLock = nullptr;
};

void NoOp(WDFTIMER) {}

struct MisuseCase {
    const char* what;
    NTSTATUS expected;
    std::function<NTSTATUS(CallTest&)> call;
};

const MisuseCase kMisuseCases[] = {
    {"memory of size 0", STATUS_INVALID_PARAMETER, [](CallTest& t) { return t.CreateMemory(Attributes(nullptr), 0); }},
    {"attributes of size 0", STATUS_INFO_LENGTH_MISMATCH, [](CallTest& t) {
         WDF_OBJECT_ATTRIBUTES attributes = Attributes(nullptr);
         attributes.Size = 0;
         return t.CreateMemory(attributes);
     }},
    {"dead parent", STATUS_INVALID_PARAMETER, [](CallTest& t) {
         WDFMEMORY dead = nullptr;
         EXPECT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &dead, nullptr), STATUS_SUCCESS);
         WdfObjectDelete(dead);
         return t.CreateMemory(Attributes(dead));
     }},
    {"context without type", STATUS_INVALID_PARAMETER, [](CallTest& t) {
         WDF_OBJECT_ATTRIBUTES attributes = Attributes(nullptr);
         void* context = nullptr;
         return WdfObjectAllocateContext(t.memory, &attributes, &context);
     }},
    {"timer without parent", STATUS_INVALID_PARAMETER, [](CallTest& t) { return t.CreateTimer(NoOp, nullptr); }},
    {"open by name", STATUS_NOT_SUPPORTED, [](CallTest& t) {
         WDF_IO_TARGET_OPEN_PARAMS params = OpenByFile();
         params.Type = WdfIoTargetOpenByName;
         return WdfIoTargetOpen(t.target, &params);
     }},
    {"open twice", STATUS_INVALID_DEVICE_STATE, [](CallTest& t) {
         EXPECT_EQ(t.Open(), STATUS_SUCCESS);
         return t.Open();
     }},
    {"output window beyond the buffer", STATUS_INVALID_PARAMETER, [](CallTest& t) {
         WDFMEMORY_OFFSET window{10, 7};
         return WdfIoTargetFormatRequestForIoctl(t.target, t.request, kIoctl, nullptr, nullptr, t.memory, &window);
     }},
    {"unformatted send", STATUS_INVALID_DEVICE_REQUEST, [](CallTest& t) {
         EXPECT_FALSE(WdfRequestSend(t.request, t.target, nullptr));
         return WdfRequestGetStatus(t.request);
     }},
    {"synchronous read", STATUS_NOT_SUPPORTED, [](CallTest& t) {
         EXPECT_EQ(WdfIoTargetFormatRequestForRead(t.target, t.request, t.memory, nullptr, nullptr), STATUS_SUCCESS);
         WDF_REQUEST_SEND_OPTIONS options{sizeof(options), WDF_REQUEST_SEND_OPTION_SYNCHRONOUS, 0};
         EXPECT_FALSE(WdfRequestSend(t.request, t.target, &options));
         return WdfRequestGetStatus(t.request);
     }},
    {"second read while one is outstanding", STATUS_INVALID_DEVICE_STATE, [](CallTest& t) {
         EXPECT_EQ(t.SendRead(), STATUS_SUCCESS);
         return t.SendRead();
     }},
    {"key name of odd length", STATUS_INVALID_PARAMETER, [](CallTest& t) {
         UNICODE_STRING odd{3, 4, const_cast<PWSTR>(u"ab")};
         return WdfRegistryCreateKey(t.key, &odd, KEY_ALL_ACCESS, 0, nullptr, nullptr, &t.outKey);
     }},
};

TEST_F(CallTest, BadArgumentsAreRefusedWithAClearStatusAndNoHandle)
{
    AddDevice();
    for (const MisuseCase& c : kMisuseCases) {
        EXPECT_EQ(c.call(*this), c.expected) << c.what;
        EXPECT_TRUE(outMemory == nullptr && outTimer == nullptr && outKey == nullptr) << c.what;
    }
    EXPECT_EQ(endpoint_.Counts().submits, 1) << "only the first read reaches the device";
    ExpectViolations({"already open", "second read"});
}

struct FaultCase {
    FaultPoint point;
    std::function<NTSTATUS(CallTest&)> call;
};

void PrintTo(const FaultCase& c, std::ostream* out)
{
    *out << FaultPointName(c.point);
}

class FaultPointTest : public CallTest, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(FaultPointTest, ArmedCallFailsWithTheInjectedStatusAndTheNextSucceeds)
{
    const FaultCase& c = GetParam();
    if (c.point == FaultPoint::DeviceCreate)
        ASSERT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
    else if (c.point != FaultPoint::DriverCreate)
        AddDevice();
    Faults().FailNth(c.point, 1, STATUS_DEVICE_BUSY);
    EXPECT_EQ(c.call(*this), STATUS_DEVICE_BUSY);
    EXPECT_EQ(Faults().Injected(), 1u);
    EXPECT_EQ(c.call(*this), STATUS_SUCCESS);
    EXPECT_EQ(endpoint_.Counts().submits + endpoint_.Counts().ioctls, c.point == FaultPoint::RequestSend ? 1 : 0)
        << "a failed send never reaches the device";
}

// Win32-style creators report failure as a null handle; the handle is closed at once.
NTSTATUS Created(HANDLE handle)
{
    return handle != nullptr && CloseHandle(handle) ? STATUS_SUCCESS : STATUS_DEVICE_BUSY;
}

const FaultCase kFaultCases[] = {
    {FaultPoint::FrameworkMemory, [](CallTest& t) { return t.CreateMemory(Attributes(nullptr)); }},
    {FaultPoint::DriverHeap,
     [](CallTest&) {
         void* block = HeapAlloc(GetProcessHeap(), 0, 8);
         HeapFree(GetProcessHeap(), 0, block);
         return block != nullptr ? STATUS_SUCCESS : STATUS_DEVICE_BUSY;
     }},
    {FaultPoint::IoTargetCreate, [](CallTest& t) { return WdfIoTargetCreate(t.Device(), nullptr, &t.outTarget); }},
    {FaultPoint::IoTargetOpen, [](CallTest& t) { return t.Open(); }},
    {FaultPoint::RequestCreate, [](CallTest& t) { return WdfRequestCreate(nullptr, t.target, &t.outRequest); }},
    {FaultPoint::RequestSend,
     [](CallTest& t) {
         if (!std::exchange(t.opened, true)) {
             EXPECT_EQ(t.Open(), STATUS_SUCCESS);
         }
         return t.SendRead();
     }},
    {FaultPoint::DriverCreate, [](CallTest& t) { return t.host_->LoadDriver(MiniDriverEntry); }},
    {FaultPoint::DeviceCreate, [](CallTest& t) { return t.host_->AddDevice(t.endpoint_); }},
    {FaultPoint::WaitLockCreate, [](CallTest& t) { return WdfWaitLockCreate(nullptr, &t.outLock); }},
    {FaultPoint::TimerCreate, [](CallTest& t) { return t.CreateTimer(NoOp, t.Device()); }},
    {FaultPoint::ThreadCreate,
     [](CallTest&) {
         HANDLE thread = CreateThread(nullptr, 0, [](void*) -> DWORD { return 0; }, nullptr, 0, nullptr);
         if (thread != nullptr)
             WaitForSingleObjectEx(thread, INFINITE, FALSE);
         return Created(thread);
     }},
    {FaultPoint::EventCreate, [](CallTest&) { return Created(CreateEventW(nullptr, FALSE, FALSE, nullptr)); }},
    {FaultPoint::RegistryOpenKey,
     [](CallTest& t) {
         return WdfDeviceOpenRegistryKey(t.Device(), PLUGPLAY_REGKEY_DRIVER | WDF_REGKEY_DRIVER_SUBKEY, KEY_READ,
                                         nullptr, &t.outKey);
     }},
    {FaultPoint::RegistryCreateKey,
     [](CallTest& t) {
         UNICODE_STRING name = Name(u"KPX_ActivitySensor");
         const NTSTATUS status = WdfRegistryCreateKey(t.key, &name, KEY_ALL_ACCESS, 0, nullptr, nullptr, &t.outKey);
         EXPECT_EQ(t.host_->Registry().HasSubkey("KPX_ActivitySensor"), NT_SUCCESS(status));
         return status;
     }},
    {FaultPoint::RegistryAssignValue,
     [](CallTest& t) {
         UNICODE_STRING name = Name(u"Interval");
         const NTSTATUS status = WdfRegistryAssignULong(t.key, &name, 5);
         EXPECT_EQ(t.host_->Registry().Read("", "Interval").has_value(), NT_SUCCESS(status));
         return status;
     }},
    {FaultPoint::RegistryQueryValue,
     [](CallTest& t) {
         t.host_->Registry().Preload("", "Interval", 5);
         UNICODE_STRING name = Name(u"Interval");
         ULONG value = 0;
         const NTSTATUS status = WdfRegistryQueryULong(t.key, &name, &value);
         EXPECT_EQ(value, NT_SUCCESS(status) ? 5u : 0u);
         return status;
     }},
    {FaultPoint::ObjectContext,
     [](CallTest&) {
         WDF_OBJECT_ATTRIBUTES attributes = Attributes(nullptr, WDF_GET_CONTEXT_TYPE_INFO(HOST_TEST_CONTEXT));
         void* context = nullptr;
         WDFMEMORY memory = nullptr;
         EXPECT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &memory, nullptr), STATUS_SUCCESS);
         const NTSTATUS status = WdfObjectAllocateContext(memory, &attributes, &context);
         EXPECT_EQ(context != nullptr, NT_SUCCESS(status));
         WdfObjectDelete(memory);
         return status;
     }},
    {FaultPoint::EventSet,
     [](CallTest&) {
         HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
         const BOOL set = SetEvent(event);
         EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), set ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
         CloseHandle(event);
         return set ? STATUS_SUCCESS : STATUS_DEVICE_BUSY;
     }},
    {FaultPoint::Wait,
     [](CallTest&) {
         HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
         const DWORD result = WaitForSingleObjectEx(event, 0, FALSE);
         CloseHandle(event);
         return result == WAIT_OBJECT_0 ? STATUS_SUCCESS : result == WAIT_FAILED ? STATUS_DEVICE_BUSY : STATUS_UNSUCCESSFUL;
     }},
};

INSTANTIATE_TEST_SUITE_P(EachPoint, FaultPointTest, ::testing::ValuesIn(kFaultCases),
                         [](const ::testing::TestParamInfo<FaultCase>& param) {
                             return std::string(FaultPointName(param.param.point));
                         });

// Only the driver's calls count: the host's own work (and what a platform
// call does inside) never takes a count, so a sweep fails the driver, not the host.
TEST_F(CallTest, OnlyDriverCallsCountAndOneCounterSpansEveryPoint)
{
    AddDevice();
    {
        HostCodeScope hostCode;
        Faults().FailNthCall(1, STATUS_DEVICE_BUSY);
        EXPECT_EQ(CreateMemory(Attributes(nullptr)), STATUS_SUCCESS);
        WdfObjectDelete(outMemory);
        {
            DriverCodeScope driverCode;  // a callback into the driver from host code
            EXPECT_EQ(WdfWaitLockCreate(nullptr, &outLock), STATUS_DEVICE_BUSY);
        }
        EXPECT_EQ(Faults().LastInjected(), FaultPoint::WaitLockCreate);
    }
    // Mixed points, one count each, in call order.
    Faults().FailNthCall(3, STATUS_DEVICE_BUSY);
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);  // 1
    ASSERT_NE(event, nullptr);
    EXPECT_TRUE(SetEvent(event));                                   // 2
    EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), WAIT_FAILED); // 3: fails
    EXPECT_EQ(Faults().LastInjected(), FaultPoint::Wait);
    EXPECT_EQ(CreateMemory(Attributes(nullptr)), STATUS_SUCCESS);   // 4
    EXPECT_EQ(Faults().TotalCalls(), 4u);
    EXPECT_EQ(Faults().Calls(FaultPoint::EventSet), 1u);
    EXPECT_EQ(Faults().Injected(), 2u);
    CloseHandle(event);
}

TEST_F(CallTest, CreatingAHostDisarmsEveryFaultAndZeroesTheCounters)
{
    AddDevice();
    Faults().FailNth(FaultPoint::FrameworkMemory, 2, STATUS_DEVICE_BUSY);
    Faults().FailNthCall(5, STATUS_DEVICE_BUSY);
    EXPECT_EQ(CreateMemory(Attributes(nullptr)), STATUS_SUCCESS);
    host_.reset();
    host_ = std::make_unique<DriverHost>(ClockMode::Deterministic, StartTime());
    EXPECT_EQ(Faults().TotalCalls(), 0u);
    AddDevice();
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(CreateMemory(Attributes(nullptr)), STATUS_SUCCESS);
        WdfObjectDelete(outMemory);
    }
    EXPECT_EQ(Faults().Injected(), 0u);
}

}  // namespace
}  // namespace host::framework::testing
