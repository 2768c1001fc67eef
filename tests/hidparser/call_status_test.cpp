// Every failure status of the HidP_* calls, and the length conventions of the
// list-returning calls.
#include <gtest/gtest.h>

#include <cstring>

#include "host/hidparser/sensor_descriptor.h"
#include "platform/ntstatus.h"
#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

// Every HidP_* call once, with valid arguments apart from the ones under test.
struct AnyCall {
    const char* name;
    NTSTATUS (*run)(HIDP_REPORT_TYPE type, PHIDP_PREPARSED_DATA pp, std::vector<CHAR>& report);
};

ULONG Length(const std::vector<CHAR>& report)
{
    return static_cast<ULONG>(report.size());
}

// Per call: the arrays it fills, then the call; type, pp and r (the report) are given.
#define CALL(name, ...) {#name, [](HIDP_REPORT_TYPE type, PHIDP_PREPARSED_DATA pp, std::vector<CHAR>& r) { \
    (void)type; (void)r; __VA_ARGS__; }}
const AnyCall kCalls[] = {
    CALL(GetCaps, HIDP_CAPS caps; return HidP_GetCaps(pp, &caps)),
    CALL(GetLinkCollectionNodes, HIDP_LINK_COLLECTION_NODE nodes[16]; ULONG n = 16;
         return HidP_GetLinkCollectionNodes(nodes, &n, pp)),
    CALL(GetValueCaps, HIDP_VALUE_CAPS caps[16]; USHORT n = 16; return HidP_GetValueCaps(type, caps, &n, pp)),
    CALL(GetButtonCaps, HIDP_BUTTON_CAPS caps[16]; USHORT n = 16; return HidP_GetButtonCaps(type, caps, &n, pp)),
    CALL(GetUsageValue, ULONG value = 0;
         return HidP_GetUsageValue(type, 0x20, 0, 0x544, &value, pp, r.data(), Length(r))),
    CALL(SetUsageValue, return HidP_SetUsageValue(type, 0x20, 0, 0x544, 1, pp, r.data(), Length(r))),
    CALL(GetUsageValueArray, char array[64];
         return HidP_GetUsageValueArray(type, 0x20, 0, 0x308, array, 64, pp, r.data(), Length(r))),
    CALL(SetUsageValueArray, char array[64] = {};
         return HidP_SetUsageValueArray(type, 0x20, 0, 0x308, array, 64, pp, r.data(), Length(r))),
    CALL(GetUsages, USAGE usages[4]; ULONG n = 4;
         return HidP_GetUsages(type, 0x20, 0, usages, &n, pp, r.data(), Length(r))),
    CALL(SetUsages, USAGE usages[1] = {0x801}; ULONG n = 1;
         return HidP_SetUsages(type, 0x20, 0, usages, &n, pp, r.data(), Length(r))),
    CALL(UnsetUsages, USAGE usages[1] = {0x801}; ULONG n = 1;
         return HidP_UnsetUsages(type, 0x20, 0, usages, &n, pp, r.data(), Length(r))),
};
#undef CALL

// A custom sensor with report ID 3: values 0x544 and 0x545 in the input
// report, selectors and the 0x308 description in the feature report.
class CallStatus : public testing::Test {
protected:
    void SetUp() override
    {
        sensor::SensorShape sensorShape = sensor::CustomSensor(16, {sensor::CustomValue(1), sensor::CustomValue(2)});
        sensorShape.reportId = 3;
        blob_ = ParseSingle(sensor::BuildSingleSensor(sensorShape));
        pp_ = Preparsed(blob_);
        input_ = EmptyReport(blob_, HidP_Input, 3);
        feature_ = EmptyReport(blob_, HidP_Feature, 3);
    }

    PreparsedBlob blob_;
    PHIDP_PREPARSED_DATA pp_ = nullptr;
    std::vector<CHAR> input_;
    std::vector<CHAR> feature_;
};

