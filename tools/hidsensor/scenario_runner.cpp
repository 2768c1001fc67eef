#include "tools/hidsensor/scenario_runner.h"

#include <chrono>
#include <mutex>
#include <vector>

#include "host/framework/clock.h"
#include "host/framework/driver_host.h"
#include "host/framework/violations.h"
#include "host/hidsim/simulated_hid_device.h"
#include "host/hidsim/traffic_log.h"
#include "host/sensorscx/client.h"
#include "host/sensorscx/guid.h"
#include "host/sensorscx/list_format.h"
#include "tracing/trace_provider.h"

extern "C" NTSTATUS FxDriverEntryUm(void* LoaderInterface, void* Context, PDRIVER_OBJECT DriverObject,
                                    PUNICODE_STRING RegistryPath);

namespace hidsensor {
namespace {

namespace sx = host::sensorscx;
using host::framework::DriverHost;

std::string Quote(const std::string& text)
{
    return sx::JsonQuote(std::string_view(text));
}

// A JSON string of text that needs no escaping (hex digits and spaces).
std::string Quoted(const std::string& text)
{
    std::string json;
    json.reserve(text.size() + 2);
    json += '"';
    json += text;
    json += '"';
    return json;
}

std::string Status(NTSTATUS status)
{
    return Quoted(sx::FormatStatus(status));
}

std::vector<std::string> ListLines(const sx::CollectionListCopy& list)
{
    std::vector<std::string> lines;
    for (const SENSOR_VALUE_PAIR& entry : list)
        lines.push_back(sx::EntryText(entry.Key, entry.Value));
    return lines;
}

// The owned storage behind the variants of a SetDataThresholds list.
sx::CollectionListCopy BuildList(const std::vector<ScenarioValue>& values)
{
    std::vector<SENSOR_VALUE_PAIR> entries(values.size());
    std::vector<GUID> guids(values.size());
    std::vector<std::u16string> texts(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        const ScenarioValue& value = values[i];
        SENSOR_VALUE_PAIR& entry = entries[i];
        entry.Key = value.key;
        entry.Value = PROPVARIANT{};
        entry.Value.vt = value.vt;
        switch (value.vt) {
        case VT_BOOL:
            entry.Value.boolVal = static_cast<VARIANT_BOOL>(value.integer);
            break;
        case VT_UI2:
            entry.Value.uiVal = static_cast<USHORT>(value.unsignedInteger);
            break;
        case VT_UI4:
            entry.Value.ulVal = static_cast<ULONG>(value.unsignedInteger);
            break;
        case VT_I8:
            entry.Value.hVal = value.integer;
            break;
        case VT_UI8:
            entry.Value.uhVal = value.unsignedInteger;
            break;
        case VT_FILETIME:
            entry.Value.filetime.dwLowDateTime = static_cast<DWORD>(value.unsignedInteger & 0xFFFFFFFF);
            entry.Value.filetime.dwHighDateTime = static_cast<DWORD>(value.unsignedInteger >> 32);
            break;
        case VT_R4:
            entry.Value.fltVal = static_cast<float>(value.real);
            break;
        case VT_R8:
            entry.Value.dblVal = value.real;
            break;
        case VT_CLSID:
            guids[i] = value.guid;
            entry.Value.puuid = &guids[i];
            break;
        case VT_LPWSTR:
            texts[i] = value.text;
            entry.Value.pwszVal = texts[i].data();
            break;
        default:
            break;
        }
    }
    return sx::CollectionListCopy::FromEntries(entries.data(), static_cast<ULONG>(entries.size()));
}

class Run {
public:
    Run(const Scenario& scenario, EventPrinter& printer, const RunOptions& options)
        : scenario_(scenario), printer_(printer), options_(options)
    {
    }

