#include "tools/hidsensor/demo_device.h"

#include "host/hidparser/sensor_descriptor.h"

namespace hidsensor {

using namespace host::hid::sensor;

std::vector<std::uint8_t> DemoDescriptor()
{
    constexpr std::uint16_t kDescriptionChars = 32;

    // Activity: seven 16-bit activity words (state and confidence per activity).
    std::vector<ValueField> activityWords;
    for (int k = 1; k <= 7; ++k)
        activityWords.push_back(CustomValue(k, 16, 0, 0xFFFF));

    // Pedometer: step counts and durations per step type.
    std::vector<ValueField> pedometerValues;
    for (int k = 1; k <= 6; ++k)
        pedometerValues.push_back(CustomValue(k, 32, 0, 0x7FFFFFFF, k % 2 == 0 ? -3 : 0));

    const SensorSpec activity = CustomSensor(kDescriptionChars, activityWords);
    const SensorSpec pedometer = CustomSensor(kDescriptionChars, pedometerValues);
    const SensorSpec gestureTap = CustomSensor(kDescriptionChars, {CustomValue(1, 8, 0, 1)});
    return BuildSensorContainer({activity, pedometer, gestureTap});
}

}  // namespace hidsensor
