#include "tests/feature/feature_test_bed.h"

#include "host/hidsim/traffic_log.h"

namespace featuretest {

namespace {
// A custom sensor whose Initialize goes through whatever ReadFeatureReport
// says, so that reports which make it fail can be examined afterwards.
class TolerantCustomSensor final : public CustomSensor {
public:
    using CustomSensor::CustomSensor;
    NTSTATUS ReadFeatureReport(ULONG writeSettings) override
    {
        const NTSTATUS status = CustomSensor::ReadFeatureReport(writeSettings);
        return Record()->CapabilitiesRead == 1 ? status : STATUS_SUCCESS;
    }
};

class TolerantFactory final : public SensorFactory {
public:
    NTSTATUS Create(SensorClass sensorClass, const SensorConstructionArgs& args,
                    HidSensor** sensor) const noexcept override
    {
        if (sensorClass == SensorClass::Custom)
            return CreateSensorObject<TolerantCustomSensor>(args, sensor);
        return SensorFactory::Default().Create(sensorClass, args, sensor);
    }
};
const TolerantFactory kTolerantFactory;
}  // namespace

ReportBytes& ReportBytes::Put(std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    return *this;
}

ReportBytes& ReportBytes::Text(std::u16string text, std::size_t chars)
{
    text.resize(chars, u'\0');
    for (char16_t c : text)
        U16(c);
    return *this;
}

hs::ValueField WithUnit(hs::ValueField field, std::uint32_t unit)
{
    field.unit = unit;
    return field;
}

std::vector<std::string> FeatureTraffic(const std::vector<host::hidsim::TrafficEvent>& traffic)
{
    std::vector<std::string> lines;
    for (const auto& event : traffic) {
        if (event.kind != host::hidsim::TrafficKind::GetFeature && event.kind != host::hidsim::TrafficKind::SetFeature)
            continue;
        std::string line = event.kind == host::hidsim::TrafficKind::SetFeature ? "set " : "get ";
        line += host::hidsim::FormatHexBytes(event.bytes);
        if (event.status < 0)
            line += " ! " + host::hidsim::FormatStatus(event.status);
        lines.push_back(line);
    }
    return lines;
}

FeatureBed::FeatureBed(const HidDeviceConfig& config, ULONG index)
    : bed_(std::make_unique<testdriver::DriverTestBed>(config, &kTolerantFactory))
{
    EXPECT_EQ(bed_->Prepare(), STATUS_SUCCESS);
    sensor_ = dynamic_cast<CustomSensor*>(bed_->Sensor(index));
    EXPECT_NE(sensor_, nullptr);
    if (sensor_ != nullptr) {
        // Until registration exists Initialize stops there; the capabilities stay.
        Record().CapabilitiesRead = 1;
        // Initialize may have met input data fields; each test says which it has.
        for (auto& seen : Cache().dataFieldSeen)
            seen.store(0);
    }
    bed_->Sim().ClearTraffic();
}

FeatureBed::FeatureBed(hs::SensorShape shape, const Bytes& report)
    : FeatureBed([&] {
          shape.reportId = 1;
          return HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(shape)).WithFeature(1, report);
      }())
{
}

void FeatureBed::Rules(std::vector<DeviceRule> rules)
{
    std::string error;
    EXPECT_TRUE(bed_->Sim().SetRules(std::move(rules), error)) << error;
}

void FeatureBed::SeeField(ULONG k, float threshold)
{
    Cache().dataFieldSeen[k].store(1);
    Record().DataThresholds[k + 2].store(threshold);
}

std::vector<std::string> FeatureBed::Read(ULONG writeSettings, NTSTATUS* status)
{
    bed_->Sim().ClearTraffic();
    const NTSTATUS result = sensor_->ReadFeatureReport(writeSettings);
    if (status != nullptr)
        *status = result;
    return FeatureTraffic(bed_->Traffic());
}

}  // namespace featuretest
