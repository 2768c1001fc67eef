// Writes report descriptors from readable C++, for tests and examples:
//
//   DescriptorBuilder b;
//   b.UsagePage(0x20).Usage(0xE1).Collection(CollectionType::Application)
//    .ReportId(1).Usage(0x544).LogicalMinimum(-32767).LogicalMaximum(32767)
//    .ReportSize(16).ReportCount(1).UnitExponent(-2).Input(main_item::kDataVarAbs)
//    .EndCollection();
//
// Each value gets the shortest item that holds it (signed values the shortest
// signed one; 0 takes no data byte). A forced ItemSize writes the low bytes of
// the value as given, to reproduce what devices really ship (`26 FF FF`).
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

namespace host::hid {

// Data bits of Input, Output and Feature items; combine with |.
namespace main_item {
inline constexpr std::uint16_t kData = 0x000;
inline constexpr std::uint16_t kConstant = 0x001;
inline constexpr std::uint16_t kArray = 0x000;
inline constexpr std::uint16_t kVariable = 0x002;
inline constexpr std::uint16_t kAbsolute = 0x000;
inline constexpr std::uint16_t kRelative = 0x004;
inline constexpr std::uint16_t kWrap = 0x008;
inline constexpr std::uint16_t kNonLinear = 0x010;
inline constexpr std::uint16_t kNoPreferredState = 0x020;
inline constexpr std::uint16_t kNullState = 0x040;
inline constexpr std::uint16_t kVolatile = 0x080;
inline constexpr std::uint16_t kBufferedBytes = 0x100;
inline constexpr std::uint16_t kDataVarAbs = kData | kVariable | kAbsolute;
inline constexpr std::uint16_t kDataArrayAbs = kData | kArray | kAbsolute;
inline constexpr std::uint16_t kConstVarAbs = kConstant | kVariable | kAbsolute;
}  // namespace main_item

enum class CollectionType : std::uint8_t {
    Physical = 0,
    Application = 1,
    Logical = 2,
    Report = 3,
    NamedArray = 4,
    UsageSwitch = 5,
    UsageModifier = 6,
};

enum class ItemSize : std::uint8_t { Shortest = 0xFF, Zero = 0, One = 1, Two = 2, Four = 4 };

class DescriptorBuilder {
public:
    // Main items.
    DescriptorBuilder& Input(std::uint16_t flags, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& Output(std::uint16_t flags, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& Feature(std::uint16_t flags, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& Collection(CollectionType type);
    DescriptorBuilder& Collection(std::uint8_t type, ItemSize size = ItemSize::Shortest);  // vendor types 0x80..
    DescriptorBuilder& EndCollection();

    // Global items.
    DescriptorBuilder& UsagePage(std::uint16_t page, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& LogicalMinimum(std::int64_t value, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& LogicalMaximum(std::int64_t value, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& PhysicalMinimum(std::int64_t value, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& PhysicalMaximum(std::int64_t value, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& UnitExponent(int exponent);  // -8..7, written as the 4-bit code (-2 -> 0x0E)
    DescriptorBuilder& Unit(std::uint32_t unit, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& ReportSize(std::uint32_t bits, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& ReportId(std::uint32_t id, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& ReportCount(std::uint32_t count, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& Push();
    DescriptorBuilder& Pop();

    // Local items. The 32-bit forms carry their usage page.
    DescriptorBuilder& Usage(std::uint16_t usage, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& Usage32(std::uint16_t page, std::uint16_t usage);
    DescriptorBuilder& UsageMinimum(std::uint16_t usage, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& UsageMaximum(std::uint16_t usage, ItemSize size = ItemSize::Shortest);
    DescriptorBuilder& UsageMinimum32(std::uint16_t page, std::uint16_t usage);
    DescriptorBuilder& UsageMaximum32(std::uint16_t page, std::uint16_t usage);
    DescriptorBuilder& DesignatorIndex(std::uint32_t index);
    DescriptorBuilder& DesignatorMinimum(std::uint32_t index);
    DescriptorBuilder& DesignatorMaximum(std::uint32_t index);
    DescriptorBuilder& StringIndex(std::uint32_t index);
    DescriptorBuilder& StringMinimum(std::uint32_t index);
    DescriptorBuilder& StringMaximum(std::uint32_t index);
    DescriptorBuilder& Delimiter(bool open);

    // Anything else, byte by byte, or one short item of any type and tag.
    DescriptorBuilder& Raw(std::initializer_list<std::uint8_t> bytes);
    DescriptorBuilder& Raw(std::span<const std::uint8_t> bytes);
    DescriptorBuilder& ShortItem(std::uint8_t type, std::uint8_t tag, std::uint32_t data, ItemSize size);

    const std::vector<std::uint8_t>& Bytes() const { return bytes_; }
    std::vector<std::uint8_t> Build() const { return bytes_; }

private:
    DescriptorBuilder& Unsigned(std::uint8_t type, std::uint8_t tag, std::uint32_t value, ItemSize size);
    DescriptorBuilder& Signed(std::uint8_t type, std::uint8_t tag, std::int64_t value, ItemSize size);

    std::vector<std::uint8_t> bytes_;
};

}  // namespace host::hid
