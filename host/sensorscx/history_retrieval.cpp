#include "host/sensorscx/history_retrieval.h"

#include "host/sensorscx/list_marshal.h"
#include "host/sensorscx/violations.h"

namespace host::sensorscx {
namespace {

constexpr const char* kComplete = "SensorsCxSensorHistoryRetrievalComplete";

// The client's view of a finished retrieval, with every defect of the buffer reported.
HistoryCompletion Collect(const CallerBuffer* buffer, ULONG size, NTSTATUS status, const std::string& who)
{
    HistoryCompletion completion;
    completion.status = status;
    completion.size = size;
    if (buffer == nullptr)
        return completion;
    buffer->CheckIntact(who);
    bool countFits = true;
    completion.list = buffer->TakeCollection(who, &countFits);
    const std::uint64_t data = marshal::MarshalledSize(completion.list.begin(), completion.list.Count());
    if (countFits && NT_SUCCESS(status) && size < data)
        ReportViolation(ViolationKind::SizeTooSmall, who + ": reported " + std::to_string(size) +
                                                         " bytes for a list of " + std::to_string(data));
    return completion;
}

}  // namespace

HistoryRetrievals::AttemptPtr HistoryRetrievals::Begin(ULONG bytes, bool withBuffer)
{
    auto attempt = std::make_shared<Attempt>();
    if (withBuffer)
        attempt->buffer = std::make_unique<CallerBuffer>(bytes);
    std::lock_guard lock(mutex_);
    starting_ = attempt;
    return attempt;
}

void HistoryRetrievals::Accepted(const AttemptPtr& attempt)
{
    std::lock_guard lock(mutex_);
    starting_.reset();
    if (current_ != nullptr) {
        if (current_->phase == Attempt::Phase::Running)
            ReportViolation(ViolationKind::RetrievalOverlap,
                            "StartHistoryRetrieval on " + sensorName_ + " accepted while a retrieval was running");
        // Its worker may still write into the buffer.
        orphans_.push_back(current_);
        current_.reset();
    }
    if (attempt->phase == Attempt::Phase::Starting) {
        attempt->phase = Attempt::Phase::Running;
        current_ = attempt;
    }
}

void HistoryRetrievals::AcceptedWithoutHistory(const AttemptPtr& attempt)
{
    std::lock_guard lock(mutex_);
    if (starting_ == attempt)
        starting_.reset();
    if (attempt->phase == Attempt::Phase::Starting)
        attempt->phase = Attempt::Phase::Finished;
}

void HistoryRetrievals::Refused(const AttemptPtr& attempt)
{
    std::lock_guard lock(mutex_);
    starting_.reset();
    if (attempt->phase == Attempt::Phase::Finished)
        ReportViolation(ViolationKind::NoAcceptedRetrieval,
                        std::string(kComplete) + " on " + sensorName_ + " for a retrieval whose start failed");
}

void HistoryRetrievals::CancelReturned(NTSTATUS status)
{
    std::lock_guard lock(mutex_);
    if (current_ == nullptr)
        return;
    if (NT_SUCCESS(status)) {
        // The worker has ended: nothing writes into the buffer any more.
        current_->phase = Attempt::Phase::Finished;
        current_.reset();
    } else if (status == STATUS_DEVICE_BUSY) {
        current_->phase = Attempt::Phase::Cancelling;
    }
}

std::optional<HistoryCompletion> HistoryRetrievals::Wait(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, timeout, [&] { return !completions_.empty() || closed_; });
    if (completions_.empty())
        return std::nullopt;
    HistoryCompletion completion = std::move(completions_.front());
    completions_.pop_front();
    return completion;
}

NTSTATUS HistoryRetrievals::Complete(ULONG dataSizeInBytes, NTSTATUS status, Delivery delivery)
{
    const std::string who = std::string(kComplete) + " on " + sensorName_;
    std::lock_guard lock(mutex_);
    AttemptPtr target;
    if (current_ != nullptr)
        target = current_;
    else if (starting_ != nullptr && starting_->phase == Attempt::Phase::Starting)
        target = starting_;  // the worker finished before StartHistoryRetrieval returned
    if (target == nullptr) {
        ReportViolation(ViolationKind::NoAcceptedRetrieval, who + " without an accepted retrieval");
        return STATUS_INVALID_DEVICE_STATE;
    }
    if (delivery == Delivery::ToClient) {
        try {
            completions_.push_back(Collect(target->buffer.get(), dataSizeInBytes, status, who));
        } catch (const std::bad_alloc&) {
            return STATUS_INSUFFICIENT_RESOURCES;
        }
    }
    target->phase = Attempt::Phase::Finished;
    if (target == current_)
        current_.reset();
    changed_.notify_all();
    return STATUS_SUCCESS;
}

void HistoryRetrievals::Close()
{
    std::lock_guard lock(mutex_);
    closed_ = true;
    changed_.notify_all();
}

}  // namespace host::sensorscx
