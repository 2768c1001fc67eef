#include "history/sensor_history.h"

#include <cstring>
#include <iterator>

#include "history/history_keys.h"
#include "history/history_pace.h"
#include "platform/propsys.h"
#include "platform/sensorsutils.h"
#include "sensors/custom_sensor.h"
#include "sensors/sensor_instance_extension.h"
#include "sensors/sensor_lists.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x3F6A1C52, 0x8E0D, 0x4B7A, {0x9C, 0x21, 0x5D, 0x4E, 0x77, 0x0B, 0xA1, 0x63}};

constexpr ULONG kRegistryKeyType = PLUGPLAY_REGKEY_DRIVER | WDF_REGKEY_DRIVER_SUBKEY;  // 0x102
constexpr ULONG kCreateOptionsNonVolatile = 0;
constexpr ULONG kScratchPoolTag = 0x74736948;  // 'Hist'

// A UNICODE_STRING over a name that lives for the whole program.
template <std::size_t N>
UNICODE_STRING NameOf(const WCHAR (&text)[N])
{
    return UNICODE_STRING{static_cast<USHORT>((N - 1) * sizeof(WCHAR)), static_cast<USHORT>(N * sizeof(WCHAR)),
                          const_cast<PWSTR>(text)};
}

constexpr WCHAR kActivitySubkey[] = u"KPX_ActivitySensor";
constexpr WCHAR kPedometerSubkey[] = u"KPX_PedometerSensor";
constexpr WCHAR kIntervalValue[] = u"HistorySampleReportInterval";
constexpr WCHAR kMaxEntriesValue[] = u"HistoryMaxEntries";

// Reads one setting; a missing or out-of-range value is replaced by the
// default in the key and in use.
ULONG ReadSetting(WDFKEY key, const UNICODE_STRING& name, ULONG low, ULONG high, ULONG fallback)
{
    ULONG value = 0;
    const NTSTATUS status = WdfRegistryQueryULong(key, &name, &value);
    if (NT_SUCCESS(status) && value >= low && value <= high)
        return value;
    TRACE_WARNING(name.Buffer, value, fallback);
    const NTSTATUS written = WdfRegistryAssignULong(key, &name, fallback);
    if (!NT_SUCCESS(written))
        TRACE_ERROR(written, name.Buffer);
    return fallback;
}

// historyStarted is written under bufferLock and read by the retrieval
// operations without it.
UCHAR HistoryStarted(const HidCollectionRecord& record)
{
    return std::atomic_ref<UCHAR>(const_cast<UCHAR&>(record.historyStarted)).load(std::memory_order_relaxed);
}

void SetHistoryStarted(HidCollectionRecord& record, UCHAR started)
{
    std::atomic_ref<UCHAR>(record.historyStarted).store(started, std::memory_order_relaxed);
}

}  // namespace

bool SameSample(HistoryKind kind, const HistoryRecord& a, const HistoryRecord& b) noexcept
{
    if (kind == HistoryKind::Activity)
        return a.Activity.activityState == b.Activity.activityState &&
               a.Activity.confidence == b.Activity.confidence;
    const PedometerRecord& x = a.Pedometer;
    const PedometerRecord& y = b.Pedometer;
    return x.resetFlag == y.resetFlag && x.unknownStepCount == y.unknownStepCount &&
           x.unknownStepDuration == y.unknownStepDuration && x.walkingStepCount == y.walkingStepCount &&
           x.walkingStepDuration == y.walkingStepDuration && x.runningStepCount == y.runningStepCount &&
           x.runningStepDuration == y.runningStepDuration;
}

ULONG EntriesPerRecord(HistoryKind kind) noexcept
{
    return kind == HistoryKind::Activity ? kActivityEntriesPerRecord : kPedometerEntriesPerRecord;
}

