// A client of the sensor class extension, bound to one device: it lists the
// visible sensors, calls the driver's fifteen sensor callbacks the way the
// class extension would for its clients, receives samples and waits for
// history retrievals. Tests and the command-line tool use it.
//
// Sensors are addressed by index: the i-th sensor that reached
// SensorsCxSensorInitialize among those not deleted since. Every buffer a call
// passes is the client's own (CallerBuffer); after the call the client checks
// it (AllocatedSizeInBytes untouched, nothing written past the end, Count
// within the buffer, every string and CLSID inside it, sizes given back not
// below the data) and reports each broken rule as a violation. Results are
// copies; nothing in them points into driver memory.
//
// Thread-safe; callbacks for samples and sensors run on the thread of the
// driver's SensorsCx call.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "host/sensorscx/sample.h"
#include "platform/sensorscx.h"

namespace host::sensorscx {

class DeviceState;

// How a list-returning call gets its buffer.
struct ListBuffer {
    enum class Mode {
        SizeQuery,  // a null list: the callee reports the size it needs
        Exact,      // a size query, then a buffer of exactly the size it gave
        Bytes,      // a buffer of `bytes` bytes (AllocatedSizeInBytes = bytes)
    };
    Mode mode = Mode::Exact;
    ULONG bytes = 0;

    static ListBuffer SizeQuery() { return {Mode::SizeQuery, 0}; }
    static ListBuffer Exact() { return {Mode::Exact, 0}; }
    static ListBuffer OfBytes(ULONG n) { return {Mode::Bytes, n}; }
};

struct CallOptions {
    // Pass an impostor SENSOROBJECT (see ImpostorSensor): not the sensor's own
    // handle, but one whose driver context leads to the same sensor object.
    bool otherHandle = false;
    // Pass no output pointer where the callback has one: the size pointer of
    // the list queries (the list is then null, or the given number of bytes),
    // the interval of GetDataInterval, the bytes written of
    // CancelHistoryRetrieval; for SetDataThresholds and StartHistoryRetrieval
    // the list itself.
    bool nullOutput = false;
};

struct CallResult {
    NTSTATUS status = STATUS_SUCCESS;
    std::optional<ULONG> size;                       // given back through the size pointer
    std::optional<CollectionListCopy> list;          // collection list found in the buffer, on success
    std::optional<std::vector<PROPERTYKEY>> keys;    // GetSupportedDataFields, on success
    std::optional<ULONG> ms;                         // GetDataInterval
    std::optional<ULONG> bytesWritten;               // CancelHistoryRetrieval
    std::optional<NTSTATUS> requestStatus;           // DeviceIoControl: WdfRequestGetStatus afterwards
};

// Status of a call on a sensor index that is not there.
inline constexpr NTSTATUS kNoSuchSensor = STATUS_OBJECT_NAME_NOT_FOUND;

// Ends a subscription when destroyed.
class Subscription {
public:
    Subscription() = default;
    Subscription(std::weak_ptr<DeviceState> device, std::uint64_t id) : device_(std::move(device)), id_(id) {}
    Subscription(Subscription&& other) noexcept;
    Subscription& operator=(Subscription&& other) noexcept;
    ~Subscription() { Cancel(); }
    void Cancel();

private:
    std::weak_ptr<DeviceState> device_;
    std::uint64_t id_ = 0;
};

class Client {
public:
    // Bound() is false when SensorsCxDeviceInitialize has not succeeded on the device.
    explicit Client(WDFDEVICE device);

    bool Bound() const { return device_ != nullptr; }
    // DriverIsPowerPolicyOwner as given to SensorsCxDeviceInitialize (WdfUseDefault when unbound).
    WDF_TRI_STATE DriverIsPowerPolicyOwner() const;

    std::vector<SensorInfo> Sensors() const;
    std::size_t SensorCount() const;
    SENSOROBJECT SensorHandle(std::size_t sensor) const;  // null when there is no such sensor
    std::optional<std::size_t> IndexOf(SENSOROBJECT sensor) const;
    // The sample of the sensor's latest SensorsCxSensorDataReady, or null.
    std::shared_ptr<const Sample> LastSample(std::size_t sensor) const;

    // The fifteen callbacks. A callback the driver left null gives
    // STATUS_NOT_IMPLEMENTED without a call.
    CallResult Start(std::size_t sensor, CallOptions options = {});
    CallResult Stop(std::size_t sensor, CallOptions options = {});
    CallResult GetSupportedDataFields(std::size_t sensor, ListBuffer buffer = {}, CallOptions options = {});
    // `field` may be null to pass no key.
    CallResult GetDataFieldProperties(std::size_t sensor, const PROPERTYKEY* field, ListBuffer buffer = {},
                                      CallOptions options = {});
    CallResult GetDataInterval(std::size_t sensor, CallOptions options = {});
    CallResult SetDataInterval(std::size_t sensor, ULONG ms, CallOptions options = {});
    CallResult GetDataThresholds(std::size_t sensor, ListBuffer buffer = {}, CallOptions options = {});
    // The driver gets a private copy of `thresholds`.
    CallResult SetDataThresholds(std::size_t sensor, const CollectionListCopy& thresholds, CallOptions options = {});
    CallResult GetProperties(std::size_t sensor, ListBuffer buffer = {}, CallOptions options = {});
    // With a WDFREQUEST made by WdfRequestCreate (no target), deleted afterwards.
    CallResult DeviceIoControl(std::size_t sensor, ULONG ioControlCode, SIZE_T inputLength, SIZE_T outputLength,
                               CallOptions options = {});
    CallResult StartHistory(std::size_t sensor, CallOptions options = {});
    CallResult StopHistory(std::size_t sensor, CallOptions options = {});
    CallResult ClearHistory(std::size_t sensor, CallOptions options = {});
    // Hands the driver a buffer of `bytes` bytes (Count 0) that stays the
    // class extension's until the retrieval completes or is cancelled.
    CallResult StartHistoryRetrieval(std::size_t sensor, ULONG bytes, CallOptions options = {});
    CallResult CancelHistoryRetrieval(std::size_t sensor, CallOptions options = {});
    // The oldest completion not yet taken; nothing on time-out or when the
    // sensor is gone. A completion already there is taken at once.
    // Otherwise, deterministic mode: the driver's threads are let run (this is
    // where a history worker runs) and the answer is what they brought,
    // without waiting: nothing else can complete a retrieval meanwhile, so
    // `timeout` is not spent. Real-time mode: waits up to `timeout`.
    std::optional<HistoryCompletion> WaitHistoryRetrieval(std::size_t sensor, std::chrono::milliseconds timeout);
    // The oldest completion that has arrived, if any. Never waits and never
    // lets driver threads run: what a runner prints after each step.
    std::optional<HistoryCompletion> TakeHistoryCompletion(std::size_t sensor);

    // Every later sample of the device's sensors.
    Subscription Subscribe(SampleCallback callback);
    // Every sensor that reaches SensorsCxSensorInitialize from now on.
    Subscription OnSensorInitialized(SensorCallback callback);

private:
    std::shared_ptr<DeviceState> device_;
};

// Collects samples in arrival order until destroyed.
class SampleQueue {
public:
    explicit SampleQueue(Client& client);

    std::size_t Size() const;
    std::optional<Sample> Pop();
    std::vector<Sample> Drain();

private:
    struct Shared {
        mutable std::mutex mutex;
        std::vector<Sample> samples;
    };
    std::shared_ptr<Shared> shared_;
    Subscription subscription_;
};

}  // namespace host::sensorscx
