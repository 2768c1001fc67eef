// The HidDevice's promises at its edges: calls out of order, a classification
// that cannot read what it needs, answers that are empty, and IOCTLs that
// carry an input buffer.
#include <gtest/gtest.h>

#include <cstring>

#include "hid/custom_sensor_kind.h"
#include "hid/hid_io_target.h"
#include "host/hidparser/descriptor_builder.h"
#include "host/hidparser/preparsed_layout.h"
#include "host/hidparser/report_descriptor_parser.h"
#include "platform/hidclass.h"
#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

using host::hidsim::DeviceRule;
using host::hidsim::RuleTrigger;
using IoctlResult = host::HidCollectionEndpoint::IoctlResult;
namespace pp = host::hid::preparsed;

std::u16string Name(HidSensor* sensor)
{
    return sensor != nullptr && sensor->GetFriendlyName() != nullptr ? sensor->GetFriendlyName() : u"(none)";
}

TEST(HidDeviceContract, EnumerateBeforeOpenAndOpenTwiceAreRefused)
{
    DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(Custom())));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    EXPECT_EQ(bed.Hid()->Open(nullptr, nullptr), STATUS_UNSUCCESSFUL);
    EXPECT_TRUE(bed.Hid()->IsOpen());

    auto* unopened = new (std::nothrow) HidDevice(bed.Hid()->Device());
    ASSERT_NE(unopened, nullptr);
    bed.Sim().ClearTraffic();
    EXPECT_EQ(unopened->EnumerateSensors(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(unopened->SensorCount(), 0u);
    EXPECT_TRUE(bed.Traffic().empty());
    delete unopened;
}

TEST(HidDeviceContract, ClassificationWithoutADeviceOrFeatureValuesIsOther)
{
    EXPECT_EQ(ClassifyCustomCollection(nullptr, 0, 0), CustomSensorKind::Other);

    // Inputs only: nothing to read a description from, and no request for one.
    hs::SensorShape inputsOnly;
    inputsOnly.inputs = {hs::CustomValue(1)};
    DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(inputsOnly)));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Hid()->Caps().NumberFeatureValueCaps, 0);
    EXPECT_EQ(Name(bed.Sensor(0)), u"HID Sensor Collection V2: Other-0");
    bed.Sim().ClearTraffic();
    EXPECT_EQ(ClassifyCustomCollection(bed.Hid(), 0, 0), CustomSensorKind::Other);
    EXPECT_TRUE(bed.Traffic().empty());
}

// A custom sensor whose feature report 1 holds a report interval, then the
// description "0x232" (0x308) and the description "0x230" (0x2308).
std::vector<std::uint8_t> TwoDescriptions()
{
    host::hid::DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0xE1).Collection(host::hid::CollectionType::Application).ReportId(1);
    b.Usage(0x544).LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(1).Input(0x02);
    b.Usage(0x30E).ReportSize(32).Feature(0x02);
    b.Usage(0x308).ReportSize(16).ReportCount(8).Feature(0x02);
    b.Usage(0x2308).Feature(0x02);
    b.EndCollection();
    return b.Build();
}

Bytes TwoDescriptionsReport()
{
    Bytes report(1 + 4 + 16 + 16, 0);
    report[0] = 1;
    const char* texts[] = {"0x232", "0x230"};
    for (int d = 0; d < 2; ++d)
        for (std::size_t i = 0; texts[d][i] != 0; ++i)
            report[5 + 16 * d + 2 * i] = static_cast<std::uint8_t>(texts[d][i]);
    return report;
}

// The collection's preparsed data with feature value capability `index`
// claiming ReportCount 0, as a platform parser may hand it out; the blob's
// checks are recomputed so that the parser serves it.
host::hid::PreparsedBlob WithZeroReportCount(host::hid::PreparsedBlob blob, std::size_t index)
{
    pp::Header header;
    std::memcpy(&header, blob.data(), sizeof header);
    const pp::Layout layout = pp::ComputeLayout(header);
    const std::size_t at = layout.valueCaps[HidP_Feature] + index * sizeof(HIDP_VALUE_CAPS);
    HIDP_VALUE_CAPS cap;
    std::memcpy(&cap, blob.data() + at, sizeof cap);
    cap.ReportCount = 0;
    std::memcpy(blob.data() + at, &cap, sizeof cap);
    header.bodyChecksum = pp::BodyChecksum(blob.data() + pp::kBodyOffset, blob.size() - pp::kBodyOffset);
    std::memcpy(blob.data(), &header, sizeof header);
    header.hotCheck = pp::HotCheckOf(blob.data());
    std::memcpy(blob.data(), &header, sizeof header);
    const pp::HeaderCheck check = pp::CheckHeader(blob.data());
    std::memcpy(blob.data() + pp::kHeaderCheckOffset, &check, sizeof check);
    return blob;
}

