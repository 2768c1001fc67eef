// Which class discovery creates for a collection, and the creation itself.
#pragma once

#include "hid/custom_sensor_kind.h"
#include "platform/ntstatus.h"

class HidSensor;
struct SensorConstructionArgs;

enum class SensorClass {
    Placeholder,  // HidSensor: a sensor collection that is not a custom sensor
    Custom,       // CustomSensor
    Activity,
    Pedometer,
    RelativeOrientation,
    SimpleDeviceOrientation,
};

SensorClass SensorClassForKind(CustomSensorKind kind) noexcept;

class SensorFactory {
public:
    virtual ~SensorFactory() = default;

    // Creates an object of `sensorClass`. STATUS_NO_MEMORY (and no object)
    // when it or its state cannot be allocated.
    virtual NTSTATUS Create(SensorClass sensorClass, const SensorConstructionArgs& args,
                            HidSensor** sensor) const noexcept;

    // The driver's own classes.
    static const SensorFactory& Default() noexcept;
};
