// Walks a command's arguments; values of options are checked where they enter.
#pragma once

#include <charconv>
#include <string>
#include <vector>

namespace hidsensor {

class CommandLine {
public:
    explicit CommandLine(const std::vector<std::string>& args) : args_(args) {}

    bool More() const { return next_ < args_.size(); }
    std::string Next() { return args_[next_++]; }

    // Reads the option's value as a non-negative decimal index.
    bool NextIndex(long& value, std::string& err)
    {
        const std::string option = next_ > 0 ? args_[next_ - 1] : std::string{};
        if (!More()) {
            err = option + ": missing value\n";
            return false;
        }
        const std::string text = Next();
        long parsed = 0;
        const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), parsed);
        if (ec != std::errc{} || end != text.data() + text.size() || parsed < 0 || parsed > 0xFFFF) {
            err = option + ": '" + text + "' is not a collection index (0 to 65535)\n";
            return false;
        }
        value = parsed;
        return true;
    }

private:
    const std::vector<std::string>& args_;
    std::size_t next_ = 0;
};

}  // namespace hidsensor
