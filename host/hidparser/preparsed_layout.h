// Layout of the preparsed data: one flat, position-independent byte blob per
// top-level collection. The HID class driver hands it out as the collection
// descriptor (DescriptorSize bytes); callers copy it anywhere and pass it back
// as PHIDP_PREPARSED_DATA. Nothing in it is a pointer, every multi-byte value
// is little-endian host order, and readers load with memcpy, so the blob may
// sit at any address.
//
//   offset 0   Header (64 bytes, below); words 0..4 are the "hot words"
//   offset 64  HeaderCheck of bytes 0..63 (16 bytes)
//   offset 80  body, sections in this order, sizes given by the header counts:
//     for each report type: ValueSlot[1 << hashBits]   value lookup, first so
//                                       that its place follows from the hot words
//     for each report type: FieldRecord[valueCapCount]   value fields
//     for each report type: FieldRecord[buttonCapCount]  button fields
//     for each report type: HIDP_VALUE_CAPS[valueCapCount]
//     for each report type: HIDP_BUTTON_CAPS[buttonCapCount]
//     HIDP_LINK_COLLECTION_NODE[nodeCount]  (UserContext 0)
//   last 8     u64 trailer: kTrailer ^ totalSize
//
// Validation. The per-report calls (value Get/Set, the usage calls) read
// only the hot words, the value lookup and the button records: they compare
// word 0 with one constant, check the hot words against hotCheck, check that
// the counts add up to totalSize and check the trailer (so a blob whose tail
// was cut or zeroed is refused). Every lookup slot and field record carries
// its own check, and every bit position they give is checked against the
// report length before use. A value the lookup cannot answer (usage ranges, a
// Set on a report whose byte 0 is 0) goes the slow way, which checks the
// whole header (HeaderCheck) and that the sections add up, as the calls that
// report capabilities do; the calls that copy capabilities or nodes also
// check the body checksum.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "platform/hidpi.h"

namespace host::hid::preparsed {

inline constexpr std::uint32_t kMagic = 0x44505048;  // "HPPD"
inline constexpr std::uint16_t kVersion = 3;
inline constexpr std::uint64_t kTrailer = 0x444E452D44505048ULL;  // "HPPD-END"
inline constexpr std::size_t kReportTypeCount = 3;
inline constexpr std::uint8_t kMaxHashBits = 16;

struct Header {
    // Hot words 0..4: everything a value Get/Set needs; word 5 checks them.
    std::uint32_t magic;       // word 0, with version and headerSize: one constant
    std::uint16_t version;
    std::uint16_t headerSize;  // sizeof(Header) + sizeof(HeaderCheck)
    std::uint32_t totalSize;   // whole blob, trailer included
    std::uint16_t reportByteLength[kReportTypeCount];  // longest report of the type incl. report-ID byte; 0 = none
    std::uint16_t usage;                               // of the top-level collection
    std::uint16_t usagePage;
    std::uint16_t nodeCount;
    std::uint16_t valueCapCount[kReportTypeCount];
    std::uint16_t buttonCapCount[kReportTypeCount];
    std::uint8_t hashBits[kReportTypeCount];  // the value lookup of the type has 1 << hashBits slots
    std::uint8_t reserved0;
    std::uint64_t hotCheck;  // HotCheck(words 1..4)
    // Read only by the calls that check the whole header.
    std::uint64_t bodyChecksum;
    std::uint16_t dataIndexCount[kReportTypeCount];
    std::uint16_t reserved1;
};
// HotIndex::Open reads the hot words by these positions.
static_assert(sizeof(Header) == 64 && std::is_trivially_copyable_v<Header>);
static_assert(offsetof(Header, totalSize) == 8 && offsetof(Header, reportByteLength) == 12 &&
              offsetof(Header, nodeCount) == 22 && offsetof(Header, valueCapCount) == 24 &&
              offsetof(Header, buttonCapCount) == 30 && offsetof(Header, hashBits) == 36 &&
              offsetof(Header, hotCheck) == 40 && offsetof(Header, bodyChecksum) == 48);

inline constexpr std::size_t kHotWordCount = 5;

// Word 0 of every valid header.
inline constexpr std::uint64_t kHeaderWord0 = kMagic | (std::uint64_t{kVersion} << 32) |
                                              (std::uint64_t{sizeof(Header) + 16} << 48);

// Check of hot words 1..4. Each word goes through its own odd multiplier
// (a bijection), so any change confined to one word always changes the
// check; changes to two words cancel only by a 64-bit coincidence. Four
// independent multiplies: a few cycles, off the lookup's critical path.
inline std::uint64_t HotCheck(std::uint64_t w1, std::uint64_t w2, std::uint64_t w3, std::uint64_t w4)
{
    const std::uint64_t a = w1 * 0x9E3779B97F4A7C15ULL + w2 * 0xC2B2AE3D27D4EB4FULL;
    const std::uint64_t b = w3 * 0x165667B19E3779F9ULL + w4 * 0xD6E8FEB86659FD93ULL;
    return std::rotl(a, 29) ^ b ^ 0x3C6EF372FE94F82BULL;
}

// Two words over the whole header: the XOR of its eight words, each rotated by
// its own number of bytes, and their plain sum. One or two changed bytes always
// change at least one of them (a sum can only cancel for two bytes at the
// same place of two words, which the rotation moves apart).
struct HeaderCheck {
    std::uint64_t rotatedXor;
    std::uint64_t sum;

