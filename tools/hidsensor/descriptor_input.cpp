#include "tools/hidsensor/descriptor_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "host/hidparser/descriptor_text.h"

namespace hidsensor {
namespace {

// An open file descriptor, closed on every path; standard input is borrowed.
class InputFile {
public:
    InputFile() = default;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile()
    {
        if (owned_) ::close(fd_);
    }

    bool Open(const std::string& path, std::string& reason)
    {
        if (path == "-") {
            fd_ = STDIN_FILENO;
        } else {
            fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            if (fd_ < 0) {
                reason = std::string("cannot open: ") + std::strerror(errno);
                return false;
            }
            owned_ = true;
        }
        struct stat info {};
        if (::fstat(fd_, &info) == 0 && S_ISDIR(info.st_mode)) {
            reason = "is a directory";
            return false;
        }
        return true;
    }

    // Bytes read, 0 at the end, -1 on error (reason set).
    long Read(char* buffer, std::size_t size, std::string& reason)
    {
        for (;;) {
            const ssize_t got = ::read(fd_, buffer, size);
            if (got >= 0) return static_cast<long>(got);
            if (errno == EINTR) continue;
            reason = std::string("read error: ") + std::strerror(errno);
            return -1;
        }
    }

private:
    int fd_ = -1;
    bool owned_ = false;
};

constexpr std::size_t kChunkBytes = 64 * 1024;

// The start of the input decides between text and raw bytes (see the header).
bool LooksBinary(std::string_view start)
{
    if (start.empty()) return false;
    const auto first = static_cast<unsigned char>(start[0]);
    if (first == 0xEF) return start.size() < 3 || start.substr(0, 3) != "\xEF\xBB\xBF";
    if (first >= 0x80) return true;
    return first != 0 && first < 0x20 && first != '\t' && first != '\n' && first != '\r' && first != '\f' &&
           first != '\v';
}

bool ReadBinary(InputFile& file, std::string_view first, const DescriptorInputLimits& limits,
                std::vector<std::uint8_t>& descriptor, std::string& reason)
{
    std::array<char, kChunkBytes> chunk;
    std::string_view got = first;
    for (;;) {
        if (got.empty()) return true;
        if (got.size() > limits.maxDescriptorBytes - descriptor.size()) {
            reason = "longer than " + std::to_string(limits.maxDescriptorBytes) + " bytes; not a report descriptor";
            return false;
        }
        descriptor.insert(descriptor.end(), got.begin(), got.end());
        const long read = file.Read(chunk.data(), chunk.size(), reason);
        if (read < 0) return false;
        got = std::string_view(chunk.data(), static_cast<std::size_t>(read));
    }
}

bool IsDigits(std::string_view text) { return !text.empty() && text.find_first_not_of("0123456789") == text.npos; }

// "001:004:000:DESCRIPTOR 1357510667.911657": usbhid-dump's header of a block.
bool UsbhidDumpHeader(std::string_view line, std::string_view kind, std::string_view& address)
{
    if (line.size() < 12 + kind.size() || line[3] != ':' || line[7] != ':' || line[11] != ':') return false;
    if (!IsDigits(line.substr(0, 3)) || !IsDigits(line.substr(4, 3)) || !IsDigits(line.substr(8, 3))) return false;
    if (line.substr(12, kind.size()) != kind) return false;
    address = line.substr(0, 11);
    return true;
}

std::string_view Trimmed(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(" \t\r");
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

// Splits text input into its descriptors (one per captured device) and strips
// what people paste around the bytes; each device's bytes go through the
// shared hex reader, fed every line number so its messages stay right.
class TextInput {
public:
    explicit TextInput(std::size_t maxBytes) : maxBytes_(maxBytes) { devices_.emplace_back(maxBytes, 0); }

    bool AddLine(std::string_view raw)
    {
        ++lineNumber_;
        std::string line = Clean(raw);
        std::string_view text = Trimmed(line);
        std::string_view address;
        if (UsbhidDumpHeader(text, "DESCRIPTOR", address)) {
            inStream_ = false;
            if (!StartDevice(-1)) return false;
            Current().info.name = "usbhid-dump " + std::string(address);
            return Feed({});
        }
        if (UsbhidDumpHeader(text, "STREAM", address)) inStream_ = true;
        if (inStream_) return Feed({});
        if (text.size() >= 2 && text[1] == ':' && (text[0] == 'D' || text[0] == 'N' || text[0] == 'I')) {
            const std::string_view value = Trimmed(text.substr(2));
            if (text[0] == 'D') {
                if (IsDigits(value) && value.size() < 6 && !StartDevice(std::stol(std::string(value)))) return false;
            } else {
                (text[0] == 'N' ? Current().info.name : Current().info.ids) = std::string(value).substr(0, 200);
            }
            return Feed({});
        }
        return Feed(line);
    }

    bool Finish(std::vector<InputDescriptor>& out, std::string& reason)
    {
        if (!reason_.empty()) {
            reason = reason_;
            return false;
        }
        for (std::size_t i = 0; i < devices_.size(); ++i) {
            Device& device = devices_[i];
            if (devices_.size() > 1 && !device.used) continue;
            if (!device.reader.Finish(device.info.bytes, reason)) {
                if (devices_.size() > 1) reason = "device " + std::to_string(i) + ": " + reason;
                return false;
            }
            out.push_back(std::move(device.info));
        }
        return true;
    }

private:
    struct Device {
        Device(std::size_t maxBytes, long deviceNumber) : reader(maxBytes), number(deviceNumber) {}
        InputDescriptor info;
        host::hid::HexDescriptorReader reader;
        long number;
        bool used = false;
    };

    static constexpr std::size_t kMaxDevices = 32;

    Device& Current() { return devices_[current_]; }

    bool Feed(std::string_view line)
    {
        if (!Trimmed(line).empty()) Current().used = true;
        return Current().reader.AddLine(line);
    }

    // Selects device `number` ("D: n"), creating it; -1 always creates one.
    bool StartDevice(long number)
    {
        for (std::size_t i = 0; number >= 0 && i < devices_.size(); ++i) {
            if (devices_[i].number == number) {
                current_ = i;
                return true;
            }
        }
        Device& now = Current();
        if (!now.used && now.info.name.empty() && now.info.ids.empty()) {  // nothing yet: reuse it
            now.number = number;
            return true;
        }
        if (devices_.size() == kMaxDevices) {
            reason_ = "more than " + std::to_string(kMaxDevices) + " devices (line " + std::to_string(lineNumber_) + ")";
            return false;
        }
        devices_.emplace_back(maxBytes_, number);
        current_ = devices_.size() - 1;
        // Earlier lines count for the new reader's line numbers.
        for (std::size_t i = 1; i < lineNumber_; ++i) Current().reader.AddLine({});
        return true;
    }

    // The line without byte-order mark, comments and C array syntax.
    std::string Clean(std::string_view raw)
    {
        if (lineNumber_ == 1 && raw.substr(0, 3) == "\xEF\xBB\xBF") raw.remove_prefix(3);
        std::string line;
        for (std::size_t i = 0; i < raw.size();) {
            if (inBlockComment_) {
                const std::size_t end = raw.find("*/", i);
                if (end == raw.npos) break;
                inBlockComment_ = false;
                i = end + 2;
                line += ' ';
                continue;
            }
            const char c = raw[i];
            if (c == '#' || (c == '/' && raw.substr(i, 2) == "//")) break;
            if (c == '/' && raw.substr(i, 2) == "/*") {
                inBlockComment_ = true;
                i += 2;
                continue;
            }
            if (c == '{' && !arrayOpen_) {
                arrayOpen_ = true;
                line.clear();  // the declaration before it
                ++i;
                continue;
            }
            if (c == '}' && arrayOpen_) {
                arrayClosed_ = true;
                break;
            }
            line += c;
            ++i;
        }
        if (arrayClosed_ && !arrayEnded_) {
            arrayEnded_ = true;
            return line;
        }
        if (arrayEnded_) return {};
        // A declaration whose brace comes on a later line.
        const std::string_view text = Trimmed(line);
        if (!arrayOpen_ && (text.find("[]") != text.npos || (!text.empty() && text.back() == '='))) return {};
        return line;
    }

    std::size_t maxBytes_;
    std::vector<Device> devices_;
    std::size_t current_ = 0;
    std::size_t lineNumber_ = 0;
    bool inBlockComment_ = false;
    bool inStream_ = false;
    bool arrayOpen_ = false;
    bool arrayClosed_ = false;
    bool arrayEnded_ = false;
    std::string reason_;
};

bool ReadText(InputFile& file, std::string_view first, const DescriptorInputLimits& limits,
              std::vector<InputDescriptor>& descriptors, std::string& reason)
{
    TextInput input(limits.maxDescriptorBytes);
    std::array<char, kChunkBytes> chunk;
    std::string line;  // the unfinished line
    std::size_t lineNumber = 1;
    bool going = true;
    std::string_view rest = first;
    while (going) {
        while (going && !rest.empty()) {
            const std::size_t end = rest.find('\n');
            const std::size_t take = end == std::string_view::npos ? rest.size() : end;
            if (take > limits.maxLineBytes - line.size()) {
                reason = "line " + std::to_string(lineNumber) + " longer than " + std::to_string(limits.maxLineBytes) +
                         " bytes; not a report descriptor";
                return false;
            }
            line.append(rest.substr(0, take));
            if (end == std::string_view::npos) break;
            going = input.AddLine(line);
            line.clear();
            ++lineNumber;
            rest.remove_prefix(end + 1);
        }
        if (!going) break;
        const long got = file.Read(chunk.data(), chunk.size(), reason);
        if (got < 0) return false;
        if (got == 0) break;
        rest = std::string_view(chunk.data(), static_cast<std::size_t>(got));
    }
    if (going && !line.empty()) input.AddLine(line);
    return input.Finish(descriptors, reason);
}

}  // namespace

std::string PrintablePath(const std::string& path)
{
    std::string shown;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            constexpr char kDigits[] = "0123456789abcdef";
            shown += "\\x";
            shown += kDigits[byte >> 4];
            shown += kDigits[byte & 0x0F];
        } else {
            shown += c;
        }
    }
    return shown;
}

