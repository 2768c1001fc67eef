#include "host/sensorscx/device_state.h"

#include <algorithm>
#include <new>

namespace host::sensorscx {
namespace {

using StatePointer = std::shared_ptr<DeviceState>;

// The private context on the WDFDEVICE holds a shared_ptr, constructed in the
// zeroed context storage and destroyed by the context's destroy callback.
const WDF_OBJECT_CONTEXT_TYPE_INFO kDeviceContextType = {
    sizeof(WDF_OBJECT_CONTEXT_TYPE_INFO), "SensorsCxDeviceContext", sizeof(StatePointer), nullptr, nullptr};

// Guards the shared_ptr in the context slot against a client reading it while
// the device is torn down.
std::mutex& SlotLock()
{
    static std::mutex lock;
    return lock;
}

void DestroyDeviceContext(WDFOBJECT handle)
{
    framework::Object* object = framework::Object::FromHandle(handle);
    if (object == nullptr)
        return;
    auto* slot = static_cast<StatePointer*>(object->Context(&kDeviceContextType));
    if (slot == nullptr)
        return;
    std::lock_guard lock(SlotLock());
    if (*slot)
        (*slot)->MarkGone();
    slot->~StatePointer();
    new (slot) StatePointer();  // an empty pointer, so late readers see no state
}

}  // namespace

std::size_t DeviceState::AddVisible(std::shared_ptr<SensorState> sensor)
{
    std::lock_guard lock(mutex_);
    visible_.push_back(std::move(sensor));
    return visible_.size() - 1;
}

void DeviceState::RemoveVisible(const SensorState* sensor)
{
    std::lock_guard lock(mutex_);
    visible_.erase(std::remove_if(visible_.begin(), visible_.end(),
                                  [sensor](const std::shared_ptr<SensorState>& s) { return s.get() == sensor; }),
                   visible_.end());
}

std::vector<std::shared_ptr<SensorState>> DeviceState::Visible() const
{
    std::lock_guard lock(mutex_);
    return visible_;
}

std::shared_ptr<SensorState> DeviceState::VisibleAt(std::size_t index) const
{
    std::lock_guard lock(mutex_);
    return index < visible_.size() ? visible_[index] : nullptr;
}

std::optional<std::size_t> DeviceState::IndexOf(const SensorState* sensor) const
{
    std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < visible_.size(); ++i) {
        if (visible_[i].get() == sensor)
            return i;
    }
    return std::nullopt;
}

std::uint64_t DeviceState::AddSampleCallback(SampleCallback callback)
{
    auto shared = std::make_shared<const SampleCallback>(std::move(callback));
    std::lock_guard lock(mutex_);
    const std::uint64_t id = nextSubscriberId_++;
    sampleSubscribers_.push_back({id, std::move(shared)});
    return id;
}

std::uint64_t DeviceState::AddSensorCallback(SensorCallback callback)
{
    auto shared = std::make_shared<const SensorCallback>(std::move(callback));
    std::lock_guard lock(mutex_);
    const std::uint64_t id = nextSubscriberId_++;
    sensorSubscribers_.push_back({id, std::move(shared)});
    return id;
}

void DeviceState::RemoveCallback(std::uint64_t id)
{
    std::lock_guard lock(mutex_);
    const auto matches = [id](const auto& s) { return s.id == id; };
    sampleSubscribers_.erase(std::remove_if(sampleSubscribers_.begin(), sampleSubscribers_.end(), matches),
                             sampleSubscribers_.end());
    sensorSubscribers_.erase(std::remove_if(sensorSubscribers_.begin(), sensorSubscribers_.end(), matches),
                             sensorSubscribers_.end());
}

void DeviceState::Publish(Sample& sample, const SensorState* sensor)
{
    std::vector<std::shared_ptr<const SampleCallback>> callbacks;
    {
        std::lock_guard lock(mutex_);
        sample.sequence = nextSequence_++;
        for (std::size_t i = 0; i < visible_.size(); ++i) {
            if (visible_[i].get() == sensor)
                sample.sensorIndex = i;
        }
        callbacks.reserve(sampleSubscribers_.size());
        for (const auto& s : sampleSubscribers_)
            callbacks.push_back(s.callback);
    }
    for (const auto& callback : callbacks)
        (*callback)(sample);
}

void DeviceState::Announce(const SensorInfo& info)
{
    std::vector<std::shared_ptr<const SensorCallback>> callbacks;
    {
        std::lock_guard lock(mutex_);
        for (const auto& s : sensorSubscribers_)
            callbacks.push_back(s.callback);
    }
    for (const auto& callback : callbacks)
        (*callback)(info);
}

NTSTATUS AttachDeviceState(framework::Object* device, std::shared_ptr<DeviceState> state)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ContextTypeInfo = &kDeviceContextType;
    attributes.EvtDestroyCallback = DestroyDeviceContext;
    void* context = nullptr;
    const NTSTATUS status = device->AddContext(&attributes, &context);
    if (status == STATUS_OBJECT_NAME_EXISTS || !NT_SUCCESS(status))
        return status;
    std::lock_guard lock(SlotLock());
    new (context) StatePointer(std::move(state));
    return STATUS_SUCCESS;
}

std::shared_ptr<DeviceState> DeviceStateOf(const void* device)
{
    framework::Object* object = framework::Object::FromHandle(device);
    if (object == nullptr || object->Kind() != framework::ObjectKind::Device)
        return nullptr;
    auto* slot = static_cast<StatePointer*>(object->Context(&kDeviceContextType));
    if (slot == nullptr)
        return nullptr;
    std::lock_guard lock(SlotLock());
    return *slot;
}

}  // namespace host::sensorscx
