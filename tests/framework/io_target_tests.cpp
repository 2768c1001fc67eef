// I/O targets and requests: asynchronous reads, cancellation, close, the
// synchronous IOCTL with its timeout, and client requests.
#include <array>
#include <vector>

#include "host/framework/request.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

constexpr ULONG kIoctl = 0x000B01A8;
constexpr LONGLONG kFiveSeconds = -50'000'000;
constexpr ULONG kSynchronousWithTimeout = WDF_REQUEST_SEND_OPTION_TIMEOUT | WDF_REQUEST_SEND_OPTION_SYNCHRONOUS;

struct Completion {
    WDF_REQUEST_TYPE type;
    NTSTATUS status;
    ULONG_PTR information;
    SIZE_T length;
};

// What the completion routines saw, and what they should do next.
struct ReadLog {
    std::vector<Completion> completions;
    bool deleteRequest = true;
    std::array<BYTE, 64> buffer{};
};

void OnCompletion(WDFREQUEST request, WDFIOTARGET, PWDF_REQUEST_COMPLETION_PARAMS params, WDFCONTEXT context)
{
    auto& log = *static_cast<ReadLog*>(context);
    const bool read = params->Type == WdfRequestTypeRead;
    log.completions.push_back({params->Type, params->IoStatus.Status, params->IoStatus.Information,
                               read ? params->Parameters.Read.Length : params->Parameters.Ioctl.Output.Length});
    if (log.deleteRequest)
        WdfObjectDelete(request);
}

// Creates, formats and sends a read into log.buffer, as the driver's reader does.
BOOLEAN SubmitRead(WDFIOTARGET target, ReadLog& log, WDFREQUEST* out = nullptr)
{
    WDF_OBJECT_ATTRIBUTES attributes = Attributes(target);
    WDFREQUEST request = nullptr;
    if (!NT_SUCCESS(WdfRequestCreate(&attributes, target, &request)))
        return FALSE;
    if (out != nullptr)
        *out = request;
    attributes.ParentObject = request;
    WDFMEMORY memory = nullptr;
    EXPECT_EQ(WdfMemoryCreatePreallocated(&attributes, log.buffer.data(), log.buffer.size(), &memory), STATUS_SUCCESS);
    EXPECT_EQ(WdfIoTargetFormatRequestForRead(target, request, memory, nullptr, nullptr), STATUS_SUCCESS);
    WdfRequestSetCompletionRoutine(request, OnCompletion, &log);
    return WdfRequestSend(request, target, nullptr);
}

class IoTest : public DeviceTest {
protected:
    void SetUp() override
    {
        DeviceTest::SetUp();
        target = OpenTarget();
    }
    WDFREQUEST NewRequest()
    {
        WDFREQUEST request = nullptr;
        EXPECT_EQ(WdfRequestCreate(nullptr, target, &request), STATUS_SUCCESS);
        return request;
    }
    WDFMEMORY Lend(WDFOBJECT parent, void* bytes, SIZE_T size)
    {
        WDF_OBJECT_ATTRIBUTES attributes = Attributes(parent);
        WDFMEMORY memory = nullptr;
        EXPECT_EQ(WdfMemoryCreatePreallocated(&attributes, bytes, size, &memory), STATUS_SUCCESS);
        return memory;
    }
    // An IOCTL into `output`: synchronous with the given flags, or through the routine when they are 0.
    BOOLEAN SendIoctl(WDFREQUEST request, ULONG flags = kSynchronousWithTimeout)
    {
        WDFMEMORY memory = Lend(request, output.data(), output.size());
        EXPECT_EQ(WdfIoTargetFormatRequestForIoctl(target, request, kIoctl, nullptr, nullptr, memory, nullptr),
                  STATUS_SUCCESS);
        if (flags == 0)
            WdfRequestSetCompletionRoutine(request, OnCompletion, &log);
        WDF_REQUEST_SEND_OPTIONS options{sizeof(options), flags, kFiveSeconds};
        return WdfRequestSend(request, target, flags != 0 ? &options : nullptr);
    }
    LONGLONG NowTicks() const { return FileTimeToTicks(host_->Now()); }