    int Play(std::string& error)
    {
        host::hidsim::DeviceError deviceError;
        sim_ = host::hidsim::SimulatedHidDevice::Create(scenario_.device, deviceError);
        if (sim_ == nullptr) {
            error = deviceError.descriptorOffset ? "device.descriptor: " : "device: ";
            error += deviceError.message;
            return 2;
        }

        // Creating the host resets every piece of process-wide host state
        // (GUID sequence, violations, fault arms); seed and arm after it.
        host_ = std::make_unique<DriverHost>(host::framework::ClockMode::Deterministic, scenario_.clock);
        host::com::SeedGuidGenerator(scenario_.seed);
        startTicks_ = host::framework::FileTimeToTicks(scenario_.clock);
        violationSubscription_ = host::framework::SubscribeViolations(
            [this](const host::framework::ViolationRecord& violation) { PrintViolation(violation.what); });
        if (options_.beforeDriverEntry)
            options_.beforeDriverEntry();
        for (const RegistryValue& value : scenario_.registry)
            host_->Registry().Preload(value.subkey, value.name, value.data);
        if (scenario_.traffic)
            sim_->SetTrafficListener([this](const host::hidsim::TrafficEvent& event) { OnTraffic(event); });
        if (options_.traceFromStart)
            SetTracing(options_.traceFromStart->first, options_.traceFromStart->second);

        LoadDriver();
        if (scenario_.start) {
            Pnp("DeviceAdd");
            Pnp("PrepareHardware");
            Pnp("D0Entry");
        }
        for (const ScenarioStep& step : scenario_.steps) {
            std::visit([this](const auto& s) { Step(s); }, step);
            AfterStep();
        }

        // The end of the run is the end of the driver: what it leaves behind
        // is a broken contract too.
        host_->Unload();
        const std::string leaks = host_->Leaks();
        if (!leaks.empty())
            PrintViolation("left behind after unload: " + leaks);
        if (options_.afterUnload)
            options_.afterUnload();

        violationSubscription_.Cancel();
        sim_->SetTrafficListener({});
        clientSubscriptions_.clear();
        client_.reset();
        session_.reset();
        host_.reset();
        return violations_ > 0 ? 1 : 0;
    }

private:
    std::uint64_t Now() const
    {
        const LONGLONG now = host::framework::FileTimeToTicks(host_->Now());
        return static_cast<std::uint64_t>((now - startTicks_) / host::framework::kTicksPerMillisecond);
    }

    Event Make(std::string name) const
    {
        Event event;
        event.name = std::move(name);
        event.t = Now();
        return event;
    }

    void PrintViolation(const std::string& what)
    {
        {
            std::lock_guard lock(mutex_);
            ++violations_;
        }
        printer_.Print(Make("violation").Add("what", Quote(what)));
    }

    void OnTraffic(const host::hidsim::TrafficEvent& traffic)
    {
        if (traffic.kind != host::hidsim::TrafficKind::GetFeature &&
            traffic.kind != host::hidsim::TrafficKind::SetFeature)
            return;
        Event event = Make(host::hidsim::TrafficKindName(traffic.kind));
        event.Add("reportId", std::to_string(traffic.reportId.value_or(0)));
        event.Add("bytes", Quoted(host::hidsim::FormatHexBytes(traffic.bytes)));
        event.Add("status", Status(traffic.status));
        printer_.Print(event);
    }

    // ---- sensors, by the order they were initialized ----

    std::optional<std::size_t> PublishedIndex(SENSOROBJECT handle)
    {
        std::lock_guard lock(mutex_);
        for (std::size_t i = published_.size(); i-- > 0;) {
            if (published_[i] == handle)
                return i;
        }
        return std::nullopt;
    }

    // The client's index of published sensor `index`; past the end when it is
    // gone, so that the client answers that there is no such sensor.
    std::size_t ClientIndex(std::size_t index)
    {
        SENSOROBJECT handle = nullptr;
        {
            std::lock_guard lock(mutex_);
            if (index < published_.size())
                handle = published_[index];
        }
        if (handle == nullptr || client_ == nullptr)
            return SIZE_MAX;
        return client_->IndexOf(handle).value_or(SIZE_MAX);
    }

