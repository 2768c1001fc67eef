// Read access to a preparsed-data blob handed in by a caller. Open() does the
// checks every call can afford; VerifyBody() adds the body checksum for the
// calls that copy capabilities out. Accessors take indices that the caller has
// checked against the header counts, so nothing outside totalSize is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/hidparser/preparsed_layout.h"
#include "platform/hidpi.h"

namespace host::hid {

class PreparsedView {
public:
    // HIDP_STATUS_SUCCESS or HIDP_STATUS_INVALID_PREPARSED_DATA. Every call
    // runs it, so it is forced inline like the rest of the hot path.
    [[gnu::always_inline]] NTSTATUS Open(PHIDP_PREPARSED_DATA data)
    {
        if (data == nullptr) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        bytes_ = reinterpret_cast<const std::uint8_t*>(data);
        std::memcpy(&header_, bytes_, sizeof header_);
        if (header_.magic != preparsed::kMagic || header_.version != preparsed::kVersion ||
            header_.headerSize != preparsed::kBodyOffset)
            return HIDP_STATUS_INVALID_PREPARSED_DATA;
        const auto* copy = reinterpret_cast<const std::uint8_t*>(&header_);
        if (!(Load<preparsed::HeaderCheck>(preparsed::kHeaderCheckOffset) == preparsed::CheckHeader(copy)))
            return HIDP_STATUS_INVALID_PREPARSED_DATA;
        if (!SectionsAddUp()) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        // A blob whose tail was cut off or zeroed fails here on every call.
        if (Load<std::uint64_t>(header_.totalSize - preparsed::kTrailerSize) !=
            (preparsed::kTrailer ^ std::uint64_t{header_.totalSize}))
            return HIDP_STATUS_INVALID_PREPARSED_DATA;
        return HIDP_STATUS_SUCCESS;
    }

    NTSTATUS VerifyBody() const;

    const preparsed::Header& Header() const { return header_; }
    const preparsed::ReportTypeHeader& Report(std::size_t type) const { return header_.reports[type]; }

    // The value records and value lookup of one report type. Open has checked
    // that every section lies inside the blob.
    struct ValueSections {
        const std::uint8_t* fields;
        const std::uint8_t* lookup;
    };
    ValueSections Values(std::size_t type) const
    {
        std::size_t at = preparsed::kBodyOffset;
        for (std::size_t t = 0; t < type; ++t) at += ValueSectionSize(header_.reports[t]);
        const std::uint8_t* fields = bytes_ + at;
        return {fields, fields + sizeof(preparsed::FieldRecord) * header_.reports[type].valueCapCount};
    }

    // The record's words, unchecked: the caller checks the index against
    // valueCapCount and calls Valid().
    static preparsed::FieldWords ValueWords(const ValueSections& values, std::size_t index)
    {
        // Word by word: one 32-byte copy makes compilers bounce it through the stack.
        const std::uint8_t* record = values.fields + index * sizeof(preparsed::FieldRecord);
        preparsed::FieldWords words;
        std::memcpy(&words.w0, record, 8);
        std::memcpy(&words.w1, record + 8, 8);
        std::memcpy(&words.w2, record + 16, 8);
        std::memcpy(&words.w3, record + 24, 8);
        return words;
    }
    static std::uint32_t LookupSlot(const ValueSections& values, std::size_t slot)
    {
        std::uint32_t raw;
        std::memcpy(&raw, values.lookup + slot * sizeof raw, sizeof raw);
        return raw;
    }

    // The records of one kind and report type, located once per call.
    struct Records {
        const std::uint8_t* base;
        std::size_t count;

        // False when the index is past the count or the record fails its check.
        bool Get(std::size_t index, preparsed::FieldRecord& field) const
        {
            if (index >= count) return false;
            std::memcpy(&field, base + index * sizeof(preparsed::FieldRecord), sizeof field);
            return field.check == preparsed::RecordCheck(field);
        }
    };
    Records ValueRecords(std::size_t type) const { return {Values(type).fields, header_.reports[type].valueCapCount}; }
    Records ButtonRecords(std::size_t type) const { return {ButtonFields(type), header_.reports[type].buttonCapCount}; }

    void CopyValueCaps(std::size_t type, HIDP_VALUE_CAPS* out, std::size_t count) const;
    void CopyButtonCaps(std::size_t type, HIDP_BUTTON_CAPS* out, std::size_t count) const;
    void CopyNodes(HIDP_LINK_COLLECTION_NODE* out, std::size_t count) const;

private:
    static std::size_t ValueSectionSize(const preparsed::ReportTypeHeader& report)
    {
        return sizeof(preparsed::FieldRecord) * report.valueCapCount + (std::size_t{4} << report.hashBits);
    }

    const std::uint8_t* ButtonFields(std::size_t type) const
    {
        std::size_t at = preparsed::kBodyOffset;
        for (const preparsed::ReportTypeHeader& report : header_.reports) at += ValueSectionSize(report);
        for (std::size_t t = 0; t < type; ++t) at += sizeof(preparsed::FieldRecord) * header_.reports[t].buttonCapCount;
        return bytes_ + at;
    }

    // The sizes of all sections, as the counts give them, add up to
    // totalSize; independent sums keep this short.
    bool SectionsAddUp() const
    {
        const preparsed::ReportTypeHeader* r = header_.reports;
        if (r[0].hashBits > preparsed::kMaxHashBits || r[1].hashBits > preparsed::kMaxHashBits ||
            r[2].hashBits > preparsed::kMaxHashBits)
            return false;
        static_assert(sizeof(HIDP_VALUE_CAPS) == sizeof(HIDP_BUTTON_CAPS));
        constexpr std::size_t kPerCapability = sizeof(preparsed::FieldRecord) + sizeof(HIDP_VALUE_CAPS);
        const std::size_t capabilities = std::size_t{r[0].valueCapCount} + r[1].valueCapCount + r[2].valueCapCount +
                                         r[0].buttonCapCount + r[1].buttonCapCount + r[2].buttonCapCount;
        const std::size_t lookups =
            (std::size_t{4} << r[0].hashBits) + (std::size_t{4} << r[1].hashBits) + (std::size_t{4} << r[2].hashBits);
        const std::size_t total = preparsed::kBodyOffset + kPerCapability * capabilities + lookups +
                                  sizeof(HIDP_LINK_COLLECTION_NODE) * header_.nodeCount + preparsed::kTrailerSize;
        return total == header_.totalSize;
    }

    template <typename T> T Load(std::size_t offset) const
    {
        T value;
        std::memcpy(&value, bytes_ + offset, sizeof value);
        return value;
    }

    // Filled by Open before any other use; left uninitialised on purpose, as
    // zeroing them costs more than the rest of a hot call.
    const std::uint8_t* bytes_ = nullptr;
    preparsed::Header header_;
};

}  // namespace host::hid
