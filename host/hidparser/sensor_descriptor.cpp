#include "host/hidparser/sensor_descriptor.h"

#include <utility>

namespace host::hid::sensor {

ValueField Property(std::uint16_t usage, std::uint8_t bitSize, std::int64_t logicalMin, std::int64_t logicalMax,
                    int unitExponent)
{
    ValueField field;
    field.usage = usage;
    field.bitSize = bitSize;
    field.logicalMin = logicalMin;
    field.logicalMax = logicalMax;
    field.unitExponent = unitExponent;
    return field;
}

ValueField StringProperty(std::uint16_t usage, std::uint16_t chars)
{
    ValueField field = Property(usage, 16, 0, 0xFFFF);
    field.count = chars;
    return field;
}

ValueField ReportIntervalProperty(std::uint8_t bitSize, int unitExponent)
{
    const std::int64_t maximum = bitSize >= 32 ? 0xFFFFFFFFLL : (std::int64_t{1} << bitSize) - 1;
    return Property(kReportInterval, bitSize, 0, maximum, unitExponent);
}

ValueField CustomValue(int k, std::uint8_t bitSize, std::int64_t logicalMin, std::int64_t logicalMax, int unitExponent)
{
    return Property(CustomValueUsage(k), bitSize, logicalMin, logicalMax, unitExponent);
}

SelectorField ReportingStateSelector()
{
    return {kReportingState, kReportingNoEvents, 6, 8};
}
SelectorField PowerStateSelector()
{
    return {kPowerState, kPowerUndefined, 6, 8};
}
SelectorField SensorStateSelector()
{
    return {kSensorState, kSensorStateUndefined, 7, 8};
}
SelectorField SensorEventSelector()
{
    return {kSensorEvent, kSensorEventUnknown, 6, 8};
}
SelectorField ConnectionTypeSelector()
{
    return {kConnectionType, kConnectionIntegrated, 3, 8};
}

SensorShape CustomSensor(std::uint16_t descriptionChars, std::vector<ValueField> values)
{
    SensorShape sensor;
    sensor.usage = kCustomSensor;
    sensor.featureSelectors = {ReportingStateSelector(), PowerStateSelector()};
    sensor.features = {ReportIntervalProperty(), StringProperty(kDescription, descriptionChars)};
    sensor.inputSelectors = {SensorStateSelector(), SensorEventSelector()};
    sensor.inputs = std::move(values);
    return sensor;
}

namespace {

void AppendSelector(DescriptorBuilder& b, const SelectorField& selector, bool feature)
{
    b.Usage(selector.usage)
        .LogicalMinimum(0)
        .LogicalMaximum(selector.selectorCount - 1)
        .ReportSize(selector.bitSize)
        .ReportCount(1)
        .Collection(CollectionType::Logical);
    for (std::uint16_t i = 0; i < selector.selectorCount; ++i)
        b.Usage(static_cast<std::uint16_t>(selector.firstSelector + i));
    if (feature)
        b.Feature(main_item::kDataArrayAbs);
    else
        b.Input(main_item::kDataArrayAbs);
    b.EndCollection();
}

void AppendValue(DescriptorBuilder& b, const ValueField& value, bool feature)
{
    b.Usage(value.usage)
        .LogicalMinimum(value.logicalMin)
        .LogicalMaximum(value.logicalMax)
        .ReportSize(value.bitSize)
        .ReportCount(value.count)
        .UnitExponent(value.unitExponent)
        .Unit(value.unit);
    if (feature)
        b.Feature(value.flags);
    else
        b.Input(value.flags);
}

}  // namespace

void AppendSensorFields(DescriptorBuilder& builder, const SensorShape& sensor, std::uint8_t reportId)
{
    builder.UsagePage(kUsagePageSensor);
    if (reportId != 0) builder.ReportId(reportId);
    for (const SelectorField& selector : sensor.featureSelectors) AppendSelector(builder, selector, true);
    for (const ValueField& value : sensor.features) AppendValue(builder, value, true);
    for (const SelectorField& selector : sensor.inputSelectors) AppendSelector(builder, selector, false);
    for (const ValueField& value : sensor.inputs) AppendValue(builder, value, false);
}

std::vector<std::uint8_t> BuildSensorContainer(std::span<const SensorShape> sensors, std::uint8_t reportIdBase)
{
    DescriptorBuilder b;
    b.UsagePage(kUsagePageSensor).Usage(kSensorCollection).Collection(CollectionType::Application);
    for (std::size_t k = 0; k < sensors.size(); ++k) {
        b.UsagePage(kUsagePageSensor).Usage(sensors[k].usage).Collection(CollectionType::Physical);
        AppendSensorFields(b, sensors[k], static_cast<std::uint8_t>(reportIdBase + k));
        b.EndCollection();
    }
    b.EndCollection();
    return b.Build();
}

std::vector<std::uint8_t> BuildSensorContainer(std::initializer_list<SensorShape> sensors, std::uint8_t reportIdBase)
{
    return BuildSensorContainer(std::span<const SensorShape>(sensors.begin(), sensors.size()), reportIdBase);
}

std::vector<std::uint8_t> BuildSingleSensor(const SensorShape& sensor, CollectionType type)
{
    DescriptorBuilder b;
    b.UsagePage(kUsagePageSensor).Usage(sensor.usage).Collection(type);
    AppendSensorFields(b, sensor, sensor.reportId);
    b.EndCollection();
    return b.Build();
}

}  // namespace host::hid::sensor
