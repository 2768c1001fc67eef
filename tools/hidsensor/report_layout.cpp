#include "tools/hidsensor/report_layout.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "host/hidparser/item_tokenizer.h"
#include "tools/hidsensor/item_values.h"
#include "tools/hidsensor/usage_names.h"

namespace hidsensor {
namespace {

using host::hid::Item;
using host::hid::ItemType;

constexpr std::uint16_t kSensorPage = 0x20;
constexpr unsigned kApplication = 0x01;

struct Globals {
    std::uint16_t usagePage = 0;
    bool usagePageSet = false;
    std::int32_t logicalMin = 0;
    Item logicalMaxItem{};
    std::int32_t physicalMin = 0;
    std::int32_t physicalMax = 0;
    Item physicalMaxItem{};
    std::uint32_t unitExponentCode = 0;
    std::uint32_t unit = 0;
    std::size_t unitOffset = 0;
    std::uint32_t reportSize = 0;
    std::uint32_t reportCount = 0;
    std::uint8_t reportId = 0;
};

// A usage as declared: a 4-byte one carries its page, a shorter one takes
// the Usage Page in force at its main item.
struct DeclaredUsages {
    std::uint32_t first;
    std::uint32_t last;
    bool hasPage;
};

struct Locals {
    std::vector<DeclaredUsages> usages;
    bool haveMin = false;
    Item usageMin{};
    int delimiterDepth = 0;
    std::size_t usagesInSet = 0;
};

UsageSpan Resolve(const DeclaredUsages& usages, std::uint16_t page)
{
    if (usages.hasPage) return {usages.first, usages.last};
    const std::uint32_t high = std::uint32_t{page} << 16;
    return {high | (usages.first & 0xFFFF), high | (usages.last & 0xFFFF)};
}

// Fields whose value is a state, a selector or a text: no unit can apply.
bool TakesNoUnit(const LayoutField& field)
{
    if (field.usages.empty()) return false;
    // Vendor usages may mean anything.
    const std::uint32_t first = field.usages[0].first;
    if ((first >> 16) >= 0xFF00 || ((first >> 16) == kSensorPage && (first & 0xF000) == 0xF000)) return false;
    if (!field.Variable()) return true;
    for (const UsageSpan& span : field.usages) {
        if ((span.first >> 16) != kSensorPage) continue;
        const std::uint16_t usage = span.first & 0x0FFF;
        if (usage == 0x0201 || usage == 0x0202 || (usage >= 0x0301 && usage <= 0x0303) ||
            (usage >= 0x0305 && usage <= 0x030D) || usage == 0x0316 || usage == 0x0319 ||
            (usage >= 0x0800 && usage <= 0x09FF))
            return true;
    }
    return false;
}

class LayoutWalk {
public:
    explicit LayoutWalk(std::span<const std::uint8_t> descriptor) : descriptor_(descriptor) {}

    DescriptorLayout Run()
    {
        host::hid::ItemTokenizer tokenizer(descriptor_);
        host::hid::ParseError error;
        Item item;
        while (tokenizer.Next(item, error) == host::hid::ItemTokenizer::Result::Item) {
            switch (item.type) {
            case ItemType::Main: OnMain(item); break;
            case ItemType::Global: OnGlobal(item); break;
            case ItemType::Local: OnLocal(item); break;
            default: break;
            }
        }
        Finish();
        return std::move(out_);
    }

private:
    void Warn(std::size_t offset, std::string text) { out_.warnings.push_back({offset, std::move(text)}); }

