// Cost of the framework's hot paths on the deterministic host: one read round
// trip (device completes → completion routine → re-arm) and WdfMemoryCreate
// followed by WdfObjectDelete.
#include <benchmark/benchmark.h>

#include <array>
#include <vector>

#include "host/framework/driver_host.h"

namespace {

using host::framework::ClockMode;
using host::framework::DriverHost;

// Holds one read and completes it when fed, like the HID class driver.
class LoopbackEndpoint final : public host::HidCollectionEndpoint {
public:
    IoctlResult DeviceControl(ULONG, const BYTE*, ULONG, BYTE*, ULONG) override { return {}; }
    void SubmitRead(ReadCompletion* read, ULONG) override { pending_ = read; }
    bool CancelRead(ReadCompletion* read) override
    {
        if (pending_ != read)
            return false;
        pending_ = nullptr;
        read->Complete(STATUS_CANCELLED, nullptr, 0);
        return true;
    }
    void Feed(const BYTE* data, ULONG length)
    {
        ReadCompletion* read = pending_;
        pending_ = nullptr;
        if (read != nullptr)
            read->Complete(STATUS_SUCCESS, data, length);
    }

private:
    ReadCompletion* pending_ = nullptr;
};

NTSTATUS DeviceAdd(WDFDRIVER, PWDFDEVICE_INIT init)
{
    WDFDEVICE device = nullptr;
    return WdfDeviceCreate(&init, nullptr, &device);
}

NTSTATUS Entry(void*, void*, PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath)
{
    WDF_DRIVER_CONFIG config{sizeof(config), DeviceAdd, nullptr, 0, 0};
    return WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr);
}

struct Reader {
    WDFIOTARGET target = nullptr;
    std::array<BYTE, 4096> buffer{};
    std::int64_t reads = 0;
};

void Submit(Reader& reader);

void OnRead(WDFREQUEST request, WDFIOTARGET, PWDF_REQUEST_COMPLETION_PARAMS, WDFCONTEXT context)
{
    auto& reader = *static_cast<Reader*>(context);
    ++reader.reads;
    WdfObjectDelete(request);
    Submit(reader);
}

// As the driver's reader: a new request and preallocated memory per read.
void Submit(Reader& reader)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = reader.target;
    WDFREQUEST request = nullptr;
    WdfRequestCreate(&attributes, reader.target, &request);
    attributes.ParentObject = request;
    WDFMEMORY memory = nullptr;
    WdfMemoryCreatePreallocated(&attributes, reader.buffer.data(), reader.buffer.size(), &memory);
    WdfIoTargetFormatRequestForRead(reader.target, request, memory, nullptr, nullptr);
    WdfRequestSetCompletionRoutine(request, OnRead, &reader);
    WdfRequestSend(request, reader.target, nullptr);
}

struct Host {
    LoopbackEndpoint endpoint;
    DriverHost host{ClockMode::Deterministic, FILETIME{0, 0x01DA3C00}};

    Host()
    {
        host.LoadDriver(Entry);
        host.AddDevice(endpoint);
    }
};

void BM_ReadRoundTrip(benchmark::State& state)
{
    Host setup;
    Reader reader;
    WdfIoTargetCreate(setup.host.Device(), nullptr, &reader.target);
    WDF_IO_TARGET_OPEN_PARAMS open{};
    open.Size = sizeof(open);
    open.Type = WdfIoTargetOpenLocalTargetByFile;
    WdfIoTargetOpen(reader.target, &open);
    Submit(reader);
    const std::vector<BYTE> report(static_cast<size_t>(state.range(0)), 0x5A);
    for (auto _ : state) {
        setup.endpoint.Feed(report.data(), static_cast<ULONG>(report.size()));
        setup.host.RunPending();
    }
    state.SetItemsProcessed(reader.reads);
    setup.host.Unload();
    if (!setup.host.Leaks().empty())
        state.SkipWithError("leak after unload");
}
BENCHMARK(BM_ReadRoundTrip)->Arg(16)->Arg(4096);

void BM_MemoryCreateDelete(benchmark::State& state)
{
    Host setup;
    const auto size = static_cast<SIZE_T>(state.range(0));
    for (auto _ : state) {
        WDFMEMORY memory = nullptr;
        void* buffer = nullptr;
        WdfMemoryCreate(nullptr, PagedPool, 0, size, &memory, &buffer);
        benchmark::DoNotOptimize(buffer);
        WdfObjectDelete(memory);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_MemoryCreateDelete)->Arg(64)->Arg(4096);

}  // namespace

BENCHMARK_MAIN();
