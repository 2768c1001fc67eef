// Read access to a preparsed-data blob handed in by a caller. Open() checks
// the whole header and that the sections add up; VerifyBody() adds the body
// checksum for the calls that copy capabilities out. Accessors take indices
// that the caller has checked against the header counts, so nothing outside
// totalSize is read. The per-report calls (value Get/Set, the usage calls)
// use the lighter HotIndex (field_lookup.h) instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/hidparser/preparsed_layout.h"
#include "platform/hidpi.h"

namespace host::hid {

class PreparsedView {
public:
    // HIDP_STATUS_SUCCESS or HIDP_STATUS_INVALID_PREPARSED_DATA.
    NTSTATUS Open(PHIDP_PREPARSED_DATA data);
    NTSTATUS VerifyBody() const;

    const preparsed::Header& Header() const { return header_; }

    // The counts of one report type, as the header gives them.
    struct ReportInfo {
        std::uint16_t reportByteLength;
        std::uint16_t valueCapCount;
        std::uint16_t buttonCapCount;
        std::uint16_t dataIndexCount;
    };
    ReportInfo Report(std::size_t type) const
    {
        return {header_.reportByteLength[type], header_.valueCapCount[type], header_.buttonCapCount[type],
                header_.dataIndexCount[type]};
    }

    // The records of one kind and report type, located once per call.
    struct Records {
        const std::uint8_t* base;
        std::size_t count;

        // False when the index is past the count or the record fails its check.
        bool Get(std::size_t index, preparsed::FieldRecord& field) const
        {
            if (index >= count) return false;
            // Checked in registers, word by word: a copy of the whole record
            // first made compilers bounce it through the stack.
            const std::uint8_t* at = base + index * sizeof(preparsed::FieldRecord);
            std::uint64_t w[4];
            for (std::size_t i = 0; i < 4; ++i) std::memcpy(&w[i], at + 8 * i, 8);
            if (static_cast<std::uint16_t>(w[3] >> 48) != preparsed::RecordCheck(w)) return false;
            std::memcpy(&field, w, sizeof field);
            return true;
        }
    };
    Records ValueRecords(std::size_t type) const
    {
        return {bytes_ + layout_.valueFields[type], header_.valueCapCount[type]};
    }
    Records ButtonRecords(std::size_t type) const
    {
        return {bytes_ + layout_.buttonFields[type], header_.buttonCapCount[type]};
    }

    void CopyValueCaps(std::size_t type, HIDP_VALUE_CAPS* out, std::size_t count) const;
    void CopyButtonCaps(std::size_t type, HIDP_BUTTON_CAPS* out, std::size_t count) const;
    void CopyNodes(HIDP_LINK_COLLECTION_NODE* out, std::size_t count) const;

private:
    // Filled by Open before any other use; left uninitialised on purpose:
    // zeroing them was a fifth of a button call.
    const std::uint8_t* bytes_ = nullptr;
    preparsed::Header header_;
    preparsed::Layout layout_;
};

}  // namespace host::hid
