// I/O targets and requests: asynchronous reads, cancellation, close, the
// synchronous IOCTL with its timeout, client requests and fault injection.
#include <array>
#include <cstring>
#include <vector>

#include "host/framework/request.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

constexpr ULONG kIoctl = 0x000B01A8;
constexpr LONGLONG kFiveSeconds = -50'000'000;

struct Completion {
    WDFREQUEST request;
    WDFIOTARGET target;
    WDF_REQUEST_TYPE type;
    NTSTATUS status;
    ULONG_PTR information;
    WDFMEMORY buffer;
    SIZE_T length;
};

// What the completion routines saw, and what they should do next.
struct ReadLog {
    std::vector<Completion> completions;
    bool insideSend = false;
    bool completedInsideSend = false;
    int reArms = 0;            // reads the routine still submits after this one
    bool deleteRequest = true;
    bool closeTargetFromRoutine = false;
    std::array<BYTE, 64> buffer{};
};


BOOLEAN SubmitRead(WDFIOTARGET target, ReadLog& log, WDFREQUEST* out = nullptr);

void OnCompletion(WDFREQUEST request, WDFIOTARGET target, PWDF_REQUEST_COMPLETION_PARAMS params, WDFCONTEXT context)
{
    auto& log = *static_cast<ReadLog*>(context);
    if (log.insideSend)
        log.completedInsideSend = true;
    Completion seen{request, target, params->Type, params->IoStatus.Status, params->IoStatus.Information,
                    nullptr, 0};
    if (params->Type == WdfRequestTypeRead) {
        seen.buffer = params->Parameters.Read.Buffer;
        seen.length = params->Parameters.Read.Length;
    } else {
        seen.buffer = params->Parameters.Ioctl.Output.Buffer;
        seen.length = params->Parameters.Ioctl.Output.Length;
    }
    log.completions.push_back(seen);
    if (log.closeTargetFromRoutine)
        WdfIoTargetClose(target);
    if (log.deleteRequest)
        WdfObjectDelete(request);
    if (log.reArms > 0) {
        --log.reArms;
        SubmitRead(target, log);
    }
}

// Creates, formats and sends a read into log.buffer, as the driver's reader does.
BOOLEAN SubmitRead(WDFIOTARGET target, ReadLog& log, WDFREQUEST* out)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = target;
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
    log.insideSend = true;
    const BOOLEAN sent = WdfRequestSend(request, target, nullptr);
    log.insideSend = false;
    return sent;
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
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.ParentObject = parent;
        WDFMEMORY memory = nullptr;
        EXPECT_EQ(WdfMemoryCreatePreallocated(&attributes, bytes, size, &memory), STATUS_SUCCESS);
        return memory;
    }

    // A synchronous IOCTL as the driver sends it: 5 s timeout, output into `output`.
    BOOLEAN SendIoctl(WDFREQUEST request, std::array<BYTE, 16>& output, LONGLONG timeout = kFiveSeconds)
    {
        WDFMEMORY memory = Lend(request, output.data(), output.size());
        EXPECT_EQ(WdfIoTargetFormatRequestForIoctl(target, request, kIoctl, nullptr, nullptr, memory, nullptr),
                  STATUS_SUCCESS);
        WDF_REQUEST_SEND_OPTIONS options{sizeof(options),
                                         WDF_REQUEST_SEND_OPTION_TIMEOUT | WDF_REQUEST_SEND_OPTION_SYNCHRONOUS,
                                         timeout};
        return WdfRequestSend(request, target, &options);
    }

    LONGLONG NowTicks() const { return FileTimeToTicks(host_->Now()); }

    ReadLog log;
    WDFIOTARGET target = nullptr;
};

// ---- Asynchronous reads ---------------------------------------------------

