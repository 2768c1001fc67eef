#include "tools/hidsensor/demo_command.h"

#include <cstdio>
#include <map>

#include "host/sensorscx/guid.h"
#include "host/sensorscx/list_format.h"
#include "tools/hidsensor/demo_device.h"
#include "tools/hidsensor/scenario_runner.h"

namespace hidsensor {
namespace {

namespace sx = host::sensorscx;

// {D4247382-969D-4F24-BB14-FB9671870BBF}: sensor properties.
constexpr GUID kSensorProperty = {0xD4247382, 0x969D, 0x4F24, {0xBB, 0x14, 0xFB, 0x96, 0x71, 0x87, 0x0B, 0xBF}};
// {B14C764F-07CF-41E8-9D82-EBE3D0776A6F}: custom data fields.
constexpr GUID kCustomData = {0xB14C764F, 0x07CF, 0x41E8, {0x9D, 0x82, 0xEB, 0xE3, 0xD0, 0x77, 0x6A, 0x6F}};
// {C458F8A7-4AE8-4777-9607-2E9BDD65110A}: timestamp and the activity, pedometer and orientation data.
constexpr GUID kSensorData = {0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}};
constexpr DWORD kTypePid = 2;
constexpr DWORD kFriendlyNamePid = 6;

bool SameGuid(const GUID& a, const GUID& b)
{
    return host::com::FormatGuid(a) == host::com::FormatGuid(b);
}

std::string TypeName(const std::string& clsid)
{
    static const std::map<std::string, std::string> kTypes = {
        {"{E83AF229-8640-4D18-A213-E22675EBB2C3}", "custom"},
        {"{9D9E0118-1807-4F2E-96E4-2CE57142E196}", "activity detection"},
        {"{B19F89AF-E3EB-444B-8DEA-202575A71599}", "pedometer"},
        {"{40993B51-4706-44DC-98D5-C920C037FFAB}", "relative orientation"},
        {"{86A19291-0482-402C-BF4C-ADDAC52B1C39}", "simple device orientation"},
    };
    const auto it = kTypes.find(clsid);
    return it != kTypes.end() ? it->second : clsid;
}

std::string FieldName(const PROPERTYKEY& key)
{
    if (SameGuid(key.fmtid, kSensorData) && key.pid == 2)
        return "timestamp";
    if (SameGuid(key.fmtid, kCustomData) && key.pid == 5)
        return "custom usage";
    if (SameGuid(key.fmtid, kCustomData) && key.pid == 6)
        return "custom boolean array";
    if (SameGuid(key.fmtid, kCustomData) && key.pid >= 7 && key.pid <= 34)
        return "custom value " + std::to_string(key.pid - 6);
    if (SameGuid(key.fmtid, kSensorData)) {
        static const std::map<DWORD, std::string> kDataNames = {
            {70, "quaternion w"}, {71, "quaternion x"}, {72, "quaternion y"}, {73, "quaternion z"},
            {120, "orientation"}, {130, "activity"},    {131, "confidence"},   {140, "step type"},
            {141, "steps"},       {142, "step ms"},     {143, "after reset"},
        };
        const auto it = kDataNames.find(key.pid);
        return it != kDataNames.end() ? it->second : "data " + std::to_string(key.pid);
    }
    return sx::FormatPropertyKey(key);
}

// The demo's readable rendering: what was found, the samples as they arrive,
// then totals.
class DemoSummary final : public EventPrinter {
public:
    explicit DemoSummary(std::ostream& out) : EventPrinter(out, Style::Human) {}

    void Print(const Event& event) override
    {
        std::lock_guard lock(mutex_);
        CountEvent(event.name);
        if (event.name == "sensor")
            Found(event);
        else if (event.name == "call")
            Called(event);
        else if (event.name == "sample")
            Sampled(event);
        else if (event.name == "violation")
            Line(event.t, "contract broken: " + event.fields.front().second);
        else if (event.name == "pnp")
            Pnp(event);
        else if (event.name == "historyComplete")
            History(event);
    }

    void Totals()
    {
        std::lock_guard lock(mutex_);
        out_ << "\nTotals: " << sensors_.size() << " sensors published, " << samples_ << " samples";
        if (!perSensor_.empty()) {
            out_ << " (";
            bool first = true;
            for (const auto& [sensor, count] : perSensor_) {
                out_ << (first ? "" : ", ") << NameOf(sensor) << " " << count;
                first = false;
            }
            out_ << ")";
        }
        out_ << ", " << failedCalls_ << " failed calls.\n";
    }

private:
    static std::string Field(const Event& event, const std::string& name)
    {
        for (const auto& [field, json] : event.fields) {
            if (field == name)
                return json;
        }
        return "";
    }

    void Line(std::uint64_t t, const std::string& text)
    {
        char time[32];
        std::snprintf(time, sizeof time, "%7.3f s  ", static_cast<double>(t) / 1000.0);
        out_ << time << text << "\n";
    }

    std::string NameOf(const std::string& sensor) const
    {
        const auto it = sensors_.find(sensor);
        return it != sensors_.end() ? it->second : "sensor " + sensor;
    }