TEST(HidDeviceContract, AFeatureValueWithReportCount0EndsClassificationWithTheKindFoundSoFar)
{
    std::vector<host::hid::PreparsedBlob> blobs;
    host::hid::ParseError error;
    ASSERT_TRUE(host::hid::ParseReportDescriptor(TwoDescriptions(), blobs, error)) << error.reason;
    const struct {
        int zeroed;  // -1: none
        const char16_t* name;
    } cases[] = {
        {-1, u"HID Sensor Collection V2: Pedometer-0"},  // the later description wins
        {2, u"HID Sensor Collection V2: Activity-0"},
        {1, u"HID Sensor Collection V2: Other-0"},
        {0, u"HID Sensor Collection V2: Other-0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.zeroed);
        DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(TwoDescriptions()).WithFeature(1, TwoDescriptionsReport()));
        if (c.zeroed >= 0) {
            const host::hid::PreparsedBlob forged = WithZeroReportCount(blobs[0], static_cast<std::size_t>(c.zeroed));
            bed.Shim().Override(IOCTL_HID_GET_COLLECTION_DESCRIPTOR, [forged](BYTE* output, ULONG length) {
                if (length != forged.size())
                    return IoctlResult{STATUS_INVALID_PARAMETER, 0, true};
                std::memcpy(output, forged.data(), forged.size());
                return IoctlResult{STATUS_SUCCESS, static_cast<ULONG>(forged.size()), true};
            });
        }
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        ASSERT_EQ(bed.Hid()->SensorCount(), 1u);
        EXPECT_EQ(Name(bed.Sensor(0)), c.name);
    }
}

TEST(HidDeviceContract, FeatureReportAnswersThatAreEmpty)
{
    hs::SensorShape sensor = Custom(1);
    sensor.reportId = 4;
    DriverTestBed bed(HidDeviceConfig{}
                          .WithDescriptor(hs::BuildSingleSensor(sensor))
                          .WithFeature(4, FeatureReport(4, 100, {u"0x210"}))
                          .WithRule(DeviceRule::Zeros(RuleTrigger::GetFeature)));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    const ULONG length = bed.Hid()->Caps().FeatureReportByteLength;
    BYTE buffer[kMaxFeatureReportBytes] = {};

    // Zeros twice: the second all-zero answer is the result.
    bed.Sim().ClearTraffic();
    std::memset(buffer, 0xAA, sizeof buffer);
    EXPECT_EQ(bed.Hid()->GetFeatureReport(4, buffer, length, u"Test"), STATUS_SUCCESS);
    EXPECT_EQ(bed.Traffic().size(), 2u);
    for (ULONG i = 0; i < length; ++i)
        ASSERT_EQ(buffer[i], 0) << i;

    // Length 0 takes the same steps: the request is built twice, and the
    // framework's refusal of an empty output buffer is the result. The
    // device sees nothing; byte 0 still got the report ID.
    const std::size_t before = bed.Shim().Calls().size();
    std::memset(buffer, 0xAA, sizeof buffer);
    EXPECT_EQ(bed.Hid()->GetFeatureReport(7, buffer, 0, u"Test"), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(bed.Shim().Calls().size(), before);
    EXPECT_EQ(buffer[0], 7);
    EXPECT_EQ(buffer[1], 0xAA);
}

TEST(HidDeviceContract, AnIoctlWithAnInputBufferSendsItWithTheOutputLength)
{
    hs::SensorShape sensor = Custom(1);
    sensor.reportId = 4;
    DriverTestBed bed(HidDeviceConfig{}
                          .WithDescriptor(hs::BuildSingleSensor(sensor))
                          .WithFeature(4, FeatureReport(4, 100, {u"0x210"})));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    const ULONG length = bed.Hid()->Caps().FeatureReportByteLength;
    Bytes report = FeatureReport(4, 100, {u"0x211"});
    ASSERT_EQ(report.size(), length);
    Bytes output(length, 0);
    bed.Sim().ClearTraffic();
    const std::size_t before = bed.Shim().Calls().size();
    EXPECT_EQ(bed.Hid()->IoctlTarget()->SendIoctlSynchronously(output.data(), length, IOCTL_HID_SET_FEATURE,
                                                                report.data()),
              STATUS_SUCCESS);
    const std::vector<EndpointShim::Call> calls = bed.Shim().Calls();
    ASSERT_EQ(calls.size(), before + 1);
    EXPECT_EQ(calls.back().ioctlCode, static_cast<ULONG>(IOCTL_HID_SET_FEATURE));
    EXPECT_EQ(calls.back().inputLength, length);
    EXPECT_EQ(calls.back().outputLength, length);
    ASSERT_EQ(bed.Traffic().size(), 1u);
    EXPECT_EQ(bed.Traffic()[0].kind, TrafficKind::SetFeature);
    EXPECT_EQ(bed.Traffic()[0].bytes, report);
    // The device keeps what was set.
    BYTE readBack[kMaxFeatureReportBytes] = {};
    ASSERT_EQ(bed.Hid()->GetFeatureReport(4, readBack, length, u"Test"), STATUS_SUCCESS);
    EXPECT_EQ(Bytes(readBack, readBack + length), report);
}

}  // namespace
}  // namespace testdriver