void WriteRecordEntries(HistoryKind kind, const HistoryRecord& record, SENSOR_VALUE_PAIR* entries) noexcept
{
    // Both records start with the timestamp.
    entries[0].Key = kTimestampKey;
    InitPropVariantFromFileTime(&record.Activity.timestamp, &entries[0].Value);
    if (kind == HistoryKind::Activity) {
        TypedEntry(entries[1], kActivityStateKey, VT_UI4).ulVal = record.Activity.activityState;
        TypedEntry(entries[2], kActivityConfidenceKey, VT_UI2).uiVal = record.Activity.confidence;
        return;
    }
    const PedometerRecord& steps = record.Pedometer;
    TypedEntry(entries[1], kFirstAfterResetKey, VT_BOOL).boolVal =
        steps.resetFlag != 0 ? VARIANT_TRUE : VARIANT_FALSE;
    const struct {
        ULONG type;
        ULONG count;
        LONGLONG duration;
    } perType[] = {{kStepTypeUnknown, steps.unknownStepCount, steps.unknownStepDuration},
                   {kStepTypeWalking, steps.walkingStepCount, steps.walkingStepDuration},
                   {kStepTypeRunning, steps.runningStepCount, steps.runningStepDuration}};
    SENSOR_VALUE_PAIR* next = entries + 2;
    for (const auto& step : perType) {
        TypedEntry(next[0], kStepTypeKey, VT_UI4).ulVal = step.type;
        TypedEntry(next[1], kStepCountKey, VT_UI4).ulVal = step.count;
        TypedEntry(next[2], kStepDurationKey, VT_I8).hVal = step.duration;
        next += 3;
    }
}

SensorHistory::SensorHistory(WDFDEVICE device, HistoryKind kind) noexcept : device_(device), kind_(kind)
{
    TRACE_ENTRY();
    NTSTATUS status = WdfWaitLockCreate(nullptr, &sampleLock_);
    if (!NT_SUCCESS(status)) {
        sampleLock_ = nullptr;
        TRACE_ERROR(status);
    }
    // Auto-reset, not signalled.
    cancelEvent_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (cancelEvent_ == nullptr)
        TRACE_ERROR(STATUS_UNSUCCESSFUL);
    LoadSettings();
    TRACE_EXIT(STATUS_SUCCESS);
}

SensorHistory::~SensorHistory()
{
    TRACE_ENTRY();
    EndWorker();
    if (sampleLock_ != nullptr)
        WdfObjectDelete(sampleLock_);
    if (cancelEvent_ != nullptr)
        CloseHandle(cancelEvent_);
    if (workerThread_ != nullptr)
        CloseHandle(workerThread_);
    DriverHeapFree(lastDelivered);
    TRACE_EXIT(STATUS_SUCCESS);
}

void SensorHistory::LoadSettings() noexcept
{
    WDFKEY deviceKey = nullptr;
    NTSTATUS status = WdfDeviceOpenRegistryKey(device_, kRegistryKeyType, KEY_READ, nullptr, &deviceKey);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        return;
    }
    const UNICODE_STRING subkeyName =
        kind_ == HistoryKind::Activity ? NameOf(kActivitySubkey) : NameOf(kPedometerSubkey);
    WDFKEY key = nullptr;
    ULONG disposition = 0;
    status = WdfRegistryCreateKey(deviceKey, &subkeyName, KEY_ALL_ACCESS, kCreateOptionsNonVolatile,
                                  &disposition, nullptr, &key);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, subkeyName.Buffer);
        WdfRegistryClose(deviceKey);
        return;
    }
    const UNICODE_STRING interval = NameOf(kIntervalValue);
    const UNICODE_STRING entries = NameOf(kMaxEntriesValue);
    if (disposition == REG_CREATED_NEW_KEY) {
        sampleReportInterval_ = kDefaultSampleReportIntervalMs;
        maxEntries_ = kDefaultHistoryMaxEntries;
        status = WdfRegistryAssignULong(key, &interval, sampleReportInterval_);
        if (!NT_SUCCESS(status))
            TRACE_ERROR(status, interval.Buffer);
        status = WdfRegistryAssignULong(key, &entries, maxEntries_);
        if (!NT_SUCCESS(status))
            TRACE_ERROR(status, entries.Buffer);
    } else {
        sampleReportInterval_ = ReadSetting(key, interval, kMinSampleReportIntervalMs,
                                            kMaxSampleReportIntervalMs, kDefaultSampleReportIntervalMs);
        maxEntries_ = ReadSetting(key, entries, kMinHistoryMaxEntries, kMaxHistoryMaxEntries,
                                  kDefaultHistoryMaxEntries);
    }
    WdfRegistryClose(key);
    WdfRegistryClose(deviceKey);
    TRACE_INFO(subkeyName.Buffer, sampleReportInterval_, maxEntries_);
}

