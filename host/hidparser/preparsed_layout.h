// Layout of the preparsed data: one flat, position-independent byte blob per
// top-level collection. The HID class driver hands it out as the collection
// descriptor (DescriptorSize bytes); callers copy it anywhere and pass it back
// as PHIDP_PREPARSED_DATA. Nothing in it is a pointer, every multi-byte value
// is little-endian host order, and readers load with memcpy, so the blob may
// sit at any address.
//
//   offset 0   Header (64 bytes, below)
//   offset 64  HeaderCheck of bytes 0..63 (16 bytes)
//   offset 80  body, sections in this order, sizes given by the header counts:
//     for each report type (Input, Output, Feature):
//       FieldRecord[valueCapCount]      value fields, in capability order
//       u32[1 << hashBits]              value lookup: slot -> first FieldRecord
//                                       of a (page, usage, report ID) among the
//                                       single-usage fields; see EncodeSlot
//     for each report type: FieldRecord[buttonCapCount]   button fields
//     for each report type: HIDP_VALUE_CAPS[valueCapCount]
//     for each report type: HIDP_BUTTON_CAPS[buttonCapCount]
//     HIDP_LINK_COLLECTION_NODE[nodeCount]  (UserContext 0)
//   last 8     u64 trailer: kTrailer ^ totalSize
//
// Validation: every call checks magic, version, header size, header check,
// that the section sizes add up to totalSize and the trailer (so a blob whose
// tail was cut or zeroed is refused). The calls that copy capabilities or
// nodes also check the body checksum (bytes 80..totalSize). The Get/Set calls
// skip that checksum; instead every lookup slot and field record they read
// carries its own check (any one changed byte is caught), and every index and
// bit position taken from the body is checked against the header before use.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "platform/hidpi.h"

namespace host::hid::preparsed {

inline constexpr std::uint32_t kMagic = 0x44505048;  // "HPPD"
inline constexpr std::uint16_t kVersion = 1;
inline constexpr std::uint64_t kTrailer = 0x444E452D44505048ULL;  // "HPPD-END"
inline constexpr std::size_t kReportTypeCount = 3;
inline constexpr std::uint8_t kMaxHashBits = 16;

struct ReportTypeHeader {
    std::uint16_t reportByteLength;  // longest report of this type incl. report-ID byte; 0 = none
    std::uint16_t buttonCapCount;
    std::uint16_t valueCapCount;
    std::uint16_t dataIndexCount;
    std::uint8_t hashBits;  // the value lookup has 1 << hashBits slots
    std::uint8_t reserved;
};
static_assert(sizeof(ReportTypeHeader) == 10);

struct Header {
    std::uint32_t magic;
    std::uint16_t version;
    std::uint16_t headerSize;  // sizeof(Header) + sizeof(HeaderCheck)
    std::uint32_t totalSize;   // whole blob, trailer included
    std::uint16_t usage;       // of the top-level collection
    std::uint16_t usagePage;
    std::uint64_t bodyChecksum;
    std::uint16_t nodeCount;
    std::uint16_t flags;  // reserved, 0
    ReportTypeHeader reports[kReportTypeCount];
    std::uint16_t reserved[3];
};
static_assert(sizeof(Header) == 64);
static_assert(offsetof(Header, bodyChecksum) == 16);
static_assert(offsetof(Header, reports) == 28);

// Two words over the header: the XOR of its eight words, each rotated by its
// own number of bytes, and their plain sum. One or two changed bytes always
// change at least one of them (a sum can only cancel for two bytes at the
// same place of two words, which the rotation moves apart), and both are
// cheap enough for every call.
struct HeaderCheck {
    std::uint64_t rotatedXor;
    std::uint64_t sum;