    void OnGlobal(const Item& item)
    {
        switch (item.tag) {
        case 0:
            globals_.usagePage = static_cast<std::uint16_t>(item.data);
            globals_.usagePageSet = true;
            break;
        case 1: globals_.logicalMin = item.Signed(); break;
        case 2: globals_.logicalMaxItem = item; break;
        case 3: globals_.physicalMin = item.Signed(); break;
        case 4:
            globals_.physicalMax = item.Signed();
            globals_.physicalMaxItem = item;
            break;
        case 5: globals_.unitExponentCode = item.data & 0x0F; break;
        case 6:
            globals_.unit = item.data;
            globals_.unitOffset = item.offset;
            break;
        case 7: globals_.reportSize = item.data; break;
        case 8: globals_.reportId = static_cast<std::uint8_t>(item.data); break;
        case 9: globals_.reportCount = item.data; break;
        case 10:
            if (stack_.size() < 64) stack_.push_back(globals_);
            break;
        case 11:
            if (!stack_.empty()) {
                globals_ = stack_.back();
                stack_.pop_back();
            }
            break;
        default: break;
        }
    }

    void OnLocal(const Item& item)
    {
        switch (item.tag) {
        case 0:
            if (locals_.delimiterDepth > 0 && locals_.usagesInSet++ > 0) break;  // an alternative usage
            if (locals_.usages.size() < kMaxUsages) locals_.usages.push_back({item.data, item.data, item.size == 4});
            break;
        case 1:
            locals_.haveMin = true;
            locals_.usageMin = item;
            break;
        case 2:
            if (locals_.haveMin && locals_.usages.size() < kMaxUsages) {
                const Item& minimum = locals_.usageMin;
                // The maximum of a range takes the page of its minimum.
                const std::uint32_t last = (minimum.data & 0xFFFF0000u) | (item.data & 0xFFFF);
                if ((minimum.data & 0xFFFF) <= (last & 0xFFFF))
                    locals_.usages.push_back({minimum.data, last, minimum.size == 4});
            }
            locals_.haveMin = false;
            break;
        case 10:
            if (item.data == 1) {
                ++locals_.delimiterDepth;
                locals_.usagesInSet = 0;
            } else if (locals_.delimiterDepth > 0) {
                --locals_.delimiterDepth;
            }
            break;
        default: break;
        }
    }

    void OnMain(const Item& item)
    {
        switch (item.tag) {
        case 8: OnField(item, 0); break;
        case 9: OnField(item, 1); break;
        case 11: OnField(item, 2); break;
        case 10: OnCollection(item); break;
        case 12:
            if (depth_ > 0) --depth_;
            break;
        default: break;
        }
        locals_ = Locals{};
    }

    void OnCollection(const Item& item)
    {
        if (depth_ == 0) {
            ++topLevel_;
            out_.collections.emplace_back();
            if (item.data != kApplication)
                Warn(item.offset, "top-level collection " + std::to_string(topLevel_ - 1) + " is a " +
                                      CollectionTypeName(item.data) + " collection, not an Application collection");
        }
        if (!locals_.usages.empty() && !locals_.usages.front().hasPage && !globals_.usagePageSet)
            Warn(item.offset, "Collection has a usage but no Usage Page was given");
        ++depth_;
    }

