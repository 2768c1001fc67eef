#include "host/sensorscx/list_format.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "host/sensorscx/guid.h"

namespace host::sensorscx {
namespace {

template <class Float>
std::string ShortestText(Float value)
{
    if (std::isnan(value))
        return "\"NaN\"";
    if (std::isinf(value))
        return value > 0 ? "\"Infinity\"" : "\"-Infinity\"";
    char text[64];
    const auto result = std::to_chars(text, text + sizeof(text), value);
    return std::string(text, result.ptr);
}

void AppendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

void AppendEscaped(std::string& out, char32_t c)
{
    switch (c) {
    case '"': out += "\\\""; return;
    case '\\': out += "\\\\"; return;
    case '\n': out += "\\n"; return;
    case '\r': out += "\\r"; return;
    case '\t': out += "\\t"; return;
    case '\b': out += "\\b"; return;
    case '\f': out += "\\f"; return;
    default: break;
    }
    if (c < 0x20 || (c >= 0xD800 && c <= 0xDFFF)) {
        char text[16];
        std::snprintf(text, sizeof(text), "\\u%04X", static_cast<unsigned>(c));
        out += text;
        return;
    }
    AppendUtf8(out, c);
}

// Appended piece by piece: "\"" + std::string makes g++ 12 at -O3 warn
// falsely (-Wrestrict) inside std::string.
std::string InQuotes(const std::string& text)
{
    std::string quoted;
    quoted.reserve(text.size() + 2);
    quoted += '"';
    quoted += text;
    quoted += '"';
    return quoted;
}

std::string HexBytes(const BYTE* data, ULONG size)
{
    std::string text;
    char pair[4];
    for (ULONG i = 0; i < size; ++i) {
        std::snprintf(pair, sizeof(pair), "%02X", data[i]);
        if (i != 0)
            text += ' ';
        text += pair;
    }
    return text;
}

}  // namespace

std::string FormatStatus(NTSTATUS status)
{
    char text[11];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<std::uint32_t>(status));
    return text;
}

std::string FormatPropertyKey(const PROPERTYKEY& key)
{
    return host::com::FormatGuid(key.fmtid) + " " + std::to_string(key.pid);
}

std::string VarTypeName(VARTYPE vt)
{
    switch (vt) {
    case VT_EMPTY: return "EMPTY";
    case VT_NULL: return "NULL";
    case VT_I1: return "I1";
    case VT_UI1: return "UI1";
    case VT_I2: return "I2";
    case VT_UI2: return "UI2";
    case VT_I4: return "I4";
    case VT_UI4: return "UI4";
    case VT_INT: return "INT";
    case VT_UINT: return "UINT";
    case VT_I8: return "I8";
    case VT_UI8: return "UI8";
    case VT_R4: return "R4";
    case VT_R8: return "R8";
    case VT_BOOL: return "BOOL";
    case VT_FILETIME: return "FILETIME";
    case VT_CLSID: return "CLSID";
    case VT_LPWSTR: return "LPWSTR";
    case VT_BLOB: return "BLOB";
    default: break;
    }
    char text[8];
    std::snprintf(text, sizeof(text), "0x%04X", static_cast<unsigned>(vt));
    return text;
}

std::string FormatFloat(float value) { return ShortestText(value); }
std::string FormatDouble(double value) { return ShortestText(value); }

std::string JsonQuote(std::u16string_view text)
{
    std::string out = "\"";
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        const bool high = c >= 0xD800 && c <= 0xDBFF;
        if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[i + 1]) - 0xDC00);
            ++i;
        }
        AppendEscaped(out, c);
    }
    out += '"';
    return out;
}

std::string JsonQuote(std::string_view utf8)
{
    std::string out = "\"";
    for (char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            AppendEscaped(out, byte);
        else
            out += c;  // already UTF-8
    }
    out += '"';
    return out;
}

std::optional<std::string> ValueJson(const PROPVARIANT& v)
{
    switch (v.vt) {
    case VT_I1: return std::to_string(static_cast<int>(v.cVal));
    case VT_UI1: return std::to_string(v.bVal);
    case VT_I2: return std::to_string(v.iVal);
    case VT_UI2: return std::to_string(v.uiVal);
    case VT_I4: return std::to_string(v.lVal);
    case VT_UI4: return std::to_string(v.ulVal);
    case VT_INT: return std::to_string(v.intVal);
    case VT_UINT: return std::to_string(v.uintVal);
    case VT_I8: return std::to_string(v.hVal);
    case VT_UI8: return std::to_string(v.uhVal);
    case VT_R4: return FormatFloat(v.fltVal);
    case VT_R8: return FormatDouble(v.dblVal);
    case VT_BOOL:
        if (v.boolVal == VARIANT_TRUE)
            return "true";
        if (v.boolVal == VARIANT_FALSE)
            return "false";
        return std::to_string(static_cast<USHORT>(v.boolVal));
    case VT_FILETIME:
        return std::to_string(static_cast<ULONGLONG>(v.filetime.dwHighDateTime) << 32 | v.filetime.dwLowDateTime);
    case VT_CLSID:
        return v.puuid == nullptr ? std::string("null") : InQuotes(host::com::FormatGuid(*v.puuid));
    case VT_LPWSTR:
        return v.pwszVal == nullptr ? std::string("null") : JsonQuote(std::u16string_view(v.pwszVal));
    case VT_BLOB:
        return v.blob.pBlobData == nullptr ? std::string("null")
                                           : InQuotes(HexBytes(v.blob.pBlobData, v.blob.cbSize));
    default: return std::nullopt;
    }
}

std::string EntryJson(const PROPERTYKEY& key, const PROPVARIANT& value)
{
    std::string out = "{\"key\":\"" + FormatPropertyKey(key) + "\",\"vt\":\"" + VarTypeName(value.vt) + "\"";
    if (auto v = ValueJson(value)) {
        out += ",\"value\":";
        out += *v;
    }
    out += '}';
    return out;
}

std::string CollectionListJson(const SENSOR_COLLECTION_LIST& list)
{
    std::string out = "[";
    for (ULONG i = 0; i < list.Count; ++i) {
        if (i != 0)
            out += ',';
        out += EntryJson(list.List[i].Key, list.List[i].Value);
    }
    out += ']';
    return out;
}

std::string CollectionListJson(const CollectionListCopy& list) { return CollectionListJson(list.List()); }

std::string PropertyListJson(const PROPERTYKEY* keys, ULONG count)
{
    std::string out = "[";
    for (ULONG i = 0; i < count; ++i) {
        if (i != 0)
            out += ',';
        out += '"' + FormatPropertyKey(keys[i]) + '"';
    }
    out += ']';
    return out;
}

std::string PropertyListJson(const SENSOR_PROPERTY_LIST& list) { return PropertyListJson(list.List, list.Count); }

std::string EntryText(const PROPERTYKEY& key, const PROPVARIANT& value)
{
    std::string out = FormatPropertyKey(key) + " " + VarTypeName(value.vt);
    if (auto v = ValueJson(value))
        out += " " + *v;
    return out;
}

std::string CollectionListText(const SENSOR_COLLECTION_LIST& list)
{
    std::string out;
    for (ULONG i = 0; i < list.Count; ++i) {
        if (i != 0)
            out += '\n';
        out += EntryText(list.List[i].Key, list.List[i].Value);
    }
    return out;
}

std::string CollectionListText(const CollectionListCopy& list) { return CollectionListText(list.List()); }

}  // namespace host::sensorscx