    bool operator==(const HeaderCheck&) const = default;
};
static_assert(sizeof(HeaderCheck) == 16);

inline constexpr std::size_t kHeaderCheckOffset = sizeof(Header);
inline constexpr std::size_t kBodyOffset = sizeof(Header) + sizeof(HeaderCheck);
inline constexpr std::size_t kTrailerSize = 8;

// What the Get/Set calls need of one field, without touching the capabilities.
struct FieldRecord {
    std::uint16_t usagePage;
    std::uint16_t usageMin;  // == usageMax for a single usage
    std::uint16_t usageMax;
    std::uint16_t linkCollection;
    std::uint32_t bitOffset;    // from bit 0 of the report buffer (byte 0 is the report ID)
    std::uint16_t reportCount;  // elements of bitSize bits
    std::uint8_t bitSize;       // 1..32
    std::uint8_t reportId;
    std::uint16_t nextSameKey;  // value fields: next record with the same LookupKey; kNoRecord ends
    std::uint16_t flags;        // kFieldArray
    std::int32_t logicalMin;
    std::int32_t logicalMax;
    std::uint16_t arrayIndexBase;  // arrays: index of usageMin among the field's usages
    std::uint16_t check;           // RecordCheck of the bytes before it
};
static_assert(sizeof(FieldRecord) == 32);
static_assert(std::is_trivially_copyable_v<FieldRecord>);

inline constexpr std::uint16_t kFieldArray = 0x0001;  // slots hold usage indices (Array main item)
inline constexpr std::uint16_t kNoRecord = 0xFFFF;    // also marks an empty lookup slot

static_assert(sizeof(HIDP_VALUE_CAPS) == 72 && sizeof(HIDP_BUTTON_CAPS) == 72);
static_assert(sizeof(HIDP_LINK_COLLECTION_NODE) == 24);
static_assert(std::is_trivially_copyable_v<HIDP_VALUE_CAPS> && std::is_trivially_copyable_v<HIDP_BUTTON_CAPS>);

// Byte offsets of the body sections, derived from the header counts.
struct Layout {
    std::size_t valueFields[kReportTypeCount];
    std::size_t valueHash[kReportTypeCount];
    std::size_t buttonFields[kReportTypeCount];
    std::size_t valueCaps[kReportTypeCount];
    std::size_t buttonCaps[kReportTypeCount];
    std::size_t nodes;
    std::size_t trailer;
    std::size_t totalSize;
};

// Fails only for a hash size above kMaxHashBits. Inline: every call runs it.
inline bool ComputeLayout(const Header& header, Layout& layout)
{
    std::size_t at = kBodyOffset;
    for (std::size_t t = 0; t < kReportTypeCount; ++t) {
        const ReportTypeHeader& report = header.reports[t];
        if (report.hashBits > kMaxHashBits) return false;
        layout.valueFields[t] = at;
        at += std::size_t{report.valueCapCount} * sizeof(FieldRecord);
        layout.valueHash[t] = at;
        at += (std::size_t{1} << report.hashBits) * sizeof(std::uint32_t);
    }
    for (std::size_t t = 0; t < kReportTypeCount; ++t) {
        layout.buttonFields[t] = at;
        at += std::size_t{header.reports[t].buttonCapCount} * sizeof(FieldRecord);
    }
    for (std::size_t t = 0; t < kReportTypeCount; ++t) {
        layout.valueCaps[t] = at;
        at += std::size_t{header.reports[t].valueCapCount} * sizeof(HIDP_VALUE_CAPS);
    }
    for (std::size_t t = 0; t < kReportTypeCount; ++t) {
        layout.buttonCaps[t] = at;
        at += std::size_t{header.reports[t].buttonCapCount} * sizeof(HIDP_BUTTON_CAPS);
    }
    layout.nodes = at;
    at += std::size_t{header.nodeCount} * sizeof(HIDP_LINK_COLLECTION_NODE);
    layout.trailer = at;
    layout.totalSize = at + kTrailerSize;
    return true;
}

// What the value lookup is keyed by: the driver always names the usage and
// has the report ID in byte 0 of its report.
inline std::uint64_t LookupKey(std::uint16_t page, std::uint16_t usage, std::uint8_t reportId)
{
    return (std::uint64_t{reportId} << 32) | (std::uint64_t{page} << 16) | usage;
}

inline std::size_t HashSlot(std::uint64_t key, std::uint8_t hashBits)
{
    const std::uint64_t mixed = key * 0x9E3779B97F4A7C15ULL;
    return hashBits == 0 ? 0 : static_cast<std::size_t>(mixed >> (64 - hashBits));
}

// Check of a field record over its first 30 bytes, read as four 64-bit words
// (the last without the check itself). Each word is rotated by its own byte
// count, the words are XORed and the result is folded to 16 bits by XOR: every
// byte of the record lands in exactly one byte of the check, so changing any
// one byte always changes the check. The seed makes a zeroed record fail.
inline std::uint16_t RecordCheck(std::uint64_t w0, std::uint64_t w1, std::uint64_t w2, std::uint64_t w3)
{
    const std::uint64_t mixed =
        w0 ^ std::rotl(w1, 8) ^ std::rotl(w2, 16) ^ std::rotl(w3 & 0x0000FFFFFFFFFFFFULL, 24) ^ 0x5A5A3C3C96966969ULL;
    const std::uint64_t folded = mixed ^ (mixed >> 32);
    return static_cast<std::uint16_t>(folded ^ (folded >> 16));
}

inline std::uint16_t RecordCheck(const FieldRecord& record)
{
    std::uint64_t w[4];
    std::memcpy(w, &record, sizeof w);
    return RecordCheck(w[0], w[1], w[2], w[3]);
}

// Whether a field of these dimensions lies inside a report of that length
// (after byte 0, the report ID).
inline bool FitsReport(std::uint32_t bitOffset, std::uint32_t bitSize, std::uint32_t reportCount,
                       std::uint16_t reportByteLength)
{
    if (bitSize == 0 || bitSize > 32 || reportCount == 0 || bitOffset < 8) return false;
    return std::uint64_t{bitOffset} + std::uint64_t{bitSize} * reportCount <= std::uint64_t{reportByteLength} * 8;
}

// A field record as the four little-endian words it is stored as, so that a
// hot call keeps it in registers. The accessors follow FieldRecord's layout.
struct FieldWords {
    std::uint64_t w0, w1, w2, w3;

