// The readable rendering: per top-level collection its link-collection tree,
// then each report with its length and one line per field, in report order.
//
//   Input report 1: 9 bytes
//     byte.bit  bits x count  usages (flags)
//          1.0     8 x 1      Sensor State: Undefined, Ready, ... (Data,Arr,Abs)
//                             logical 0..6
#include <cstdio>
#include <string>

#include "tools/hidsensor/caps_printer.h"
#include "tools/hidsensor/item_values.h"
#include "tools/hidsensor/usage_names.h"

namespace hidsensor {
namespace {

constexpr std::size_t kLineWidth = 100;
constexpr std::size_t kFieldIndent = 28;  // where a field's usages start

std::string Hex(unsigned value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

// Appends `words` (already separated) after `line`, wrapping at the line width
// onto lines indented by `indent`.
void AppendWrapped(std::string& out, std::string line, const std::vector<std::string>& words, std::size_t indent)
{
    bool first = true;
    for (const std::string& word : words) {
        const std::size_t extra = (first ? 0 : 1) + word.size();
        if (!first && line.size() + extra > kLineWidth) {
            out += line + "\n";
            line.assign(indent, ' ');
            line += word;
        } else {
            if (!first) line += ' ';
            line += word;
        }
        first = false;
    }
    out += line + "\n";
}

// "Sensor State: Undefined, Ready, ...": selectors that share a prefix name it once.
std::vector<std::string> UsageWords(const LayoutField& field)
{
    std::vector<std::string> names;
    for (const UsageSpan& span : field.usages) {
        const USAGE page = static_cast<USAGE>(span.first >> 16);
        if (span.first == span.last) {
            names.push_back(UsageLabel(page, static_cast<USAGE>(span.first & 0xFFFF)));
        } else {
            names.push_back(UsageLabel(page, static_cast<USAGE>(span.first & 0xFFFF)) + " .. " +
                            UsageLabel(page, static_cast<USAGE>(span.last & 0xFFFF)));
        }
    }
    std::string prefix;
    if (names.size() > 1) {
        const std::size_t colon = names[0].find(": ");
        prefix = colon == std::string::npos ? "" : names[0].substr(0, colon + 2);
        for (const std::string& name : names) {
            if (prefix.empty() || name.compare(0, prefix.size(), prefix) != 0 || name.size() == prefix.size()) {
                prefix.clear();
                break;
            }
        }
    }
    std::vector<std::string> words;
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::string word = prefix.empty() || i == 0 ? names[i] : names[i].substr(prefix.size());
        if (i + 1 < names.size()) word += ',';
        words.push_back(std::move(word));
    }
    return words;
}

// The logical range, then physical range, unit and exponent where the descriptor gave them.
std::vector<std::string> DecodedValues(const LayoutField& field)
{
    std::vector<std::string> parts;
    std::string logical = "logical " + std::to_string(field.logicalMin) + ".." + std::to_string(field.logicalMax);
    if (field.logicalMaxReinterpreted) logical += " (stored maximum " + std::to_string(field.storedLogicalMax) + ")";
    parts.push_back(std::move(logical));
    if (!field.Variable()) return parts;  // an array holds usage indices: no scale applies
    if (field.hasPhysical)
        parts.push_back(" physical " + std::to_string(field.physicalMin) + ".." + std::to_string(field.physicalMax));
    if (field.unit != 0) parts.push_back(" unit " + UnitName(field.unit));
    if (field.unitExponentCode != 0) parts.push_back(" exponent 10^" + std::to_string(UnitExponent(field.unitExponentCode)));
    return parts;
}

void PrintField(std::string& out, const LayoutField& field, std::size_t type)
{
    char head[64];
    std::snprintf(head, sizeof head, "    %6u.%u  %4u x %-5u  ", field.bitOffset / 8, field.bitOffset % 8,
                  field.bitSize, field.reportCount);
    // Bits without usages are padding when constant; a data field without usages gives no control.
    std::vector<std::string> words = !field.usages.empty() ? UsageWords(field)
                                     : field.Constant()    ? std::vector<std::string>{"(padding)"}
                                                           : std::vector<std::string>{"(no usage)"};
    words.push_back("(" + MainItemFlags(field.flags, type != 0) + ")");
    AppendWrapped(out, head, words, kFieldIndent);
    if (!field.usages.empty()) AppendWrapped(out, std::string(kFieldIndent, ' '), DecodedValues(field), kFieldIndent - 1);
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
    out += UsageLabel(node.LinkUsagePage, node.LinkUsage);
    out += " (";
    out += CollectionTypeName(node.CollectionType);
    out += ")\n";
    // Children in node order, whatever order the sibling chain keeps them in.
    for (std::size_t child = 1; child < nodes.size(); ++child) {
        if (nodes[child].Parent == index && child != index && depth < 64)
            PrintNode(out, nodes, child, depth + 1);
    }
}

void PrintReport(std::string& out, const ReportLayout& report)
{
    static constexpr const char* kTitles[] = {"Input", "Output", "Feature"};
    out += std::string("  ") + kTitles[report.type] + " report " +
           (report.reportId == 0 ? std::string("(no report ID)") : std::to_string(report.reportId)) + ": " +
           std::to_string(report.byteLength) + (report.byteLength == 1 ? " byte\n" : " bytes\n");
    out += "    byte.bit  bits x count  usages (flags)\n";
    for (const LayoutField& field : report.fields)
        PrintField(out, field, report.type);
}

}  // namespace

std::string CapsToTree(const std::vector<NumberedCollection>& collections)
{
    std::string out;
    for (const NumberedCollection& collection : collections) {
        const CollectionCaps& c = collection.caps;
        if (!out.empty()) out += "\n";
        out += "Collection " + std::to_string(collection.index) + ": " + UsageLabel(c.caps.UsagePage, c.caps.Usage) +
               " (" + Hex(c.caps.UsagePage, 2) + ":" + Hex(c.caps.Usage, 4);
        const std::string page = UsagePageName(c.caps.UsagePage);
        if (!page.empty()) out += ", " + page + " page";
        out += ")\n";
        out += "  Longest reports (bytes, with report ID): input " + std::to_string(c.caps.InputReportByteLength) +
               ", output " + std::to_string(c.caps.OutputReportByteLength) + ", feature " +
               std::to_string(c.caps.FeatureReportByteLength) + "\n";
        out += "  Link collections: " + std::to_string(c.nodes.size()) + "\n";
        if (!c.nodes.empty())
            PrintNode(out, c.nodes, 0, 0);
        for (const ReportLayout& report : collection.reports)
            PrintReport(out, report);
    }
    return out;
}

}  // namespace hidsensor
