// Scenario files are checked completely before anything runs: every unknown
// key, wrong type, out-of-range number and bad hex string is an error naming
// its JSON path.
#include <charconv>
#include <cmath>
#include <limits>
#include <set>

#include <nlohmann/json.hpp>

#include "host/hidparser/descriptor_text.h"
#include "host/hidsim/device_rules.h"
#include "host/sensorscx/guid.h"
#include "tools/hidsensor/descriptor_input.h"
#include "tools/hidsensor/scenario.h"

namespace hidsensor {
namespace {

using nlohmann::json;
using host::hidsim::DeviceRule;
using host::hidsim::RuleTrigger;

// Thrown inside the parser only; ParseScenario turns it into its error text.
struct ScenarioError {
    std::string path;
    std::string reason;
};

[[noreturn]] void Fail(const std::string& path, std::string reason)
{
    throw ScenarioError{path, std::move(reason)};
}

// Text from the file (a key, a name) in an error: control characters escaped
// and cut short, so that the error stays one readable line.
std::string Shown(const std::string& text)
{
    constexpr std::size_t kShownChars = 40;
    std::string shown = PrintablePath(text.substr(0, kShownChars));
    if (text.size() > kShownChars)
        shown += "...";
    return shown;
}

std::string Member(const std::string& path, const std::string& key)
{
    return path.empty() ? Shown(key) : path + "." + Shown(key);
}

std::string Element(const std::string& path, std::size_t index)
{
    return path + "[" + std::to_string(index) + "]";
}

const char* TypeName(const json& value)
{
    return value.type_name();
}

void ExpectObject(const json& value, const std::string& path)
{
    if (!value.is_object())
        Fail(path, std::string("expected an object, found ") + TypeName(value));
}

void AllowKeys(const json& object, const std::string& path, std::initializer_list<std::string_view> keys)
{
    for (const auto& [key, value] : object.items()) {
        bool known = false;
        for (std::string_view allowed : keys)
            known = known || key == allowed;
        if (!known)
            Fail(Member(path, key), "unknown key");
    }
}

bool GetBool(const json& value, const std::string& path)
{
    if (!value.is_boolean())
        Fail(path, std::string("expected true or false, found ") + TypeName(value));
    return value.get<bool>();
}

std::uint64_t GetUnsigned(const json& value, const std::string& path, std::uint64_t max)
{
    if (!value.is_number_integer() || (value.is_number_integer() && !value.is_number_unsigned() && value.get<std::int64_t>() < 0))
        Fail(path, "expected an integer from 0 to " + std::to_string(max));
    const std::uint64_t number = value.get<std::uint64_t>();
    if (number > max)
        Fail(path, "expected an integer from 0 to " + std::to_string(max));
    return number;
}

std::int64_t GetSigned(const json& value, const std::string& path, std::int64_t min, std::int64_t max)
{
    const std::string range = "expected an integer from " + std::to_string(min) + " to " + std::to_string(max);
    if (!value.is_number_integer())
        Fail(path, range);
    if (value.is_number_unsigned() && value.get<std::uint64_t>() > static_cast<std::uint64_t>(max))
        Fail(path, range);
    const std::int64_t number = value.get<std::int64_t>();
    if (number < min || number > max)
        Fail(path, range);
    return number;
}

const std::string& GetString(const json& value, const std::string& path)
{
    if (!value.is_string())
        Fail(path, std::string("expected a string, found ") + TypeName(value));
    return value.get_ref<const std::string&>();
}

std::vector<std::uint8_t> GetHex(const json& value, const std::string& path)
{
    std::vector<std::uint8_t> bytes;
    std::string error;
    if (!host::hid::ParseHexDescriptor(GetString(value, path), bytes, error))
        Fail(path, "bad hex: " + error);
    return bytes;
}

// A 32-bit value written as "0x" and up to 8 hex digits; `what` names it in the error.
std::uint32_t GetHex32(const json& value, const std::string& path, const char* what)
{
    const std::string& text = GetString(value, path);
    std::uint32_t number = 0;
    const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* first = text.data() + (prefixed ? 2 : 0);
    const char* last = text.data() + text.size();
    const auto [end, ec] = std::from_chars(first, last, number, 16);
    if (!prefixed || ec != std::errc{} || end != last || text.size() > 10)
        Fail(path, std::string("expected ") + what + " as \"0x\" and up to 8 hex digits");
    return number;
}

NTSTATUS GetStatus(const json& value, const std::string& path)
{
    return static_cast<NTSTATUS>(GetHex32(value, path, "a status"));
}

std::u16string Widen(const std::string& utf8, const std::string& path)
{
    std::u16string out;
    for (std::size_t i = 0; i < utf8.size();) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        char32_t code = 0;
        std::size_t length = 0;
        if (byte < 0x80) {
            code = byte;
            length = 1;
        } else if ((byte & 0xE0) == 0xC0) {
            code = byte & 0x1F;
            length = 2;
        } else if ((byte & 0xF0) == 0xE0) {
            code = byte & 0x0F;
            length = 3;
        } else if ((byte & 0xF8) == 0xF0) {
            code = byte & 0x07;
            length = 4;
        } else {
            Fail(path, "invalid UTF-8");
        }
        if (i + length > utf8.size())
            Fail(path, "invalid UTF-8");
        for (std::size_t k = 1; k < length; ++k)
            code = (code << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
        if (code >= 0x10000) {
            code -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(code));
        }
        i += length;
    }
    return out;
}

// ---- device ----------------------------------------------------------------

host::hidsim::FeatureMap ParseFeatures(const json& value, const std::string& path)
{
    ExpectObject(value, path);
    host::hidsim::FeatureMap features;
    for (const auto& [key, report] : value.items()) {
        const std::string itemPath = Member(path, key);
        unsigned id = 0;
        const auto [end, ec] = std::from_chars(key.data(), key.data() + key.size(), id);
        if (key.empty() || ec != std::errc{} || end != key.data() + key.size() || id > 255)
            Fail(itemPath, "a feature report is keyed by its report ID, a decimal number from 0 to 255");
        features[static_cast<std::uint8_t>(id)] = GetHex(report, itemPath);
    }
    return features;
}

DeviceRule ParseRule(const json& value, const std::string& path)
{
    ExpectObject(value, path);
    AllowKeys(value, path, {"on", "reportId", "times", "fail", "timeout", "zeros", "answerReportId", "field"});
    DeviceRule rule;
    if (!value.contains("on"))
        Fail(Member(path, "on"), "missing");
    const std::string& on = GetString(value["on"], Member(path, "on"));
    if (on == "getFeature")
        rule.on = RuleTrigger::GetFeature;
    else if (on == "setFeature")
        rule.on = RuleTrigger::SetFeature;
    else if (on == "read")
        rule.on = RuleTrigger::Read;
    else
        Fail(Member(path, "on"), "expected \"getFeature\", \"setFeature\" or \"read\"");
    if (value.contains("reportId"))
        rule.reportId = static_cast<std::uint8_t>(GetUnsigned(value["reportId"], Member(path, "reportId"), 255));
    if (value.contains("times"))
        rule.times = static_cast<std::uint32_t>(GetUnsigned(value["times"], Member(path, "times"), 0xFFFFFFFF));

    int actions = 0;
    if (value.contains("fail")) {
        ++actions;
        rule.action = host::hidsim::FailAction{GetStatus(value["fail"], Member(path, "fail"))};
    }
    if (value.contains("timeout")) {
        ++actions;
        if (!GetBool(value["timeout"], Member(path, "timeout")))
            Fail(Member(path, "timeout"), "only true is an action");
        rule.action = host::hidsim::TimeoutAction{};
    }
    if (value.contains("zeros")) {
        ++actions;
        if (!GetBool(value["zeros"], Member(path, "zeros")))
            Fail(Member(path, "zeros"), "only true is an action");
        rule.action = host::hidsim::ZerosAction{};
    }
    if (value.contains("answerReportId")) {
        ++actions;
        rule.action = host::hidsim::AnswerReportIdAction{
            static_cast<std::uint8_t>(GetUnsigned(value["answerReportId"], Member(path, "answerReportId"), 255))};
    }
    if (value.contains("field")) {
        ++actions;
        const std::string fieldPath = Member(path, "field");
        const json& field = value["field"];
        ExpectObject(field, fieldPath);
        AllowKeys(field, fieldPath, {"usage", "clamp"});
        host::hidsim::FieldAction action;
        if (!field.contains("usage"))
            Fail(Member(fieldPath, "usage"), "missing");
        const json& usage = field["usage"];
        if (usage.is_string()) {
            const std::string& text = usage.get_ref<const std::string&>();
            unsigned parsed = 0;
            const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
            const auto [end, ec] = std::from_chars(text.data() + (prefixed ? 2 : 0), text.data() + text.size(), parsed, 16);
            if (!prefixed || ec != std::errc{} || end != text.data() + text.size() || parsed > 0xFFFF)
                Fail(Member(fieldPath, "usage"), "expected a usage as \"0x\" and up to 4 hex digits");
            action.usage = static_cast<USAGE>(parsed);
        } else {
            action.usage = static_cast<USAGE>(GetUnsigned(usage, Member(fieldPath, "usage"), 0xFFFF));
        }
        if (!field.contains("clamp"))
            Fail(Member(fieldPath, "clamp"), "missing");
        const json& clamp = field["clamp"];
        const std::string clampPath = Member(fieldPath, "clamp");
        if (!clamp.is_array() || clamp.size() != 2)
            Fail(clampPath, "expected [min, max]");
        const std::int64_t min = GetSigned(clamp[0], Element(clampPath, 0), INT32_MIN, UINT32_MAX);
        const std::int64_t max = GetSigned(clamp[1], Element(clampPath, 1), INT32_MIN, UINT32_MAX);
        if (min > max)
            Fail(clampPath, "min is above max");
        action.clamp = std::make_pair(static_cast<LONGLONG>(min), static_cast<LONGLONG>(max));
        rule.action = action;
        if (rule.on != RuleTrigger::SetFeature)
            Fail(fieldPath, "a field rule applies to setFeature only");
    }
    if (actions != 1)
        Fail(path, "a rule has exactly one action: fail, timeout, zeros, answerReportId or field");
    return rule;
}

std::vector<DeviceRule> ParseRules(const json& value, const std::string& path)
{
    if (!value.is_array())
        Fail(path, std::string("expected an array, found ") + TypeName(value));
    std::vector<DeviceRule> rules;
    for (std::size_t i = 0; i < value.size(); ++i)
        rules.push_back(ParseRule(value[i], Element(path, i)));
    const std::string problem = host::hidsim::ValidateRules(rules);
    if (!problem.empty())
        Fail(path, problem);
    return rules;
}

void ParseDevice(const json& value, Scenario& scenario)
{
    const std::string path = "device";
    ExpectObject(value, path);
    AllowKeys(value, path, {"descriptor", "information", "strings", "features", "rules", "registry"});
    if (!value.contains("descriptor"))
        Fail(Member(path, "descriptor"), "missing");
    host::hidsim::HidDeviceConfig& device = scenario.device;
    device.descriptor = GetHex(value["descriptor"], Member(path, "descriptor"));

    if (value.contains("information")) {
        const std::string infoPath = Member(path, "information");
        const json& info = value["information"];
        ExpectObject(info, infoPath);
        AllowKeys(info, infoPath, {"vendorId", "productId", "versionNumber", "polled"});
        if (info.contains("vendorId"))
            device.information.vendorId = static_cast<USHORT>(GetUnsigned(info["vendorId"], Member(infoPath, "vendorId"), 0xFFFF));
        if (info.contains("productId"))
            device.information.productId = static_cast<USHORT>(GetUnsigned(info["productId"], Member(infoPath, "productId"), 0xFFFF));
        if (info.contains("versionNumber"))
            device.information.versionNumber =
                static_cast<USHORT>(GetUnsigned(info["versionNumber"], Member(infoPath, "versionNumber"), 0xFFFF));
        if (info.contains("polled"))
            device.information.polled = GetBool(info["polled"], Member(infoPath, "polled"));
    }
    if (value.contains("strings")) {
        const std::string stringsPath = Member(path, "strings");
        const json& strings = value["strings"];
        ExpectObject(strings, stringsPath);
        AllowKeys(strings, stringsPath, {"manufacturer", "product", "serialNumber"});
        const auto text = [&](const char* key, std::optional<std::u16string>& target) {
            if (!strings.contains(key) || strings[key].is_null())
                return;
            target = Widen(GetString(strings[key], Member(stringsPath, key)), Member(stringsPath, key));
        };
        text("manufacturer", device.strings.manufacturer);
        text("product", device.strings.product);
        text("serialNumber", device.strings.serialNumber);
    }
    if (value.contains("features"))
        device.features = ParseFeatures(value["features"], Member(path, "features"));
    if (value.contains("rules"))
        device.rules = ParseRules(value["rules"], Member(path, "rules"));
    if (value.contains("registry")) {
        const std::string registryPath = Member(path, "registry");
        const json& registry = value["registry"];
        ExpectObject(registry, registryPath);
        for (const auto& [subkey, values] : registry.items()) {
            const std::string subkeyPath = Member(registryPath, subkey);
            ExpectObject(values, subkeyPath);
            for (const auto& [name, data] : values.items())
                scenario.registry.push_back(
                    {subkey, name, static_cast<ULONG>(GetUnsigned(data, Member(subkeyPath, name), 0xFFFFFFFF))});
        }
    }
}

// ---- options ---------------------------------------------------------------

void ParseOptions(const json& value, Scenario& scenario)
{
    const std::string path = "options";
    ExpectObject(value, path);
    AllowKeys(value, path, {"clock", "seed", "traffic", "start"});
    if (value.contains("clock")) {
        const std::optional<FILETIME> clock = ParseUtcTime(GetString(value["clock"], Member(path, "clock")));
        if (!clock)
            Fail(Member(path, "clock"), "expected an ISO 8601 time such as \"2026-01-01T00:00:00Z\"");
        scenario.clock = *clock;
    }
    if (value.contains("seed"))
        scenario.seed = GetUnsigned(value["seed"], Member(path, "seed"), UINT64_MAX);
    if (value.contains("traffic"))
        scenario.traffic = GetBool(value["traffic"], Member(path, "traffic"));
    if (value.contains("start"))
        scenario.start = GetBool(value["start"], Member(path, "start"));
}

// ---- values ----------------------------------------------------------------

ScenarioValue ParseValue(const json& value, const std::string& path)
{
    ExpectObject(value, path);
    AllowKeys(value, path, {"key", "vt", "value"});
    ScenarioValue out;
    if (!value.contains("key"))
        Fail(Member(path, "key"), "missing");
    const std::optional<PROPERTYKEY> key = ParsePropertyKey(GetString(value["key"], Member(path, "key")));
    if (!key)
        Fail(Member(path, "key"), "expected \"{GUID} pid\"");
    out.key = *key;
    if (!value.contains("vt"))
        Fail(Member(path, "vt"), "missing");
    const std::string& vt = GetString(value["vt"], Member(path, "vt"));
    const std::string valuePath = Member(path, "value");
    struct Type {
        const char* name;
        VARTYPE vt;
    };
    static constexpr Type kTypes[] = {
        {"EMPTY", VT_EMPTY}, {"BOOL", VT_BOOL}, {"UI2", VT_UI2}, {"UI4", VT_UI4}, {"I8", VT_I8},
        {"UI8", VT_UI8}, {"R4", VT_R4}, {"R8", VT_R8}, {"FILETIME", VT_FILETIME}, {"CLSID", VT_CLSID},
        {"LPWSTR", VT_LPWSTR},
    };
    bool known = false;
    for (const Type& type : kTypes) {
        if (vt == type.name) {
            out.vt = type.vt;
            known = true;
        }
    }
    if (!known)
        Fail(Member(path, "vt"), "expected EMPTY, BOOL, UI2, UI4, I8, UI8, R4, R8, FILETIME, CLSID or LPWSTR");
    if (out.vt == VT_EMPTY) {
        if (value.contains("value"))
            Fail(valuePath, "EMPTY has no value");
        return out;
    }
    if (!value.contains("value"))
        Fail(valuePath, "missing");
    const json& v = value["value"];
    switch (out.vt) {
    case VT_BOOL:
        if (v.is_boolean())
            out.integer = v.get<bool>() ? -1 : 0;  // VARIANT_TRUE, VARIANT_FALSE
        else
            out.integer = static_cast<std::int16_t>(GetUnsigned(v, valuePath, 0xFFFF));
        break;
    case VT_UI2:
        out.unsignedInteger = GetUnsigned(v, valuePath, 0xFFFF);
        break;
    case VT_UI4:
        out.unsignedInteger = GetUnsigned(v, valuePath, 0xFFFFFFFF);
        break;
    case VT_I8:
        out.integer = GetSigned(v, valuePath, INT64_MIN, INT64_MAX);
        break;
    case VT_UI8:
    case VT_FILETIME:
        out.unsignedInteger = GetUnsigned(v, valuePath, UINT64_MAX);
        break;
    case VT_R4:
    case VT_R8:
        if (!v.is_number())
            Fail(valuePath, std::string("expected a number, found ") + TypeName(v));
        out.real = v.get<double>();
        if (out.vt == VT_R4 && std::isfinite(out.real) && std::fabs(out.real) > std::numeric_limits<float>::max())
            Fail(valuePath, "out of the range of R4");
        break;
    case VT_CLSID: {
        const std::optional<GUID> guid = host::com::ParseGuid(GetString(v, valuePath));
        if (!guid)
            Fail(valuePath, "expected \"{GUID}\"");
        out.guid = *guid;
        break;
    }
    case VT_LPWSTR:
        out.text = Widen(GetString(v, valuePath), valuePath);
        break;
    default:
        break;
    }
    return out;
}

// ---- steps -----------------------------------------------------------------

host::sensorscx::ListBuffer ParseBuffer(const json& value, const std::string& path)
{
    if (value.is_string()) {
        const std::string& text = value.get_ref<const std::string&>();
        if (text == "none")
            return host::sensorscx::ListBuffer::SizeQuery();
        if (text == "exact")
            return host::sensorscx::ListBuffer::Exact();
        Fail(path, "expected \"none\", \"exact\" or a number of bytes");
    }
    if (!value.is_number_integer())
        Fail(path, "expected \"none\", \"exact\" or a number of bytes");
    return host::sensorscx::ListBuffer::OfBytes(static_cast<ULONG>(GetUnsigned(value, path, 0x1000000)));
}

CallStep ParseCall(const json& step, const std::string& path)
{
    CallStep call;
    call.name = GetString(step["call"], Member(path, "call"));
    const std::vector<std::string>& names = CallNames();
    if (std::find(names.begin(), names.end(), call.name) == names.end())
        Fail(Member(path, "call"), "unknown callback \"" + Shown(call.name) + "\"");

    const std::string& n = call.name;
    const bool listQuery = n == "GetSupportedDataFields" || n == "GetProperties" || n == "GetDataThresholds" ||
                           n == "GetDataFieldProperties";
    std::vector<std::string_view> allowed = {"call", "sensor", "handle", "nullOutput"};
    if (listQuery)
        allowed.push_back("buffer");
    if (n == "GetDataFieldProperties")
        allowed.push_back("key");
    if (n == "SetDataInterval")
        allowed.push_back("ms");
    if (n == "SetDataThresholds")
        allowed.push_back("list");
    if (n == "StartHistoryRetrieval")
        allowed.push_back("bytes");
    if (n == "DeviceIoControl")
        allowed.insert(allowed.end(), {"code", "inputLength", "outputLength"});
    for (const auto& [key, value] : step.items()) {
        if (std::find(allowed.begin(), allowed.end(), key) == allowed.end())
            Fail(Member(path, key), "unknown key for call " + n);
    }

    if (step.contains("sensor"))
        call.sensor = static_cast<std::size_t>(GetUnsigned(step["sensor"], Member(path, "sensor"), 0xFFFF));
    if (step.contains("handle")) {
        if (GetString(step["handle"], Member(path, "handle")) != "other")
            Fail(Member(path, "handle"), "expected \"other\"");
        call.options.otherHandle = true;
    }
    if (step.contains("nullOutput")) {
        const bool nullOutput = GetBool(step["nullOutput"], Member(path, "nullOutput"));
        // Only a size, interval or bytes-written output is nulled; the other
        // calls have none, and their lists and buffers stay as given.
        call.options.nullOutput =
            nullOutput && (listQuery || n == "GetDataInterval" || n == "CancelHistoryRetrieval");
    }
    if (step.contains("buffer"))
        call.buffer = ParseBuffer(step["buffer"], Member(path, "buffer"));
    if (step.contains("key")) {
        const std::optional<PROPERTYKEY> key = ParsePropertyKey(GetString(step["key"], Member(path, "key")));
        if (!key)
            Fail(Member(path, "key"), "expected \"{GUID} pid\"");
        call.key = *key;
    }
    if (n == "SetDataInterval") {
        if (!step.contains("ms"))
            Fail(Member(path, "ms"), "missing");
        call.ms = static_cast<std::uint32_t>(GetUnsigned(step["ms"], Member(path, "ms"), 0xFFFFFFFF));
    }
    if (n == "SetDataThresholds") {
        if (!step.contains("list"))
            Fail(Member(path, "list"), "missing");
        const json& list = step["list"];
        if (!list.is_array())
            Fail(Member(path, "list"), std::string("expected an array, found ") + TypeName(list));
        for (std::size_t i = 0; i < list.size(); ++i)
            call.list.push_back(ParseValue(list[i], Element(Member(path, "list"), i)));
    }
    if (n == "StartHistoryRetrieval") {
        if (!step.contains("bytes"))
            Fail(Member(path, "bytes"), "missing");
        call.bytes = static_cast<std::uint32_t>(GetUnsigned(step["bytes"], Member(path, "bytes"), 0x1000000));
    }
    if (n == "DeviceIoControl") {
        if (!step.contains("code"))
            Fail(Member(path, "code"), "missing");
        call.ioControlCode = GetHex32(step["code"], Member(path, "code"), "an IOCTL code");
        if (step.contains("inputLength"))
            call.inputLength =
                static_cast<std::uint32_t>(GetUnsigned(step["inputLength"], Member(path, "inputLength"), 0x1000000));
        if (step.contains("outputLength"))
            call.outputLength =
                static_cast<std::uint32_t>(GetUnsigned(step["outputLength"], Member(path, "outputLength"), 0x1000000));
    }
    return call;
}

ScenarioStep ParseStep(const json& step, const std::string& path)
{
    ExpectObject(step, path);
    static constexpr std::string_view kVerbs[] = {"input", "advance", "call", "pnp", "wait", "device", "trace"};
    std::string_view verb;
    for (std::string_view candidate : kVerbs) {
        if (step.contains(candidate)) {
            if (!verb.empty())
                Fail(path, "a step has exactly one verb; found both \"" + std::string(verb) + "\" and \"" +
                               std::string(candidate) + "\"");
            verb = candidate;
        }
    }
    if (verb.empty())
        Fail(path, "a step needs one verb: input, advance, call, pnp, wait, device or trace");

    if (verb == "input") {
        AllowKeys(step, path, {"input"});
        return InputStep{GetHex(step["input"], Member(path, "input"))};
    }
    if (verb == "advance") {
        AllowKeys(step, path, {"advance"});
        return AdvanceStep{GetUnsigned(step["advance"], Member(path, "advance"), 0xFFFFFFFFull * 1000)};
    }
    if (verb == "call")
        return ParseCall(step, path);
    if (verb == "pnp") {
        AllowKeys(step, path, {"pnp"});
        const std::string& name = GetString(step["pnp"], Member(path, "pnp"));
        static constexpr std::string_view kNames[] = {"DeviceAdd", "PrepareHardware", "D0Entry",
                                                      "D0Exit", "ReleaseHardware", "Unload"};
        if (std::find(std::begin(kNames), std::end(kNames), name) == std::end(kNames))
            Fail(Member(path, "pnp"),
                 "expected DeviceAdd, PrepareHardware, D0Entry, D0Exit, ReleaseHardware or Unload");
        return PnpStep{name};
    }
    if (verb == "wait") {
        AllowKeys(step, path, {"wait", "sensor", "timeoutMs"});
        if (GetString(step["wait"], Member(path, "wait")) != "historyRetrieval")
            Fail(Member(path, "wait"), "expected \"historyRetrieval\"");
        WaitStep wait;
        if (step.contains("sensor"))
            wait.sensor = static_cast<std::size_t>(GetUnsigned(step["sensor"], Member(path, "sensor"), 0xFFFF));
        if (step.contains("timeoutMs"))
            wait.timeoutMs = static_cast<std::uint32_t>(GetUnsigned(step["timeoutMs"], Member(path, "timeoutMs"), 600000));
        return wait;
    }
    if (verb == "device") {
        AllowKeys(step, path, {"device"});
        const std::string devicePath = Member(path, "device");
        const json& device = step["device"];
        ExpectObject(device, devicePath);
        AllowKeys(device, devicePath, {"features", "rules"});
        DeviceStep change;
        if (device.contains("features"))
            change.features = ParseFeatures(device["features"], Member(devicePath, "features"));
        if (device.contains("rules"))
            change.rules = ParseRules(device["rules"], Member(devicePath, "rules"));
        return change;
    }
    AllowKeys(step, path, {"trace"});
    const std::string tracePath = Member(path, "trace");
    const json& trace = step["trace"];
    ExpectObject(trace, tracePath);
    AllowKeys(trace, tracePath, {"level", "flags"});
    TraceStep change;
    if (!trace.contains("level"))
        Fail(Member(tracePath, "level"), "missing");
    change.level = static_cast<UCHAR>(GetUnsigned(trace["level"], Member(tracePath, "level"), 255));
    if (trace.contains("flags"))
        change.flags = static_cast<ULONG>(GetUnsigned(trace["flags"], Member(tracePath, "flags"), 0xFFFFFFFF));
    return change;
}

// Days since 1970-01-01 of a proleptic Gregorian date.
std::int64_t DaysFromCivil(std::int64_t y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

}  // namespace

const std::vector<std::string>& CallNames()
{
    static const std::vector<std::string> kNames = {
        "Start", "Stop", "GetSupportedDataFields", "GetDataFieldProperties", "GetDataInterval",
        "SetDataInterval", "GetDataThresholds", "SetDataThresholds", "GetProperties", "StartHistory",
        "StopHistory", "ClearHistory", "StartHistoryRetrieval", "CancelHistoryRetrieval", "DeviceIoControl"};
    return kNames;
}

std::optional<FILETIME> ParseUtcTime(std::string_view text)
{
    // ISO 8601 in extended form: YYYY-MM-DDTHH:MM[:SS[.fraction]] and a zone,
    // Z or +HH:MM / -HH:MM (also +HHMM, +HH); an offset is taken back to UTC.
    const auto digits = [&](std::size_t at, std::size_t count, unsigned& value) {
        if (at + count > text.size())
            return false;
        value = 0;
        for (std::size_t i = at; i < at + count; ++i) {
            if (text[i] < '0' || text[i] > '9')
                return false;
            value = value * 10 + static_cast<unsigned>(text[i] - '0');
        }
        return true;
    };
    const auto is = [&](std::size_t at, char c) { return at < text.size() && text[at] == c; };
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!digits(0, 4, year) || !is(4, '-') || !digits(5, 2, month) || !is(7, '-') || !digits(8, 2, day) ||
        !(is(10, 'T') || is(10, 't')) || !digits(11, 2, hour) || !is(13, ':') || !digits(14, 2, minute))
        return std::nullopt;
    std::size_t at = 16;
    std::uint64_t fractionTicks = 0;
    if (is(at, ':')) {
        if (!digits(at + 1, 2, second))
            return std::nullopt;
        at += 3;
        if (is(at, '.') || is(at, ',')) {
            ++at;
            std::uint64_t scale = 1'000'000;  // ticks per 0.1 s
            const std::size_t begin = at;
            while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
                fractionTicks += static_cast<std::uint64_t>(text[at] - '0') * scale;
                scale /= 10;
                ++at;
            }
            if (at == begin)
                return std::nullopt;
        }
    }
    std::int64_t offsetSeconds = 0;
    if (is(at, 'Z') || is(at, 'z')) {
        ++at;
    } else if (is(at, '+') || is(at, '-')) {
        const bool behind = text[at] == '-';
        unsigned offsetHours = 0, offsetMinutes = 0;
        if (!digits(at + 1, 2, offsetHours))
            return std::nullopt;
        at += 3;  // the sign and the hours
        const bool colon = is(at, ':');
        if (colon)
            ++at;
        if (colon || at < text.size()) {
            if (!digits(at, 2, offsetMinutes))
                return std::nullopt;
            at += 2;
        }
        if (offsetHours > 23 || offsetMinutes > 59)
            return std::nullopt;
        offsetSeconds = (behind ? -1 : 1) * static_cast<std::int64_t>(offsetHours * 3600 + offsetMinutes * 60);
    } else {
        return std::nullopt;
    }
    if (at != text.size())
        return std::nullopt;
    static constexpr unsigned kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (year < 1601 || month < 1 || month > 12 || day < 1 || day > kDays[month - 1] || hour > 23 || minute > 59 ||
        second > 59)
        return std::nullopt;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (month == 2 && day == 29 && !leap)
        return std::nullopt;
    // FILETIME counts 100-ns units from 1601-01-01.
    const std::int64_t days = DaysFromCivil(year, month, day) - DaysFromCivil(1601, 1, 1);
    const std::int64_t seconds = days * 86400 + hour * 3600ll + minute * 60ll + second - offsetSeconds;
    if (seconds < 0)
        return std::nullopt;  // before 1601 once taken back to UTC
    const std::uint64_t ticks = static_cast<std::uint64_t>(seconds) * 10'000'000ull + fractionTicks;
    FILETIME time;
    time.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFF);
    time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return time;
}

