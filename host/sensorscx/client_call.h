// How every Client call reaches the driver: find the sensor, pick its handle
// (or an impostor's) and the callback, and turn allocation failures into a
// status. Shared by the client's source files.
#pragma once

#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "host/common/fault_injection.h"
#include "host/sensorscx/client.h"
#include "host/sensorscx/device_state.h"
#include "host/sensorscx/sensor_state.h"

namespace host::sensorscx::detail {

// Calls body(callback, handle, sensorState) -> CallResult for the sensor at
// `index`, or gives the status that says why it cannot.
// The driver's callback, called as driver code (its platform calls count for
// fault injection) from inside the client, which is host code.
template <class Callback>
struct DriverCallback {
    Callback callback;
    template <class... Args>
    auto operator()(Args&&... args) const
    {
        DriverCodeScope driverCode;
        return callback(std::forward<Args>(args)...);
    }
};

// Everything the client does on its own is host code: its platform calls
// (requests, task memory) never count as the driver's.
template <class Callback, class Body>
CallResult Invoke(const std::shared_ptr<DeviceState>& device, std::size_t index, const CallOptions& options,
                  Callback SENSOR_CONTROLLER_CONFIG::*slot, Body body)
{
    HostCodeScope hostCode;
    CallResult result;
    std::shared_ptr<SensorState> sensor = device != nullptr ? device->VisibleAt(index) : nullptr;
    if (sensor == nullptr) {
        result.status = kNoSuchSensor;
        return result;
    }
    Callback callback = device->Config().*slot;
    if (callback == nullptr) {
        result.status = STATUS_NOT_IMPLEMENTED;
        return result;
    }
    try {
        std::optional<ImpostorSensor> impostor;
        SENSOROBJECT handle = sensor->Handle();
        if (options.otherHandle) {
            impostor.emplace(*sensor);
            handle = impostor->Handle();
            if (handle == nullptr) {
                result.status = STATUS_INSUFFICIENT_RESOURCES;
                return result;
            }
        }
        return body(DriverCallback<Callback>{callback}, handle, *sensor);
    } catch (const std::bad_alloc&) {
        result.status = STATUS_INSUFFICIENT_RESOURCES;
        return result;
    }
}

}  // namespace host::sensorscx::detail
