#include <cstdio>
#include <string>

#include "tools/hidsensor/caps_printer.h"
#include "tools/hidsensor/usage_names.h"

namespace hidsensor {
namespace {

std::string Hex(unsigned value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

std::string DescribeUsage(USAGE page, USAGE usage)
{
    std::string text = Hex(page, 2) + ":" + Hex(usage, 4);
    const std::string name = UsageName(page, usage);
    if (!name.empty())
        text += " " + name;
    return text;
}

template <class Cap>
std::string DescribeCapUsages(const Cap& c)
{
    if (!c.IsRange)
        return DescribeUsage(c.UsagePage, c.NotRange.Usage);
    return Hex(c.UsagePage, 2) + ":" + Hex(c.Range.UsageMin, 4) + ".." + Hex(c.Range.UsageMax, 4);
}

void PrintNode(std::string& out, const std::vector<HIDP_LINK_COLLECTION_NODE>& nodes, std::size_t index,
               int depth)
{
    const HIDP_LINK_COLLECTION_NODE& node = nodes[index];
    out.append(static_cast<std::size_t>(4 + 2 * depth), ' ');
    // Appended piece by piece: "[" + std::string makes g++ 12 at -O3 warn
    // falsely (-Wrestrict) inside std::string.
    out += '[';
    out += std::to_string(index);
    out += "] ";
    out += DescribeUsage(node.LinkUsagePage, node.LinkUsage);
    out += " (";
    out += CollectionTypeName(node.CollectionType);
    out += ")\n";
    // Children in node order, whatever order the sibling chain keeps them in.
    for (std::size_t child = 1; child < nodes.size(); ++child) {
        if (nodes[child].Parent == index && child != index && depth < 64)
            PrintNode(out, nodes, child, depth + 1);
    }
}

void PrintValueCap(std::string& out, const HIDP_VALUE_CAPS& c)
{
    char line[256];
    std::snprintf(line, sizeof line,
                  "      report %3u  link %2u  %2u bits x %-3u logical %ld..%ld  physical %ld..%ld  "
                  "unit 0x%X exp %u  flags 0x%02X  ",
                  c.ReportID, c.LinkCollection, c.BitSize, c.ReportCount, static_cast<long>(c.LogicalMin),
                  static_cast<long>(c.LogicalMax), static_cast<long>(c.PhysicalMin),
                  static_cast<long>(c.PhysicalMax), static_cast<unsigned>(c.Units),
                  static_cast<unsigned>(c.UnitsExp), c.BitField);
    out += line + DescribeCapUsages(c) + "\n";
}

void PrintButtonCap(std::string& out, const HIDP_BUTTON_CAPS& c)
{
    char line[128];
    std::snprintf(line, sizeof line, "      report %3u  link %2u  count %-3u flags 0x%02X  ", c.ReportID,
                  c.LinkCollection, c.ReportCount, c.BitField);
    out += line + DescribeCapUsages(c) + "\n";
}

}  // namespace

std::string CapsToTree(const std::vector<NumberedCollection>& collections)
{
    std::string out;
    for (const NumberedCollection& collection : collections) {
        const CollectionCaps& c = collection.caps;
        out += "Collection " + std::to_string(collection.index) + ": " +
               DescribeUsage(c.caps.UsagePage, c.caps.Usage);
        const std::string page = UsagePageName(c.caps.UsagePage);
        if (!page.empty())
            out += " (" + page + " page)";
        out += "\n";
        out += "  Report bytes (with report ID): input " + std::to_string(c.caps.InputReportByteLength) +
               ", output " + std::to_string(c.caps.OutputReportByteLength) + ", feature " +
               std::to_string(c.caps.FeatureReportByteLength) + "\n";
        out += "  Link collections: " + std::to_string(c.nodes.size()) + "\n";
        if (!c.nodes.empty())
            PrintNode(out, c.nodes, 0, 0);
        for (std::size_t t = 0; t < kReportTypes.size(); ++t) {
            if (c.valueCaps[t].empty() && c.buttonCaps[t].empty())
                continue;
            out += std::string("  ") + kReportTypeNames[t] + ":\n";
            if (!c.valueCaps[t].empty()) {
                out += "    values:\n";
                for (const HIDP_VALUE_CAPS& cap : c.valueCaps[t])
                    PrintValueCap(out, cap);
            }
            if (!c.buttonCaps[t].empty()) {
                out += "    buttons and selectors:\n";
                for (const HIDP_BUTTON_CAPS& cap : c.buttonCaps[t])
                    PrintButtonCap(out, cap);
            }
        }
    }
    return out;
}

}  // namespace hidsensor