TEST_F(IoTest, ReadCompletionRunsOnTheDispatcherWithTheReadParameters)
{
    WDFREQUEST request = nullptr;
    ASSERT_TRUE(SubmitRead(target, log, &request));
    EXPECT_EQ(endpoint_.LastReadCapacity(), log.buffer.size());
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_PENDING);

    endpoint_.Feed({0x01, 0x02, 0x03});
    EXPECT_TRUE(log.completions.empty()) << "the feeding call must not run the routine";
    host_->RunPending();

    ASSERT_EQ(log.completions.size(), 1u);
    const Completion& seen = log.completions[0];
    EXPECT_EQ(seen.request, request);
    EXPECT_EQ(seen.target, target);
    EXPECT_EQ(seen.type, WdfRequestTypeRead);
    EXPECT_EQ(seen.status, STATUS_SUCCESS);
    EXPECT_EQ(seen.information, 3u);
    EXPECT_EQ(seen.length, 3u);
    EXPECT_NE(seen.buffer, nullptr);
    EXPECT_EQ(log.buffer[2], 0x03);
}

TEST_F(IoTest, ReadCompletedInsideSubmitIsDeliveredAtTheNextRunPendingNotInsideTheSend)
{
    endpoint_.Feed({0xAA});
    ASSERT_TRUE(SubmitRead(target, log));
    EXPECT_TRUE(log.completions.empty());
    host_->RunPending();
    ASSERT_EQ(log.completions.size(), 1u);
    EXPECT_FALSE(log.completedInsideSend);
    EXPECT_EQ(log.buffer[0], 0xAA);
}

TEST_F(IoTest, ReArmingChainRunsToTheEndBeforeRunPendingReturns)
{
    log.reArms = 3;
    endpoint_.Feed({1});
    endpoint_.Feed({2});
    endpoint_.Feed({3});
    ASSERT_TRUE(SubmitRead(target, log));
    host_->RunPending();
    // Three queued reports, then a fourth read left waiting at the device.
    EXPECT_EQ(log.completions.size(), 3u);
    EXPECT_EQ(endpoint_.PendingReads(), 1);
    EXPECT_EQ(endpoint_.Submits(), 4);
}