    std::uint64_t Key() const { return LookupKey(UsagePage(), UsageMin(), ReportId()); }
    std::uint16_t UsagePage() const { return static_cast<std::uint16_t>(w0); }
    std::uint16_t UsageMin() const { return static_cast<std::uint16_t>(w0 >> 16); }
    std::uint16_t UsageMax() const { return static_cast<std::uint16_t>(w0 >> 32); }
    std::uint16_t LinkCollection() const { return static_cast<std::uint16_t>(w0 >> 48); }
    std::uint32_t BitOffset() const { return static_cast<std::uint32_t>(w1); }
    std::uint16_t ReportCount() const { return static_cast<std::uint16_t>(w1 >> 32); }
    std::uint8_t BitSize() const { return static_cast<std::uint8_t>(w1 >> 48); }
    std::uint8_t ReportId() const { return static_cast<std::uint8_t>(w1 >> 56); }
    std::uint16_t NextSameKey() const { return static_cast<std::uint16_t>(w2); }
    bool Valid() const { return static_cast<std::uint16_t>(w3 >> 48) == RecordCheck(w0, w1, w2, w3); }
    bool FitsReport(std::uint16_t reportByteLength) const
    {
        return preparsed::FitsReport(BitOffset(), BitSize(), ReportCount(), reportByteLength);
    }
};
static_assert(offsetof(FieldRecord, linkCollection) == 6 && offsetof(FieldRecord, bitOffset) == 8 &&
              offsetof(FieldRecord, reportCount) == 12 && offsetof(FieldRecord, bitSize) == 14 &&
              offsetof(FieldRecord, reportId) == 15 && offsetof(FieldRecord, nextSameKey) == 16 &&
              offsetof(FieldRecord, check) == 30);

// A lookup slot holds a record index (or kNoRecord) in its low half and, in
// its high half, the complement of that index mixed with the slot position:
// one changed byte, a zeroed slot or a slot moved elsewhere never decodes.
inline std::uint16_t SlotMix(std::size_t slot)
{
    return static_cast<std::uint16_t>((slot * 0x9E37u) & 0x7FFF);
}

inline std::uint32_t EncodeSlot(std::uint16_t record, std::size_t slot)
{
    return record | (std::uint32_t{static_cast<std::uint16_t>(~record ^ SlotMix(slot))} << 16);
}

inline bool DecodeSlot(std::uint32_t raw, std::size_t slot, std::uint16_t& record)
{
    record = static_cast<std::uint16_t>(raw);
    return (raw >> 16) == static_cast<std::uint16_t>(~record ^ SlotMix(slot));
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

// Over the body. Sequential so that moved or swapped words are noticed too.
std::uint64_t BodyChecksum(const std::uint8_t* data, std::size_t size);

}  // namespace host::hid::preparsed
