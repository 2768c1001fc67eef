// Bad arguments every framework call refuses, and every fault-injection point:
// the armed call fails with the injected status, the next one succeeds, and
// nothing is left behind.
#include <array>
#include <functional>
#include <string>

#include "platform/system.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

constexpr ULONG kIoctl = 0x000B01A8;

struct Extra {
    int value;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Extra, GetExtra)

UNICODE_STRING Name(const char16_t* text)
{
    const auto length = static_cast<USHORT>(std::char_traits<char16_t>::length(text) * 2);
    return UNICODE_STRING{length, length, const_cast<PWSTR>(text)};
}

// A host with a driver and a device, and the objects the calls below work on.
class CallTest : public HostTest {
public:
    using HostTest::endpoint_;
    using HostTest::host_;

    void AddDevice()
    {
        ASSERT_EQ(host_->LoadDriver(MiniDriverEntry), STATUS_SUCCESS);
        ASSERT_EQ(host_->AddDevice(endpoint_), STATUS_SUCCESS);
        ASSERT_EQ(WdfIoTargetCreate(host_->Device(), nullptr, &target), STATUS_SUCCESS);
        ASSERT_EQ(WdfDeviceOpenRegistryKey(host_->Device(), PLUGPLAY_REGKEY_DRIVER, KEY_READ, nullptr, &key),
                  STATUS_SUCCESS);
        ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 16, &memory, nullptr), STATUS_SUCCESS);
    }
    WDFDEVICE Device() const { return host_->Device(); }
    NTSTATUS Open()
    {
        WDF_IO_TARGET_OPEN_PARAMS params = OpenByFile();
        return WdfIoTargetOpen(target, &params);
    }
    NTSTATUS TimerCreate(WDF_TIMER_CONFIG* config, WDFOBJECT parent, bool withAttributes = true)
    {
        WDF_OBJECT_ATTRIBUTES attributes = Attributes(parent);
        WDFTIMER timer = nullptr;
        return WdfTimerCreate(config, withAttributes ? &attributes : nullptr, &timer);
    }
    // A request on the opened target, formatted for a synchronous IOCTL or a read.
    NTSTATUS Send(bool ioctl)
    {
        WDFREQUEST request = nullptr;
        NTSTATUS status = WdfRequestCreate(nullptr, target, &request);
        if (!NT_SUCCESS(status))
            return status;
        WDF_OBJECT_ATTRIBUTES attributes = Attributes(request);
        WDFMEMORY lent = nullptr;
        EXPECT_EQ(WdfMemoryCreatePreallocated(&attributes, buffer.data(), buffer.size(), &lent), STATUS_SUCCESS);
        WDF_REQUEST_SEND_OPTIONS options{sizeof(options), 3, -10'000'000};
        if (ioctl)
            WdfIoTargetFormatRequestForIoctl(target, request, kIoctl, nullptr, nullptr, lent, nullptr);
        else
            WdfIoTargetFormatRequestForRead(target, request, lent, nullptr, nullptr);
        WdfRequestSetCompletionRoutine(request, [](WDFREQUEST r, WDFIOTARGET, PWDF_REQUEST_COMPLETION_PARAMS, WDFCONTEXT) {
            WdfObjectDelete(r);
        }, nullptr);
        const BOOLEAN sent = WdfRequestSend(request, target, ioctl ? &options : nullptr);
        status = sent && !ioctl ? STATUS_SUCCESS : WdfRequestGetStatus(request);
        if (ioctl || !sent)
            WdfObjectDelete(request);
        return status;
    }

    WDFIOTARGET target = nullptr;
    WDFKEY key = nullptr;
    WDFMEMORY memory = nullptr;
    std::array<BYTE, 16> buffer{};
    bool opened = false;
};

struct MisuseCase {
    const char* what;
    NTSTATUS expected;
    std::function<NTSTATUS(CallTest&)> call;
};

using MisuseTest = CallTest;

