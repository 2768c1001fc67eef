#include "tests/driver/driver_test_bed.h"

#include <gtest/gtest.h>

#include "host/common/fault_injection.h"
#include "tracing/trace_provider.h"

namespace testdriver {

void PutLittleEndian(Bytes& bytes, std::uint32_t value, int width)
{
    for (int i = 0; i < width; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

std::uint32_t GetLittleEndian(const Bytes& bytes, std::size_t offset, int width)
{
    std::uint32_t value = 0;
    for (int i = 0; i < width; ++i)
        value |= std::uint32_t{bytes.at(offset + i)} << (8 * i);
    return value;
}

Bytes FeatureReport(std::uint8_t reportId, std::uint32_t intervalMs, const std::vector<std::u16string>& strings,
                    std::uint16_t chars, std::uint8_t reportingSelector, std::uint8_t powerSelector)
{
    Bytes report = {reportId, reportingSelector, powerSelector};
    PutLittleEndian(report, intervalMs, 4);
    for (std::u16string text : strings) {
        text.resize(chars, u'\0');
        for (char16_t c : text)
            PutLittleEndian(report, c, 2);
    }
    return report;
}

hs::SensorShape Accelerometer(int axes)
{
    hs::SensorShape accel;
    accel.usage = hs::kAccelerometer3D;
    for (int i = 0; i < axes; ++i)
        accel.inputs.push_back(hs::Property(static_cast<std::uint16_t>(0x453 + i), 16, -32767, 32767));
    return accel;
}

hs::SensorShape Custom(int values)
{
    std::vector<hs::ValueField> fields;
    for (int i = 1; i <= values; ++i)
        fields.push_back(hs::CustomValue(static_cast<std::uint8_t>(i)));
    return hs::CustomSensor(16, fields);
}

HidDeviceConfig AccelerometerActivityPedometer()
{
    hs::SensorShape accel = Accelerometer(2);
    accel.features = {hs::ReportIntervalProperty()};
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({accel, Custom(), Custom()}))
        .WithSerialNumber(u"SN-7")
        .WithManufacturer(u"Contoso")
        .WithProduct(u"Hub")
        .WithFeature(2, FeatureReport(2, 100, {u"0x232"}))
        .WithFeature(3, FeatureReport(3, 100, {u"0x230"}));
}

std::vector<int> FeatureIds(const std::vector<host::hidsim::TrafficEvent>& traffic)
{
    std::vector<int> ids;
    for (const auto& event : traffic)
        if (event.kind == TrafficKind::GetFeature)
            ids.push_back(event.reportId.value_or(-1));
    return ids;
}

DriverTestBed::DriverTestBed(const host::hidsim::HidDeviceConfig& config, const SensorFactory* factory,
                             host::framework::ClockMode mode)
{
    host::FaultInjector::Instance().Reset();
    RoutingLog::Instance().Clear();
    Module() = ModuleState{};
    Module().factory = factory;
    host::hidsim::DeviceError error;
    sim_ = host::hidsim::SimulatedHidDevice::Create(config, error);
    EXPECT_NE(sim_, nullptr) << error.message;
    if (sim_ != nullptr)
        shim_ = std::make_unique<EndpointShim>(sim_->DriverEndpoint());
    sink_ = std::make_shared<host::tracing::MemoryTraceSink>();
    host_ = std::make_unique<host::framework::DriverHost>(mode, FILETIME{0, 0x01DA0000});
    session_ = std::make_unique<host::tracing::TraceSession>(sink_);
    session_->Enable(kTraceControlGuid, kTraceLevelVerbose, 0x3D);
}

DriverTestBed::~DriverTestBed()
{
    if (added_ && !unloaded_) {
        EXPECT_EQ(UnloadAndCollectLeaks(), "");
    }
    session_.reset();
    host_.reset();
    host::FaultInjector::Instance().Reset();
}

NTSTATUS DriverTestBed::Load()
{
    if (added_)
        return STATUS_SUCCESS;
    NTSTATUS status = host_->LoadDriver(FxDriverEntryUm);
    if (NT_SUCCESS(status))
        status = host_->AddDevice(*shim_);
    added_ = NT_SUCCESS(status);
    return status;
}

std::string DriverTestBed::UnloadAndCollectLeaks()
{
    unloaded_ = true;
    host_->Unload();
    std::string leaks = host_->Leaks();
    for (const std::string& violation : host_->Violations())
        leaks += " violation: " + violation;
    return leaks;
}

std::uint64_t CallsDuringPrepare(const HidDeviceConfig& config, const SensorFactory* factory, host::FaultPoint point)
{
    DriverTestBed bed(config, factory);
    EXPECT_EQ(bed.Load(), STATUS_SUCCESS);
    host::FaultInjector::Instance().FailNth(point, 0, 0);  // counts without failing
    EXPECT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
    return host::FaultInjector::Instance().Calls(point);
}

std::set<host::FaultPoint> SweepEveryDriverCall(const std::function<std::unique_ptr<DriverTestBed>()>& makeBed,
                                                const std::function<void(DriverTestBed&)>& cycle)
{
    std::uint64_t total = 0;
    {
        auto bed = makeBed();
        cycle(*bed);
        EXPECT_EQ(bed->UnloadAndCollectLeaks(), "");
        total = host::FaultInjector::Instance().TotalCalls();
    }
    EXPECT_GT(total, 20u);
    std::set<host::FaultPoint> failed;
    for (std::uint64_t n = 1; n <= total; ++n) {
        auto bed = makeBed();
        host::FaultInjector::Instance().FailNthCall(n, STATUS_INSUFFICIENT_RESOURCES);
        cycle(*bed);
        const auto point = host::FaultInjector::Instance().LastInjected();
        if (!point.has_value()) {
            ADD_FAILURE() << "call " << n << " of " << total << " never came";
            break;
        }
        failed.insert(*point);
        EXPECT_EQ(bed->UnloadAndCollectLeaks(), "") << "call " << n << ": " << host::FaultPointName(*point);
    }
    return failed;
}

}  // namespace testdriver
