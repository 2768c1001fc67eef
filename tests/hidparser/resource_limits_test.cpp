// Parsing cost stays bounded by the descriptor's size: a 64 KiB descriptor
// never needs more than a few MiB, and a short descriptor with huge usage
// ranges or counts never expands them. Heap use is measured by replacing
// operator new in this test program.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <tuple>

#include "host/hidparser/descriptor_builder.h"
#include "test_support.h"

namespace {

std::atomic<std::size_t> liveBytes{0};
std::atomic<std::size_t> peakBytes{0};

// Size is stored in front of each block; 16 bytes keep the alignment.
constexpr std::size_t kPrefix = 16;

// Kept out of line: inlined into the replaced operators, g++ at -O3 sees the
// prefix arithmetic against the caller's new[] and warns falsely.
[[gnu::noinline]] void* CountedAlloc(std::size_t size)
{
    auto* raw = static_cast<unsigned char*>(std::malloc(size + kPrefix));
    if (raw == nullptr) return nullptr;
    *reinterpret_cast<std::size_t*>(raw) = size;
    const std::size_t live = liveBytes.fetch_add(size, std::memory_order_relaxed) + size;
    std::size_t peak = peakBytes.load(std::memory_order_relaxed);
    while (live > peak && !peakBytes.compare_exchange_weak(peak, live, std::memory_order_relaxed)) {
    }
    return raw + kPrefix;
}

[[gnu::noinline]] void CountedFree(void* block)
{
    if (block == nullptr) return;
    auto* raw = static_cast<unsigned char*>(block) - kPrefix;
    liveBytes.fetch_sub(*reinterpret_cast<std::size_t*>(raw), std::memory_order_relaxed);
    std::free(raw);
}

}  // namespace

void* operator new(std::size_t size)
{
    if (void* block = CountedAlloc(size)) return block;
    throw std::bad_alloc();
}
// The array and nothrow forms forward to these by default.
void operator delete(void* block) noexcept
{
    CountedFree(block);
}
void operator delete(void* block, std::size_t) noexcept
{
    CountedFree(block);
}

namespace host::hid {
namespace {

using namespace test;

struct Cost {
    bool parsed = false;
    std::size_t peakHeap = 0;  // above what was live before the parse
    std::size_t blobBytes = 0;
};

Cost MeasureParse(const std::vector<std::uint8_t>& descriptor)
{
    Cost cost;
    std::vector<PreparsedBlob> blobs;
    ParseError error;
    const std::size_t before = liveBytes.load();
    peakBytes.store(before);
    cost.parsed = ParseReportDescriptor(descriptor, blobs, error);
    cost.peakHeap = peakBytes.load() - before;
    for (const PreparsedBlob& blob : blobs) cost.blobBytes += blob.size();
    return cost;
}

constexpr std::size_t k64KiB = 64 * 1024;
constexpr std::size_t kFewMiB = 6 * 1024 * 1024;

// Value fields with usages, 5 bytes each, over as many report IDs as needed.
std::vector<std::uint8_t> ManyValueFields(std::size_t bytes)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0xE1).Collection(CollectionType::Application);
    b.LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(1).ReportId(1);
    for (std::uint32_t field = 1; b.Bytes().size() + 8 < bytes; ++field) {
        if (field % 4000 == 0) b.ReportId(1 + field / 4000);
        b.Usage(static_cast<std::uint16_t>(0x400 + field % 4000)).Input(main_item::kDataVarAbs);
    }
    b.EndCollection();
    return b.Build();
}

std::vector<std::uint8_t> ManyUsageRanges(std::size_t bytes)
{
    // Each main item takes 50 usage ranges of 0..0xFFFF: nothing is expanded.
    DescriptorBuilder b;
    b.UsagePage(0xFF00).Usage(0x01).Collection(CollectionType::Application).ReportSize(1).ReportCount(8);
    while (b.Bytes().size() < bytes) {
        for (int i = 0; i < 50; ++i) b.UsageMinimum(0).UsageMaximum(0xFFFF);
        b.Input(main_item::kDataVarAbs | main_item::kConstant);
    }
    return b.EndCollection().Build();
}