// Invalid preparsed data comes first, even with a report type that is wrong too.
TEST_F(CallStatus, InvalidPreparsedDataThenInvalidReportTypeInEveryCall)
{
    std::vector<std::uint8_t> garbage(blob_.size(), 0xA5);
    for (const AnyCall& call : kCalls) {
        for (PHIDP_PREPARSED_DATA bad :
             {static_cast<PHIDP_PREPARSED_DATA>(nullptr), reinterpret_cast<PHIDP_PREPARSED_DATA>(garbage.data())}) {
            for (HIDP_REPORT_TYPE type : {HidP_Input, HidP_Feature, static_cast<HIDP_REPORT_TYPE>(3)})
                EXPECT_EQ(call.run(type, bad, input_), HIDP_STATUS_INVALID_PREPARSED_DATA) << call.name;
        }
        const std::string name = call.name;
        if (name == "GetCaps" || name == "GetLinkCollectionNodes") continue;  // take no report type
        for (int raw : {3, -1, 100}) {
            EXPECT_EQ(call.run(static_cast<HIDP_REPORT_TYPE>(raw), pp_, input_), HIDP_STATUS_INVALID_REPORT_TYPE)
                << name << " " << raw;
        }
    }
}

// Statuses of the calls that address one usage in one report.
TEST_F(CallStatus, LookupFailures)
{
    enum class Op { GetValue, GetUsages };
    struct Case {
        const char* what;
        Op op;
        USAGE page;
        USHORT link;
        USAGE usage;
        std::uint8_t reportId;
        int lengthChange;  // against the input report's length; -100 gives length 0
        NTSTATUS expected;
    };
    const int featureLonger = static_cast<int>(feature_.size()) - static_cast<int>(input_.size());
    const Case cases[] = {
        {"one byte short", Op::GetValue, 0x20, 0, 0x544, 3, -1, HIDP_STATUS_INVALID_REPORT_LENGTH},
        {"one byte long", Op::GetValue, 0x20, 0, 0x544, 3, +1, HIDP_STATUS_INVALID_REPORT_LENGTH},
        {"empty", Op::GetValue, 0x20, 0, 0x544, 3, -100, HIDP_STATUS_INVALID_REPORT_LENGTH},
        {"feature length", Op::GetValue, 0x20, 0, 0x544, 3, featureLonger, HIDP_STATUS_INVALID_REPORT_LENGTH},
        {"buttons, short", Op::GetUsages, 0x20, 0, 0, 3, -1, HIDP_STATUS_INVALID_REPORT_LENGTH},
        {"other usage", Op::GetValue, 0x20, 0, 0x546, 3, 0, HIDP_STATUS_USAGE_NOT_FOUND},
        {"other page", Op::GetValue, 0x21, 0, 0x544, 3, 0, HIDP_STATUS_USAGE_NOT_FOUND},
        {"other link collection", Op::GetValue, 0x20, 1, 0x544, 3, 0, HIDP_STATUS_USAGE_NOT_FOUND},
        {"a selector is no value", Op::GetValue, 0x20, 0, 0x801, 3, 0, HIDP_STATUS_USAGE_NOT_FOUND},
        {"no button page", Op::GetUsages, 0x09, 0, 0, 3, 0, HIDP_STATUS_USAGE_NOT_FOUND},
        {"other report ID", Op::GetValue, 0x20, 0, 0x544, 4, 0, HIDP_STATUS_INCOMPATIBLE_REPORT_ID},
        {"Get never adopts byte 0 == 0", Op::GetValue, 0x20, 0, 0x544, 0, 0, HIDP_STATUS_INCOMPATIBLE_REPORT_ID},
    };
    for (const Case& c : cases) {
        const long length = c.lengthChange == -100 ? 0 : static_cast<long>(input_.size()) + c.lengthChange;
        std::vector<CHAR> report(static_cast<std::size_t>(length) + 1, 0);  // never shorter than one byte
        report[0] = static_cast<CHAR>(c.reportId);
        const auto reportLength = static_cast<ULONG>(length);
        ULONG value = 0;
        USAGE usages[4];
        ULONG count = 4;
        const NTSTATUS status =
            c.op == Op::GetValue
                ? HidP_GetUsageValue(HidP_Input, c.page, c.link, c.usage, &value, pp_, report.data(), reportLength)
                : HidP_GetUsages(HidP_Input, c.page, c.link, usages, &count, pp_, report.data(), reportLength);
        EXPECT_EQ(status, c.expected) << c.what;
    }
    // No output report at all: length 0 is right, nothing is found.
    ULONG value = 0;
    EXPECT_EQ(HidP_GetUsageValue(HidP_Output, 0x20, 0, 0x544, &value, pp_, input_.data(), 0),
              HIDP_STATUS_USAGE_NOT_FOUND);
}