    void BindClient()
    {
        clientSubscriptions_.clear();
        client_ = std::make_unique<sx::Client>(host_->Device());
        clientSubscriptions_.push_back(client_->OnSensorInitialized([this](const sx::SensorInfo& info) {
            std::size_t index = 0;
            {
                std::lock_guard lock(mutex_);
                // A handle the framework hands out again no longer names the old sensor.
                for (SENSOROBJECT& old : published_) {
                    if (old == info.handle)
                        old = nullptr;
                }
                index = published_.size();
                published_.push_back(info.handle);
            }
            Event event = Make("sensor");
            event.Add("sensor", std::to_string(index));
            event.Add("enumeration", sx::CollectionListJson(info.enumeration));
            event.details = ListLines(info.enumeration);
            event.list = info.enumeration;
            printer_.Print(event);
        }));
        clientSubscriptions_.push_back(client_->Subscribe([this](const sx::Sample& sample) {
            const std::optional<std::size_t> index = PublishedIndex(sample.sensor);
            Event event = Make("sample");
            event.Add("sensor", index ? std::to_string(*index) : std::string("null"));
            event.Add("values", sx::CollectionListJson(sample.values));
            event.details = ListLines(sample.values);
            event.list = sample.values;
            printer_.Print(event);
        }));
    }

    void LoadDriver()
    {
        const NTSTATUS status = host_->LoadDriver(FxDriverEntryUm);
        printer_.Print(Make("pnp").Add("callback", "\"DriverEntry\"").Add("status", Status(status)));
    }

    void Pnp(const std::string& name)
    {
        NTSTATUS status = STATUS_SUCCESS;
        if (name == "DeviceAdd") {
            if (!host_->Loaded())
                LoadDriver();
            status = host_->AddDevice(sim_->DriverEndpoint());
            if (NT_SUCCESS(status))
                BindClient();
        } else if (name == "PrepareHardware") {
            status = host_->PrepareHardware();
        } else if (name == "D0Entry") {
            status = host_->D0Entry();
        } else if (name == "D0Exit") {
            status = host_->D0Exit();
        } else if (name == "ReleaseHardware") {
            status = host_->ReleaseHardware();
        } else if (name == "Unload") {
            host_->Unload();
            // The device is gone; a later DeviceAdd binds a new client.
            clientSubscriptions_.clear();
            client_.reset();
        }
        printer_.Print(Make("pnp").Add("callback", Quote(name)).Add("status", Status(status)));
    }

    void SetTracing(UCHAR level, ULONG flags)
    {
        if (session_ == nullptr) {
            std::shared_ptr<host::tracing::TraceSink> sink = options_.traceSink;
            if (sink == nullptr)
                sink = std::make_shared<host::tracing::StderrTraceSink>();
            session_ = std::make_unique<host::tracing::TraceSession>(sink);
        }
        if (level == 0)
            session_->Disable(kTraceControlGuid);
        else
            session_->Enable(kTraceControlGuid, level, flags);
    }

    // ---- steps ----

    void Step(const InputStep& step)
    {
        sim_->FeedInput(step.bytes);
        host_->RunPending();
    }

    void Step(const AdvanceStep& step) { host_->Advance(step.ms); }

    void Step(const PnpStep& step) { Pnp(step.name); }

    void Step(const DeviceStep& step)
    {
        if (step.features)
            sim_->UpdateFeatures(*step.features);
        if (step.rules) {
            std::string ignored;  // checked when the file was read
            sim_->SetRules(*step.rules, ignored);
        }
    }

    void Step(const TraceStep& step) { SetTracing(step.level, step.flags); }

    void Step(const WaitStep& step)
    {
        const std::size_t index = ClientIndex(step.sensor);
        if (client_ == nullptr || index == SIZE_MAX)
            return;
        if (std::optional<sx::HistoryCompletion> done =
                client_->WaitHistoryRetrieval(index, std::chrono::milliseconds(step.timeoutMs)))
            PrintHistory(step.sensor, *done);
    }