    void Pnp(const Event& event)
    {
        const std::string status = Field(event, "status");
        if (status != "\"0x00000000\"")
            Line(event.t, Field(event, "callback") + " failed with " + status);
    }

    void Found(const Event& event)
    {
        const std::string sensor = Field(event, "sensor");
        std::string name;
        std::string type;
        if (event.list) {
            for (const SENSOR_VALUE_PAIR& entry : *event.list) {
                if (!SameGuid(entry.Key.fmtid, kSensorProperty))
                    continue;
                const std::optional<std::string> value = sx::ValueJson(entry.Value);
                if (!value || value->size() < 2)
                    continue;
                const std::string text = value->substr(1, value->size() - 2);
                if (entry.Key.pid == kFriendlyNamePid)
                    name = text;
                else if (entry.Key.pid == kTypePid)
                    type = TypeName(text);
            }
        }
        if (name.empty())
            name = "sensor " + sensor;
        sensors_[sensor] = name;
        Line(event.t, "found " + name + " (sensor " + sensor + ", " + (type.empty() ? "unknown type" : type) + ")");
    }

    void Called(const Event& event)
    {
        const std::string sensor = Field(event, "sensor");
        const std::string call = Field(event, "call");
        const std::string status = Field(event, "status");
        if (status != "\"0x00000000\"") {
            ++failedCalls_;
            Line(event.t, NameOf(sensor) + ": " + call + " failed with " + status);
            return;
        }
        if (!event.keys.empty()) {
            std::string fields;
            for (const PROPERTYKEY& key : event.keys)
                fields += (fields.empty() ? "" : ", ") + FieldName(key);
            Line(event.t, NameOf(sensor) + " reports " + fields);
        } else if (call == "\"Start\"") {
            Line(event.t, NameOf(sensor) + " started");
        } else if (call == "\"Stop\"") {
            Line(event.t, NameOf(sensor) + " stopped");
        } else if (call == "\"SetDataInterval\"") {
            Line(event.t, NameOf(sensor) + " data interval set");
        } else if (call == "\"StartHistory\"") {
            Line(event.t, NameOf(sensor) + " history recording started");
        } else if (call == "\"StopHistory\"") {
            Line(event.t, NameOf(sensor) + " history recording stopped");
        }
    }

    void Sampled(const Event& event)
    {
        const std::string sensor = Field(event, "sensor");
        ++samples_;
        ++perSensor_[sensor];
        std::string values;
        if (event.list) {
            for (const SENSOR_VALUE_PAIR& entry : *event.list) {
                if (SameGuid(entry.Key.fmtid, kSensorData) && entry.Key.pid == 2)
                    continue;  // the timestamp is the line's time
                const std::optional<std::string> value = sx::ValueJson(entry.Value);
                values += (values.empty() ? "" : ", ") + FieldName(entry.Key) + " " + value.value_or("-");
            }
        }
        Line(event.t, NameOf(sensor) + ": " + values);
    }

    // One line per record: its time, then its fields.
    void History(const Event& event)
    {
        const std::string sensor = Field(event, "sensor");
        const std::string status = Field(event, "status");
        std::vector<std::string> records;
        if (event.list) {
            for (const SENSOR_VALUE_PAIR& entry : *event.list) {
                const std::optional<std::string> value = sx::ValueJson(entry.Value);
                if (SameGuid(entry.Key.fmtid, kSensorData) && entry.Key.pid == 2) {
                    records.push_back("");
                    continue;
                }
                if (records.empty())
                    records.push_back("");
                records.back() += (records.back().empty() ? "" : ", ") + FieldName(entry.Key) + " " + value.value_or("-");
            }
        }
        Line(event.t, NameOf(sensor) + " history retrieved: " + std::to_string(records.size()) + " records, status " +
                          status);
        for (const std::string& record : records)
            out_ << "             " << record << "\n";
    }

    std::map<std::string, std::string> sensors_;
    std::map<std::string, std::uint64_t> perSensor_;
    std::uint64_t samples_ = 0;
    std::uint64_t failedCalls_ = 0;
};

}  // namespace

int RunDemo(bool json, std::ostream& out, std::ostream& err)
{
    const Scenario scenario = DemoScenario();
    std::string error;
    if (json) {
        EventPrinter printer(out, EventPrinter::Style::Json);
        const int status = RunScenario(scenario, printer, RunOptions{}, error);
        if (status == 2)
            err << "hidsensor demo: " << error << "\n";
        return status;
    }
    out << "Demo: the HID sensor driver on a built-in sensor hub (an accelerometer, a gesture tap, a lid-angle\n"
           "probe, activity, pedometer, relative and simple device orientation sensors), one minute of\n"
           "virtual time.\n\n";
    DemoSummary summary(out);
    const int status = RunScenario(scenario, summary, RunOptions{}, error);
    if (status == 2) {
        err << "hidsensor demo: " << error << "\n";
        return status;
    }
    summary.Totals();
    return status;
}

}  // namespace hidsensor