TEST_F(MisuseTest, BadArgumentsAreRefusedWithAClearStatus)
{
    AddDevice();
    WDF_TIMER_CONFIG timerConfig;
    WDF_TIMER_CONFIG_INIT(&timerConfig, [](WDFTIMER) {});
    WDFMEMORY dead = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &dead, nullptr), STATUS_SUCCESS);
    WdfObjectDelete(dead);
    WDFREQUEST request = nullptr;
    ASSERT_EQ(WdfRequestCreate(nullptr, target, &request), STATUS_SUCCESS);
    UNICODE_STRING odd{3, 4, const_cast<PWSTR>(u"ab")};
    UNICODE_STRING empty{0, 0, nullptr};
    UNICODE_STRING noBuffer{4, 4, nullptr};
    WDFMEMORY out = nullptr;
    WDFKEY subkey = nullptr;
    ULONG value = 0;
    char byte = 0;
    const MisuseCase cases[] = {
        {"memory of size 0", STATUS_INVALID_PARAMETER,
         [&](CallTest&) { return WdfMemoryCreate(nullptr, PagedPool, 0, 0, &out, nullptr); }},
        {"memory without out handle", STATUS_INVALID_PARAMETER,
         [&](CallTest&) { return WdfMemoryCreate(nullptr, PagedPool, 0, 8, nullptr, nullptr); }},
        {"lent null buffer", STATUS_INVALID_PARAMETER,
         [&](CallTest&) { return WdfMemoryCreatePreallocated(nullptr, nullptr, 8, &out); }},
        {"lent empty buffer", STATUS_INVALID_PARAMETER,
         [&](CallTest&) { return WdfMemoryCreatePreallocated(nullptr, &byte, 0, &out); }},
        {"attributes of size 0", STATUS_INFO_LENGTH_MISMATCH, [&](CallTest&) {
             WDF_OBJECT_ATTRIBUTES attributes = Attributes(nullptr);
             attributes.Size = 0;
             return WdfMemoryCreate(&attributes, PagedPool, 0, 8, &out, nullptr);
         }},
        {"dead parent", STATUS_INVALID_PARAMETER, [&](CallTest&) {
             WDF_OBJECT_ATTRIBUTES attributes = Attributes(dead);
             return WdfMemoryCreate(&attributes, PagedPool, 0, 8, &out, nullptr);
         }},
        {"context without type", STATUS_INVALID_PARAMETER, [&](CallTest& t) {
             WDF_OBJECT_ATTRIBUTES attributes = Attributes(nullptr);
             void* context = nullptr;
             return WdfObjectAllocateContext(t.memory, &attributes, &context);
         }},
        {"context attributes of wrong size", STATUS_INFO_LENGTH_MISMATCH, [&](CallTest& t) {
             WDF_OBJECT_ATTRIBUTES attributes = Attributes(nullptr, WDF_GET_CONTEXT_TYPE_INFO(Extra));
             attributes.Size = 8;
             void* context = nullptr;
             const NTSTATUS status = WdfObjectAllocateContext(t.memory, &attributes, &context);
             EXPECT_EQ(GetExtra(t.memory), nullptr);
             return status;
         }},
        {"timer without parent", STATUS_INVALID_PARAMETER, [&](CallTest& t) { return t.TimerCreate(&timerConfig, nullptr); }},
        {"timer without attributes", STATUS_INVALID_PARAMETER,
         [&](CallTest& t) { return t.TimerCreate(&timerConfig, t.Device(), false); }},
        {"timer without config", STATUS_INVALID_PARAMETER, [&](CallTest& t) { return t.TimerCreate(nullptr, t.Device()); }},
        {"timer without callback", STATUS_INVALID_PARAMETER, [&](CallTest& t) {
             WDF_TIMER_CONFIG config = timerConfig;
             config.EvtTimerFunc = nullptr;
             return t.TimerCreate(&config, t.Device());
         }},
        {"timer config of wrong size", STATUS_INFO_LENGTH_MISMATCH, [&](CallTest& t) {
             WDF_TIMER_CONFIG config = timerConfig;
             config.Size = 8;
             return t.TimerCreate(&config, t.Device());
         }},
        {"open by name", STATUS_NOT_SUPPORTED, [&](CallTest& t) {
             WDF_IO_TARGET_OPEN_PARAMS params = OpenByFile();
             params.Type = WdfIoTargetOpenByName;
             return WdfIoTargetOpen(t.target, &params);
         }},
        {"open params of wrong size", STATUS_INFO_LENGTH_MISMATCH, [&](CallTest& t) {
             WDF_IO_TARGET_OPEN_PARAMS params = OpenByFile();
             params.Size -= 8;
             return WdfIoTargetOpen(t.target, &params);
         }},
        {"open without params", STATUS_INVALID_PARAMETER, [&](CallTest& t) { return WdfIoTargetOpen(t.target, nullptr); }},
        {"open twice", STATUS_INVALID_DEVICE_STATE, [&](CallTest& t) {
             EXPECT_EQ(t.Open(), STATUS_SUCCESS);
             return t.Open();
         }},
        {"output window beyond the buffer", STATUS_INVALID_PARAMETER, [&](CallTest& t) {
             WDFMEMORY_OFFSET window{10, 7};
             return WdfIoTargetFormatRequestForIoctl(t.target, request, kIoctl, nullptr, nullptr, t.memory, &window);
         }},
        {"read window past the end", STATUS_INVALID_PARAMETER, [&](CallTest& t) {
             WDFMEMORY_OFFSET window{17, 0};
             return WdfIoTargetFormatRequestForRead(t.target, request, t.memory, &window, nullptr);
         }},
        {"read without memory", STATUS_INVALID_PARAMETER,
         [&](CallTest& t) { return WdfIoTargetFormatRequestForRead(t.target, request, nullptr, nullptr, nullptr); }},
        {"device registry key", STATUS_INVALID_PARAMETER, [&](CallTest& t) {
             return WdfDeviceOpenRegistryKey(t.Device(), PLUGPLAY_REGKEY_DEVICE, KEY_READ, nullptr, &subkey);
         }},
        {"key name of odd length", STATUS_INVALID_PARAMETER,
         [&](CallTest& t) { return WdfRegistryCreateKey(t.key, &odd, KEY_ALL_ACCESS, 0, nullptr, nullptr, &subkey); }},
        {"empty key name", STATUS_INVALID_PARAMETER,
         [&](CallTest& t) { return WdfRegistryCreateKey(t.key, &empty, KEY_ALL_ACCESS, 0, nullptr, nullptr, &subkey); }},
        {"no key name", STATUS_INVALID_PARAMETER,
         [&](CallTest& t) { return WdfRegistryCreateKey(t.key, nullptr, KEY_ALL_ACCESS, 0, nullptr, nullptr, &subkey); }},
        {"value name without buffer", STATUS_INVALID_PARAMETER,
         [&](CallTest& t) { return WdfRegistryQueryULong(t.key, &noBuffer, &value); }},
        {"value name of odd length", STATUS_INVALID_PARAMETER,
         [&](CallTest& t) { return WdfRegistryAssignULong(t.key, &odd, 1); }},
    };
    for (const MisuseCase& c : cases) {
        out = reinterpret_cast<WDFMEMORY>(1);
        EXPECT_EQ(c.call(*this), c.expected) << c.what;
        if (out != reinterpret_cast<WDFMEMORY>(1)) {
            EXPECT_EQ(out, nullptr) << c.what << ": a failed create leaves no handle";
        }
    }
    ExpectViolations({"already open"});
}