NTSTATUS SensorHistory::Initialize(CustomSensor& sensor) noexcept
{
    TRACE_ENTRY();
    sensor_ = &sensor;
    HidCollectionRecord& record = *sensor.Record();
    record.History = this;
    record.historySupported = maxEntries_ != 0 && Valid() ? 1 : 0;
    if (record.historySupported == 0) {
        TRACE_WARNING(sensor.GetFriendlyName());
        TRACE_EXIT(STATUS_SUCCESS);
        return STATUS_SUCCESS;
    }
    NTSTATUS status = sensor.CreateLock();
    if (NT_SUCCESS(status)) {
        WDF_TIMER_CONFIG config;
        WDF_TIMER_CONFIG_INIT(&config, &SensorHistory::OnHistoryTimer);
        config.Period = 0;
        config.AutomaticSerialization = TRUE;
        config.TolerableDelay = 0;
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.ParentObject = record.SensorObject;
        attributes.ExecutionLevel = WdfExecutionLevelPassive;
        status = sensor.CreateTimer(&config, &attributes);
    }
    if (NT_SUCCESS(status)) {
        record.HistoryBuffer = DriverHeapAllocZeroed(sizeof(HistoryRecord) * maxEntries_);
        if (record.HistoryBuffer == nullptr)
            status = STATUS_INSUFFICIENT_RESOURCES;
    }
    if (NT_SUCCESS(status)) {
        record.historyHead = 0;
        record.historyNewest = 0;
        record.historyCount = 0;
        record.historyCapacity = maxEntries_;
    } else {
        TRACE_ERROR(status, sensor.GetFriendlyName());
    }
    TRACE_EXIT(status);
    return status;
}

bool SensorHistory::AcquireSampleLock() noexcept
{
    return NT_SUCCESS(WdfWaitLockAcquire(sampleLock_, nullptr));
}

void SensorHistory::ReleaseSampleLock() noexcept
{
    WdfWaitLockRelease(sampleLock_);
}

bool SensorHistory::AcquireBufferLock() noexcept
{
    return NT_SUCCESS(sensor_->AcquireLock());
}

void SensorHistory::ReleaseBufferLock() noexcept
{
    sensor_->ReleaseLock();
}

void SensorHistory::CaptureSample(const HistoryRecord& record) noexcept
{
    if (sampleLock_ == nullptr)
        return;
    if (AcquireSampleLock()) {
        previousSample_ = latestSample_;
        ReleaseSampleLock();
    }
    if (AcquireSampleLock()) {
        latestSample_ = record;
        ReleaseSampleLock();
    }
}

HistoryRecord SensorHistory::LatestSample() noexcept
{
    HistoryRecord latest{};
    if (sampleLock_ != nullptr && AcquireSampleLock()) {
        latest = latestSample_;
        ReleaseSampleLock();
    }
    return latest;
}

bool SensorHistory::RetrievalRunning() noexcept
{
    bool running = false;
    if (sampleLock_ != nullptr && AcquireSampleLock()) {
        running = retrievalRunning_ != 0;
        ReleaseSampleLock();
    }
    return running;
}

NTSTATUS SensorHistory::Check(SENSOROBJECT sensor) const noexcept
{
    if (sensor_ == nullptr || sensor == nullptr || sensor != sensor_->Record()->SensorObject)
        return STATUS_INVALID_PARAMETER;
    return STATUS_SUCCESS;
}

