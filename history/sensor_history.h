// The sample history of the activity and pedometer sensors: settings from the
// registry, the record ring and its sampling timer, start, stop and clear, and
// retrieval by a worker thread that a client may cancel.
//
// One mechanism serves both sensors. They differ in the record kind, in which
// fields decide that two samples are the same, and in the few device settings
// the history operations set; HistoryKind selects them, so a sensor only
// builds its records and calls the operations below.
//
// Where things live: the ring (HistoryBuffer, head, newest, count, capacity),
// historyStarted, bufferLock (the record's WaitLock) and the sampling timer
// (the record's Timer, parented to the SENSOROBJECT) belong to the sensor's
// HidCollectionRecord; everything else is here.
//
// Locks: bufferLock guards the ring, historyStarted, mode bit 2 and the device
// write-back of start, stop and clear; sampleLock guards previousSample,
// latestSample and the retrieval state. No code path holds both. newSample and
// the delivery fields are relaxed atomics shared without a lock.
//
// Decisions where the behaviour is ours to choose:
//   - A sampleLock or cancelEvent that cannot be created leaves the history
//     usable but inert: Valid() is false, the owning sensor reports no history
//     (historySupported 0) and every history operation answers
//     STATUS_NOT_SUPPORTED, so nothing later touches the missing object.
//   - cancelEvent is reset when a retrieval starts: a cancel that arrived after
//     the previous worker's last poll does not cancel the next retrieval.
//   - Destruction cancels a running worker and waits for it to end before the
//     sensor goes (first 20 ms, traced when exceeded, then until it ends: the
//     worker polls the cancel between records, so this is short).
#pragma once

#include <atomic>

#include "driver/heap.h"
#include "platform/sensorscx.h"
#include "platform/system.h"
#include "platform/wdf.h"

class CustomSensor;
class HidSensor;

enum class HistoryKind : ULONG { Activity, Pedometer };

struct ActivityRecord {
    FILETIME timestamp;
    ULONG activityState;  // the first activity entry's state flag
    USHORT confidence;    // its confidence in percent
};

struct PedometerRecord {
    FILETIME timestamp;
    ULONG resetFlag;  // nonzero: the sample follows a reset of the device's counts
    ULONG unknownStepCount;
    LONGLONG unknownStepDuration;
    ULONG walkingStepCount;
    LONGLONG walkingStepDuration;
    ULONG runningStepCount;
    LONGLONG runningStepDuration;
};

// One slot of the ring; a sensor uses only the member of its kind. Zeroed
// slots are all-zero records of either kind.
union HistoryRecord {
    ActivityRecord Activity;
    PedometerRecord Pedometer;
};

// Two samples are the same when every field but the timestamp is equal.
bool SameSample(HistoryKind kind, const HistoryRecord& a, const HistoryRecord& b) noexcept;

// Entries one record takes in a retrieval list.
inline constexpr ULONG kActivityEntriesPerRecord = 3;
inline constexpr ULONG kPedometerEntriesPerRecord = 11;
ULONG EntriesPerRecord(HistoryKind kind) noexcept;
// Writes the record's EntriesPerRecord(kind) entries from `entries` on.
void WriteRecordEntries(HistoryKind kind, const HistoryRecord& record, SENSOR_VALUE_PAIR* entries) noexcept;

// Settings: registry values, their ranges and defaults.
inline constexpr ULONG kDefaultSampleReportIntervalMs = 60000;
inline constexpr ULONG kMinSampleReportIntervalMs = 1000;
inline constexpr ULONG kMaxSampleReportIntervalMs = 300000;
inline constexpr ULONG kDefaultHistoryMaxEntries = 60;
inline constexpr ULONG kMinHistoryMaxEntries = 1;
inline constexpr ULONG kMaxHistoryMaxEntries = 1000;

// How long a cancel or the destruction waits for a running worker.
inline constexpr DWORD kWorkerStopWaitMs = 20;

class SensorHistory : public HeapObject {
public:
    // Zeroes every field, creates sampleLock and cancelEvent and loads the
    // settings from the device's registry (subkey by kind).
    SensorHistory(WDFDEVICE device, HistoryKind kind) noexcept;
    ~SensorHistory();
    SensorHistory(const SensorHistory&) = delete;
    SensorHistory& operator=(const SensorHistory&) = delete;

