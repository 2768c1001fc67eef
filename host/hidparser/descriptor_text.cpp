#include "host/hidparser/descriptor_text.h"

#include <algorithm>
#include <cstddef>

namespace host::hid {

namespace {

bool IsSeparator(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ',' || c == '\f' || c == '\v';
}

int HexDigit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Walks tokens of one text, keeping line and column for messages.
class TokenReader {
public:
    TokenReader(std::string_view text, std::size_t line, std::size_t column = 1)
        : text_(text), line_(line), column_(column)
    {
    }

    // False at the end of the text.
    bool Next(std::string_view& token, std::string& where)
    {
        while (position_ < text_.size() && IsSeparator(text_[position_])) Advance();
        if (position_ == text_.size()) return false;
        where = "line " + std::to_string(line_) + ", column " + std::to_string(column_);
        const std::size_t start = position_;
        while (position_ < text_.size() && !IsSeparator(text_[position_])) Advance();
        token = text_.substr(start, position_ - start);
        return true;
    }

private:
    void Advance()
    {
        if (text_[position_] == '\n') {
            ++line_;
            column_ = 0;
        }
        ++position_;
        ++column_;
    }

    std::string_view text_;
    std::size_t position_ = 0;
    std::size_t line_;
    std::size_t column_;
};

bool AppendHexToken(std::string_view token, const std::string& where, std::vector<std::uint8_t>& bytes,
                    std::string& error)
{
    std::string_view digits = token;
    if (digits.size() >= 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) digits.remove_prefix(2);
    for (char c : digits) {
        if (HexDigit(c) < 0) {
            error = "bad token '" + std::string(token) + "' at " + where;
            return false;
        }
    }
    if (digits.empty()) {
        error = "bad token '" + std::string(token) + "' at " + where + ": no hex digits";
        return false;
    }
    if (digits.size() % 2 != 0) {
        error = "odd number of hex digits in '" + std::string(token) + "' at " + where;
        return false;
    }
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(HexDigit(digits[i]) * 16 + HexDigit(digits[i + 1])));
    return true;
}

bool ParsePlain(std::string_view text, std::vector<std::uint8_t>& bytes, std::string& error)
{
    TokenReader reader(text, 1);
    std::string_view token;
    std::string where;
    while (reader.Next(token, where)) {
        if (!AppendHexToken(token, where, bytes, error)) return false;
    }
    return true;
}

bool ParseRecorderLine(std::string_view rest, std::size_t line, std::size_t column, std::vector<std::uint8_t>& bytes,
                       std::string& error)
{
    TokenReader reader(rest, line, column);
    std::string_view token;
    std::string where;
    if (!reader.Next(token, where)) {
        error = "R: line without byte count at line " + std::to_string(line);
        return false;
    }
    std::size_t count = 0;
    for (char c : token) {
        if (c < '0' || c > '9' || count > 1000000) {
            error = "bad byte count '" + std::string(token) + "' at " + where;
            return false;
        }
        count = count * 10 + static_cast<std::size_t>(c - '0');
    }
    while (reader.Next(token, where)) {
        if (!AppendHexToken(token, where, bytes, error)) return false;
    }
    if (bytes.size() != count) {
        error = "R: line at line " + std::to_string(line) + " gives " + std::to_string(count) + " bytes but holds " +
                std::to_string(bytes.size());
        return false;
    }
    return true;
}

// The text after "R:" when the line starts with it (after blanks).
bool RecorderLine(std::string_view line, std::string_view& rest)
{
    std::size_t i = 0;
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    if (line.substr(i, 2) != "R:") return false;
    rest = line.substr(i + 2);
    return true;
}

}  // namespace

bool ParseHexDescriptor(std::string_view text, std::vector<std::uint8_t>& bytes, std::string& error)
{
    bytes.clear();
    error.clear();

    bool recorder = false;
    std::size_t lineNumber = 0;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string_view line = text.substr(start, end - start);
        ++lineNumber;
        std::string_view rest;
        if (RecorderLine(line, rest)) {
            if (recorder) {
                error = "more than one R: line (line " + std::to_string(lineNumber) + ")";
                bytes.clear();
                return false;
            }
            recorder = true;
            const auto column = static_cast<std::size_t>(rest.data() - line.data()) + 1;
            if (!ParseRecorderLine(rest, lineNumber, column, bytes, error)) {
                bytes.clear();
                return false;
            }
        }
        start = end + 1;
    }
    if (recorder) return true;
    if (!ParsePlain(text, bytes, error)) {
        bytes.clear();
        return false;
    }
    return true;
}

}  // namespace host::hid