TEST_F(IoTest, FailedReadReachesTheRoutineWithNoData)
{
    ASSERT_TRUE(SubmitRead(target, log));
    ASSERT_TRUE(endpoint_.FailRead(STATUS_DEVICE_NOT_CONNECTED));
    host_->RunPending();
    ASSERT_EQ(log.completions.size(), 1u);
    EXPECT_EQ(log.completions[0].status, STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(log.completions[0].information, 0u);
}

TEST_F(IoTest, DeviceDataBeyondTheReadBufferIsCutAndReported)
{
    ASSERT_TRUE(SubmitRead(target, log));
    endpoint_.Feed(std::vector<BYTE>(log.buffer.size() + 10, 0x55));
    host_->RunPending();
    ASSERT_EQ(log.completions.size(), 1u);
    EXPECT_EQ(log.completions[0].information, log.buffer.size());
    EXPECT_TRUE(HasViolation(*host_, "more bytes than the read asked for"));
    ClearViolations();
}

TEST_F(IoTest, SecondReadWhileOneIsOutstandingIsRefused)
{
    ASSERT_TRUE(SubmitRead(target, log));
    WDFREQUEST second = nullptr;
    EXPECT_FALSE(SubmitRead(target, log, &second));
    EXPECT_EQ(WdfRequestGetStatus(second), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(endpoint_.Submits(), 1);
    EXPECT_TRUE(HasViolation(*host_, "second read"));
    ClearViolations();
}

// ---- Cancellation and close -------------------------------------------------

TEST_F(IoTest, CancelledReadCompletesWithStatusCancelledAndNoBytes)
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

TEST_F(IoTest, CloseReturnsOnlyAfterTheOutstandingReadsRoutineHasRun)
{
    ASSERT_TRUE(SubmitRead(target, log));
    WdfIoTargetClose(target);
    ASSERT_EQ(log.completions.size(), 1u);
    EXPECT_EQ(log.completions[0].status, STATUS_CANCELLED);
    EXPECT_EQ(endpoint_.PendingReads(), 0);

    // A closed target takes no more requests; it can be opened again.
    WDFREQUEST refused = nullptr;
    EXPECT_FALSE(SubmitRead(target, log, &refused));
    EXPECT_EQ(WdfRequestGetStatus(refused), STATUS_INVALID_DEVICE_STATE);
    WDF_IO_TARGET_OPEN_PARAMS params{};
    params.Size = sizeof(params);
    params.Type = WdfIoTargetOpenLocalTargetByFile;
    EXPECT_EQ(WdfIoTargetOpen(target, &params), STATUS_SUCCESS);
}

TEST_F(IoTest, CloseFromTheTargetsOwnCompletionRoutineDoesNotWaitForIt)
{
    log.closeTargetFromRoutine = true;
    log.reArms = 1;  // the re-arm must then be refused by the closed target
    ASSERT_TRUE(SubmitRead(target, log));
    endpoint_.Feed({7});
    host_->RunPending();
    EXPECT_EQ(log.completions.size(), 1u);
    EXPECT_EQ(endpoint_.Submits(), 1);
}

TEST_F(IoTest, DeletingTheTargetCancelsWaitsAndTakesItsRequestsWithIt)
{
    WDFREQUEST request = nullptr;
    log.deleteRequest = false;
    ASSERT_TRUE(SubmitRead(target, log, &request));
    WdfObjectDelete(target);
    ASSERT_EQ(log.completions.size(), 1u);
    EXPECT_EQ(log.completions[0].status, STATUS_CANCELLED);
    EXPECT_EQ(Object::FromHandle(request), nullptr);
}

TEST_F(IoTest, RequestDeletedWhileOutstandingIsReportedAndItsCompletionDropped)
{
    WDFREQUEST request = nullptr;
    ASSERT_TRUE(SubmitRead(target, log, &request));
    WdfObjectDelete(request);
    EXPECT_EQ(endpoint_.Cancels(), 1);
    host_->RunPending();
    EXPECT_TRUE(log.completions.empty());
    EXPECT_TRUE(HasViolation(*host_, "request deleted while outstanding"));
    ClearViolations();
    // The target is usable again.
    ASSERT_TRUE(SubmitRead(target, log));
    endpoint_.Feed({1});
    host_->RunPending();
    EXPECT_EQ(log.completions.size(), 1u);
}

TEST_F(IoTest, RequestDeletedAfterTheDeviceCompletedButBeforeDeliveryIsDropped)
{
    WDFREQUEST request = nullptr;
    ASSERT_TRUE(SubmitRead(target, log, &request));
    endpoint_.Feed({1, 2});
    WdfObjectDelete(request);
    host_->RunPending();
    EXPECT_TRUE(log.completions.empty());
    EXPECT_TRUE(HasViolation(*host_, "request deleted while outstanding"));
    ClearViolations();
}

TEST_F(IoTest, DeviceThatNeverCompletesACancelledReadIsAbandonedAtClose)
{
    endpoint_.IgnoreCancels(true);
    WDFREQUEST request = nullptr;
    log.deleteRequest = false;
    ASSERT_TRUE(SubmitRead(target, log, &request));
    WdfIoTargetClose(target);
    EXPECT_TRUE(HasViolation(*host_, "did not complete a cancelled request"));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_CANCELLED);
    ClearViolations();
    // The device completes it after all: nobody is there any more, nothing happens.
    endpoint_.Feed({9});
    host_->RunPending();
    EXPECT_TRUE(log.completions.empty());
    EXPECT_TRUE(host_->Violations().empty());
}

// ---- Synchronous IOCTLs ----------------------------------------------------------

TEST_F(IoTest, SynchronousIoctlPassesTheBufferWindowsAndReportsTheBytes)
{
    endpoint_.SetIoctl(kIoctl, {STATUS_SUCCESS, {0x10, 0x20, 0x30, 0x40}, true});
    WDFREQUEST request = NewRequest();
    std::array<BYTE, 8> input = {1, 2, 3, 4, 5, 6, 7, 8};
    std::array<BYTE, 16> output{};
    WDFMEMORY in = Lend(request, input.data(), input.size());
    WDFMEMORY out = Lend(request, output.data(), output.size());
    WDFMEMORY_OFFSET inWindow{2, 3};
    WDFMEMORY_OFFSET outWindow{4, 0};  // from offset 4 to the end
    ASSERT_EQ(WdfIoTargetFormatRequestForIoctl(target, request, kIoctl, in, &inWindow, out, &outWindow),
              STATUS_SUCCESS);
    WDF_REQUEST_SEND_OPTIONS options{sizeof(options), 3, kFiveSeconds};
    EXPECT_TRUE(WdfRequestSend(request, target, &options));

    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_SUCCESS);
    EXPECT_EQ(WdfRequestGetInformation(request), 4u);
    EXPECT_EQ(endpoint_.LastIoctlInput(), (std::vector<BYTE>{3, 4, 5}));
    EXPECT_EQ(output[3], 0);
    EXPECT_EQ(output[4], 0x10);
    EXPECT_EQ(output[7], 0x40);
    WdfObjectDelete(request);
}