std::optional<PROPERTYKEY> ParsePropertyKey(std::string_view text)
{
    if (text.size() < 40 || text[38] != ' ')
        return std::nullopt;
    const std::optional<GUID> guid = host::com::ParseGuid(text.substr(0, 38));
    if (!guid)
        return std::nullopt;
    const std::string_view pidText = text.substr(39);
    unsigned long pid = 0;
    const auto [end, ec] = std::from_chars(pidText.data(), pidText.data() + pidText.size(), pid);
    if (ec != std::errc{} || end != pidText.data() + pidText.size() || pid > 0xFFFFFFFFul)
        return std::nullopt;
    PROPERTYKEY key;
    key.fmtid = *guid;
    key.pid = static_cast<DWORD>(pid);
    return key;
}

std::optional<Scenario> ParseScenario(std::string_view text, std::string& error)
{
    try {
        json document;
        try {
            document = json::parse(text);
        } catch (const json::parse_error& e) {
            Fail("", std::string("not JSON: ") + e.what());
        }
        ExpectObject(document, "");
        AllowKeys(document, "", {"device", "options", "steps"});
        Scenario scenario;
        scenario.clock = *ParseUtcTime("2026-01-01T00:00:00Z");
        if (!document.contains("device"))
            Fail("device", "missing");
        ParseDevice(document["device"], scenario);
        if (document.contains("options"))
            ParseOptions(document["options"], scenario);
        if (document.contains("steps")) {
            const json& steps = document["steps"];
            if (!steps.is_array())
                Fail("steps", std::string("expected an array, found ") + TypeName(steps));
            for (std::size_t i = 0; i < steps.size(); ++i)
                scenario.steps.push_back(ParseStep(steps[i], Element("steps", i)));
        }
        return scenario;
    } catch (const ScenarioError& e) {
        error = (e.path.empty() ? std::string("(document)") : e.path) + ": " + e.reason;
    } catch (const std::exception& e) {
        error = std::string("(document): ") + e.what();
    }
    return std::nullopt;
}

}  // namespace hidsensor