TEST_F(CallStatus, NullArgumentsAreInvalidParameters)
{
    const ULONG inputLength = Length(input_);
    EXPECT_EQ(HidP_GetCaps(pp_, nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_GetLinkCollectionNodes(nullptr, nullptr, pp_), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_GetValueCaps(HidP_Input, nullptr, nullptr, pp_), STATUS_INVALID_PARAMETER);
    USHORT count = 1;
    EXPECT_EQ(HidP_GetButtonCaps(HidP_Input, nullptr, &count, pp_), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x544, nullptr, pp_, input_.data(), inputLength),
              STATUS_INVALID_PARAMETER);
    ULONG value = 0;
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x544, &value, pp_, nullptr, inputLength),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_SetUsageValue(HidP_Input, 0x20, 0, 0x544, 1, pp_, nullptr, inputLength), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_GetUsageValueArray(HidP_Feature, 0x20, 0, 0x308, nullptr, 64, pp_, feature_.data(),
                                      Length(feature_)),
              STATUS_INVALID_PARAMETER);
    USAGE usages[4];
    EXPECT_EQ(HidP_GetUsages(HidP_Input, 0x20, 0, usages, nullptr, pp_, input_.data(), inputLength),
              STATUS_INVALID_PARAMETER);
    ULONG length = 2;
    EXPECT_EQ(HidP_SetUsages(HidP_Input, 0x20, 0, nullptr, &length, pp_, input_.data(), inputLength),
              STATUS_INVALID_PARAMETER);
}

TEST_F(CallStatus, CapabilityListsTooShortAndGetCapsClearsReservedWords)
{
    HIDP_CAPS caps;
    std::memset(&caps, 0xCC, sizeof caps);
    ASSERT_EQ(HidP_GetCaps(pp_, &caps), HIDP_STATUS_SUCCESS);
    for (USHORT reserved : caps.Reserved) EXPECT_EQ(reserved, 0);
    ASSERT_EQ(caps.NumberFeatureButtonCaps, 12);

    std::vector<HIDP_BUTTON_CAPS> buttons(40);
    USHORT length = 5;
    EXPECT_EQ(HidP_GetButtonCaps(HidP_Feature, buttons.data(), &length, pp_), HIDP_STATUS_BUFFER_TOO_SMALL);
    // The count needed; what fits is copied.
    EXPECT_EQ(std::tuple(length, buttons[4].NotRange.Usage, buttons[5].NotRange.Usage), std::tuple(12, 0x844, 0));
    length = 0;
    EXPECT_EQ(HidP_GetButtonCaps(HidP_Feature, nullptr, &length, pp_), HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 12);
    length = 40;  // longer than needed: set to the count copied
    EXPECT_EQ(HidP_GetButtonCaps(HidP_Feature, buttons.data(), &length, pp_), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(length, 12);
    USHORT none = 0;  // no output values: a null list of length 0 is all it takes
    EXPECT_EQ(HidP_GetValueCaps(HidP_Output, nullptr, &none, pp_), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(none, 0);

    std::vector<HIDP_LINK_COLLECTION_NODE> nodes(caps.NumberLinkCollectionNodes);
    ULONG nodeCount = 2;
    EXPECT_EQ(HidP_GetLinkCollectionNodes(nodes.data(), &nodeCount, pp_), HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(std::tuple(nodeCount, nodes[1].LinkUsage, nodes[2].LinkUsage),
              std::tuple(ULONG{caps.NumberLinkCollectionNodes}, sensor::kReportingState, 0));
    nodeCount = 0;
    EXPECT_EQ(HidP_GetLinkCollectionNodes(nullptr, &nodeCount, pp_), HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(nodeCount, caps.NumberLinkCollectionNodes);
}

}  // namespace
}  // namespace host::hid
