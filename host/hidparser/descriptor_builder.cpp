#include "host/hidparser/descriptor_builder.h"

#include <limits>

namespace host::hid {

namespace {

constexpr std::uint8_t kMain = 0;
constexpr std::uint8_t kGlobal = 1;
constexpr std::uint8_t kLocal = 2;

ItemSize ShortestUnsigned(std::uint32_t value)
{
    if (value == 0) return ItemSize::Zero;
    if (value <= 0xFF) return ItemSize::One;
    if (value <= 0xFFFF) return ItemSize::Two;
    return ItemSize::Four;
}

ItemSize ShortestSigned(std::int64_t value)
{
    if (value == 0) return ItemSize::Zero;
    if (value >= -128 && value <= 127) return ItemSize::One;
    if (value >= -32768 && value <= 32767) return ItemSize::Two;
    return ItemSize::Four;
}

}  // namespace

DescriptorBuilder& DescriptorBuilder::ShortItem(std::uint8_t type, std::uint8_t tag, std::uint32_t data, ItemSize size)
{
    std::uint8_t bytes = 0;
    std::uint8_t sizeCode = 0;
    switch (size) {
    case ItemSize::One:
        bytes = 1;
        sizeCode = 1;
        break;
    case ItemSize::Two:
        bytes = 2;
        sizeCode = 2;
        break;
    case ItemSize::Four:
        bytes = 4;
        sizeCode = 3;
        break;
    default: break;
    }
    bytes_.push_back(static_cast<std::uint8_t>((tag << 4) | ((type & 0x03) << 2) | sizeCode));
    for (std::uint8_t i = 0; i < bytes; ++i) bytes_.push_back(static_cast<std::uint8_t>(data >> (8 * i)));
    return *this;
}

DescriptorBuilder& DescriptorBuilder::Unsigned(std::uint8_t type, std::uint8_t tag, std::uint32_t value, ItemSize size)
{
    return ShortItem(type, tag, value, size == ItemSize::Shortest ? ShortestUnsigned(value) : size);
}

DescriptorBuilder& DescriptorBuilder::Signed(std::uint8_t type, std::uint8_t tag, std::int64_t value, ItemSize size)
{
    // Values above INT32_MAX (an unsigned 32-bit maximum) take all four bytes.
    if (size == ItemSize::Shortest)
        size = value > std::numeric_limits<std::int32_t>::max() ? ItemSize::Four : ShortestSigned(value);
    return ShortItem(type, tag, static_cast<std::uint32_t>(value), size);
}

DescriptorBuilder& DescriptorBuilder::Input(std::uint16_t flags, ItemSize size)
{
    return Unsigned(kMain, 8, flags, size);
}
DescriptorBuilder& DescriptorBuilder::Output(std::uint16_t flags, ItemSize size)
{
    return Unsigned(kMain, 9, flags, size);
}
DescriptorBuilder& DescriptorBuilder::Feature(std::uint16_t flags, ItemSize size)
{
    return Unsigned(kMain, 11, flags, size);
}
DescriptorBuilder& DescriptorBuilder::Collection(CollectionType type)
{
    return Unsigned(kMain, 10, static_cast<std::uint8_t>(type), ItemSize::Shortest);
}
DescriptorBuilder& DescriptorBuilder::Collection(std::uint8_t type, ItemSize size)
{
    return Unsigned(kMain, 10, type, size);
}
DescriptorBuilder& DescriptorBuilder::EndCollection()
{
    return ShortItem(kMain, 12, 0, ItemSize::Zero);
}

DescriptorBuilder& DescriptorBuilder::UsagePage(std::uint16_t page, ItemSize size)
{
    return Unsigned(kGlobal, 0, page, size);
}
DescriptorBuilder& DescriptorBuilder::LogicalMinimum(std::int64_t value, ItemSize size)
{
    return Signed(kGlobal, 1, value, size);
}
DescriptorBuilder& DescriptorBuilder::LogicalMaximum(std::int64_t value, ItemSize size)
{
    return Signed(kGlobal, 2, value, size);
}
DescriptorBuilder& DescriptorBuilder::PhysicalMinimum(std::int64_t value, ItemSize size)
{
    return Signed(kGlobal, 3, value, size);
}
DescriptorBuilder& DescriptorBuilder::PhysicalMaximum(std::int64_t value, ItemSize size)
{
    return Signed(kGlobal, 4, value, size);
}
DescriptorBuilder& DescriptorBuilder::UnitExponent(int exponent)
{
    return Unsigned(kGlobal, 5, static_cast<std::uint32_t>(exponent) & 0x0F, ItemSize::Shortest);
}
DescriptorBuilder& DescriptorBuilder::Unit(std::uint32_t unit, ItemSize size)
{
    return Unsigned(kGlobal, 6, unit, size);
}
DescriptorBuilder& DescriptorBuilder::ReportSize(std::uint32_t bits, ItemSize size)
{
    return Unsigned(kGlobal, 7, bits, size);
}
DescriptorBuilder& DescriptorBuilder::ReportId(std::uint32_t id, ItemSize size)
{
    return Unsigned(kGlobal, 8, id, size);
}
DescriptorBuilder& DescriptorBuilder::ReportCount(std::uint32_t count, ItemSize size)
{
    return Unsigned(kGlobal, 9, count, size);
}
DescriptorBuilder& DescriptorBuilder::Push()
{
    return ShortItem(kGlobal, 10, 0, ItemSize::Zero);
}
DescriptorBuilder& DescriptorBuilder::Pop()
{
    return ShortItem(kGlobal, 11, 0, ItemSize::Zero);
}

DescriptorBuilder& DescriptorBuilder::Usage(std::uint16_t usage, ItemSize size)
{
    return Unsigned(kLocal, 0, usage, size);
}
DescriptorBuilder& DescriptorBuilder::Usage32(std::uint16_t page, std::uint16_t usage)
{
    return ShortItem(kLocal, 0, (std::uint32_t{page} << 16) | usage, ItemSize::Four);
}
DescriptorBuilder& DescriptorBuilder::UsageMinimum(std::uint16_t usage, ItemSize size)
{
    return Unsigned(kLocal, 1, usage, size);
}
DescriptorBuilder& DescriptorBuilder::UsageMaximum(std::uint16_t usage, ItemSize size)
{
    return Unsigned(kLocal, 2, usage, size);
}
DescriptorBuilder& DescriptorBuilder::UsageMinimum32(std::uint16_t page, std::uint16_t usage)
{
    return ShortItem(kLocal, 1, (std::uint32_t{page} << 16) | usage, ItemSize::Four);
}
DescriptorBuilder& DescriptorBuilder::UsageMaximum32(std::uint16_t page, std::uint16_t usage)
{
    return ShortItem(kLocal, 2, (std::uint32_t{page} << 16) | usage, ItemSize::Four);
}
DescriptorBuilder& DescriptorBuilder::DesignatorIndex(std::uint32_t index)
{
    return Unsigned(kLocal, 3, index, ItemSize::Shortest);
}
DescriptorBuilder& DescriptorBuilder::DesignatorMinimum(std::uint32_t index)
{
    return Unsigned(kLocal, 4, index, ItemSize::Shortest);
}
DescriptorBuilder& DescriptorBuilder::DesignatorMaximum(std::uint32_t index)
{
    return Unsigned(kLocal, 5, index, ItemSize::Shortest);
}
DescriptorBuilder& DescriptorBuilder::StringIndex(std::uint32_t index)
{
    return Unsigned(kLocal, 7, index, ItemSize::Shortest);
}
DescriptorBuilder& DescriptorBuilder::StringMinimum(std::uint32_t index)
{
    return Unsigned(kLocal, 8, index, ItemSize::Shortest);
}
DescriptorBuilder& DescriptorBuilder::StringMaximum(std::uint32_t index)
{
    return Unsigned(kLocal, 9, index, ItemSize::Shortest);
}
DescriptorBuilder& DescriptorBuilder::Delimiter(bool open)
{
    return ShortItem(kLocal, 10, open ? 1 : 0, ItemSize::One);
}

DescriptorBuilder& DescriptorBuilder::Raw(std::initializer_list<std::uint8_t> bytes)
{
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
}

DescriptorBuilder& DescriptorBuilder::Raw(std::span<const std::uint8_t> bytes)
{
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
}

}  // namespace host::hid
