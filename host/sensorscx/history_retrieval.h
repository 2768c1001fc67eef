// The class extension's side of history retrieval for one sensor: the client's
// buffer for each attempt, which attempt the driver accepted, the completions
// it reported, and the waiters for them.
//
// An attempt is Starting while the driver's StartHistoryRetrieval runs (its
// worker may already complete it then), Running once accepted, Cancelling
// after a cancel that timed out (STATUS_DEVICE_BUSY: the worker ends on its
// own and may still write), Finished after its completion or a successful
// cancel. A buffer lives until its attempt is finished or, when the worker may
// still write to it, until the sensor is gone.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/sensorscx/caller_buffer.h"
#include "host/sensorscx/sample.h"

namespace host::sensorscx {

class HistoryRetrievals {
public:
    struct Attempt {
        enum class Phase { Starting, Running, Cancelling, Finished };
        std::unique_ptr<CallerBuffer> buffer;  // null when the client passed no list
        Phase phase = Phase::Starting;
    };
    using AttemptPtr = std::shared_ptr<Attempt>;

    explicit HistoryRetrievals(std::string sensorName) : sensorName_(std::move(sensorName)) {}

    // Client side. Starts are serialised per sensor by the caller holding StartLock().
    std::mutex& StartLock() { return startMutex_; }
    // Throws std::bad_alloc.
    AttemptPtr Begin(ULONG bytes, bool withBuffer);
    void Accepted(const AttemptPtr& attempt);
    // A sensor that publishes no history (no history size in its enumeration
    // list) may answer StartHistoryRetrieval with success and do nothing: no
    // retrieval is opened, and none is owed a completion.
    void AcceptedWithoutHistory(const AttemptPtr& attempt);
    void Refused(const AttemptPtr& attempt);
    void CancelReturned(NTSTATUS status);
    std::optional<HistoryCompletion> Wait(std::chrono::milliseconds timeout);

    // Driver side: SensorsCxSensorHistoryRetrievalComplete. The retrieval
    // ends either way; with Dropped (the call failed, as injected) the client
    // gets no completion and the buffer is not read.
    enum class Delivery { ToClient, Dropped };
    NTSTATUS Complete(ULONG dataSizeInBytes, NTSTATUS status, Delivery delivery);

    // The sensor is gone: waiters return empty-handed.
    void Close();

private:
    std::string sensorName_;
    std::mutex startMutex_;
    std::mutex mutex_;
    std::condition_variable changed_;
    AttemptPtr starting_;
    AttemptPtr current_;
    std::vector<AttemptPtr> orphans_;
    std::deque<HistoryCompletion> completions_;
    bool closed_ = false;
};

}  // namespace host::sensorscx