    void OnField(const Item& item, std::size_t type)
    {
        if (globals_.reportCount == 0) {
            Warn(item.offset, std::string(kTypeNames[type]) + " item with Report Count 0 declares no data");
            return;
        }
        if (topLevel_ == 0 || depth_ == 0) return;  // the parser refuses these
        const std::size_t collection = topLevel_ - 1;

        LayoutField field;
        field.itemOffset = item.offset;
        field.bitSize = globals_.reportSize;
        field.reportCount = globals_.reportCount;
        field.flags = item.data;
        for (const DeclaredUsages& usages : locals_.usages) field.usages.push_back(Resolve(usages, globals_.usagePage));
        field.usagePage = field.usages.empty() ? globals_.usagePage : static_cast<std::uint16_t>(field.usages[0].first >> 16);

        const Item& maxItem = globals_.logicalMaxItem;
        field.logicalMin = globals_.logicalMin;
        field.logicalMax = maxItem.Signed();
        if (field.logicalMax < 0 && field.logicalMin >= 0) {
            field.logicalMaxReinterpreted = true;
            field.storedLogicalMax = maxItem.Signed();
            field.logicalMax = maxItem.data;
        }
        field.hasPhysical = globals_.physicalMin != 0 || globals_.physicalMax != 0;
        field.physicalMin = globals_.physicalMin;
        field.physicalMax = globals_.physicalMax;
        // Read as the logical maximum is: 45 FF over a minimum of 0 means 255.
        if (field.physicalMax < 0 && field.physicalMin >= 0) field.physicalMax = globals_.physicalMaxItem.data;
        field.unit = globals_.unit;
        field.unitExponentCode = globals_.unitExponentCode;

        const bool data = !field.Constant();
        if (data && !field.usages.empty() && !locals_.usages.front().hasPage && !globals_.usagePageSet)
            Warn(item.offset, std::string(kTypeNames[type]) + " item has usages but no Usage Page was given");
        if (data && field.logicalMin > field.logicalMax)
            Warn(item.offset, "Logical Minimum " + std::to_string(field.logicalMin) + " is above Logical Maximum " +
                                  std::to_string(field.logicalMax));
        if (data && field.unit != 0 && globals_.unitOffset < lastMainOffset_ && TakesNoUnit(field)) {
            const std::string target =
                field.usages.empty() ? std::string("a field")
                                     : UsageLabel(static_cast<USAGE>(field.usages[0].first >> 16),
                                                  static_cast<USAGE>(field.usages[0].first & 0xFFFF));
            Warn(item.offset, "Unit " + UnitName(field.unit) + " set at byte offset " +
                                  std::to_string(globals_.unitOffset) + " is carried over to " + target +
                                  ", which takes no unit");
        }
        if (globals_.reportId != 0) {
            const auto [it, added] = reportIdOwner_.emplace(globals_.reportId, collection);
            if (!added && it->second != collection && warnedIds_.insert(globals_.reportId).second)
                Warn(item.offset, "report ID " + std::to_string(globals_.reportId) + " is used by top-level collections " +
                                      std::to_string(it->second) + " and " + std::to_string(collection));
        }
        lastMainOffset_ = item.offset;

        std::uint64_t& placed = placedBits_[type][globals_.reportId];
        field.bitOffset = static_cast<std::uint32_t>(8 + placed);
        placed += std::uint64_t{field.bitSize} * field.reportCount;
        Report(collection, type, globals_.reportId).fields.push_back(std::move(field));
    }

    ReportLayout& Report(std::size_t collection, std::size_t type, std::uint8_t id)
    {
        std::vector<ReportLayout>& reports = out_.collections[collection];
        for (ReportLayout& report : reports) {
            if (report.type == type && report.reportId == id) return report;
        }
        ReportLayout& report = reports.emplace_back();
        report.type = type;
        report.reportId = id;
        return report;
    }

    void Finish()
    {
        for (std::vector<ReportLayout>& reports : out_.collections) {
            for (ReportLayout& report : reports) {
                const std::uint64_t bits = placedBits_[report.type][report.reportId];
                report.byteLength = static_cast<std::uint32_t>(1 + (bits + 7) / 8);
            }
            std::sort(reports.begin(), reports.end(), [](const ReportLayout& a, const ReportLayout& b) {
                return a.type != b.type ? a.type < b.type : a.reportId < b.reportId;
            });
        }
    }

    static constexpr std::size_t kMaxUsages = 4096;
    static constexpr const char* kTypeNames[3] = {"Input", "Output", "Feature"};

    std::span<const std::uint8_t> descriptor_;
    Globals globals_;
    std::vector<Globals> stack_;
    Locals locals_;
    std::size_t depth_ = 0;
    std::size_t topLevel_ = 0;
    std::size_t lastMainOffset_ = 0;
    std::array<std::array<std::uint64_t, 256>, 3> placedBits_{};
    std::map<std::uint8_t, std::size_t> reportIdOwner_;
    std::set<std::uint8_t> warnedIds_;
    DescriptorLayout out_;
};

}  // namespace

DescriptorLayout ReadDescriptorLayout(std::span<const std::uint8_t> descriptor)
{
    return LayoutWalk(descriptor).Run();
}

}  // namespace hidsensor
