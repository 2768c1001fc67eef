// Classic event tracing on the host: providers register with
// RegisterTraceGuidsW; a TraceSession enables them with a level and flags
// through their control callback and receives their TraceMessage lines in a
// sink (standard error for the tool, memory for tests).
//
// Line format, one per TraceMessage: the message GUID, the message number, then
// each argument, separated by single spaces:
//   {6B1A6A8E-1C2D-4E5F-8A9B-0C1D2E3F4A5B} 12 0xC0000001 2.5 "HID Sensor"
// An argument is rendered from its size alone:
//   4 bytes  -> 32-bit hex, "0x" and 8 upper-case digits (statuses, counts, usages);
//   8 bytes  -> a double, shortest text that reads back (floats widened to double);
//   any other size -> UTF-16 text up to its first terminator, JSON-quoted.
// So the driver passes 32-bit values as 4 bytes, floating-point values as
// doubles, and strings with their terminator (size = 2 (length + 1)); a 64-bit
// integer has to travel as two 4-byte halves or as text.
//
// Classic providers have one enabling session at a time: enabling a control GUID
// in a second session takes the providers over; disabling it in either session
// disables them.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/evntrace.h"

namespace host::tracing {

class TraceSink {
public:
    virtual ~TraceSink() = default;
    // One message line, without its newline. May be called from any thread.
    virtual void Write(std::string_view line) = 0;
};

class MemoryTraceSink final : public TraceSink {
public:
    void Write(std::string_view line) override;
    std::vector<std::string> Lines() const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

class StderrTraceSink final : public TraceSink {
public:
    void Write(std::string_view line) override;

private:
    std::mutex mutex_;
};

class TraceSession {
public:
    explicit TraceSession(std::shared_ptr<TraceSink> sink);
    TraceSession(const TraceSession&) = delete;
    TraceSession& operator=(const TraceSession&) = delete;
    // Disables every provider this session still enables.
    ~TraceSession();

    // Enables the providers registered under `controlGuid`, now and when they
    // register later: their control callback gets WMI_ENABLE_EVENTS with a
    // buffer from which GetTraceLoggerHandle gives this enable's logger handle.
    // Enabling again changes level and flags (a fresh enable, a new handle).
    // Level 0 disables.
    void Enable(const GUID& controlGuid, UCHAR level, ULONG flags);
    // WMI_DISABLE_EVENTS to the providers this session enables under the GUID.
    void Disable(const GUID& controlGuid);

    // The logger handle of the current enable of `controlGuid`, or 0.
    TRACEHANDLE LoggerHandle(const GUID& controlGuid) const;

private:
    std::shared_ptr<TraceSink> sink_;
    mutable std::mutex mutex_;
    std::vector<std::pair<GUID, TRACEHANDLE>> enables_;
};

// The text of one message line (exposed for the tool and tests).
std::string FormatTraceLine(LPCGUID messageGuid, USHORT messageNumber,
                            const std::vector<std::pair<const void*, SIZE_T>>& arguments);

}  // namespace host::tracing
