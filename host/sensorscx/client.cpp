#include "host/sensorscx/client.h"

#include <algorithm>
#include <functional>
#include <string>
#include <utility>

#include "host/framework/threads.h"
#include "host/sensorscx/caller_buffer.h"
#include "host/sensorscx/client_call.h"
#include "host/sensorscx/list_marshal.h"
#include "host/sensorscx/violations.h"

namespace host::sensorscx {
namespace {

// The history size a sensor announces in its enumeration list; a sensor
// without one (or with 0) keeps no history.
bool PublishesHistory(const SensorState& state)
{
    constexpr PROPERTYKEY kHistorySize = {
        {0xD4247382, 0x969D, 0x4F24, {0xBB, 0x14, 0xFB, 0x96, 0x71, 0x87, 0x0B, 0xBF}}, 24};
    const CollectionListCopy enumeration = state.Enumeration();
    for (const SENSOR_VALUE_PAIR& entry : enumeration) {
        if (IsEqualPropertyKey(entry.Key, kHistorySize))
            return entry.Value.vt == VT_UI4 && entry.Value.ulVal != 0;
    }
    return false;
}

using detail::Invoke;
using Config = SENSOR_CONTROLLER_CONFIG;

std::string Who(const char* callback, const SensorState& sensor) { return std::string(callback) + " on " + sensor.Name(); }

bool RefusedForSize(NTSTATUS status) { return status == STATUS_INSUFFICIENT_RESOURCES || status == STATUS_BUFFER_TOO_SMALL; }

void CheckSizeCovers(const std::string& who, const char* what, ULONG size, std::uint64_t data)
{
    if (size < data)
        ReportViolation(ViolationKind::SizeTooSmall, who + ": " + what + " " + std::to_string(size) +
                                                         " bytes, the list takes " + std::to_string(data));
}

// The buffer protocol shared by the collection and property queries. `fill`
// calls the callback with a list pointer (or null) and a size pointer (or
// null); `take` collects what a successful call left in the buffer and gives
// the bytes the data takes, or nothing when Count ran past the buffer (the
// entries are then not the callee's data, and sizes cannot be judged).
template <class Fill, class Take>
CallResult Query(const std::string& who, ListBuffer how, bool nullOutput, Fill fill, Take take)
{
    CallResult result;
    ULONG size = 0;
    ULONG* sizePointer = nullOutput ? nullptr : &size;
    if (how.mode == ListBuffer::Mode::SizeQuery || (how.mode == ListBuffer::Mode::Exact && nullOutput)) {
        result.status = fill(nullptr, sizePointer);
        if (sizePointer != nullptr)
            result.size = size;
        return result;
    }
    std::optional<ULONG> queried;
    ULONG bytes = how.bytes;
    if (how.mode == ListBuffer::Mode::Exact) {
        result.status = fill(nullptr, &size);
        if (!NT_SUCCESS(result.status)) {
            result.size = size;
            return result;
        }
        queried = size;
        bytes = size;
        size = 0;
        if (bytes < marshal::kHeaderBytes)
            ReportViolation(ViolationKind::SizeTooSmall,
                            who + ": size query answered " + std::to_string(bytes) + " bytes, less than a list header");
    }
    CallerBuffer buffer(bytes);
    result.status = fill(&buffer, sizePointer);
    if (sizePointer != nullptr)
        result.size = size;
    buffer.CheckIntact(who);
    if (queried && RefusedForSize(result.status))
        ReportViolation(ViolationKind::SizeTooSmall, who + ": refused a buffer of the " + std::to_string(*queried) +
                                                         " bytes its size query asked for");
    if (!NT_SUCCESS(result.status))
        return result;
    const std::optional<std::uint64_t> data = take(buffer, result);
    if (queried && data)
        CheckSizeCovers(who, "size query answered", *queried, *data);
    if (sizePointer != nullptr && data)
        CheckSizeCovers(who, "gave back a size of", size, *data);
    return result;
}

CallResult QueryCollection(const std::string& who, ListBuffer how, bool nullOutput,
                           const std::function<NTSTATUS(PSENSOR_COLLECTION_LIST, ULONG*)>& call)
{
    return Query(
        who, how, nullOutput,
        [&](CallerBuffer* buffer, ULONG* size) { return call(buffer ? buffer->AsCollection() : nullptr, size); },
        [&](const CallerBuffer& buffer, CallResult& result) -> std::optional<std::uint64_t> {
            bool countFits = true;
            result.list = buffer.TakeCollection(who, &countFits);
            if (!countFits)
                return std::nullopt;
            return marshal::MarshalledSize(result.list->begin(), result.list->Count());
        });
}

CallResult QueryProperties(const std::string& who, ListBuffer how, bool nullOutput,
                           const std::function<NTSTATUS(PSENSOR_PROPERTY_LIST, ULONG*)>& call)
{
    return Query(
        who, how, nullOutput,
        [&](CallerBuffer* buffer, ULONG* size) { return call(buffer ? buffer->AsProperties() : nullptr, size); },
        [&](CallerBuffer& buffer, CallResult& result) -> std::optional<std::uint64_t> {
            const SENSOR_PROPERTY_LIST* list = buffer.AsProperties();
            const std::uint64_t fitting = (std::max<std::uint64_t>(buffer.Bytes(), marshal::kHeaderBytes) -
                                           marshal::kHeaderBytes) / marshal::kKeyBytes;
            ULONG count = list->Count;
            if (count > fitting) {
                ReportViolation(ViolationKind::ListCountExceedsSize,
                                who + ": Count " + std::to_string(count) + " needs " +
                                    std::to_string(marshal::KeysBytes(count)) + " bytes, the buffer has " +
                                    std::to_string(buffer.Bytes()));
                result.keys.emplace(list->List, list->List + fitting);
                return std::nullopt;
            }
            result.keys.emplace(list->List, list->List + count);
            return marshal::KeysBytes(count);
        });
}

template <class Callback>
CallResult Simple(const std::shared_ptr<DeviceState>& device, std::size_t sensor, CallOptions options,
                  Callback Config::*slot)
{
    return Invoke(device, sensor, options, slot, [](auto callback, SENSOROBJECT handle, SensorState&) {
        CallResult result;
        result.status = callback(handle);
        return result;
    });
}

}  // namespace

Subscription::Subscription(Subscription&& other) noexcept
    : device_(std::move(other.device_)), id_(std::exchange(other.id_, 0))
{
}

Subscription& Subscription::operator=(Subscription&& other) noexcept
{
    if (this != &other) {
        Cancel();
        device_ = std::move(other.device_);
        id_ = std::exchange(other.id_, 0);
    }
    return *this;
}

void Subscription::Cancel()
{
    if (id_ == 0)
        return;
    if (auto device = device_.lock())
        device->RemoveCallback(id_);
    id_ = 0;
}

Client::Client(WDFDEVICE device) : device_(DeviceStateOf(device)) {}

WDF_TRI_STATE Client::DriverIsPowerPolicyOwner() const
{
    return device_ != nullptr ? device_->Config().DriverIsPowerPolicyOwner : WdfUseDefault;
}

std::vector<SensorInfo> Client::Sensors() const
{
    std::vector<SensorInfo> sensors;
    if (device_ == nullptr)
        return sensors;
    const auto visible = device_->Visible();
    for (std::size_t i = 0; i < visible.size(); ++i)
        sensors.push_back(SensorInfo{visible[i]->Handle(), i, visible[i]->Enumeration()});
    return sensors;
}

std::size_t Client::SensorCount() const { return device_ != nullptr ? device_->Visible().size() : 0; }

SENSOROBJECT Client::SensorHandle(std::size_t sensor) const
{
    auto state = device_ != nullptr ? device_->VisibleAt(sensor) : nullptr;
    return state != nullptr ? state->Handle() : nullptr;
}

std::optional<std::size_t> Client::IndexOf(SENSOROBJECT sensor) const
{
    if (device_ == nullptr)
        return std::nullopt;
    const auto visible = device_->Visible();
    for (std::size_t i = 0; i < visible.size(); ++i) {
        if (visible[i]->Handle() == sensor)
            return i;
    }
    return std::nullopt;
}

std::shared_ptr<const Sample> Client::LastSample(std::size_t sensor) const
{
    auto state = device_ != nullptr ? device_->VisibleAt(sensor) : nullptr;
    return state != nullptr ? state->LastSample() : nullptr;
}

CallResult Client::Start(std::size_t sensor, CallOptions options)
{
    return Simple(device_, sensor, options, &Config::EvtSensorStart);
}

CallResult Client::Stop(std::size_t sensor, CallOptions options)
{
    return Simple(device_, sensor, options, &Config::EvtSensorStop);
}

CallResult Client::StartHistory(std::size_t sensor, CallOptions options)
{
    return Simple(device_, sensor, options, &Config::EvtSensorStartHistory);
}

CallResult Client::StopHistory(std::size_t sensor, CallOptions options)
{
    return Simple(device_, sensor, options, &Config::EvtSensorStopHistory);
}

CallResult Client::ClearHistory(std::size_t sensor, CallOptions options)
{
    return Simple(device_, sensor, options, &Config::EvtSensorClearHistory);
}

CallResult Client::GetSupportedDataFields(std::size_t sensor, ListBuffer buffer, CallOptions options)
{
    return Invoke(device_, sensor, options, &Config::EvtSensorGetSupportedDataFields,
                  [&](auto callback, SENSOROBJECT handle, SensorState& state) {
                      return QueryProperties(Who("EvtSensorGetSupportedDataFields", state), buffer,
                                             options.nullOutput, [&](PSENSOR_PROPERTY_LIST list, ULONG* size) {
                                                 return callback(handle, list, size);
                                             });
                  });
}

CallResult Client::GetDataFieldProperties(std::size_t sensor, const PROPERTYKEY* field, ListBuffer buffer,
                                          CallOptions options)
{
    return Invoke(device_, sensor, options, &Config::EvtSensorGetDataFieldProperties,
                  [&](auto callback, SENSOROBJECT handle, SensorState& state) {
                      std::optional<PROPERTYKEY> key;
                      if (field != nullptr)
                          key = *field;
                      return QueryCollection(Who("EvtSensorGetDataFieldProperties", state), buffer,
                                             options.nullOutput, [&](PSENSOR_COLLECTION_LIST list, ULONG* size) {
                                                 return callback(handle, key ? &*key : nullptr, list, size);
                                             });
                  });
}

CallResult Client::GetDataThresholds(std::size_t sensor, ListBuffer buffer, CallOptions options)
{
    return Invoke(device_, sensor, options, &Config::EvtSensorGetDataThresholds,
                  [&](auto callback, SENSOROBJECT handle, SensorState& state) {
                      return QueryCollection(Who("EvtSensorGetDataThresholds", state), buffer, options.nullOutput,
                                             [&](PSENSOR_COLLECTION_LIST list, ULONG* size) {
                                                 return callback(handle, list, size);
                                             });
                  });
}

CallResult Client::GetProperties(std::size_t sensor, ListBuffer buffer, CallOptions options)
{
    return Invoke(device_, sensor, options, &Config::EvtSensorGetProperties,
                  [&](auto callback, SENSOROBJECT handle, SensorState& state) {
                      return QueryCollection(Who("EvtSensorGetProperties", state), buffer, options.nullOutput,
                                             [&](PSENSOR_COLLECTION_LIST list, ULONG* size) {
                                                 return callback(handle, list, size);
                                             });
                  });
}

CallResult Client::GetDataInterval(std::size_t sensor, CallOptions options)
{
    return Invoke(device_, sensor, options, &Config::EvtSensorGetDataInterval,
                  [&](auto callback, SENSOROBJECT handle, SensorState&) {
                      CallResult result;
                      ULONG ms = 0;
                      result.status = callback(handle, options.nullOutput ? nullptr : &ms);
                      if (!options.nullOutput && NT_SUCCESS(result.status))
                          result.ms = ms;
                      return result;
                  });
}

CallResult Client::SetDataInterval(std::size_t sensor, ULONG ms, CallOptions options)
{
    return Invoke(device_, sensor, options, &Config::EvtSensorSetDataInterval,
                  [&](auto callback, SENSOROBJECT handle, SensorState&) {
                      CallResult result;
                      result.status = callback(handle, ms);
                      return result;
                  });
}

CallResult Client::SetDataThresholds(std::size_t sensor, const CollectionListCopy& thresholds, CallOptions options)
{
    return Invoke(device_, sensor, options, &Config::EvtSensorSetDataThresholds,
                  [&](auto callback, SENSOROBJECT handle, SensorState&) {
                      CallResult result;
                      // The driver may scribble on its copy; the caller's stays as it was.
                      CollectionListCopy copy(thresholds);
                      auto* list = const_cast<PSENSOR_COLLECTION_LIST>(&copy.List());
                      result.status = callback(handle, options.nullOutput ? nullptr : list);
                      return result;
                  });
}

CallResult Client::StartHistoryRetrieval(std::size_t sensor, ULONG bytes, CallOptions options)
{
    return Invoke(device_, sensor, options, &Config::EvtSensorStartHistoryRetrieval,
                  [&](auto callback, SENSOROBJECT handle, SensorState& state) {
                      CallResult result;
                      HistoryRetrievals& history = state.History();
                      std::lock_guard start(history.StartLock());
                      auto attempt = history.Begin(bytes, !options.nullOutput);
                      result.status = callback(
                          handle, attempt->buffer ? attempt->buffer->AsCollection() : nullptr, bytes);
                      if (NT_SUCCESS(result.status) && PublishesHistory(state))
                          history.Accepted(attempt);
                      else if (NT_SUCCESS(result.status))
                          history.AcceptedWithoutHistory(attempt);
                      else
                          history.Refused(attempt);
                      return result;
                  });
}

CallResult Client::CancelHistoryRetrieval(std::size_t sensor, CallOptions options)
{
    return Invoke(device_, sensor, options, &Config::EvtSensorCancelHistoryRetrieval,
                  [&](auto callback, SENSOROBJECT handle, SensorState& state) {
                      CallResult result;
                      ULONG written = 0;
                      result.status = callback(handle, options.nullOutput ? nullptr : &written);
                      if (!options.nullOutput)
                          result.bytesWritten = written;
                      state.History().CancelReturned(result.status);
                      return result;
                  });
}

std::optional<HistoryCompletion> Client::WaitHistoryRetrieval(std::size_t sensor, std::chrono::milliseconds timeout)
{
    auto state = device_ != nullptr ? device_->VisibleAt(sensor) : nullptr;
    if (state == nullptr)
        return std::nullopt;
    if (auto completion = state->History().Wait(std::chrono::milliseconds(0)))
        return completion;
    // Deterministic mode: the worker moves only now, and has completed or
    // parked when this returns; nothing else can complete it meanwhile.
    if (framework::scheduling::Scheduled()) {
        framework::RunDriverThreads();
        return state->History().Wait(std::chrono::milliseconds(0));
    }
    return state->History().Wait(timeout);
}

std::optional<HistoryCompletion> Client::TakeHistoryCompletion(std::size_t sensor)
{
    auto state = device_ != nullptr ? device_->VisibleAt(sensor) : nullptr;
    if (state == nullptr)
        return std::nullopt;
    return state->History().Wait(std::chrono::milliseconds(0));
}

Subscription Client::Subscribe(SampleCallback callback)
{
    if (device_ == nullptr)
        return Subscription();
    return Subscription(device_, device_->AddSampleCallback(std::move(callback)));
}

Subscription Client::OnSensorInitialized(SensorCallback callback)
{
    if (device_ == nullptr)
        return Subscription();
    return Subscription(device_, device_->AddSensorCallback(std::move(callback)));
}

SampleQueue::SampleQueue(Client& client) : shared_(std::make_shared<Shared>())
{
    subscription_ = client.Subscribe([shared = shared_](const Sample& sample) {
        std::lock_guard lock(shared->mutex);
        shared->samples.push_back(sample);
    });
}

std::size_t SampleQueue::Size() const
{
    std::lock_guard lock(shared_->mutex);
    return shared_->samples.size();
}

std::optional<Sample> SampleQueue::Pop()
{
    std::lock_guard lock(shared_->mutex);
    if (shared_->samples.empty())
        return std::nullopt;
    Sample sample = std::move(shared_->samples.front());
    shared_->samples.erase(shared_->samples.begin());
    return sample;
}

std::vector<Sample> SampleQueue::Drain()
{
    std::lock_guard lock(shared_->mutex);
    return std::exchange(shared_->samples, {});
}

}  // namespace host::sensorscx
