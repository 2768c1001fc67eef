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

bool ReadBinary(InputFile& file, const DescriptorInputLimits& limits, std::vector<std::uint8_t>& descriptor,
                std::string& reason)
{
    std::array<char, kChunkBytes> chunk;
    for (;;) {
        const long got = file.Read(chunk.data(), chunk.size(), reason);
        if (got < 0) return false;
        if (got == 0) return true;
        if (static_cast<std::size_t>(got) > limits.maxDescriptorBytes - descriptor.size()) {
            reason = "longer than " + std::to_string(limits.maxDescriptorBytes) + " bytes; not a report descriptor";
            return false;
        }
        descriptor.insert(descriptor.end(), chunk.data(), chunk.data() + got);
    }
}

bool ReadText(InputFile& file, const DescriptorInputLimits& limits, std::vector<std::uint8_t>& descriptor,
              std::string& reason)
{
    host::hid::HexDescriptorReader reader(limits.maxDescriptorBytes);
    std::array<char, kChunkBytes> chunk;
    std::string line;  // the unfinished line
    std::size_t lineNumber = 1;
    bool going = true;
    while (going) {
        const long got = file.Read(chunk.data(), chunk.size(), reason);
        if (got < 0) return false;
        if (got == 0) break;
        std::string_view rest(chunk.data(), static_cast<std::size_t>(got));
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
            going = reader.AddLine(line);
            line.clear();
            ++lineNumber;
            rest.remove_prefix(end + 1);
        }
    }
    if (going && !line.empty()) reader.AddLine(line);
    return reader.Finish(descriptor, reason);
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

bool ReadDescriptorInput(const std::string& path, bool binary, std::vector<std::uint8_t>& descriptor,
                         std::string& err, const DescriptorInputLimits& limits)
{
    descriptor.clear();
    InputFile file;
    std::string reason;
    const bool ok = file.Open(path, reason) && (binary ? ReadBinary(file, limits, descriptor, reason)
                                                      : ReadText(file, limits, descriptor, reason));
    if (ok) return true;
    descriptor.clear();
    err = PrintablePath(path) + ": " + reason + "\n";
    return false;
}

}  // namespace hidsensor
