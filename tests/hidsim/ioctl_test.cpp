// The IOCTLs a driver sends without rules, over real descriptors: collection
// information and descriptor, strings, GET_FEATURE and SET_FEATURE.
// amd-sfh-als uses report ID 4, hutrr39-accel3 no report ID.
#include <cstring>

#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

HID_COLLECTION_INFORMATION ReadInformation(HidCollectionEndpoint& endpoint)
{
    const Answer answer = Query(endpoint, IOCTL_HID_GET_COLLECTION_INFORMATION, sizeof(HID_COLLECTION_INFORMATION));
    EXPECT_EQ(answer.result.status, STATUS_SUCCESS);
    HID_COLLECTION_INFORMATION information{};
    if (answer.bytes.size() == sizeof(information))
        std::memcpy(&information, answer.bytes.data(), sizeof(information));
    return information;
}

TEST(CollectionIoctls, InformationDefaultsAndConfiguredValues)
{
    auto plain = MakeDevice(On("hutrr39-accel3"));
    auto configured = MakeDevice(On("amd-sfh-als").WithInformation({0x5A3C, 0x0002, 0x0213, true}));
    ASSERT_TRUE(plain && configured);
    const HID_COLLECTION_INFORMATION defaults = ReadInformation(plain->DriverEndpoint());
    EXPECT_EQ(defaults.DescriptorSize, plain->DriverCollection().PreparsedData().size());
    EXPECT_EQ(defaults.Polled, FALSE);
    EXPECT_EQ(defaults.VendorID, 0);
    EXPECT_EQ(defaults.VersionNumber, 0x0100);
    const HID_COLLECTION_INFORMATION set = ReadInformation(configured->DriverEndpoint());
    EXPECT_EQ(set.Polled, TRUE);
    EXPECT_EQ(set.VendorID, 0x5A3C);
    EXPECT_EQ(set.ProductID, 0x0002);
    EXPECT_EQ(set.VersionNumber, 0x0213);
}

TEST(CollectionIoctls, DescriptorIsTheParsersBlobAndShortBuffersGetNothing)
{
    auto device = MakeDevice(On("amd-sfh-als"));
    ASSERT_TRUE(device);
    HidCollectionEndpoint& endpoint = device->DriverEndpoint();
    const Bytes& blob = device->DriverCollection().PreparsedData();
    const auto size = static_cast<ULONG>(blob.size());
    Answer answer = Query(endpoint, IOCTL_HID_GET_COLLECTION_DESCRIPTOR, size);
    ASSERT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.bytes, blob);
    HIDP_CAPS caps{};
    ASSERT_EQ(HidP_GetCaps(reinterpret_cast<PHIDP_PREPARSED_DATA>(answer.bytes.data()), &caps), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(caps.UsagePage, 0x20);
    EXPECT_EQ(caps.Usage, 0x41);

    Bytes untouched(size, 0xEE);
    const auto result = endpoint.DeviceControl(IOCTL_HID_GET_COLLECTION_DESCRIPTOR, nullptr, 0, untouched.data(), size - 1);
    EXPECT_EQ(result.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(result.information, 0u);
    EXPECT_EQ(untouched, Bytes(size, 0xEE));
    const ULONG code = IOCTL_HID_GET_COLLECTION_INFORMATION;
    EXPECT_EQ(Query(endpoint, code, 11).result.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(endpoint.DeviceControl(code, nullptr, 0, nullptr, 12).status, STATUS_INVALID_PARAMETER);
    EXPECT_EQ(endpoint.DeviceControl(code, nullptr, 0, nullptr, 0).status, STATUS_BUFFER_TOO_SMALL);
    // IOCTL_HID_GET_INPUT_REPORT: the platform has it, this device does not answer it.
    answer = Query(endpoint, 0x000B01A2, 64);
    EXPECT_EQ(answer.result.status, STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_TRUE(answer.result.answered);
}

TEST(CollectionIoctls, StringsAreUtf16TerminatedWhenThereIsRoomAndAbsentOnesFail)
{
    auto device = MakeDevice(On("hutrr39-accel3").WithManufacturer(u"Contoso").WithSerialNumber(u"\u00C9-42"));
    auto emptyProduct = MakeDevice(On("hutrr39-accel3").WithProduct(u""));
    ASSERT_TRUE(device && emptyProduct);
    struct Case {
        ULONG ioctl;
        ULONG length;
        NTSTATUS status;
        std::u16string text;
    };
    const Case cases[] = {
        {IOCTL_HID_GET_MANUFACTURER_STRING, 252, STATUS_SUCCESS, std::u16string(u"Contoso\0", 8)},
        {IOCTL_HID_GET_MANUFACTURER_STRING, 14, STATUS_SUCCESS, u"Contoso"},  // exact fit: no terminator
        {IOCTL_HID_GET_MANUFACTURER_STRING, 7, STATUS_SUCCESS, u"Con"},       // odd length: 3 characters fit
        {IOCTL_HID_GET_MANUFACTURER_STRING, 1, STATUS_BUFFER_TOO_SMALL, u""},
        {IOCTL_HID_GET_SERIALNUMBER_STRING, 252, STATUS_SUCCESS, std::u16string(u"\u00C9-42\0", 5)},
        {IOCTL_HID_GET_PRODUCT_STRING, 252, STATUS_INVALID_PARAMETER, u""},  // absent
    };
    for (const Case& c : cases) {
        const Answer answer = Query(device->DriverEndpoint(), c.ioctl, c.length);
        std::u16string text(answer.bytes.size() / 2, u'\0');
        std::memcpy(text.data(), answer.bytes.data(), text.size() * 2);
        EXPECT_EQ(answer.result.status, c.status) << std::hex << c.ioctl << " into " << std::dec << c.length;
        EXPECT_EQ(text, c.text) << std::hex << c.ioctl << " into " << std::dec << c.length;
    }
    EXPECT_EQ(device->DriverEndpoint().DeviceControl(IOCTL_HID_GET_MANUFACTURER_STRING, nullptr, 0, nullptr, 252).status,
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Query(emptyProduct->DriverEndpoint(), IOCTL_HID_GET_PRODUCT_STRING, 252).bytes, Bytes(2, 0));
}

class Features : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_ = MakeDevice(On("amd-sfh-als").WithFeature(4, kStored));
        ASSERT_TRUE(device_);
        length_ = device_->DriverCollection().Caps().FeatureReportByteLength;
        ASSERT_GT(length_, 6u);
    }
    HidCollectionEndpoint& Endpoint() { return device_->DriverEndpoint(); }

    const Bytes kStored{0x04, 0x02, 0x02, 0x01, 0x00, 0x64};
    std::unique_ptr<SimulatedHidDevice> device_;
    ULONG length_ = 0;
};

TEST_F(Features, GetFeatureAnswersTheStoredOrADefaultReportPaddedOrCutToTheBuffer)
{
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, Padded(kStored, length_));
    EXPECT_EQ(GetFeature(Endpoint(), 7, length_).bytes, Padded({0x07}, length_)) << "unlisted: its ID and zeros";
    EXPECT_EQ(GetFeature(Endpoint(), 4, 3).bytes, (Bytes{0x04, 0x02, 0x02}));
    EXPECT_EQ(GetFeature(Endpoint(), 4, 0).result.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(Endpoint().DeviceControl(IOCTL_HID_GET_FEATURE, nullptr, 0, nullptr, 15).status, STATUS_INVALID_PARAMETER);

    Bytes large(4096, 0xAA);
    large[0] = 4;
    const auto result = Endpoint().DeviceControl(IOCTL_HID_GET_FEATURE, nullptr, 0, large.data(), 4096);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.information, length_);
    EXPECT_EQ(large[length_ - 1], 0x00);
    EXPECT_EQ(large[length_], 0xAA) << "beyond the report the buffer is left alone";
}

