// Broken contracts the class extension notices in the driver it hosts. They
// go into the host's one violation stream (host/framework/violations.h) with
// their ViolationKind, in order with the framework's; ViolationLog is the
// class extension's typed view of that stream. Never fatal: the offending
// call is refused or made harmless.
#pragma once

#include <cstddef>
#include <cstdint>
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

// The class extension's records of the host's violation stream.
class ViolationLog {
public:
    static ViolationLog& Instance();

    // `what` starts with the platform function that found the violation.
    void Report(ViolationKind kind, std::string what);

    std::vector<Violation> Entries() const;
    std::size_t Count() const;
    bool Contains(ViolationKind kind) const;
    // Empties the whole stream (the framework's records too).
    void Reset();
};

// Shorthand for ViolationLog::Instance().Report(...).
void ReportViolation(ViolationKind kind, std::string what);

}  // namespace host::sensorscx
