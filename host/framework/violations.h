// The one ordered stream of broken contracts the host notices in the driver it
// hosts: the framework's (a dead handle, a request deleted while outstanding,
// a second read on one target...) and the class extension's (a list whose
// Count exceeds its size, a sample from a sensor never initialized...). They
// are recorded, never fatal: the offending call is refused or made harmless.
//
// Every record carries its place in the stream, where it was found (the host
// component and the platform function), and the host clock at the time.
// Tests read Violations() or DriverHost::ViolationRecords(); a scenario runner
// subscribes once:
//     auto subscription = host::framework::SubscribeViolations(
//         [&](const ViolationRecord& v) { PrintViolationEvent(v); });
// The listener runs on the reporting thread, in stream order (one at a time),
// outside the stream's lock; it may read the stream but must not report.
//
// Creating a DriverHost empties the stream. The stream keeps the first
// kMaxViolations records; later ones still reach the listener and are counted
// by DroppedViolations().
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/basetypes.h"

namespace host::framework {

enum class ViolationSource : unsigned {
    Framework,       // the framework and system services (objects, I/O, timers, locks, threads, handles)
    ClassExtension,  // the sensor class extension and its utility library
};

const char* ViolationSourceName(ViolationSource source);

struct ViolationRecord {
    std::uint64_t sequence = 0;  // 1-based position in the stream since the host was created
    ViolationSource source = ViolationSource::Framework;
    unsigned kind = 0;           // class extension: a host::sensorscx::ViolationKind; framework: 0
    std::string where;           // the platform function that found it ("WdfObjectDelete", "SensorsCxSensorDataReady")
    std::string what;            // one line for a human, starting with `where`
    LONGLONG ticks = 0;          // host clock (FILETIME ticks) when it was found
};

inline constexpr std::size_t kMaxViolations = 10000;

// The framework's own reports: `what` starts with the function's name,
// followed by ": " and the reason.
void ReportViolation(std::string what);
// Any host component: appends one record to the stream. `where` empty: taken
// from `what` up to the first ':' or ' '.
void ReportViolation(ViolationSource source, unsigned kind, std::string where, std::string what);

// The `what` of every record, in order.
std::vector<std::string> Violations();
std::vector<ViolationRecord> ViolationRecords();
std::uint64_t DroppedViolations();
void ClearViolations();

using ViolationListener = std::function<void(const ViolationRecord&)>;

// Ends the subscription when destroyed.
class ViolationSubscription {
public:
    ViolationSubscription() = default;
    explicit ViolationSubscription(std::uint64_t id) : id_(id) {}
    ViolationSubscription(ViolationSubscription&& other) noexcept : id_(other.id_) { other.id_ = 0; }
    ViolationSubscription& operator=(ViolationSubscription&& other) noexcept;
    ~ViolationSubscription() { Cancel(); }
    void Cancel();

private:
    std::uint64_t id_ = 0;
};

// Every later record, as it is reported. Subscriptions survive host resets.
[[nodiscard]] ViolationSubscription SubscribeViolations(ViolationListener listener);

}  // namespace host::framework