    ReadLog log;
    WDFIOTARGET target = nullptr;
    std::array<BYTE, 16> output{};
};

TEST_F(IoTest, ReadCompletionRunsOnTheDispatcherWithTheReadParametersAndOverlongDataCut)
{
    ASSERT_TRUE(SubmitRead(target, log));
    endpoint_.Feed({0x01, 0x02, 0x03});
    EXPECT_TRUE(log.completions.empty()) << "the feeding call must not run the routine";
    host_->RunPending();
    ASSERT_EQ(log.completions.size(), 1u);
    EXPECT_EQ(log.completions[0].type, WdfRequestTypeRead);
    EXPECT_EQ(log.completions[0].status, STATUS_SUCCESS);
    EXPECT_EQ(log.completions[0].information, 3u);
    EXPECT_EQ(log.completions[0].length, 3u);
    EXPECT_EQ(log.buffer[2], 0x03);

    ASSERT_TRUE(SubmitRead(target, log));
    endpoint_.Feed(std::vector<BYTE>(log.buffer.size() + 10, 0x55));
    host_->RunPending();
    ASSERT_EQ(log.completions.size(), 2u);
    EXPECT_EQ(log.completions[1].information, log.buffer.size());
    ExpectViolations({"more bytes than the read asked for"});
}

TEST_F(IoTest, CancelledReadCompletesWithStatusCancelledOnce)
{
    WDFREQUEST request = nullptr;
    log.deleteRequest = false;
    ASSERT_TRUE(SubmitRead(target, log, &request));
    EXPECT_TRUE(WdfRequestCancelSentRequest(request));
    host_->RunPending();
    ASSERT_EQ(log.completions.size(), 1u);
    EXPECT_EQ(log.completions[0].status, STATUS_CANCELLED);
    EXPECT_EQ(log.completions[0].information, 0u);
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_CANCELLED);
    EXPECT_FALSE(WdfRequestCancelSentRequest(request));  // nothing left to cancel
    WdfObjectDelete(request);
}

TEST_F(IoTest, CloseReturnsOnlyAfterTheOutstandingRequestsRoutinesHaveRun)
{
    endpoint_.NeverAnswer(kIoctl);
    ASSERT_TRUE(SubmitRead(target, log));
    ASSERT_TRUE(SendIoctl(NewRequest(), 0));  // an asynchronous IOCTL nobody answers
    WdfIoTargetClose(target);
    ASSERT_EQ(log.completions.size(), 2u);
    EXPECT_EQ(log.completions[0].status, STATUS_CANCELLED);
    EXPECT_EQ(log.completions[1].status, STATUS_CANCELLED);
    EXPECT_EQ(log.completions[1].type, WdfRequestTypeDeviceControl);
    EXPECT_EQ(endpoint_.Counts().pendingReads, 0);

    // A closed target takes no more requests; it can be opened again.
    WDFREQUEST refused = nullptr;
    EXPECT_FALSE(SubmitRead(target, log, &refused));
    EXPECT_EQ(WdfRequestGetStatus(refused), STATUS_INVALID_DEVICE_STATE);
    WDF_IO_TARGET_OPEN_PARAMS params = OpenByFile();
    EXPECT_EQ(WdfIoTargetOpen(target, &params), STATUS_SUCCESS);
}

TEST_F(IoTest, RequestDeletedWhileOutstandingIsReportedAndItsCompletionDropped)
{
    for (bool deviceCompletedFirst : {false, true}) {
        WDFREQUEST request = nullptr;
        ASSERT_TRUE(SubmitRead(target, log, &request));
        if (deviceCompletedFirst)
            endpoint_.Feed({1, 2});
        WdfObjectDelete(request);
        host_->RunPending();
        EXPECT_TRUE(log.completions.empty());
        ExpectViolations({"request deleted while outstanding"});
    }
    EXPECT_EQ(endpoint_.Counts().cancels, 1);
    ASSERT_TRUE(SubmitRead(target, log));  // the target is usable again
    endpoint_.Feed({1});
    host_->RunPending();
    EXPECT_EQ(log.completions.size(), 1u);
}

