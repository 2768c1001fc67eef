#include "host/hidparser/descriptor_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

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

// A token as a message shows it: quoted, cut to a few dozen characters, with
// anything that is not printable ASCII escaped, so that a hostile file cannot
// flood or drive the terminal.
std::string Quoted(std::string_view token)
{
    constexpr std::size_t kShown = 24;
    constexpr char kDigits[] = "0123456789abcdef";
    std::string shown = "'";
    for (const char c : token.substr(0, kShown)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F && c != '\\') {
            shown += c;
        } else {
            shown += "\\x";
            shown += kDigits[byte >> 4];
            shown += kDigits[byte & 0x0F];
        }
    }
    if (token.size() > kShown) shown += "...";
    return shown + "'";
}

std::string TooLong(std::size_t maxBytes)
{
    return "descriptor longer than " + std::to_string(maxBytes) + " bytes";
}

enum class TokenResult { Appended, Bad, TooLong };

TokenResult AppendHexToken(std::string_view token, const std::string& where, std::size_t maxBytes,
                           std::vector<std::uint8_t>& bytes, std::string& error)
{
    std::string_view digits = token;
    if (digits.size() >= 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) digits.remove_prefix(2);
    for (char c : digits) {
        if (HexDigit(c) < 0) {
            error = "bad token " + Quoted(token) + " at " + where;
            return TokenResult::Bad;
        }
    }
    if (digits.empty()) {
        error = "bad token " + Quoted(token) + " at " + where + ": no hex digits";
        return TokenResult::Bad;
    }
    if (digits.size() % 2 != 0) {
        error = "odd number of hex digits in " + Quoted(token) + " at " + where;
        return TokenResult::Bad;
    }
    if (digits.size() / 2 > maxBytes - bytes.size()) {
        error = TooLong(maxBytes) + " at " + where;
        return TokenResult::TooLong;
    }
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(HexDigit(digits[i]) * 16 + HexDigit(digits[i + 1])));
    return TokenResult::Appended;
}

TokenResult ParsePlainLine(std::string_view line, std::size_t lineNumber, std::size_t maxBytes,
                           std::vector<std::uint8_t>& bytes, std::string& error)
{
    TokenReader reader(line, lineNumber);
    std::string_view token;
    std::string where;
    while (reader.Next(token, where)) {
        const TokenResult result = AppendHexToken(token, where, maxBytes, bytes, error);
        if (result != TokenResult::Appended) return result;
    }
    return TokenResult::Appended;
}

bool ParseRecorderLine(std::string_view rest, std::size_t line, std::size_t column, std::size_t maxBytes,
                       std::vector<std::uint8_t>& bytes, std::string& error)
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
            error = "bad byte count " + Quoted(token) + " at " + where;
            return false;
        }
        count = count * 10 + static_cast<std::size_t>(c - '0');
    }
    if (count > maxBytes) {
        error = TooLong(maxBytes) + ": R: line at line " + std::to_string(line) + " gives " + std::to_string(count);
        return false;
    }
    while (reader.Next(token, where)) {
        if (AppendHexToken(token, where, maxBytes, bytes, error) != TokenResult::Appended) return false;
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

HexDescriptorReader::HexDescriptorReader(std::size_t maxBytes) : maxBytes_(maxBytes) {}

bool HexDescriptorReader::AddLine(std::string_view line)
{
    ++lineNumber_;
    if (!recorderError_.empty()) return false;
    std::string_view rest;
    if (RecorderLine(line, rest)) {
        if (recorder_) {
            recorderError_ = "more than one R: line (line " + std::to_string(lineNumber_) + ")";
            return false;
        }
        recorder_ = true;
        plainBytes_ = {};
        const auto column = static_cast<std::size_t>(rest.data() - line.data()) + 1;
        return ParseRecorderLine(rest, lineNumber_, column, maxBytes_, recorderBytes_, recorderError_);
    }
    // Until an R: line turns the text into a capture, every line is hex. A
    // capture's first lines (N:, I:, ...) are not, so a hex text that
    // outgrows the limit is no capture: reading can stop there.
    if (!recorder_ && plainError_.empty())
        plainTooLong_ = ParsePlainLine(line, lineNumber_, maxBytes_, plainBytes_, plainError_) == TokenResult::TooLong;
    return !plainTooLong_;
}

bool HexDescriptorReader::Finish(std::vector<std::uint8_t>& bytes, std::string& error)
{
    bytes.clear();
    error = recorder_ ? recorderError_ : plainError_;
    if (!error.empty()) return false;
    bytes = recorder_ ? std::move(recorderBytes_) : std::move(plainBytes_);
    return true;
}

bool ParseHexDescriptor(std::string_view text, std::vector<std::uint8_t>& bytes, std::string& error)
{
    HexDescriptorReader reader(SIZE_MAX);
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        if (!reader.AddLine(text.substr(start, end - start))) break;
        start = end + 1;
    }
    return reader.Finish(bytes, error);
}

}  // namespace host::hid
