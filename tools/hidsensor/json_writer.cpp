#include "tools/hidsensor/json_writer.h"

#include <cstdio>

namespace hidsensor {

std::string JsonEscape(std::string_view text)
{
    std::string escaped;
    escaped.reserve(text.size() + 2);
    for (const char c : text) {
        switch (c) {
        case '"': escaped += "\\\""; break;
        case '\\': escaped += "\\\\"; break;
        case '\n': escaped += "\\n"; break;
        case '\r': escaped += "\\r"; break;
        case '\t': escaped += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char buffer[8];
                std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned>(c));
                escaped += buffer;
            } else {
                escaped += c;
            }
        }
    }
    return escaped;
}

void JsonWriter::NewLine()
{
    if (!pretty_)
        return;
    out_ += '\n';
    out_.append(hasItems_.size() * 2, ' ');
}

void JsonWriter::BeforeValue()
{
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (hasItems_.empty())
        return;
    if (hasItems_.back())
        out_ += ',';
    hasItems_.back() = true;
    NewLine();
}

JsonWriter& JsonWriter::BeginObject()
{
    BeforeValue();
    out_ += '{';
    hasItems_.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::EndObject()
{
    const bool hadItems = hasItems_.back();
    hasItems_.pop_back();
    if (hadItems)
        NewLine();
    out_ += '}';
    return *this;
}

JsonWriter& JsonWriter::BeginArray()
{
    BeforeValue();
    out_ += '[';
    hasItems_.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::EndArray()
{
    const bool hadItems = hasItems_.back();
    hasItems_.pop_back();
    if (hadItems)
        NewLine();
    out_ += ']';
    return *this;
}

JsonWriter& JsonWriter::Key(std::string_view key)
{
    BeforeValue();
    out_ += '"';
    out_ += JsonEscape(key);
    out_ += pretty_ ? "\": " : "\":";
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::String(std::string_view value)
{
    BeforeValue();
    out_ += '"';
    out_ += JsonEscape(value);
    out_ += '"';
    return *this;
}

JsonWriter& JsonWriter::Int(std::int64_t value)
{
    BeforeValue();
    out_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value)
{
    BeforeValue();
    out_ += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Raw(std::string_view json)
{
    BeforeValue();
    out_ += json;
    return *this;
}

}  // namespace hidsensor