void SensorHistory::EmptyRing() noexcept
{
    HidCollectionRecord& record = *sensor_->Record();
    record.historyHead = 0;
    record.historyNewest = 0;
    record.historyCount = 0;
    if (record.HistoryBuffer != nullptr)
        std::memset(record.HistoryBuffer, 0, sizeof(HistoryRecord) * record.historyCapacity);
}

NTSTATUS SensorHistory::InsertRecord(const HistoryRecord& incoming) noexcept
{
    HidCollectionRecord& record = *sensor_->Record();
    if (record.HistoryBuffer == nullptr || record.historyCapacity == 0)
        return STATUS_NOT_SUPPORTED;
    if (!AcquireBufferLock())
        return STATUS_INSUFFICIENT_RESOURCES;
    auto* ring = static_cast<HistoryRecord*>(record.HistoryBuffer);
    // Compared even on an empty ring: the slot at newest then holds zeros or
    // whatever the last retrieval left there.
    if (!SameSample(kind_, incoming, ring[record.historyNewest])) {
        const ULONG capacity = record.historyCapacity;
        if (record.historyCount == capacity) {
            record.historyHead = (record.historyHead + 1) % capacity;
            record.historyNewest = (record.historyNewest + 1) % capacity;
        } else {
            if (record.historyCount > 0)
                record.historyNewest = (record.historyNewest + 1) % capacity;
            ++record.historyCount;
        }
        ring[record.historyNewest] = incoming;
    }
    ReleaseBufferLock();
    return STATUS_SUCCESS;
}

NTSTATUS SensorHistory::PopOldest(HistoryRecord* out) noexcept
{
    HidCollectionRecord& record = *sensor_->Record();
    if (record.HistoryBuffer == nullptr || record.historyCapacity == 0)
        return STATUS_NO_MORE_ENTRIES;
    if (!AcquireBufferLock())
        return STATUS_INSUFFICIENT_RESOURCES;
    NTSTATUS status = STATUS_NO_MORE_ENTRIES;
    if (record.historyCount != 0) {
        const auto* ring = static_cast<const HistoryRecord*>(record.HistoryBuffer);
        *out = ring[record.historyHead];
        record.historyHead = (record.historyHead + 1) % record.historyCapacity;
        if (--record.historyCount == 0)
            record.historyNewest = record.historyHead;
        status = STATUS_SUCCESS;
    }
    ReleaseBufferLock();
    return status;
}

// The shared entry of start, stop and clear: the sensor's own handle, a
// history to work on (without one there is no lock to take), and bufferLock
// held on success.
NTSTATUS SensorHistory::EnterBufferOperation(SENSOROBJECT sensor) noexcept
{
    NTSTATUS status = Check(sensor);
    if (NT_SUCCESS(status) && sensor_->Record()->historySupported == 0)
        status = STATUS_NOT_SUPPORTED;
    if (NT_SUCCESS(status) && !AcquireBufferLock())
        status = STATUS_INSUFFICIENT_RESOURCES;
    return status;
}