std::vector<std::uint8_t> ManyCollections(std::size_t bytes)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0x01).Collection(CollectionType::Application);
    while (b.Bytes().size() < bytes) b.Collection(CollectionType::Logical).EndCollection();
    return b.EndCollection().Build();
}

std::vector<std::uint8_t> ManyGlobalItems(std::size_t bytes)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0x01).Collection(CollectionType::Application);
    while (b.Bytes().size() < bytes) b.ReportSize(8).LogicalMaximum(1000).Push().Pop();
    return b.EndCollection().Build();
}

TEST(ResourceLimits, SixtyFourKiBDescriptorsStayWithinAFewMiB)
{
    struct Case {
        const char* name;
        std::vector<std::uint8_t> (*build)(std::size_t);
        bool parses;
        std::size_t peakLimit;
    };
    const Case cases[] = {
        {"value_fields", ManyValueFields, true, kFewMiB},
        {"usage_ranges", ManyUsageRanges, true, kFewMiB},
        {"collections", ManyCollections, false, kFewMiB},  // more than 16384: refused cheaply
        {"global_items", ManyGlobalItems, true, 64 * 1024},
    };
    for (const Case& c : cases) {
        const auto descriptor = c.build(k64KiB);
        ASSERT_GE(descriptor.size(), k64KiB - 8) << c.name;
        const Cost cost = MeasureParse(descriptor);
        RecordProperty(std::string(c.name) + "_peak_heap_bytes", std::to_string(cost.peakHeap));
        EXPECT_EQ(cost.parsed, c.parses) << c.name;
        EXPECT_LT(cost.peakHeap, c.peakLimit) << c.name;
        EXPECT_LT(cost.blobBytes, 2 * 1024 * 1024) << c.name;
    }
}

TEST(ResourceLimits, HugeUsageRangeIsNeverExpanded)
{
    // 23 bytes: usages 0..0xFFFF over 32760 one-bit buttons; an array of
    // 0..0xFFFE: 65535 data indices, still one capability.
    const auto buttons = Hex("05 09 09 01 A1 01 19 00 2A FF FF 15 00 25 01 75 01 96 F8 7F 81 02 C0");
    const auto array = Hex("05 07 09 06 A1 01 19 00 2A FE FF 15 00 26 FE FF 75 10 95 01 81 00 C0");
    for (const auto& descriptor : {buttons, array}) {
        const Cost cost = MeasureParse(descriptor);
        ASSERT_TRUE(cost.parsed);
        EXPECT_LT(cost.peakHeap, 64 * 1024);
    }
    PreparsedBlob blob = ParseSingle(buttons);
    const auto caps = ButtonCaps(blob, HidP_Input);
    ASSERT_EQ(caps.size(), 1u);
    EXPECT_EQ(std::tuple(caps[0].ReportCount, caps[0].Range.UsageMax, Caps(blob).InputReportByteLength),
              std::tuple(32760, 0xFFFF, 4096));
    PreparsedBlob arrayBlob = ParseSingle(array);
    EXPECT_EQ(Caps(arrayBlob).NumberInputDataIndices, 0xFFFF);

    // Looking a usage up at the top of the range costs no expansion either.
    std::vector<CHAR> report = {0, static_cast<CHAR>(0xFE), static_cast<CHAR>(0xFF)};
    USAGE usage = 0;
    ULONG length = 1;
    ASSERT_EQ(HidP_GetUsages(HidP_Input, 0x07, 0, &usage, &length, Preparsed(arrayBlob), report.data(), 3),
              HIDP_STATUS_SUCCESS);
    EXPECT_EQ(usage, 0xFFFE);
}

}  // namespace
}  // namespace host::hid
