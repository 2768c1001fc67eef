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

class CallStatus : public testing::Test {
protected:
    void SetUp() override
    {
        sensor::SensorSpec spec = sensor::CustomSensor(16, {sensor::CustomValue(1), sensor::CustomValue(2)});
        spec.reportId = 3;
        blob_ = ParseSingle(sensor::BuildSingleSensor(spec));
        pp_ = Preparsed(blob_);
        input_ = EmptyReport(blob_, HidP_Input, 3);
        feature_ = EmptyReport(blob_, HidP_Feature, 3);
    }

    ULONG InputLength() const { return static_cast<ULONG>(input_.size()); }

    PreparsedBlob blob_;
    PHIDP_PREPARSED_DATA pp_ = nullptr;
    std::vector<CHAR> input_;
    std::vector<CHAR> feature_;
};

TEST_F(CallStatus, InvalidPreparsedData)
{
    std::vector<std::uint8_t> garbage(blob_.size(), 0xA5);
    for (PHIDP_PREPARSED_DATA bad :
         {static_cast<PHIDP_PREPARSED_DATA>(nullptr), reinterpret_cast<PHIDP_PREPARSED_DATA>(garbage.data())}) {
        HIDP_CAPS caps;
        EXPECT_EQ(HidP_GetCaps(bad, &caps), HIDP_STATUS_INVALID_PREPARSED_DATA);
        ULONG nodes = 10;
        HIDP_LINK_COLLECTION_NODE nodeList[10];
        EXPECT_EQ(HidP_GetLinkCollectionNodes(nodeList, &nodes, bad), HIDP_STATUS_INVALID_PREPARSED_DATA);
        USHORT count = 10;
        HIDP_VALUE_CAPS values[10];
        EXPECT_EQ(HidP_GetValueCaps(HidP_Input, values, &count, bad), HIDP_STATUS_INVALID_PREPARSED_DATA);
        HIDP_BUTTON_CAPS buttons[10];
        EXPECT_EQ(HidP_GetButtonCaps(HidP_Input, buttons, &count, bad), HIDP_STATUS_INVALID_PREPARSED_DATA);
        ULONG value = 0;
        EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x544, &value, bad, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_PREPARSED_DATA);
        EXPECT_EQ(HidP_SetUsageValue(HidP_Input, 0x20, 0, 0x544, 1, bad, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_PREPARSED_DATA);
        char array[64];
        EXPECT_EQ(HidP_GetUsageValueArray(HidP_Feature, 0x20, 0, 0x308, array, 64, bad, feature_.data(),
                                          static_cast<ULONG>(feature_.size())),
                  HIDP_STATUS_INVALID_PREPARSED_DATA);
        EXPECT_EQ(HidP_SetUsageValueArray(HidP_Feature, 0x20, 0, 0x308, array, 64, bad, feature_.data(),
                                          static_cast<ULONG>(feature_.size())),
                  HIDP_STATUS_INVALID_PREPARSED_DATA);
        USAGE usages[4];
        ULONG length = 4;
        EXPECT_EQ(HidP_GetUsages(HidP_Input, 0x20, 0, usages, &length, bad, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_PREPARSED_DATA);
        EXPECT_EQ(HidP_SetUsages(HidP_Input, 0x20, 0, usages, &length, bad, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_PREPARSED_DATA);
        EXPECT_EQ(HidP_UnsetUsages(HidP_Input, 0x20, 0, usages, &length, bad, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_PREPARSED_DATA);
    }
}

TEST_F(CallStatus, InvalidReportType)
{
    for (int raw : {3, -1, 100}) {
        const auto type = static_cast<HIDP_REPORT_TYPE>(raw);
        USHORT count = 4;
        HIDP_VALUE_CAPS values[4];
        HIDP_BUTTON_CAPS buttons[4];
        EXPECT_EQ(HidP_GetValueCaps(type, values, &count, pp_), HIDP_STATUS_INVALID_REPORT_TYPE);
        EXPECT_EQ(HidP_GetButtonCaps(type, buttons, &count, pp_), HIDP_STATUS_INVALID_REPORT_TYPE);
        ULONG value = 0;
        EXPECT_EQ(HidP_GetUsageValue(type, 0x20, 0, 0x544, &value, pp_, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_REPORT_TYPE);
        EXPECT_EQ(HidP_SetUsageValue(type, 0x20, 0, 0x544, 1, pp_, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_REPORT_TYPE);
        char array[64];
        EXPECT_EQ(HidP_GetUsageValueArray(type, 0x20, 0, 0x308, array, 64, pp_, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_REPORT_TYPE);
        USAGE usages[4];
        ULONG length = 4;
        EXPECT_EQ(HidP_GetUsages(type, 0x20, 0, usages, &length, pp_, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_REPORT_TYPE);
        EXPECT_EQ(HidP_SetUsages(type, 0x20, 0, usages, &length, pp_, input_.data(), InputLength()),
                  HIDP_STATUS_INVALID_REPORT_TYPE);
    }
}

TEST_F(CallStatus, InvalidReportLength)
{
    ULONG value = 0;
    for (ULONG length : {InputLength() - 1, InputLength() + 1, 0u}) {
        EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x544, &value, pp_, input_.data(), length),
                  HIDP_STATUS_INVALID_REPORT_LENGTH);
        USAGE usages[4];
        ULONG count = 4;
        EXPECT_EQ(HidP_GetUsages(HidP_Input, 0x20, 0, usages, &count, pp_, input_.data(), length),
                  HIDP_STATUS_INVALID_REPORT_LENGTH);
    }
    // The feature length does not fit input reports.
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x544, &value, pp_, feature_.data(),
                                 static_cast<ULONG>(feature_.size())),
              HIDP_STATUS_INVALID_REPORT_LENGTH);
}

TEST_F(CallStatus, UsageNotFound)
{
    ULONG value = 0;
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x546, &value, pp_, input_.data(), InputLength()),
              HIDP_STATUS_USAGE_NOT_FOUND);
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x21, 0, 0x544, &value, pp_, input_.data(), InputLength()),
              HIDP_STATUS_USAGE_NOT_FOUND);
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 1, 0x544, &value, pp_, input_.data(), InputLength()),
              HIDP_STATUS_USAGE_NOT_FOUND);
    // A selector is a button, not a value.
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x801, &value, pp_, input_.data(), InputLength()),
              HIDP_STATUS_USAGE_NOT_FOUND);
    // No output report at all: length 0 is right, nothing is found.
    EXPECT_EQ(HidP_GetUsageValue(HidP_Output, 0x20, 0, 0x544, &value, pp_, input_.data(), 0),
              HIDP_STATUS_USAGE_NOT_FOUND);
    USAGE usages[4];
    ULONG length = 4;
    EXPECT_EQ(HidP_GetUsages(HidP_Input, 0x09, 0, usages, &length, pp_, input_.data(), InputLength()),
              HIDP_STATUS_USAGE_NOT_FOUND);
}