NTSTATUS SensorHistory::StartHistory(SENSOROBJECT sensor) noexcept
{
    TRACE_ENTRY();
    const NTSTATUS status = EnterBufferOperation(sensor);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        TRACE_EXIT(status);
        return status;
    }
    HidCollectionRecord& record = *sensor_->Record();
    if (HistoryStarted(record) == 1) {
        ReleaseBufferLock();
        TRACE_ERROR(STATUS_DEVICE_BUSY, sensor_->GetFriendlyName());
        TRACE_EXIT(STATUS_DEVICE_BUSY);
        return STATUS_DEVICE_BUSY;
    }
    SetHistoryStarted(record, 1);
    const ULONG mode = record.modeFlags.fetch_or(kModeHistory, std::memory_order_relaxed);
    if ((mode & (kModeFiltered | kModeEverySample)) != 0) {
        // A client's delivery already keeps the device reporting.
        ApplyStreamingPace(record,
                           (mode & kModeFiltered) != 0 ? kFilteredHistoryReportIntervalMs
                                                       : requestedInterval.load(std::memory_order_relaxed),
                           0.0f);
    } else {
        RequestReporting(record, true);
        ApplyRecordingPace(record, *this);
    }
    if (kind_ == HistoryKind::Activity)
        sensor_->PropertyCache()->RequestedVendorValues[static_cast<ULONG>(RequestedVendor::ActSubscribedActivities)]
            .store(kAllActivities, std::memory_order_relaxed);
    sensor_->ReadFeatureReport(1);
    EmptyRing();
    sensor_->StartTimer(sampleReportInterval_);
    ReleaseBufferLock();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS SensorHistory::StopHistory(SENSOROBJECT sensor) noexcept
{
    TRACE_ENTRY();
    const NTSTATUS status = EnterBufferOperation(sensor);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        TRACE_EXIT(status);
        return status;
    }
    HidCollectionRecord& record = *sensor_->Record();
    SetHistoryStarted(record, 0);
    const ULONG mode = record.modeFlags.fetch_and(~kModeHistory, std::memory_order_relaxed);
    if ((mode & kModeFiltered) != 0)
        ApplyStreamingPace(record, record.MinimumReportInterval.load(std::memory_order_relaxed),
                           kind_ == HistoryKind::Pedometer ? FilteredStepSensitivity(*this) : 0.0f);
    else if ((mode & kModeEverySample) != 0)
        ApplyStreamingPace(record, requestedInterval.load(std::memory_order_relaxed), 0.0f);
    else
        RequestReporting(record, false);
    sensor_->ReadFeatureReport(1);
    ReleaseBufferLock();
    // Outside bufferLock: a running tick may be waiting for it.
    sensor_->StopTimer();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS SensorHistory::ClearHistory(SENSOROBJECT sensor) noexcept
{
    TRACE_ENTRY();
    const NTSTATUS status = EnterBufferOperation(sensor);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        TRACE_EXIT(status);
        return status;
    }
    if (kind_ == HistoryKind::Pedometer) {
        std::atomic<ULONG>& reset =
            sensor_->PropertyCache()->RequestedVendorValues[static_cast<ULONG>(RequestedVendor::PedoReset)];
        reset.store(1, std::memory_order_relaxed);
        sensor_->ReadFeatureReport(1);
        reset.store(0, std::memory_order_relaxed);
        sensor_->ReadFeatureReport(1);
    }
    EmptyRing();
    ReleaseBufferLock();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

void SensorHistory::OnHistoryTimer(WDFTIMER timer)
{
    TRACE_ENTRY();
    WDFOBJECT parent = WdfTimerGetParentObject(timer);
    SENSOR_INSTANCE_EXTENSION* context = parent != nullptr ? GetSensorInstanceExtension(parent) : nullptr;
    HidSensor* sensor = context != nullptr ? context->Sensor : nullptr;
    SensorHistory* history = sensor != nullptr ? sensor->Record()->History : nullptr;
    if (history == nullptr) {
        // The chain of ticks ends here until the next StartHistory.
        TRACE_ERROR(STATUS_UNSUCCESSFUL);
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return;
    }
    history->Tick();
    TRACE_EXIT(STATUS_SUCCESS);
}

void SensorHistory::Tick() noexcept
{
    if (newSample_.load(std::memory_order_relaxed) == 1) {
        HistoryRecord latest{};
        HistoryRecord previous{};
        if (AcquireSampleLock()) {
            latest = latestSample_;
            previous = previousSample_;
            ReleaseSampleLock();
        }
        if (!SameSample(kind_, latest, previous))
            InsertRecord(latest);
        newSample_.store(0, std::memory_order_relaxed);
    }
    sensor_->StartTimer(sampleReportInterval_);
}