TEST_F(IoTest, SynchronousIoctlFailedByTheDeviceFailsTheSend)
{
    endpoint_.SetIoctl(kIoctl, {STATUS_IO_DEVICE_ERROR, {}, true});
    WDFREQUEST request = NewRequest();
    std::array<BYTE, 16> output{};
    EXPECT_FALSE(SendIoctl(request, output));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_IO_DEVICE_ERROR);
}

TEST_F(IoTest, DeviceThatNeverAnswersTimesOutAndTheClockMovesByTheTimeout)
{
    endpoint_.NeverAnswer(kIoctl);
    WDFREQUEST request = NewRequest();
    std::array<BYTE, 16> output{};
    const LONGLONG before = NowTicks();
    EXPECT_FALSE(SendIoctl(request, output));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_IO_TIMEOUT);
    EXPECT_EQ(NowTicks() - before, 5 * 1000 * kTicksPerMillisecond);

    // An absolute timeout two seconds ahead waits exactly that long.
    WDFREQUEST second = NewRequest();
    const LONGLONG deadline = NowTicks() + 2000 * kTicksPerMillisecond;
    EXPECT_FALSE(SendIoctl(second, output, deadline));
    EXPECT_EQ(NowTicks(), deadline);
}

TEST_F(IoTest, SynchronousSendWithoutTimeoutToASilentDeviceFailsInsteadOfHanging)
{
    endpoint_.NeverAnswer(kIoctl);
    WDFREQUEST request = NewRequest();
    std::array<BYTE, 16> output{};
    WDFMEMORY memory = Lend(request, output.data(), output.size());
    ASSERT_EQ(WdfIoTargetFormatRequestForIoctl(target, request, kIoctl, nullptr, nullptr, memory, nullptr),
              STATUS_SUCCESS);
    WDF_REQUEST_SEND_OPTIONS options{sizeof(options), WDF_REQUEST_SEND_OPTION_SYNCHRONOUS, 0};
    const LONGLONG before = NowTicks();
    EXPECT_FALSE(WdfRequestSend(request, target, &options));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_IO_TIMEOUT);
    EXPECT_EQ(NowTicks(), before);
    EXPECT_TRUE(HasViolation(*host_, "without a timeout"));
    ClearViolations();
}

TEST_F(IoTest, AsynchronousIoctlCompletesThroughItsRoutine)
{
    endpoint_.SetIoctl(kIoctl, {STATUS_SUCCESS, {0xEE, 0xFF}, true});
    WDFREQUEST request = NewRequest();
    std::array<BYTE, 16> output{};
    WDFMEMORY memory = Lend(request, output.data(), output.size());
    ASSERT_EQ(WdfIoTargetFormatRequestForIoctl(target, request, kIoctl, nullptr, nullptr, memory, nullptr),
              STATUS_SUCCESS);
    WdfRequestSetCompletionRoutine(request, OnCompletion, &log);
    ASSERT_TRUE(WdfRequestSend(request, target, nullptr));
    EXPECT_TRUE(log.completions.empty());
    host_->RunPending();
    ASSERT_EQ(log.completions.size(), 1u);
    EXPECT_EQ(log.completions[0].type, WdfRequestTypeDeviceControl);
    EXPECT_EQ(log.completions[0].information, 2u);
    EXPECT_EQ(log.completions[0].buffer, memory);
}