    // False when sampleLock or cancelEvent could not be created.
    bool Valid() const noexcept { return sampleLock_ != nullptr && cancelEvent_ != nullptr; }
    HistoryKind Kind() const noexcept { return kind_; }
    ULONG SampleReportInterval() const noexcept { return sampleReportInterval_; }
    ULONG MaxEntries() const noexcept { return maxEntries_; }

    // The registration step, once the SENSOROBJECT exists and its context
    // points at `sensor`: historySupported, bufferLock, the sampling timer and
    // the ring. STATUS_INSUFFICIENT_RESOURCES when the ring cannot be
    // allocated; a lock or timer failure is returned as it is.
    NTSTATUS Initialize(CustomSensor& sensor) noexcept;

    // The data path, once per complete sample: previous := latest, latest :=
    // record (each under sampleLock). MarkNewSample when the sample is handled.
    void CaptureSample(const HistoryRecord& record) noexcept;
    void MarkNewSample() noexcept { newSample_.store(1, std::memory_order_relaxed); }

    NTSTATUS StartHistory(SENSOROBJECT sensor) noexcept;
    NTSTATUS StopHistory(SENSOROBJECT sensor) noexcept;
    NTSTATUS ClearHistory(SENSOROBJECT sensor) noexcept;
    NTSTATUS StartHistoryRetrieval(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST list, ULONG size) noexcept;
    NTSTATUS CancelHistoryRetrieval(SENSOROBJECT sensor, ULONG* bytesWritten) noexcept;

    // The ring, each under bufferLock. Insert stores nothing when the record
    // is the same sample as the newest slot; PopOldest gives
    // STATUS_NO_MORE_ENTRIES on an empty ring.
    NTSTATUS InsertRecord(const HistoryRecord& record) noexcept;
    NTSTATUS PopOldest(HistoryRecord* record) noexcept;

    // Ends a running worker and stops and deletes the sampling timer; call
    // before the SENSOROBJECT is deleted. Idempotent.
    void Shutdown() noexcept;

    // The sampling timer's callback and the retrieval worker's procedure.
    static void OnHistoryTimer(WDFTIMER timer);
    static DWORD HistoryRetrievalWorker(void* sensor);

    // Sensor-specific delivery fields, owned by the sensors.
    std::atomic<ULONG> streamFlag{0};         // activity: stream threshold
    std::atomic<ULONG> requestedInterval{0};  // client's data interval, ms
    std::atomic<ULONG> stepThreshold{0};      // pedometer: step-count threshold
    PSENSOR_COLLECTION_LIST lastDelivered = nullptr;  // activity: the last delivered data list
    ULONG activityCount = 0;                          // activity: pairs of the open sample; reader only

    // Test and diagnostics access.
    HistoryRecord LatestSample() noexcept;
    bool RetrievalRunning() noexcept;
    HANDLE WorkerThread() const noexcept { return workerThread_; }

private:
    void LoadSettings() noexcept;
    NTSTATUS Check(SENSOROBJECT sensor) const noexcept;
    void EmptyRing() noexcept;  // bufferLock held
    void Tick() noexcept;
    DWORD RunWorker() noexcept;
    NTSTATUS Drain(HistoryRecord* scratch, ULONG wanted, ULONG* taken) noexcept;
    bool AcquireSampleLock() noexcept;
    void ReleaseSampleLock() noexcept;
    bool AcquireBufferLock() noexcept;
    NTSTATUS EnterBufferOperation(SENSOROBJECT sensor) noexcept;
    void ReleaseBufferLock() noexcept;
    void EndWorker() noexcept;

    CustomSensor* sensor_ = nullptr;
    WDFDEVICE device_ = nullptr;
    HistoryKind kind_ = HistoryKind::Activity;
    WDFWAITLOCK sampleLock_ = nullptr;
    HistoryRecord previousSample_{};
    HistoryRecord latestSample_{};
    ULONG retrievalRunning_ = 0;  // sampleLock
    HANDLE workerThread_ = nullptr;
    PSENSOR_COLLECTION_LIST clientList_ = nullptr;
    ULONG clientListSize_ = 0;
    ULONG cancelWaiting_ = 0;  // sampleLock: cancels waiting for a worker to end
    ULONG filledBytes_ = 0;  // sampleLock: the marshalled size of the last worker's list when it ended
    HANDLE cancelEvent_ = nullptr;
    std::atomic<ULONG> newSample_{0};
    ULONG sampleReportInterval_ = kDefaultSampleReportIntervalMs;
    ULONG maxEntries_ = kDefaultHistoryMaxEntries;
};