TEST_F(CallStatus, IncompatibleReportId)
{
    input_[0] = 4;
    ULONG value = 0;
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x544, &value, pp_, input_.data(), InputLength()),
              HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
    EXPECT_EQ(HidP_SetUsageValue(HidP_Input, 0x20, 0, 0x544, 1, pp_, input_.data(), InputLength()),
              HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
    USAGE usages[4];
    ULONG length = 4;
    EXPECT_EQ(HidP_GetUsages(HidP_Input, 0x20, 0, usages, &length, pp_, input_.data(), InputLength()),
              HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
    // Get never adopts byte 0 == 0.
    input_[0] = 0;
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x544, &value, pp_, input_.data(), InputLength()),
              HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
}

TEST_F(CallStatus, NullArgumentsAreInvalidParameters)
{
    EXPECT_EQ(HidP_GetCaps(pp_, nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_GetLinkCollectionNodes(nullptr, nullptr, pp_), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_GetValueCaps(HidP_Input, nullptr, nullptr, pp_), STATUS_INVALID_PARAMETER);
    USHORT count = 1;
    EXPECT_EQ(HidP_GetButtonCaps(HidP_Input, nullptr, &count, pp_), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x544, nullptr, pp_, input_.data(), InputLength()),
              STATUS_INVALID_PARAMETER);
    ULONG value = 0;
    EXPECT_EQ(HidP_GetUsageValue(HidP_Input, 0x20, 0, 0x544, &value, pp_, nullptr, InputLength()),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_SetUsageValue(HidP_Input, 0x20, 0, 0x544, 1, pp_, nullptr, InputLength()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(HidP_GetUsageValueArray(HidP_Feature, 0x20, 0, 0x308, nullptr, 64, pp_, feature_.data(),
                                      static_cast<ULONG>(feature_.size())),
              STATUS_INVALID_PARAMETER);
    USAGE usages[4];
    EXPECT_EQ(HidP_GetUsages(HidP_Input, 0x20, 0, usages, nullptr, pp_, input_.data(), InputLength()),
              STATUS_INVALID_PARAMETER);
    ULONG length = 2;
    EXPECT_EQ(HidP_SetUsages(HidP_Input, 0x20, 0, nullptr, &length, pp_, input_.data(), InputLength()),
              STATUS_INVALID_PARAMETER);
}

TEST_F(CallStatus, CapabilityListsTooShort)
{
    const HIDP_CAPS caps = Caps(blob_);
    ASSERT_EQ(caps.NumberFeatureButtonCaps, 12);

    std::vector<HIDP_BUTTON_CAPS> buttons(12);
    USHORT length = 5;
    EXPECT_EQ(HidP_GetButtonCaps(HidP_Feature, buttons.data(), &length, pp_), HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 12);
    EXPECT_EQ(buttons[4].NotRange.Usage, 0x844);  // what fits is copied
    EXPECT_EQ(buttons[5].NotRange.Usage, 0);
    length = 0;
    EXPECT_EQ(HidP_GetButtonCaps(HidP_Feature, nullptr, &length, pp_), HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 12);
    length = 40;  // longer than needed: set to the count copied
    std::vector<HIDP_BUTTON_CAPS> more(40);
    EXPECT_EQ(HidP_GetButtonCaps(HidP_Feature, more.data(), &length, pp_), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(length, 12);

    USHORT none = 0;
    EXPECT_EQ(HidP_GetValueCaps(HidP_Output, nullptr, &none, pp_), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(none, 0);

    std::vector<HIDP_LINK_COLLECTION_NODE> nodes(caps.NumberLinkCollectionNodes);
    ULONG nodeCount = 2;
    EXPECT_EQ(HidP_GetLinkCollectionNodes(nodes.data(), &nodeCount, pp_), HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(nodeCount, caps.NumberLinkCollectionNodes);
    EXPECT_EQ(nodes[1].LinkUsage, sensor::kReportingState);  // what fits is copied
    EXPECT_EQ(nodes[2].LinkUsage, 0);
    nodeCount = 0;
    EXPECT_EQ(HidP_GetLinkCollectionNodes(nullptr, &nodeCount, pp_), HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(nodeCount, caps.NumberLinkCollectionNodes);
}

TEST_F(CallStatus, GetCapsClearsTheReservedWords)
{
    HIDP_CAPS caps;
    std::memset(&caps, 0xCC, sizeof caps);
    ASSERT_EQ(HidP_GetCaps(pp_, &caps), HIDP_STATUS_SUCCESS);
    for (USHORT reserved : caps.Reserved) EXPECT_EQ(reserved, 0);
}

}  // namespace
}  // namespace host::hid