TEST_F(IoTest, UnansweredAsynchronousIoctlEndsWithTheTargetsClose)
{
    endpoint_.NeverAnswer(kIoctl);
    WDFREQUEST request = NewRequest();
    std::array<BYTE, 16> output{};
    WDFMEMORY memory = Lend(request, output.data(), output.size());
    ASSERT_EQ(WdfIoTargetFormatRequestForIoctl(target, request, kIoctl, nullptr, nullptr, memory, nullptr),
              STATUS_SUCCESS);
    WdfRequestSetCompletionRoutine(request, OnCompletion, &log);
    ASSERT_TRUE(WdfRequestSend(request, target, nullptr));
    WdfIoTargetClose(target);
    ASSERT_EQ(log.completions.size(), 1u);
    EXPECT_EQ(log.completions[0].status, STATUS_CANCELLED);
}

// ---- Misuse -------------------------------------------------------------------------

TEST_F(IoTest, OpenAcceptsOnlyTheLocalTargetByFileWithTheRightSize)
{
    WDFIOTARGET other = nullptr;
    ASSERT_EQ(WdfIoTargetCreate(Device(), nullptr, &other), STATUS_SUCCESS);
    WDF_IO_TARGET_OPEN_PARAMS params{};
    params.Size = sizeof(params);
    params.Type = WdfIoTargetOpenByName;
    EXPECT_EQ(WdfIoTargetOpen(other, &params), STATUS_NOT_SUPPORTED);
    params.Type = WdfIoTargetOpenLocalTargetByFile;
    params.Size = sizeof(params) - 8;
    EXPECT_EQ(WdfIoTargetOpen(other, &params), STATUS_INFO_LENGTH_MISMATCH);
    EXPECT_EQ(WdfIoTargetOpen(other, nullptr), STATUS_INVALID_PARAMETER);
    params.Size = sizeof(params);
    EXPECT_EQ(WdfIoTargetOpen(other, &params), STATUS_SUCCESS);
    EXPECT_EQ(WdfIoTargetOpen(other, &params), STATUS_INVALID_DEVICE_STATE);
    EXPECT_TRUE(HasViolation(*host_, "already open"));
    ClearViolations();
}

TEST_F(IoTest, UnformattedOrMisdirectedSendsAreRefused)
{
    WDFREQUEST request = NewRequest();
    EXPECT_FALSE(WdfRequestSend(request, target, nullptr));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_INVALID_DEVICE_REQUEST);

    WDFIOTARGET other = OpenTarget();
    std::array<BYTE, 16> output{};
    WDFMEMORY memory = Lend(request, output.data(), output.size());
    ASSERT_EQ(WdfIoTargetFormatRequestForRead(target, request, memory, nullptr, nullptr), STATUS_SUCCESS);
    EXPECT_FALSE(WdfRequestSend(request, other, nullptr));
    EXPECT_EQ(endpoint_.Submits(), 0);
    WDF_REQUEST_SEND_OPTIONS options{sizeof(options), WDF_REQUEST_SEND_OPTION_SYNCHRONOUS, 0};
    EXPECT_FALSE(WdfRequestSend(request, target, &options));  // synchronous reads are not supported
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(host_->Violations().size(), 2u);
    ClearViolations();
}