NTSTATUS SensorHistory::StartHistoryRetrieval(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST list,
                                              ULONG size) noexcept
{
    TRACE_ENTRY();
    NTSTATUS status = Check(sensor);
    const HidCollectionRecord* record = sensor_ != nullptr ? sensor_->Record() : nullptr;
    if (NT_SUCCESS(status) && record->historySupported == 0)
        status = STATUS_NOT_SUPPORTED;
    // Read without bufferLock: a retrieval racing a start or stop is refused
    // or allowed on either side of it.
    if (NT_SUCCESS(status) && HistoryStarted(*record) == 0)
        status = STATUS_UNSUCCESSFUL;
    if (NT_SUCCESS(status) && list == nullptr)
        status = STATUS_INVALID_PARAMETER;
    if (NT_SUCCESS(status) && RetrievalRunning())
        status = STATUS_DEVICE_BUSY;
    if (NT_SUCCESS(status) && size < record->minRetrievalSize)
        status = STATUS_BUFFER_TOO_SMALL;
    if (NT_SUCCESS(status) && !AcquireSampleLock())
        status = STATUS_INSUFFICIENT_RESOURCES;
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, size);
        TRACE_EXIT(status);
        return status;
    }
    // Checked again under the lock, so that two starts cannot both begin a
    // worker; a cancel still waiting for the last worker also counts as
    // running, so that its answer cannot be taken for the new retrieval's.
    if (retrievalRunning_ != 0 || cancelWaiting_ != 0) {
        ReleaseSampleLock();
        TRACE_ERROR(STATUS_DEVICE_BUSY);
        TRACE_EXIT(STATUS_DEVICE_BUSY);
        return STATUS_DEVICE_BUSY;
    }
    if (workerThread_ != nullptr) {
        CloseHandle(workerThread_);
        workerThread_ = nullptr;
    }
    clientList_ = list;
    clientListSize_ = size;
    ResetEvent(cancelEvent_);
    HidSensor* owner = sensor_;
    HANDLE thread = CreateThread(nullptr, 0, &SensorHistory::HistoryRetrievalWorker, owner, 0, nullptr);
    if (thread != nullptr) {
        workerThread_ = thread;
        retrievalRunning_ = 1;
    } else {
        status = STATUS_UNSUCCESSFUL;
    }
    ReleaseSampleLock();
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status);
    TRACE_EXIT(status);
    return status;
}

DWORD SensorHistory::HistoryRetrievalWorker(void* sensor)
{
    auto* owner = static_cast<HidSensor*>(sensor);
    SensorHistory* history = owner != nullptr ? owner->Record()->History : nullptr;
    if (history == nullptr)
        return ERROR_INVALID_PARAMETER;
    return history->RunWorker();
}

DWORD SensorHistory::RunWorker() noexcept
{
    TRACE_ENTRY();
    HidCollectionRecord& record = *sensor_->Record();
    const ULONG perRecordBytes = record.minRetrievalSize - kListHeaderBytes;
    const ULONG wanted = perRecordBytes != 0 ? (clientListSize_ - kListHeaderBytes) / perRecordBytes : 0;

    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = record.SensorObject;
    WDFMEMORY memory = nullptr;
    void* buffer = nullptr;
    NTSTATUS status = WdfMemoryCreate(&attributes, PagedPool, kScratchPoolTag,
                                      sizeof(HistoryRecord) * static_cast<SIZE_T>(wanted), &memory, &buffer);
    if (NT_SUCCESS(status)) {
        auto* scratch = static_cast<HistoryRecord*>(buffer);
        ULONG taken = 0;
        status = Drain(scratch, wanted, &taken);
        if (status == STATUS_SUCCESS || status == STATUS_CANCELLED) {
            const ULONG perRecord = EntriesPerRecord(kind_);
            for (ULONG i = 0; i < taken; ++i)
                WriteRecordEntries(kind_, scratch[i], &clientList_->List[i * perRecord]);
            clientList_->Count += taken * perRecord;
        }
        WdfObjectDelete(memory);
        TRACE_INFO(sensor_->GetFriendlyName(), wanted, taken);
    } else {
        TRACE_ERROR(status, wanted);
    }
    const ULONG bytes = CollectionsListGetMarshalledSizeWithoutSerialization(clientList_);
    if (AcquireSampleLock()) {
        retrievalRunning_ = 0;
        filledBytes_ = bytes;
        ReleaseSampleLock();
    }
    if (status != STATUS_CANCELLED)
        SensorsCxSensorHistoryRetrievalComplete(record.SensorObject, bytes, status);
    TRACE_EXIT(status);
    return 0;
}

