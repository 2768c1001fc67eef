// A SENSOROBJECT: the framework object the driver holds, and the class
// extension's state behind it, which outlives the object for clients that
// still refer to it. A process-wide table tells a live SENSOROBJECT from a
// deleted or foreign handle before anything behind the handle is touched.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "host/framework/object.h"
#include "host/sensorscx/history_retrieval.h"
#include "host/sensorscx/sample.h"
#include "platform/sensorscx.h"

namespace host::sensorscx {

class DeviceState;

class SensorState {
public:
    enum class Stage { Created, Initialized, Deleted };

    SensorState(std::weak_ptr<DeviceState> device, std::string name, PCWDF_OBJECT_CONTEXT_TYPE_INFO contextType,
                SIZE_T contextSizeOverride)
        : name_(std::move(name)), device_(std::move(device)), contextType_(contextType),
          contextSizeOverride_(contextSizeOverride), history_(name_)
    {
    }

    const std::string& Name() const { return name_; }
    SENSOROBJECT Handle() const { return handle_.load(std::memory_order_acquire); }
    void SetHandle(SENSOROBJECT handle) { handle_.store(handle, std::memory_order_release); }
    std::shared_ptr<DeviceState> Device() const { return device_.lock(); }

    Stage GetStage() const { return stage_.load(std::memory_order_acquire); }
    // Created -> Initialized with its enumeration list; false when not Created.
    bool Initialize(CollectionListCopy enumeration);
    void MarkDeleted() { stage_.store(Stage::Deleted, std::memory_order_release); }

    CollectionListCopy Enumeration() const;
    void SetLastSample(std::shared_ptr<const Sample> sample);
    std::shared_ptr<const Sample> LastSample() const;

    // The context type the driver asked for at creation, for the impostor handle.
    PCWDF_OBJECT_CONTEXT_TYPE_INFO ContextType() const { return contextType_; }
    SIZE_T ContextSizeOverride() const { return contextSizeOverride_; }

    HistoryRetrievals& History() { return history_; }

private:
    const std::string name_;
    const std::weak_ptr<DeviceState> device_;
    const PCWDF_OBJECT_CONTEXT_TYPE_INFO contextType_;
    const SIZE_T contextSizeOverride_;
    std::atomic<SENSOROBJECT> handle_{nullptr};
    std::atomic<Stage> stage_{Stage::Created};
    mutable std::mutex mutex_;
    CollectionListCopy enumeration_;
    std::shared_ptr<const Sample> lastSample_;
    HistoryRetrievals history_;
};

class SensorObject final : public framework::Object {
public:
    static constexpr framework::ObjectKind kKind = framework::ObjectKind::Sensor;

    // A null state makes a bare SENSOROBJECT that no table knows (the impostor).
    explicit SensorObject(std::shared_ptr<SensorState> state)
        : Object(framework::ObjectKind::Sensor), state_(std::move(state))
    {
    }

protected:
    void OnDeleting() override;

private:
    std::shared_ptr<SensorState> state_;
};

// The table of live SENSOROBJECTs.
void RegisterSensor(SENSOROBJECT handle, std::shared_ptr<SensorState> state);
// The state behind a live SENSOROBJECT, or null; *deleted tells whether the
// handle belonged to a sensor that has been deleted since.
std::shared_ptr<SensorState> FindSensor(SENSOROBJECT handle, bool* deleted);

// A SENSOROBJECT that is not `real`'s but carries a byte copy of its driver
// context (the type given to SensorsCxSensorCreate), so the driver's dispatch
// reaches the same sensor object with a handle that is not its own: this is
// how a client exercises the driver's handle check. Not registered, never
// visible; deleted with this object.
class ImpostorSensor {
public:
    explicit ImpostorSensor(const SensorState& real);
    ImpostorSensor(const ImpostorSensor&) = delete;
    ImpostorSensor& operator=(const ImpostorSensor&) = delete;
    ~ImpostorSensor();

    // Null when it could not be created (out of memory).
    SENSOROBJECT Handle() const
    {
        return object_ != nullptr ? static_cast<SENSOROBJECT>(object_->Handle()) : nullptr;
    }

private:
    SensorObject* object_ = nullptr;
};

}  // namespace host::sensorscx