    bool operator==(const HeaderCheck&) const = default;
};
static_assert(sizeof(HeaderCheck) == 16);

inline constexpr std::size_t kHeaderCheckOffset = sizeof(Header);
inline constexpr std::size_t kBodyOffset = sizeof(Header) + sizeof(HeaderCheck);
inline constexpr std::size_t kTrailerSize = 8;

// What the button calls and the value calls' slow path need of one field,
// without touching the capabilities.
struct FieldRecord {
    std::uint16_t usagePage;
    std::uint16_t usageMin;  // == usageMax for a single usage
    std::uint16_t usageMax;
    std::uint16_t linkCollection;
    std::uint32_t bitOffset;    // from bit 0 of the report buffer (byte 0 is the report ID)
    std::uint16_t reportCount;  // elements of bitSize bits
    std::uint16_t bitSize;      // 1..kMaxReportBits; value fields may be wider than 32 bits
    std::uint8_t reportId;
    std::uint8_t reserved;
    std::uint16_t flags;  // kFieldArray
    std::int32_t logicalMin;
    std::int32_t logicalMax;
    std::uint16_t arrayIndexBase;  // arrays: index of usageMin among the field's usages
    std::uint16_t check;           // RecordCheck of the bytes before it
};
static_assert(sizeof(FieldRecord) == 32 && offsetof(FieldRecord, check) == 30);
static_assert(std::is_trivially_copyable_v<FieldRecord>);

inline constexpr std::uint16_t kFieldArray = 0x0001;  // slots hold usage indices (Array main item)

static_assert(sizeof(HIDP_VALUE_CAPS) == 72 && sizeof(HIDP_BUTTON_CAPS) == 72);
static_assert(sizeof(HIDP_LINK_COLLECTION_NODE) == 24);
static_assert(std::is_trivially_copyable_v<HIDP_VALUE_CAPS> && std::is_trivially_copyable_v<HIDP_BUTTON_CAPS>);

// One slot of a value lookup: a single-usage value field inline, so that a hot
// call reads one 16-byte slot and nothing else of the body.
//   word 0: usage u16 | usagePage u16 | reportId u8 | bitSize u8 | linkCollection u16
//   word 1: bitOffset u32 | reportCount u16 | check u16
// The low 40 bits of word 0 are the field's LookupKey. bitSize 0 marks an
// empty slot. Only fields of 1..32 bits are in the lookup; a key that also
// names a wider field is left out whole, so that the scan answers it and
// descriptor order still decides between fields of one key.
struct ValueSlot {
    std::uint64_t w0, w1;