    void Step(const CallStep& step)
    {
        const std::size_t index = ClientIndex(step.sensor);
        sx::CallResult result;
        if (client_ == nullptr) {
            result.status = sx::kNoSuchSensor;
        } else {
            sx::Client& c = *client_;
            const std::string& n = step.name;
            if (n == "Start")
                result = c.Start(index, step.options);
            else if (n == "Stop")
                result = c.Stop(index, step.options);
            else if (n == "GetSupportedDataFields")
                result = c.GetSupportedDataFields(index, step.buffer, step.options);
            else if (n == "GetDataFieldProperties")
                result = c.GetDataFieldProperties(index, step.key ? &*step.key : nullptr, step.buffer, step.options);
            else if (n == "GetDataInterval")
                result = c.GetDataInterval(index, step.options);
            else if (n == "SetDataInterval")
                result = c.SetDataInterval(index, step.ms, step.options);
            else if (n == "GetDataThresholds")
                result = c.GetDataThresholds(index, step.buffer, step.options);
            else if (n == "SetDataThresholds")
                result = c.SetDataThresholds(index, BuildList(step.list), step.options);
            else if (n == "GetProperties")
                result = c.GetProperties(index, step.buffer, step.options);
            else if (n == "StartHistory")
                result = c.StartHistory(index, step.options);
            else if (n == "StopHistory")
                result = c.StopHistory(index, step.options);
            else if (n == "ClearHistory")
                result = c.ClearHistory(index, step.options);
            else if (n == "StartHistoryRetrieval")
                result = c.StartHistoryRetrieval(index, step.bytes, step.options);
            else if (n == "CancelHistoryRetrieval")
                result = c.CancelHistoryRetrieval(index, step.options);
            else if (n == "DeviceIoControl")
                result = c.DeviceIoControl(index, step.ioControlCode, step.inputLength, step.outputLength,
                                           step.options);
        }

        Event event = Make("call");
        event.Add("call", Quote(step.name));
        event.Add("sensor", std::to_string(step.sensor));
        event.Add("status", Status(result.status));
        if (result.size)
            event.Add("size", std::to_string(*result.size));
        if (result.keys) {
            event.Add("list", sx::PropertyListJson(result.keys->data(), static_cast<ULONG>(result.keys->size())));
            for (const PROPERTYKEY& key : *result.keys)
                event.details.push_back(sx::FormatPropertyKey(key));
            event.keys = *result.keys;
        } else if (result.list) {
            event.Add("list", sx::CollectionListJson(*result.list));
            event.details = ListLines(*result.list);
            event.list = *result.list;
        }
        if (result.ms)
            event.Add("ms", std::to_string(*result.ms));
        if (result.bytesWritten)
            event.Add("bytesWritten", std::to_string(*result.bytesWritten));
        if (result.requestStatus)
            event.Add("requestStatus", Status(*result.requestStatus));
        printer_.Print(event);
    }

    void PrintHistory(std::size_t sensor, const sx::HistoryCompletion& done)
    {
        Event event = Make("historyComplete");
        event.Add("sensor", std::to_string(sensor));
        event.Add("status", Status(done.status));
        event.Add("size", std::to_string(done.size));
        event.Add("list", sx::CollectionListJson(done.list));
        event.details = ListLines(done.list);
        event.list = done.list;
        printer_.Print(event);
    }

    // Retrievals that completed during the step (inside a driver's own wait)
    // print after its own event; driver threads are not let run here.
    void AfterStep()
    {
        if (client_ == nullptr)
            return;
        std::size_t count = 0;
        {
            std::lock_guard lock(mutex_);
            count = published_.size();
        }
        for (std::size_t sensor = 0; sensor < count; ++sensor) {
            const std::size_t index = ClientIndex(sensor);
            if (index == SIZE_MAX)
                continue;
            while (std::optional<sx::HistoryCompletion> done = client_->TakeHistoryCompletion(index))
                PrintHistory(sensor, *done);
        }
    }

    const Scenario& scenario_;
    EventPrinter& printer_;
    const RunOptions& options_;
    std::unique_ptr<host::hidsim::SimulatedHidDevice> sim_;
    std::unique_ptr<DriverHost> host_;
    std::unique_ptr<host::tracing::TraceSession> session_;
    std::unique_ptr<sx::Client> client_;
    std::vector<sx::Subscription> clientSubscriptions_;
    LONGLONG startTicks_ = 0;
    std::mutex mutex_;
    std::vector<SENSOROBJECT> published_;
    host::framework::ViolationSubscription violationSubscription_;
    std::uint64_t violations_ = 0;
};

}  // namespace

int RunScenario(const Scenario& scenario, EventPrinter& printer, const RunOptions& options, std::string& error)
{
    Run run(scenario, printer, options);
    return run.Play(error);
}

}  // namespace hidsensor