bool ReadDescriptorInputs(const std::string& path, bool binary, std::vector<InputDescriptor>& descriptors,
                          std::string& err, const DescriptorInputLimits& limits)
{
    descriptors.clear();
    InputFile file;
    std::string reason;
    std::array<char, kChunkBytes> chunk;
    bool ok = file.Open(path, reason);
    long got = ok ? file.Read(chunk.data(), chunk.size(), reason) : -1;
    ok = got >= 0;
    if (ok) {
        const std::string_view first(chunk.data(), static_cast<std::size_t>(got));
        if (binary || LooksBinary(first)) {
            descriptors.emplace_back();
            ok = ReadBinary(file, first, limits, descriptors.back().bytes, reason);
        } else {
            ok = ReadText(file, first, limits, descriptors, reason);
        }
    }
    if (ok) return true;
    descriptors.clear();
    err = PrintablePath(path) + ": " + reason + "\n";
    return false;
}

bool ReadDescriptorInput(const std::string& path, bool binary, std::vector<std::uint8_t>& descriptor,
                         std::string& err, const DescriptorInputLimits& limits)
{
    descriptor.clear();
    std::vector<InputDescriptor> descriptors;
    if (!ReadDescriptorInputs(path, binary, descriptors, err, limits)) return false;
    if (descriptors.size() != 1) {
        err = PrintablePath(path) + ": holds " + std::to_string(descriptors.size()) + " descriptors, not one\n";
        return false;
    }
    descriptor = std::move(descriptors[0].bytes);
    return true;
}

}  // namespace hidsensor
