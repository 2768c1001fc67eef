// CLSIDFromString, StringFromCLSID and CoCreateGuid.
#include "host/sensorscx/guid.h"

#include <mutex>

#include "host/common/fault_injection.h"
#include "host/common/host_state.h"
#include "platform/com.h"

namespace host::com {
namespace {

constexpr std::size_t kGuidTextLength = 38;  // braces, 32 digits, 4 dashes

// SplitMix64: small, fast, and every seed gives a full-period sequence.
class GuidGenerator {
public:
    void Seed(std::uint64_t seed)
    {
        std::lock_guard lock(mutex_);
        state_ = seed;
    }

    GUID Next()
    {
        std::uint64_t high = 0;
        std::uint64_t low = 0;
        {
            std::lock_guard lock(mutex_);
            high = Step();
            low = Step();
        }
        GUID guid{};
        guid.Data1 = static_cast<std::uint32_t>(high >> 32);
        guid.Data2 = static_cast<std::uint16_t>(high >> 16);
        // Version 4 (random) in the top nibble of Data3, RFC 4122 variant in Data4[0].
        guid.Data3 = static_cast<std::uint16_t>((high & 0x0FFF) | 0x4000);
        for (int i = 0; i < 8; ++i)
            guid.Data4[i] = static_cast<std::uint8_t>(low >> (56 - 8 * i));
        guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3F) | 0x80);
        return guid;
    }

private:
    std::uint64_t Step()
    {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    std::mutex mutex_;
    std::uint64_t state_ = 1;
};

GuidGenerator& Generator()
{
    static GuidGenerator generator;
    static const bool registered = (host::RegisterHostStateReset([] { Generator().Seed(1); }), true);
    (void)registered;
    return generator;
}

int HexValue(char32_t c)
{
    if (c >= '0' && c <= '9')
        return static_cast<int>(c - '0');
    if (c >= 'a' && c <= 'f')
        return static_cast<int>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F')
        return static_cast<int>(c - 'A' + 10);
    return -1;
}

template <class Char>
std::optional<GUID> ParseBraced(std::basic_string_view<Char> text)
{
    if (text.size() != kGuidTextLength || text.front() != '{' || text.back() != '}')
        return std::nullopt;
    // Positions of the dashes inside the braces: 8-4-4-4-12.
    std::uint8_t bytes[16] = {};
    std::size_t nibble = 0;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        const bool dashPosition = i == 9 || i == 14 || i == 19 || i == 24;
        if (dashPosition) {
            if (text[i] != '-')
                return std::nullopt;
            continue;
        }
        const int value = HexValue(static_cast<char32_t>(text[i]));
        if (value < 0)
            return std::nullopt;
        bytes[nibble / 2] = static_cast<std::uint8_t>(bytes[nibble / 2] << 4 | value);
        ++nibble;
    }
    GUID guid{};
    guid.Data1 = static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
                 static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
    guid.Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
    guid.Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
    for (int i = 0; i < 8; ++i)
        guid.Data4[i] = bytes[8 + i];
    return guid;
}

}  // namespace

void SeedGuidGenerator(std::uint64_t seed) { Generator().Seed(seed); }

std::string FormatGuid(const GUID& guid)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(kGuidTextLength);
    const auto put = [&](std::uint64_t value, int digits) {
        for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
            text += kDigits[(value >> shift) & 0xF];
    };
    text += '{';
    put(guid.Data1, 8);
    text += '-';
    put(guid.Data2, 4);
    text += '-';
    put(guid.Data3, 4);
    text += '-';
    put(guid.Data4[0], 2);
    put(guid.Data4[1], 2);
    text += '-';
    for (int i = 2; i < 8; ++i)
        put(guid.Data4[i], 2);
    text += '}';
    return text;
}

std::optional<GUID> ParseGuid(std::u16string_view text) { return ParseBraced(text); }
std::optional<GUID> ParseGuid(std::string_view text) { return ParseBraced(text); }

}  // namespace host::com

extern "C" HRESULT CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid)
{
    if (lpsz == nullptr || pclsid == nullptr)
        return E_INVALIDARG;
    // Bounded scan: anything longer than a GUID is not one, however long it is.
    std::size_t length = 0;
    while (length <= host::com::kGuidTextLength && lpsz[length] != 0)
        ++length;
    const auto guid = host::com::ParseGuid(std::u16string_view(lpsz, length));
    *pclsid = guid.value_or(GUID{});
    return guid ? S_OK : CO_E_CLASSSTRING;
}

extern "C" HRESULT CoCreateGuid(GUID* pguid)
{
    if (pguid == nullptr)
        return E_INVALIDARG;
    host::DriverCall driverCall(host::FaultPoint::GuidCreate);
    if (driverCall.Fails())
        return E_OUTOFMEMORY;
    *pguid = host::com::Generator().Next();
    return S_OK;
}

extern "C" HRESULT StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz)
{
    if (lplpsz == nullptr)
        return E_INVALIDARG;
    *lplpsz = nullptr;
    const std::string text = host::com::FormatGuid(rclsid);
    auto* out = static_cast<LPOLESTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(OLECHAR)));
    if (out == nullptr)
        return E_OUTOFMEMORY;
    for (std::size_t i = 0; i < text.size(); ++i)
        out[i] = static_cast<OLECHAR>(text[i]);
    out[text.size()] = 0;
    *lplpsz = out;
    return S_OK;
}
