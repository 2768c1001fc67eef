// The IOCTLs a driver sends without rules, over real descriptors: collection
// information and descriptor, strings, GET_FEATURE and SET_FEATURE.
// amd-sfh-als uses report ID 4, hutrr39-accel3 no report ID.
#include <cstring>

#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

using CollectionIoctls = DeviceTest;

TEST_F(CollectionIoctls, InformationCarriesTheBlobSizeAndTheConfiguredIdentity)
{
    Make(On("amd-sfh-als").WithInformation({0x5A3C, 0x0002, 0x0213, true}));
    const Answer answer = Query(Endpoint(), IOCTL_HID_GET_COLLECTION_INFORMATION, 12);
    ASSERT_EQ(answer.bytes.size(), sizeof(HID_COLLECTION_INFORMATION));
    HID_COLLECTION_INFORMATION information{};
    std::memcpy(&information, answer.bytes.data(), sizeof(information));
    EXPECT_EQ(information.DescriptorSize, Collection().PreparsedData().size());
    EXPECT_EQ(information.Polled, TRUE);
    EXPECT_EQ(information.VendorID, 0x5A3C);
    EXPECT_EQ(information.ProductID, 0x0002);
    EXPECT_EQ(information.VersionNumber, 0x0213);
}

TEST_F(CollectionIoctls, ShortOrMissingBuffersGetNothing)
{
    Make(On("amd-sfh-als").WithManufacturer(u"Contoso"));
    HidCollectionEndpoint& endpoint = Endpoint();
    const auto size = static_cast<ULONG>(Collection().PreparsedData().size());
    Bytes untouched(size, 0xEE);
    const auto result = endpoint.DeviceControl(IOCTL_HID_GET_COLLECTION_DESCRIPTOR, nullptr, 0, untouched.data(), size - 1);
    EXPECT_EQ(result.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(result.information, 0u);
    EXPECT_EQ(untouched, Bytes(size, 0xEE));
    EXPECT_EQ(Query(endpoint, IOCTL_HID_GET_COLLECTION_INFORMATION, 11).result.status, STATUS_BUFFER_TOO_SMALL);
    for (ULONG code : {IOCTL_HID_GET_COLLECTION_INFORMATION, IOCTL_HID_GET_MANUFACTURER_STRING, IOCTL_HID_GET_FEATURE})
        EXPECT_EQ(endpoint.DeviceControl(code, nullptr, 0, nullptr, 252).status, STATUS_INVALID_PARAMETER) << code;
    // IOCTL_HID_GET_INPUT_REPORT: the platform has it, this device does not answer it.
    const Answer answer = Query(endpoint, 0x000B01A2, 64);
    EXPECT_EQ(answer.result.status, STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_TRUE(answer.result.answered);
}

TEST_F(CollectionIoctls, StringsAreUtf16TerminatedWhenThereIsRoomAndAbsentOnesFail)
{
    Make(On("hutrr39-accel3").WithManufacturer(u"Contoso"));
    auto emptyProduct = MakeDevice(On("hutrr39-accel3").WithProduct(u""));
    ASSERT_TRUE(emptyProduct);
    const struct {
        ULONG ioctl;
        ULONG length;
        NTSTATUS status;
        std::u16string text;
    } cases[] = {
        {IOCTL_HID_GET_MANUFACTURER_STRING, 252, STATUS_SUCCESS, std::u16string(u"Contoso\0", 8)},
        {IOCTL_HID_GET_MANUFACTURER_STRING, 14, STATUS_SUCCESS, u"Contoso"},  // exact fit: no terminator
        {IOCTL_HID_GET_MANUFACTURER_STRING, 7, STATUS_SUCCESS, u"Con"},       // odd length: 3 characters fit
        {IOCTL_HID_GET_MANUFACTURER_STRING, 1, STATUS_BUFFER_TOO_SMALL, u""},
        {IOCTL_HID_GET_PRODUCT_STRING, 252, STATUS_INVALID_PARAMETER, u""},  // absent
    };
    for (const auto& c : cases) {
        const Answer answer = Query(Endpoint(), c.ioctl, c.length);
        std::u16string text(answer.bytes.size() / 2, u'\0');
        std::memcpy(text.data(), answer.bytes.data(), text.size() * 2);
        EXPECT_EQ(answer.result.status, c.status) << std::hex << c.ioctl << " into " << std::dec << c.length;
        EXPECT_EQ(text, c.text) << std::hex << c.ioctl << " into " << std::dec << c.length;
    }
    EXPECT_EQ(Query(emptyProduct->DriverEndpoint(), IOCTL_HID_GET_PRODUCT_STRING, 252).bytes, Bytes(2, 0));
}

class Features : public DeviceTest {
protected:
    void SetUp() override { Make(On("amd-sfh-als").WithFeature(4, kStored)); }

    const Bytes kStored{0x04, 0x02, 0x02, 0x01, 0x00, 0x64};
};

TEST_F(Features, GetFeatureAnswersTheStoredOrADefaultReportPaddedOrCutToTheBuffer)
{
    EXPECT_EQ(Get(4).bytes, Padded(kStored, length_));
    EXPECT_EQ(Get(7).bytes, Padded({0x07}, length_)) << "unlisted: its ID and zeros";
    EXPECT_EQ(GetFeature(Endpoint(), 4, 3).bytes, (Bytes{0x04, 0x02, 0x02}));
    EXPECT_EQ(GetFeature(Endpoint(), 4, 0).result.status, STATUS_BUFFER_TOO_SMALL);
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
    const auto result = Set(report);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.information, 0u);
    ASSERT_EQ(Set({0x09, 0x55}).status, STATUS_SUCCESS);
    EXPECT_EQ(Get(9).bytes, Padded({0x09, 0x55}, length_));
    EXPECT_EQ(Get(4).bytes, report);
    Bytes output(length_, 0);
    EXPECT_EQ(Endpoint().DeviceControl(IOCTL_HID_SET_FEATURE, nullptr, 0, output.data(), length_).status,
              STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(Endpoint().DeviceControl(IOCTL_HID_SET_FEATURE, nullptr, 8, output.data(), length_).status,
              STATUS_INVALID_PARAMETER);
    // The scenario's changes take effect at once and keep unlisted IDs.
    ASSERT_TRUE(device_->UpdateFeatures({{5, {0x05, 0x01}}}));
    EXPECT_EQ(Get(5).bytes, Padded({0x05, 0x01}, length_));
    EXPECT_EQ(Get(4).bytes, report);
}

}  // namespace
}  // namespace hidsim_test