TEST_F(IoTest, MemoryWindowOutsideTheBufferIsRefusedAtFormat)
{
    WDFREQUEST request = NewRequest();
    std::array<BYTE, 16> output{};
    WDFMEMORY memory = Lend(request, output.data(), output.size());
    WDFMEMORY_OFFSET window{10, 7};
    EXPECT_EQ(WdfIoTargetFormatRequestForIoctl(target, request, kIoctl, nullptr, nullptr, memory, &window),
              STATUS_INVALID_PARAMETER);
    window = {17, 0};
    EXPECT_EQ(WdfIoTargetFormatRequestForRead(target, request, memory, &window, nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(WdfIoTargetFormatRequestForRead(target, request, nullptr, nullptr, nullptr), STATUS_INVALID_PARAMETER);
    ClearViolations();
}

TEST_F(IoTest, ClientRequestIsCompletedByTheDriverOnce)
{
    WDFREQUEST client = nullptr;
    ASSERT_EQ(WdfRequestCreate(nullptr, nullptr, &client), STATUS_SUCCESS);
    EXPECT_EQ(Object::FromHandle(client)->Parent(), Object::FromHandle(Driver()));
    EXPECT_EQ(WdfRequestGetStatus(client), STATUS_PENDING);
    EXPECT_FALSE(RequestCompleted(client));
    WdfRequestComplete(client, STATUS_NOT_SUPPORTED);
    EXPECT_TRUE(RequestCompleted(client));
    EXPECT_EQ(WdfRequestGetStatus(client), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(WdfRequestGetInformation(client), 0u);
    WdfRequestComplete(client, STATUS_SUCCESS);
    EXPECT_EQ(WdfRequestGetStatus(client), STATUS_NOT_SUPPORTED);

    WdfRequestComplete(NewRequest(), STATUS_SUCCESS);  // the driver's own request
    EXPECT_EQ(host_->Violations().size(), 2u);
    ClearViolations();
    WdfObjectDelete(client);
}

// ---- Fault injection -----------------------------------------------------------------

TEST_F(IoTest, IoctlFaultCompletesTheIoctlWithoutReachingTheDevice)
{
    endpoint_.SetIoctl(kIoctl, {STATUS_SUCCESS, {1}, true});
    host::FaultInjector::Instance().FailIoctl(kIoctl, 1, STATUS_DEVICE_NOT_CONNECTED);
    WDFREQUEST request = NewRequest();
    std::array<BYTE, 16> output{};
    EXPECT_FALSE(SendIoctl(request, output));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(endpoint_.Ioctls(), 0);
    EXPECT_TRUE(SendIoctl(NewRequest(), output));
    EXPECT_EQ(endpoint_.Ioctls(), 1);
}

TEST_F(IoTest, RequestSendFaultFailsTheSendBeforeTheDevice)
{
    host::FaultInjector::Instance().FailNth(host::FaultPoint::RequestSend, 1, STATUS_INSUFFICIENT_RESOURCES);
    WDFREQUEST request = nullptr;
    EXPECT_FALSE(SubmitRead(target, log, &request));
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(endpoint_.Submits(), 0);
    host_->RunPending();
    EXPECT_TRUE(log.completions.empty());
}

TEST_F(IoTest, TargetAndRequestCreationFaults)
{
    auto& faults = host::FaultInjector::Instance();
    WDFIOTARGET other = nullptr;
    faults.FailNth(host::FaultPoint::IoTargetCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(WdfIoTargetCreate(Device(), nullptr, &other), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(other, nullptr);

    ASSERT_EQ(WdfIoTargetCreate(Device(), nullptr, &other), STATUS_SUCCESS);
    faults.FailNth(host::FaultPoint::IoTargetOpen, 1, STATUS_DEVICE_NOT_CONNECTED);
    WDF_IO_TARGET_OPEN_PARAMS params{};
    params.Size = sizeof(params);
    params.Type = WdfIoTargetOpenLocalTargetByFile;
    EXPECT_EQ(WdfIoTargetOpen(other, &params), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(WdfIoTargetOpen(other, &params), STATUS_SUCCESS);

    faults.FailNth(host::FaultPoint::RequestCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    WDFREQUEST request = nullptr;
    EXPECT_EQ(WdfRequestCreate(nullptr, other, &request), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(request, nullptr);
}

}  // namespace
}  // namespace host::framework::testing