TEST_F(Features, SetFeatureStoresUnderTheFirstByteForLaterReads)
{
    const Bytes report = Padded({0x04, 0x02, 0x02, 0x01, 0x00, 0xE8, 0x03}, length_);
    const auto result = SetFeature(Endpoint(), report);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.information, 0u);
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, report);
    ASSERT_EQ(SetFeature(Endpoint(), {0x09, 0x55}).status, STATUS_SUCCESS);
    EXPECT_EQ(GetFeature(Endpoint(), 9, length_).bytes, Padded({0x09, 0x55}, length_));
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, report);

    Bytes output(length_, 0);
    EXPECT_EQ(Endpoint().DeviceControl(IOCTL_HID_SET_FEATURE, nullptr, 0, output.data(), length_).status,
              STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(Endpoint().DeviceControl(IOCTL_HID_SET_FEATURE, nullptr, 8, output.data(), length_).status,
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(device_->Feature(0), std::nullopt);
}

TEST_F(Features, ChangesFromTheScenarioTakeEffectAtOnce)
{
    ASSERT_TRUE(device_->UpdateFeatures({{5, {0x05, 0x01}}}));
    EXPECT_EQ(GetFeature(Endpoint(), 5, length_).bytes, Padded({0x05, 0x01}, length_));
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, Padded(kStored, length_)) << "unlisted IDs are kept";
    ASSERT_TRUE(device_->SetFeature(5, {0x05, 0x02}));
    EXPECT_EQ(GetFeature(Endpoint(), 5, length_).bytes, Padded({0x05, 0x02}, length_));
}

TEST(FeaturesWithoutReportId, ReportIdZeroIsServedLikeAnyOther)
{
    auto device = MakeDevice(On("hutrr39-accel3"));
    ASSERT_TRUE(device);
    const ULONG length = device->DriverCollection().Caps().FeatureReportByteLength;
    EXPECT_EQ(GetFeature(device->DriverEndpoint(), 0, length).bytes, Bytes(length, 0));
    Bytes report(length, 0);
    report[5] = 100;
    ASSERT_EQ(SetFeature(device->DriverEndpoint(), report).status, STATUS_SUCCESS);
    EXPECT_EQ(GetFeature(device->DriverEndpoint(), 0, length).bytes, report);
}

}  // namespace
}  // namespace hidsim_test