NTSTATUS SensorHistory::Drain(HistoryRecord* scratch, ULONG wanted, ULONG* taken) noexcept
{
    *taken = 0;
    if (wanted == 0)
        return STATUS_BUFFER_TOO_SMALL;
    NTSTATUS status = STATUS_SUCCESS;
    while (*taken < wanted) {
        if (WaitForSingleObjectEx(cancelEvent_, 0, FALSE) == WAIT_OBJECT_0) {
            status = STATUS_CANCELLED;
            break;
        }
        status = PopOldest(&scratch[*taken]);
        if (status != STATUS_SUCCESS)
            break;
        ++*taken;
    }
    if (status == STATUS_NO_MORE_ENTRIES && *taken > 0)
        status = STATUS_SUCCESS;
    return status;
}

NTSTATUS SensorHistory::CancelHistoryRetrieval(SENSOROBJECT sensor, ULONG* bytesWritten) noexcept
{
    TRACE_ENTRY();
    NTSTATUS status = Check(sensor);
    const HidCollectionRecord* record = sensor_ != nullptr ? sensor_->Record() : nullptr;
    if (NT_SUCCESS(status) && record->historySupported == 0)
        status = STATUS_NOT_SUPPORTED;
    if (NT_SUCCESS(status) && HistoryStarted(*record) == 0)
        status = STATUS_UNSUCCESSFUL;
    if (NT_SUCCESS(status) && bytesWritten == nullptr)
        status = STATUS_INVALID_PARAMETER;
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        TRACE_EXIT(status);
        return status;
    }
    *bytesWritten = 0;
    HANDLE worker = nullptr;
    if (AcquireSampleLock()) {
        if (retrievalRunning_ != 0) {
            worker = workerThread_;
            ++cancelWaiting_;
        }
        ReleaseSampleLock();
    }
    if (worker == nullptr) {
        TRACE_ERROR(STATUS_HISTORY_RETRIEVAL_NOT_RUNNING);
        TRACE_EXIT(STATUS_HISTORY_RETRIEVAL_NOT_RUNNING);
        return STATUS_HISTORY_RETRIEVAL_NOT_RUNNING;
    }
    SetEvent(cancelEvent_);
    const bool ended = WaitForSingleObjectEx(worker, kWorkerStopWaitMs, FALSE) == WAIT_OBJECT_0;
    if (AcquireSampleLock()) {
        // The size the worker found in its list when it ended; the list itself
        // may be the class extension's again if the worker completed.
        if (ended)
            *bytesWritten = filledBytes_;
        --cancelWaiting_;
        ReleaseSampleLock();
    }
    if (!ended) {
        TRACE_ERROR(STATUS_DEVICE_BUSY);
        TRACE_EXIT(STATUS_DEVICE_BUSY);
        return STATUS_DEVICE_BUSY;
    }
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

void SensorHistory::EndWorker() noexcept
{
    if (sampleLock_ == nullptr)
        return;
    HANDLE worker = nullptr;
    if (AcquireSampleLock()) {
        if (retrievalRunning_ != 0)
            worker = workerThread_;
        ReleaseSampleLock();
    }
    if (worker == nullptr || cancelEvent_ == nullptr)
        return;
    SetEvent(cancelEvent_);
    if (WaitForSingleObjectEx(worker, kWorkerStopWaitMs, FALSE) == WAIT_OBJECT_0)
        return;
    TRACE_WARNING(STATUS_DEVICE_BUSY);
    // The worker polls the cancel before every record; it must be gone before
    // the sensor it works on.
    WaitForSingleObjectEx(worker, INFINITE, FALSE);
}

void SensorHistory::Shutdown() noexcept
{
    TRACE_ENTRY();
    EndWorker();
    if (sensor_ != nullptr) {
        sensor_->StopTimer();
        sensor_->DeleteTimer();
    }
    TRACE_EXIT(STATUS_SUCCESS);
}