TEST_F(IoTest, SynchronousIoctlPassesTheBufferWindowsAndReportsBytesOrTheDeviceStatus)
{
    endpoint_.SetIoctl(kIoctl, {STATUS_SUCCESS, {0x10, 0x20, 0x30, 0x40}});
    WDFREQUEST request = NewRequest();
    std::array<BYTE, 8> input = {1, 2, 3, 4, 5, 6, 7, 8};
    WDFMEMORY in = Lend(request, input.data(), input.size());
    WDFMEMORY out = Lend(request, output.data(), output.size());
    WDFMEMORY_OFFSET inWindow{2, 3};
    WDFMEMORY_OFFSET outWindow{4, 0};  // from offset 4 to the end
    ASSERT_EQ(WdfIoTargetFormatRequestForIoctl(target, request, kIoctl, in, &inWindow, out, &outWindow), STATUS_SUCCESS);
    WDF_REQUEST_SEND_OPTIONS options{sizeof(options), kSynchronousWithTimeout, kFiveSeconds};
    EXPECT_TRUE(WdfRequestSend(request, target, &options));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_SUCCESS);
    EXPECT_EQ(WdfRequestGetInformation(request), 4u);
    EXPECT_EQ(endpoint_.Counts().lastIoctlInput, (std::vector<BYTE>{3, 4, 5}));
    EXPECT_EQ(output[3], 0);
    EXPECT_EQ(output[4], 0x10);
    EXPECT_EQ(output[7], 0x40);

    // The device's own failure, then an injected one that never reaches the device.
    endpoint_.SetIoctl(kIoctl, {STATUS_IO_DEVICE_ERROR, {}});
    request = NewRequest();
    EXPECT_FALSE(SendIoctl(request));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_IO_DEVICE_ERROR);
    Faults().FailIoctl(kIoctl, 1, STATUS_DEVICE_NOT_CONNECTED);
    request = NewRequest();
    EXPECT_FALSE(SendIoctl(request));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(endpoint_.Counts().ioctls, 2);
}

TEST_F(IoTest, SilentDeviceTimesOutAndTheClockMovesByTheTimeout)
{
    endpoint_.NeverAnswer(kIoctl);
    static int firings = 0;
    firings = 0;
    WDF_TIMER_CONFIG config;
    WDF_TIMER_CONFIG_INIT(&config, [](WDFTIMER) { ++firings; });
    WDF_OBJECT_ATTRIBUTES attributes = Attributes(Device());
    WDFTIMER timer = nullptr;
    ASSERT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
    WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(100));
    WDFREQUEST request = NewRequest();
    LONGLONG before = NowTicks();
    EXPECT_FALSE(SendIoctl(request));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_IO_TIMEOUT);
    EXPECT_EQ(NowTicks() - before, 5 * 1000 * kTicksPerMillisecond);
    EXPECT_EQ(firings, 0) << "a timer due meanwhile never fires inside the call";
    host_->RunPending();
    EXPECT_EQ(firings, 1);

    // Without a timeout it fails at once instead of hanging.
    request = NewRequest();
    before = NowTicks();
    EXPECT_FALSE(SendIoctl(request, WDF_REQUEST_SEND_OPTION_SYNCHRONOUS));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_IO_TIMEOUT);
    EXPECT_EQ(NowTicks(), before);
    ExpectViolations({"without a timeout"});
}

TEST_F(IoTest, ClientRequestIsCompletedByTheDriverOnce)
{
    WDFREQUEST client = nullptr;
    ASSERT_EQ(WdfRequestCreate(nullptr, nullptr, &client), STATUS_SUCCESS);
    WdfRequestComplete(client, STATUS_NOT_SUPPORTED);
    EXPECT_TRUE(RequestCompleted(client));
    WdfRequestComplete(client, STATUS_SUCCESS);
    EXPECT_EQ(WdfRequestGetStatus(client), STATUS_NOT_SUPPORTED) << "the first completion stands";
    WdfRequestComplete(NewRequest(), STATUS_SUCCESS);  // the driver's own request
    ExpectViolations({}, 2);
}

}  // namespace
}  // namespace host::framework::testing
