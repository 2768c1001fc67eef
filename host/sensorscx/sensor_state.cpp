#include "host/sensorscx/sensor_state.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "host/common/host_state.h"
#include "host/sensorscx/device_state.h"

namespace host::sensorscx {
namespace {

struct SensorTable {
    std::mutex mutex;
    std::unordered_map<const void*, std::shared_ptr<SensorState>> live;
    // Handles of deleted sensors, for a precise message; forgotten past a bound.
    std::unordered_set<const void*> deleted;
};

constexpr std::size_t kMaxRemembered = 4096;

SensorTable& Table()
{
    static SensorTable table;
    static const bool registered = (host::RegisterHostStateReset([] {
                                        SensorTable& t = Table();
                                        std::lock_guard lock(t.mutex);
                                        t.live.clear();
                                        t.deleted.clear();
                                    }),
                                    true);
    (void)registered;
    return table;
}

}  // namespace

bool SensorState::Initialize(CollectionListCopy enumeration)
{
    std::lock_guard lock(mutex_);
    Stage expected = Stage::Created;
    if (!stage_.compare_exchange_strong(expected, Stage::Initialized, std::memory_order_acq_rel))
        return false;
    enumeration_ = std::move(enumeration);
    return true;
}

CollectionListCopy SensorState::Enumeration() const
{
    std::lock_guard lock(mutex_);
    return enumeration_;
}

void SensorState::SetLastSample(std::shared_ptr<const Sample> sample)
{
    std::lock_guard lock(mutex_);
    lastSample_.swap(sample);
}

std::shared_ptr<const Sample> SensorState::LastSample() const
{
    std::lock_guard lock(mutex_);
    return lastSample_;
}

void SensorObject::OnDeleting()
{
    if (state_ == nullptr)
        return;
    state_->MarkDeleted();
    {
        SensorTable& table = Table();
        std::lock_guard lock(table.mutex);
        table.live.erase(Handle());
        if (table.deleted.size() >= kMaxRemembered)
            table.deleted.clear();
        table.deleted.insert(Handle());
    }
    if (auto device = state_->Device())
        device->RemoveVisible(state_.get());
    state_->History().Close();
}

void RegisterSensor(SENSOROBJECT handle, std::shared_ptr<SensorState> state)
{
    SensorTable& table = Table();
    std::lock_guard lock(table.mutex);
    table.deleted.erase(handle);  // a new object at a reused address
    table.live[handle] = std::move(state);
}

std::shared_ptr<SensorState> FindSensor(SENSOROBJECT handle, bool* deleted)
{
    SensorTable& table = Table();
    std::lock_guard lock(table.mutex);
    auto it = table.live.find(handle);
    if (deleted != nullptr)
        *deleted = it == table.live.end() && table.deleted.count(handle) != 0;
    return it == table.live.end() ? nullptr : it->second;
}

ImpostorSensor::ImpostorSensor(const SensorState& real)
{
    framework::Object* realObject = framework::Object::FromHandle(real.Handle());
    PCWDF_OBJECT_CONTEXT_TYPE_INFO type = real.ContextType();
    void* realContext = realObject != nullptr && type != nullptr ? realObject->Context(type) : nullptr;

    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    if (realContext != nullptr) {
        attributes.ContextTypeInfo = type;
        attributes.ContextSizeOverride = real.ContextSizeOverride();
    }
    if (!NT_SUCCESS(framework::Object::Create(nullptr, &attributes, &object_, nullptr))) {
        object_ = nullptr;
        return;
    }
    if (realContext != nullptr) {
        const SIZE_T size = std::max(real.ContextSizeOverride(), type->ContextSize);
        std::memcpy(object_->Context(type), realContext, size);
    }
}

ImpostorSensor::~ImpostorSensor() { framework::Object::Delete(object_); }

}  // namespace host::sensorscx
