#include <cstdint>

#include "tools/hidsensor/caps_printer.h"
#include "tools/hidsensor/json_writer.h"

namespace hidsensor {
namespace {

void WriteCaps(JsonWriter& json, const HIDP_CAPS& c)
{
    json.BeginObject()
        .Field("Usage", c.Usage)
        .Field("UsagePage", c.UsagePage)
        .Field("InputReportByteLength", c.InputReportByteLength)
        .Field("OutputReportByteLength", c.OutputReportByteLength)
        .Field("FeatureReportByteLength", c.FeatureReportByteLength)
        .Field("NumberLinkCollectionNodes", c.NumberLinkCollectionNodes)
        .Field("NumberInputButtonCaps", c.NumberInputButtonCaps)
        .Field("NumberInputValueCaps", c.NumberInputValueCaps)
        .Field("NumberInputDataIndices", c.NumberInputDataIndices)
        .Field("NumberOutputButtonCaps", c.NumberOutputButtonCaps)
        .Field("NumberOutputValueCaps", c.NumberOutputValueCaps)
        .Field("NumberOutputDataIndices", c.NumberOutputDataIndices)
        .Field("NumberFeatureButtonCaps", c.NumberFeatureButtonCaps)
        .Field("NumberFeatureValueCaps", c.NumberFeatureValueCaps)
        .Field("NumberFeatureDataIndices", c.NumberFeatureDataIndices)
        .EndObject();
}

void WriteNode(JsonWriter& json, const HIDP_LINK_COLLECTION_NODE& n)
{
    json.BeginObject()
        .Field("LinkUsage", n.LinkUsage)
        .Field("LinkUsagePage", n.LinkUsagePage)
        .Field("Parent", n.Parent)
        .Field("NumberOfChildren", n.NumberOfChildren)
        .Field("NextSibling", n.NextSibling)
        .Field("FirstChild", n.FirstChild)
        .Field("CollectionType", static_cast<unsigned>(n.CollectionType))
        .Field("IsAlias", n.IsAlias != 0)
        .EndObject();
}

// Fields shared by value and button caps, in structure order.
template <class Cap>
void WriteCommonHead(JsonWriter& json, const Cap& c)
{
    json.Field("UsagePage", c.UsagePage)
        .Field("ReportID", c.ReportID)
        .Field("IsAlias", c.IsAlias != 0)
        .Field("BitField", c.BitField)
        .Field("LinkCollection", c.LinkCollection)
        .Field("LinkUsage", c.LinkUsage)
        .Field("LinkUsagePage", c.LinkUsagePage)
        .Field("IsRange", c.IsRange != 0)
        .Field("IsStringRange", c.IsStringRange != 0)
        .Field("IsDesignatorRange", c.IsDesignatorRange != 0)
        .Field("IsAbsolute", c.IsAbsolute != 0);
}

template <class Cap>
void WriteUsages(JsonWriter& json, const Cap& c)
{
    if (c.IsRange) {
        json.Field("UsageMin", c.Range.UsageMin).Field("UsageMax", c.Range.UsageMax);
    } else {
        json.Field("Usage", c.NotRange.Usage);
    }
    if (c.IsStringRange) {
        json.Field("StringMin", c.Range.StringMin).Field("StringMax", c.Range.StringMax);
    } else {
        json.Field("StringIndex", c.NotRange.StringIndex);
    }
    if (c.IsDesignatorRange) {
        json.Field("DesignatorMin", c.Range.DesignatorMin).Field("DesignatorMax", c.Range.DesignatorMax);
    } else {
        json.Field("DesignatorIndex", c.NotRange.DesignatorIndex);
    }
    if (c.IsRange) {
        json.Field("DataIndexMin", c.Range.DataIndexMin).Field("DataIndexMax", c.Range.DataIndexMax);
    } else {
        json.Field("DataIndex", c.NotRange.DataIndex);
    }
}

void WriteValueCap(JsonWriter& json, const HIDP_VALUE_CAPS& c)
{
    json.BeginObject();
    WriteCommonHead(json, c);
    json.Field("HasNull", c.HasNull != 0)
        .Field("BitSize", c.BitSize)
        .Field("ReportCount", c.ReportCount)
        .Field("UnitsExp", c.UnitsExp)
        .Field("Units", c.Units)
        .Field("LogicalMin", c.LogicalMin)
        .Field("LogicalMax", c.LogicalMax)
        .Field("PhysicalMin", c.PhysicalMin)
        .Field("PhysicalMax", c.PhysicalMax);
    WriteUsages(json, c);
    json.EndObject();
}

void WriteButtonCap(JsonWriter& json, const HIDP_BUTTON_CAPS& c)
{
    json.BeginObject();
    WriteCommonHead(json, c);
    json.Field("ReportCount", c.ReportCount);
    WriteUsages(json, c);
    json.EndObject();
}

template <class Cap, class Writer>
void WritePerType(JsonWriter& json, const std::array<std::vector<Cap>, 3>& perType, Writer write)
{
    json.BeginObject();
    for (std::size_t t = 0; t < perType.size(); ++t) {
        json.Key(kReportTypeNames[t]).BeginArray();
        for (const Cap& cap : perType[t])
            write(json, cap);
        json.EndArray();
    }
    json.EndObject();
}

// The layout of each report: offsets count the report ID byte (bit 0 of byte 0),
// usages are listed one by one, ranges expanded (in a variable field only
// those that take an element, in order).
void WriteReports(JsonWriter& json, const std::vector<ReportLayout>& reports)
{
    json.BeginArray();
    for (const ReportLayout& report : reports) {
        json.BeginObject()
            .Key("type")
            .String(kReportTypeNames[report.type])
            .Field("reportId", report.reportId)
            .Field("byteLength", report.byteLength);
        json.Key("fields").BeginArray();
        for (const LayoutField& field : report.fields) {
            json.BeginObject()
                .Field("bitOffset", field.bitOffset)
                .Field("bitSize", field.bitSize)
                .Field("reportCount", field.reportCount)
                .Field("constant", field.Constant())
                .Field("usagePage", field.usagePage);
            // A variable field's usages past its Report Count take no element.
            std::uint64_t left = field.Variable() ? field.reportCount : UINT64_MAX;
            json.Key("usages").BeginArray();
            for (const UsageSpan& span : field.usages) {
                for (std::uint32_t usage = span.first & 0xFFFF; usage <= (span.last & 0xFFFF) && left > 0; ++usage) {
                    json.Int(usage);
                    --left;
                }
            }
            json.EndArray().EndObject();
        }
        json.EndArray().EndObject();
    }
    json.EndArray();
}

}  // namespace

std::string CapsToJson(const std::vector<NumberedCollection>& collections, bool pretty)
{
    JsonWriter json(pretty);
    json.BeginObject().Key("collections").BeginArray();
    for (const NumberedCollection& collection : collections) {
        const CollectionCaps& c = collection.caps;
        json.BeginObject();
        json.Field("index", collection.index);
        json.Key("caps");
        WriteCaps(json, c.caps);
        json.Key("linkCollectionNodes").BeginArray();
        for (const HIDP_LINK_COLLECTION_NODE& node : c.nodes)
            WriteNode(json, node);
        json.EndArray();
        json.Key("valueCaps");
        WritePerType(json, c.valueCaps, WriteValueCap);
        json.Key("buttonCaps");
        WritePerType(json, c.buttonCaps, WriteButtonCap);
        json.Key("reports");
        WriteReports(json, collection.reports);
        json.EndObject();
    }
    json.EndArray().EndObject();
    return json.Text() + "\n";
}

}  // namespace hidsensor