struct FaultCase {
    FaultPoint point;
    bool needsDevice;
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
    if (c.needsDevice)
        AddDevice();
    else
        ASSERT_EQ(c.point == FaultPoint::DeviceCreate ? host_->LoadDriver(MiniDriverEntry) : STATUS_SUCCESS,
                  STATUS_SUCCESS);
    Faults().FailNth(c.point, 1, STATUS_DEVICE_BUSY);
    EXPECT_EQ(c.call(*this), STATUS_DEVICE_BUSY);
    EXPECT_EQ(Faults().Injected(), 1u);
    EXPECT_EQ(c.call(*this), STATUS_SUCCESS);
    EXPECT_EQ(endpoint_.Counts().submits + endpoint_.Counts().ioctls, c.point == FaultPoint::RequestSend ? 1 : 0)
        << "a failed send never reaches the device";
}

template <typename Handle>
NTSTATUS Closed(NTSTATUS status, Handle handle, BOOL (*close)(Handle))
{
    if (handle != nullptr)
        close(handle);
    return status;
}

NTSTATUS Created(void* handle)
{
    return handle != nullptr ? STATUS_SUCCESS : STATUS_DEVICE_BUSY;
}

const FaultCase kFaultCases[] = {
    {FaultPoint::FrameworkMemory, true,
     [](CallTest&) {
         WDFMEMORY memory = nullptr;
         return WdfMemoryCreate(nullptr, PagedPool, 0, 8, &memory, nullptr);
     }},
    {FaultPoint::DriverHeap, true,
     [](CallTest&) {
         void* block = HeapAlloc(GetProcessHeap(), 0, 8);
         HeapFree(GetProcessHeap(), 0, block);
         return Created(block);
     }},
    {FaultPoint::IoTargetCreate, true,
     [](CallTest& t) {
         WDFIOTARGET target = nullptr;
         return WdfIoTargetCreate(t.Device(), nullptr, &target);
     }},
    {FaultPoint::IoTargetOpen, true, [](CallTest& t) { return t.Open(); }},
    {FaultPoint::RequestCreate, true,
     [](CallTest& t) {
         WDFREQUEST request = nullptr;
         return WdfRequestCreate(nullptr, t.target, &request);
     }},
    {FaultPoint::RequestSend, true,
     [](CallTest& t) {
         if (!t.opened) {
             EXPECT_EQ(t.Open(), STATUS_SUCCESS);
         }
         t.opened = true;
         return t.Send(false);
     }},
    {FaultPoint::DriverCreate, false, [](CallTest& t) { return t.host_->LoadDriver(MiniDriverEntry); }},
    {FaultPoint::DeviceCreate, false, [](CallTest& t) { return t.host_->AddDevice(t.endpoint_); }},
    {FaultPoint::WaitLockCreate, true,
     [](CallTest&) {
         WDFWAITLOCK lock = nullptr;
         return WdfWaitLockCreate(nullptr, &lock);
     }},
    {FaultPoint::TimerCreate, true,
     [](CallTest& t) {
         WDF_TIMER_CONFIG config;
         WDF_TIMER_CONFIG_INIT(&config, [](WDFTIMER) {});
         return t.TimerCreate(&config, t.Device());
     }},
    {FaultPoint::ThreadCreate, true,
     [](CallTest&) {
         HANDLE thread = CreateThread(nullptr, 0, [](void*) -> DWORD { return 0; }, nullptr, 0, nullptr);
         if (thread != nullptr)
             WaitForSingleObjectEx(thread, INFINITE, FALSE);
         return Closed(Created(thread), thread, CloseHandle);
     }},
    {FaultPoint::EventCreate, true,
     [](CallTest&) {
         HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
         return Closed(Created(event), event, CloseHandle);
     }},
    {FaultPoint::RegistryOpenKey, true,
     [](CallTest& t) {
         WDFKEY key = nullptr;
         return WdfDeviceOpenRegistryKey(t.Device(), PLUGPLAY_REGKEY_DRIVER | WDF_REGKEY_DRIVER_SUBKEY, KEY_READ,
                                         nullptr, &key);
     }},
    {FaultPoint::RegistryCreateKey, true,
     [](CallTest& t) {
         UNICODE_STRING name = Name(u"KPX_ActivitySensor");
         WDFKEY subkey = nullptr;
         const NTSTATUS status = WdfRegistryCreateKey(t.key, &name, KEY_ALL_ACCESS, 0, nullptr, nullptr, &subkey);
         EXPECT_EQ(t.host_->Registry().HasSubkey("KPX_ActivitySensor"), NT_SUCCESS(status));
         return status;
     }},
    {FaultPoint::RegistryAssignValue, true,
     [](CallTest& t) {
         UNICODE_STRING name = Name(u"Interval");
         const NTSTATUS status = WdfRegistryAssignULong(t.key, &name, 5);
         EXPECT_EQ(t.host_->Registry().Read("", "Interval").has_value(), NT_SUCCESS(status));
         return status;
     }},
    {FaultPoint::RegistryQueryValue, true,
     [](CallTest& t) {
         t.host_->Registry().Preload("", "Interval", 5);
         UNICODE_STRING name = Name(u"Interval");
         ULONG value = 0;
         const NTSTATUS status = WdfRegistryQueryULong(t.key, &name, &value);
         EXPECT_EQ(value, NT_SUCCESS(status) ? 5u : 0u);
         return status;
     }},
};

INSTANTIATE_TEST_SUITE_P(EachPoint, FaultPointTest, ::testing::ValuesIn(kFaultCases),
                         [](const ::testing::TestParamInfo<FaultCase>& param) {
                             return std::string(FaultPointName(param.param.point));
                         });

TEST_F(CallTest, IoctlFaultCompletesTheIoctlWithoutReachingTheDevice)
{
    AddDevice();
    ASSERT_EQ(Open(), STATUS_SUCCESS);
    endpoint_.SetIoctl(kIoctl, {STATUS_SUCCESS, {1}});
    Faults().FailIoctl(kIoctl, 2, STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(Send(true), STATUS_SUCCESS);
    EXPECT_EQ(Send(true), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(endpoint_.Counts().ioctls, 1);
    EXPECT_EQ(Send(true), STATUS_SUCCESS);
    EXPECT_EQ(endpoint_.Counts().ioctls, 2);
}

}  // namespace
}  // namespace host::framework::testing
