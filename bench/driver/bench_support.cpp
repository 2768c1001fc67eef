#include "bench/driver/bench_support.h"

#include "host/common/fault_injection.h"
#include "tests/driver/test_driver_module.h"

namespace {
constexpr host::FaultPoint kAllocationPoints[] = {host::FaultPoint::DriverHeap, host::FaultPoint::CoTaskMem,
                                                  host::FaultPoint::FrameworkMemory};
constexpr std::size_t kDescriptionChars = 16;
}  // namespace

LoadedDriver::LoadedDriver(const host::hidsim::HidDeviceConfig& config,
                           const std::function<void(host::framework::DriverHost&)>& beforeLoad)
{
    host::hidsim::DeviceError error;
    sim = host::hidsim::SimulatedHidDevice::Create(config, error);
    if (sim == nullptr)
        return;
    host = std::make_unique<host::framework::DriverHost>(host::framework::ClockMode::Deterministic,
                                                         FILETIME{0, 0x01DA0000});
    if (beforeLoad)
        beforeLoad(*host);
    if (!NT_SUCCESS(host->LoadDriver(FxDriverEntryUm)) || !NT_SUCCESS(host->AddDevice(sim->DriverEndpoint())) ||
        !NT_SUCCESS(host->PrepareHardware()))
        return;
    hid = testdriver::HidDeviceOf(host->Device());
}

LoadedDriver::~LoadedDriver()
{
    if (host != nullptr)
        host->Unload();
}

void StartCountingDriverAllocations()
{
    for (host::FaultPoint point : kAllocationPoints)
        host::FaultInjector::Instance().FailNth(point, 0, 0);  // restarts the call count
}

std::uint64_t DriverAllocations()
{
    std::uint64_t calls = 0;
    for (host::FaultPoint point : kAllocationPoints)
        calls += host::FaultInjector::Instance().Calls(point);
    return calls;
}

std::vector<std::uint8_t> DescriptionFeatureReport(std::uint8_t id, std::u16string_view description)
{
    std::vector<std::uint8_t> report = {id, 1, 1, 100, 0, 0, 0};
    for (std::size_t i = 0; i < kDescriptionChars; ++i) {
        const char16_t c = i < description.size() ? description[i] : u'\0';
        report.push_back(static_cast<std::uint8_t>(c & 0xFF));
        report.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    return report;
}
