// Broken contracts the class extension notices in the driver it hosts. They are
// recorded in order and never fatal: the offending call is refused or made
// harmless. Tests read the log; the command-line tool prints each entry as a
// `violation` event through the listener. Process-wide.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace host::sensorscx {

enum class ViolationKind : unsigned {
    BadConfigSize,           // a SENSOR_CONTROLLER_CONFIG or SENSOR_CONFIG whose Size is wrong
    MissingCallback,         // one of the fifteen sensor callbacks is null
    OutOfOrder,              // a call before the one it depends on (e.g. sensor create before device initialize)
    InitializedTwice,        // SensorsCxDeviceInitialize or SensorsCxSensorInitialize called again
    BadHandle,               // a handle that is no live object of the expected kind (deleted, foreign, wrong kind)
    SensorNotInitialized,    // DataReady or HistoryRetrievalComplete before SensorsCxSensorInitialize
    NullArgument,            // a list, configuration or output pointer that must be there is null
    ListCountExceedsSize,    // Count entries do not fit the list's AllocatedSizeInBytes
    ListContentOutsideBuffer,// a returned list points outside the caller's buffer, or a string is unterminated
    AllocatedSizeChanged,    // the callee rewrote the caller's AllocatedSizeInBytes
    BufferOverrun,           // the callee wrote past the end of the caller's buffer
    SizeTooSmall,            // a size given back (size query, returned or completion size) below the data's size
    NoAcceptedRetrieval,     // HistoryRetrievalComplete without an accepted, unfinished retrieval
    RetrievalOverlap,        // a history retrieval accepted while another was still running
};

const char* ViolationKindName(ViolationKind kind);

struct Violation {
    ViolationKind kind;
    std::string what;  // one line for a human: which call, which sensor or list, which numbers
};

class ViolationLog {
public:
    using Listener = std::function<void(const Violation&)>;

    static ViolationLog& Instance();

    void Report(ViolationKind kind, std::string what);

    std::vector<Violation> Entries() const;
    std::size_t Count() const;
    // Violations not kept because the log was full (it keeps the first kMaxEntries).
    std::uint64_t Dropped() const;
    bool Contains(ViolationKind kind) const;
    void Reset();

    // Called on the reporting thread for every report, kept or not, after it is
    // recorded and outside the log's lock. Null removes the listener.
    void SetListener(Listener listener);

    static constexpr std::size_t kMaxEntries = 10000;

private:
    mutable std::mutex mutex_;
    std::vector<Violation> entries_;
    std::uint64_t dropped_ = 0;
    std::shared_ptr<const Listener> listener_;
};

// Shorthand for ViolationLog::Instance().Report(...).
void ReportViolation(ViolationKind kind, std::string what);

}  // namespace host::sensorscx
