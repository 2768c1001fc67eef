#include "host/hidsim/simulated_collection.h"

#include <algorithm>
#include <new>
#include <utility>

#include "host/hidsim/feature_requests.h"
#include "host/hidsim/ioctl_answers.h"
#include "platform/hidclass.h"

namespace host::hidsim {

namespace {

std::optional<std::uint8_t> FirstByte(std::span<const std::uint8_t> bytes)
{
    if (bytes.empty())
        return std::nullopt;
    return bytes[0];
}

}  // namespace

SimulatedCollection::SimulatedCollection(DeviceState& device, std::size_t index, std::vector<std::uint8_t> preparsed,
                                         const HIDP_CAPS& caps, std::size_t readQueueCapacity)
    : device_(device), index_(index), preparsed_(std::move(preparsed)), caps_(caps), reads_(readQueueCapacity)
{
}

IoctlResult SimulatedCollection::DeviceControl(ULONG ioctlCode, const BYTE* input, ULONG inputLength, BYTE* output,
                                               ULONG outputLength)
{
    IoctlResult result;
    try {
        std::lock_guard lock(device_.mutex);
        result = Dispatch(ioctlCode, input, inputLength, output, outputLength);
    } catch (const std::bad_alloc&) {
        result = {STATUS_INSUFFICIENT_RESOURCES, 0};
    }
    device_.traffic.Deliver();
    return result;
}

IoctlResult SimulatedCollection::Dispatch(ULONG ioctlCode, const BYTE* input, ULONG inputLength, BYTE* output,
                                          ULONG outputLength)
{
    IoctlResult result;
    switch (ioctlCode) {
    case IOCTL_HID_GET_FEATURE:
        return AnswerGetFeature(device_, FeatureTargetOfThis(), output, outputLength);
    case IOCTL_HID_SET_FEATURE:
        return AnswerSetFeature(device_, FeatureTargetOfThis(), input, inputLength);
    case IOCTL_HID_GET_COLLECTION_INFORMATION:
        result = WriteCollectionInformation(device_.information, static_cast<ULONG>(preparsed_.size()), output,
                                            outputLength);
        break;
    case IOCTL_HID_GET_COLLECTION_DESCRIPTOR:
        result = WritePreparsedData(preparsed_, output, outputLength);
        break;
    case IOCTL_HID_GET_MANUFACTURER_STRING:
        result = WriteDeviceString(device_.strings.manufacturer, output, outputLength);
        break;
    case IOCTL_HID_GET_PRODUCT_STRING:
        result = WriteDeviceString(device_.strings.product, output, outputLength);
        break;
    case IOCTL_HID_GET_SERIALNUMBER_STRING:
        result = WriteDeviceString(device_.strings.serialNumber, output, outputLength);
        break;
    default:
        result = {STATUS_INVALID_DEVICE_REQUEST, 0};
        break;
    }
    device_.traffic.Record(index_, TrafficKind::Ioctl, ioctlCode, std::nullopt, {output, result.information},
                           result.status);
    return result;
}

FeatureTarget SimulatedCollection::FeatureTargetOfThis() const
{
    // The parser's functions take the blob without const; they only read it.
    auto* preparsed = reinterpret_cast<PHIDP_PREPARSED_DATA>(const_cast<std::uint8_t*>(preparsed_.data()));
    return {index_, caps_.FeatureReportByteLength, preparsed};
}

void SimulatedCollection::SubmitRead(ReadCompletion* read, ULONG capacity)
{
    if (read == nullptr)
        return;
    std::optional<Completion> completion;
    {
        std::lock_guard lock(device_.mutex);
        NTSTATUS refusal = STATUS_SUCCESS;
        if (reads_.HasPending())
            refusal = STATUS_INVALID_DEVICE_STATE;
        else if (capacity == 0)
            refusal = STATUS_BUFFER_TOO_SMALL;
        if (!NT_SUCCESS(refusal)) {
            device_.traffic.Record(index_, TrafficKind::Read, 0, std::nullopt, {}, refusal);
            completion.emplace();  // an empty vector: does not allocate
            completion->read = read;
            completion->status = refusal;
        } else {
            reads_.SetPending({read, capacity});
            completion = ServeQueuedInput();
        }
    }
    Finish(std::move(completion));
}

bool SimulatedCollection::CancelRead(ReadCompletion* read)
{
    bool cancelled = false;
    {
        std::lock_guard lock(device_.mutex);
        cancelled = reads_.RemovePending(read);
        if (cancelled)
            device_.traffic.Record(index_, TrafficKind::Read, 0, std::nullopt, {}, STATUS_CANCELLED);
    }
    device_.traffic.Deliver();
    if (cancelled)
        read->Complete(STATUS_CANCELLED, nullptr, 0);
    return cancelled;
}

void SimulatedCollection::FeedInput(std::span<const std::uint8_t> input)
{
    std::optional<Completion> completion;
    {
        std::lock_guard lock(device_.mutex);
        try {
            reads_.Push({input.begin(), input.end()});
        } catch (const std::bad_alloc&) {
            ++lostInputs_;
            return;
        }
        completion = ServeQueuedInput();
    }
    Finish(std::move(completion));
}

std::optional<SimulatedCollection::Completion> SimulatedCollection::ServeQueuedInput()
{
    while (reads_.HasPending()) {
        std::optional<std::vector<std::uint8_t>> input = reads_.PopOldest();
        if (!input)
            return std::nullopt;
        std::vector<std::uint8_t>& data = *input;
        const std::optional<RuleAction> rule = device_.rules.Match(RuleTrigger::Read, FirstByte(data));
        if (rule && std::holds_alternative<TimeoutAction>(*rule)) {
            // The device swallows this input; the read stays pending.
            device_.traffic.Record(index_, TrafficKind::Read, 0, FirstByte(data), data, STATUS_PENDING, false);
            continue;
        }

        const ReadQueue::PendingRead pending = *reads_.TakePending();
        Completion completion;
        completion.read = pending.completion;
        if (const auto* fail = rule ? std::get_if<FailAction>(&*rule) : nullptr) {
            completion.status = fail->status;
            device_.traffic.Record(index_, TrafficKind::Read, 0, FirstByte(data), {}, fail->status);
            return completion;
        }
        if (rule && std::holds_alternative<ZerosAction>(*rule))
            std::fill(data.begin(), data.end(), 0);
        if (const auto* relabel = rule ? std::get_if<AnswerReportIdAction>(&*rule) : nullptr; relabel && !data.empty())
            data[0] = relabel->reportId;
        if (data.size() > pending.capacity)
            data.resize(pending.capacity);
        device_.traffic.Record(index_, TrafficKind::Read, 0, FirstByte(data), data, STATUS_SUCCESS);
        completion.data = std::move(data);
        return completion;
    }
    return std::nullopt;
}

void SimulatedCollection::Finish(std::optional<Completion> completion)
{
    device_.traffic.Deliver();
    if (!completion)
        return;
    const BYTE* data = completion->data.empty() ? nullptr : completion->data.data();
    completion->read->Complete(completion->status, data, static_cast<ULONG>(completion->data.size()));
}

bool SimulatedCollection::HasPendingRead() const
{
    std::lock_guard lock(device_.mutex);
    return reads_.HasPending();
}

std::size_t SimulatedCollection::QueuedInputs() const
{
    std::lock_guard lock(device_.mutex);
    return reads_.Queued();
}

std::uint64_t SimulatedCollection::DroppedInputs() const
{
    std::lock_guard lock(device_.mutex);
    return reads_.Dropped() + lostInputs_;
}

}  // namespace host::hidsim
