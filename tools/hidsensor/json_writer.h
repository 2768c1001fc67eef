// A small streaming JSON writer: objects, arrays, strings, integers and
// booleans, compact or indented. Keys and strings are escaped.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace hidsensor {

class JsonWriter {
public:
    explicit JsonWriter(bool pretty) : pretty_(pretty) {}

    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    JsonWriter& Key(std::string_view key);
    JsonWriter& String(std::string_view value);
    JsonWriter& Int(std::int64_t value);
    JsonWriter& Bool(bool value);
    // A value already in JSON form (e.g. a formatted number).
    JsonWriter& Raw(std::string_view json);

    template <class T>
    JsonWriter& Field(std::string_view key, T value)
    {
        Key(key);
        if constexpr (std::is_same_v<T, bool>)
            return Bool(value);
        else
            return Int(static_cast<std::int64_t>(value));
    }

    const std::string& Text() const { return out_; }

private:
    void BeforeValue();
    void NewLine();

    bool pretty_;
    std::string out_;
    std::vector<bool> hasItems_;  // one per open container
    bool afterKey_ = false;
};

std::string JsonEscape(std::string_view text);

}  // namespace hidsensor