    std::uint64_t Key() const { return w0 & 0xFF'FFFF'FFFFULL; }
    std::uint8_t BitSize() const { return static_cast<std::uint8_t>(w0 >> 40); }
    std::uint8_t ReportId() const { return static_cast<std::uint8_t>(w0 >> 32); }
    std::uint16_t LinkCollection() const { return static_cast<std::uint16_t>(w0 >> 48); }
    std::uint32_t BitOffset() const { return static_cast<std::uint32_t>(w1); }
    std::uint16_t ReportCount() const { return static_cast<std::uint16_t>(w1 >> 32); }
    std::uint16_t Check() const { return static_cast<std::uint16_t>(w1 >> 48); }
};
static_assert(sizeof(ValueSlot) == 16);

// Byte offsets of the body sections, derived from the header counts.
struct Layout {
    std::size_t valueLookup[kReportTypeCount];
    std::size_t valueFields[kReportTypeCount];
    std::size_t buttonFields[kReportTypeCount];
    std::size_t valueCaps[kReportTypeCount];
    std::size_t buttonCaps[kReportTypeCount];
    std::size_t nodes;
    std::size_t trailer;
    std::size_t totalSize;
};

// The caller has checked hashBits against kMaxHashBits.
inline Layout ComputeLayout(const Header& header)
{
    Layout layout;  // every field is set below
    std::size_t at = kBodyOffset;
    for (std::size_t t = 0; t < kReportTypeCount; ++t) {
        layout.valueLookup[t] = at;
        at += (std::size_t{1} << header.hashBits[t]) * sizeof(ValueSlot);
    }
    for (std::size_t t = 0; t < kReportTypeCount; ++t) {
        layout.valueFields[t] = at;
        at += std::size_t{header.valueCapCount[t]} * sizeof(FieldRecord);
    }
    for (std::size_t t = 0; t < kReportTypeCount; ++t) {
        layout.buttonFields[t] = at;
        at += std::size_t{header.buttonCapCount[t]} * sizeof(FieldRecord);
    }
    for (std::size_t t = 0; t < kReportTypeCount; ++t) {
        layout.valueCaps[t] = at;
        at += std::size_t{header.valueCapCount[t]} * sizeof(HIDP_VALUE_CAPS);
    }
    for (std::size_t t = 0; t < kReportTypeCount; ++t) {
        layout.buttonCaps[t] = at;
        at += std::size_t{header.buttonCapCount[t]} * sizeof(HIDP_BUTTON_CAPS);
    }
    layout.nodes = at;
    at += std::size_t{header.nodeCount} * sizeof(HIDP_LINK_COLLECTION_NODE);
    layout.trailer = at;
    layout.totalSize = at + kTrailerSize;
    return layout;
}

// What the value lookup is keyed by: the driver always names the usage and
// has the report ID in byte 0 of its report. Same bits as ValueSlot::Key.
// The usage sits in the low bits: HashSlot then spreads a sensor's run of
// consecutive usages evenly (with the usage higher up, the runs of two
// report IDs overlapped and probes grew to four slots).
inline std::uint64_t LookupKey(std::uint16_t page, std::uint16_t usage, std::uint8_t reportId)
{
    return (std::uint64_t{reportId} << 32) | (std::uint64_t{page} << 16) | usage;
}

inline std::size_t HashSlot(std::uint64_t key, std::uint8_t hashBits)
{
    const std::uint64_t mixed = key * 0x9E3779B97F4A7C15ULL;
    return hashBits == 0 ? 0 : static_cast<std::size_t>(mixed >> (64 - hashBits));
}

// Folds a 64-bit word to 16 bits by XOR: every byte of it lands in exactly
// one byte of the result, so a change to any one byte always shows.
inline std::uint16_t Fold16(std::uint64_t mixed)
{
    const std::uint64_t folded = mixed ^ (mixed >> 32);
    return static_cast<std::uint16_t>(folded ^ (folded >> 16));
}

// Check of a lookup slot over its first 14 bytes and its position: word 1
// (without the check) is moved by one byte against word 0 and the slot number
// is mixed in before folding, so any one changed byte, a zeroed slot or a slot
// copied to another place fails.
inline std::uint16_t SlotCheck(std::uint64_t w0, std::uint64_t w1, std::size_t slot)
{
    return Fold16(w0 ^ std::rotl(w1 & 0x0000FFFFFFFFFFFFULL, 8) ^ (std::uint64_t{slot} * 0x9E3779B97F4A7C15ULL) ^
                  0xA5A5C3C35A5A3C3CULL);
}

inline bool SlotValid(const ValueSlot& s, std::size_t slot)
{
    return s.Check() == SlotCheck(s.w0, s.w1, slot);
}

// Check of a field record over its first 30 bytes, read as four 64-bit words
// (the last without the check itself). Each word is rotated by its own byte
// count, the words are XORed and folded: changing any one byte always changes
// the check. The seed makes a zeroed record fail.
inline std::uint16_t RecordCheck(const std::uint64_t (&w)[4])
{
    return Fold16(w[0] ^ std::rotl(w[1], 8) ^ std::rotl(w[2], 16) ^ std::rotl(w[3] & 0x0000FFFFFFFFFFFFULL, 24) ^
                  0x5A5A3C3C96966969ULL);
}

inline std::uint16_t RecordCheck(const FieldRecord& record)
{
    std::uint64_t w[4];
    std::memcpy(w, &record, sizeof w);
    return RecordCheck(w);
}

// Whether a field of these dimensions lies inside a report of that length
// (after byte 0, the report ID).
inline bool FitsReport(std::uint32_t bitOffset, std::uint32_t bitSize, std::uint32_t reportCount,
                       std::uint16_t reportByteLength)
{
    if (bitSize == 0 || reportCount == 0 || bitOffset < 8) return false;
    return std::uint64_t{bitOffset} + std::uint64_t{bitSize} * reportCount <= std::uint64_t{reportByteLength} * 8;
}

inline HeaderCheck CheckHeader(const std::uint8_t* header)
{
    std::uint64_t w[8];
    for (std::size_t i = 0; i < 8; ++i) std::memcpy(&w[i], header + 8 * i, 8);
    HeaderCheck check;
    check.rotatedXor = (w[0] ^ std::rotl(w[1], 8)) ^ (std::rotl(w[2], 16) ^ std::rotl(w[3], 24)) ^
                       (std::rotl(w[4], 32) ^ std::rotl(w[5], 40)) ^ (std::rotl(w[6], 48) ^ std::rotl(w[7], 56)) ^
                       0x6A09E667F3BCC909ULL;
    check.sum = ((w[0] + w[1]) + (w[2] + w[3])) + ((w[4] + w[5]) + (w[6] + w[7])) + 0xBB67AE8584CAA73BULL;
    return check;
}

// hotCheck of a header as it stands in memory.
inline std::uint64_t HotCheckOf(const std::uint8_t* header)
{
    std::uint64_t w[kHotWordCount];
    std::memcpy(w, header, sizeof w);
    return HotCheck(w[1], w[2], w[3], w[4]);
}

// Over the body. Sequential so that moved or swapped words are noticed too.
std::uint64_t BodyChecksum(const std::uint8_t* data, std::size_t size);

}  // namespace host::hid::preparsed
