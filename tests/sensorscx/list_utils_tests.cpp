#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "platform/sensorsutils.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

// 8 header bytes and 48 per entry; then CLSIDs, then strings in entry order.
constexpr ULONG kEntries = 8 + 48 * 5;
constexpr ULONG kMarshalled = kEntries + 16 + 2 * 9 + 2 * 1;

class ListUtilsTest : public LedgerTest {
protected:
    // An enumeration-like list: a CLSID, two strings, a number and an absent string.
    void SetUp() override
    {
        LedgerTest::SetUp();
        source_ = std::make_unique<DriverList>(5);
        source_->Set(0, 2, Clsid(kDataFmtid));
        source_->Set(1, 6, Str(u"Activity"));  // 9 units with the terminator
        source_->Set(2, 21, Ui4(50));
        source_->Set(3, 7, Str(u""));  // 1 unit
        source_->Set(4, 8, Of(VT_LPWSTR));  // a string entry without a string
    }
    void TearDown() override
    {
        source_.reset();
        LedgerTest::TearDown();
    }

    // A caller's buffer of exactly `bytes` bytes with its header set.
    SENSOR_COLLECTION_LIST* Buffer(ULONG bytes)
    {
        buffers_.emplace_back((bytes + 7) / 8 + 1, 0);
        auto* list = reinterpret_cast<SENSOR_COLLECTION_LIST*>(buffers_.back().data());
        list->AllocatedSizeInBytes = bytes;
        return list;
    }

    std::unique_ptr<DriverList> source_;
    std::vector<std::vector<std::uint64_t>> buffers_;
};

TEST_F(ListUtilsTest, MarshalledSizesCountEntriesStringsAndClsids)
{
    EXPECT_EQ(CollectionsListGetMarshalledSize(source_->get()), kMarshalled);
    EXPECT_EQ(CollectionsListGetMarshalledSizeWithoutSerialization(source_->get()), kEntries);
    EXPECT_EQ(CollectionsListGetMarshalledSize(nullptr), 0u);
    // History buffers reach it with an allocated size the driver never set.
    SENSOR_COLLECTION_LIST history{};
    history.Count = 6;
    EXPECT_EQ(CollectionsListGetMarshalledSizeWithoutSerialization(&history), 8u + 48 * 6);
    DriverList empty(1);  // no entries set
    EXPECT_EQ(CollectionsListGetMarshalledSize(empty.get()), 8u);
    SENSOR_COLLECTION_LIST* target = Buffer(8);
    target->Count = 9;
    EXPECT_EQ(CollectionsListCopyAndMarshall(target, empty.get()), STATUS_SUCCESS);
    EXPECT_EQ(target->Count, 0u);
}

TEST_F(ListUtilsTest, CopyFitsAnExactBufferPointsInsideItAndOutlivesTheSource)
{
    SENSOR_COLLECTION_LIST* small = Buffer(kMarshalled - 1);
    EXPECT_EQ(CollectionsListCopyAndMarshall(small, source_->get()), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(small->Count, 0u);
    EXPECT_EQ(small->AllocatedSizeInBytes, kMarshalled - 1);

    SENSOR_COLLECTION_LIST* target = Buffer(kMarshalled);
    ASSERT_EQ(CollectionsListCopyAndMarshall(target, source_->get()), STATUS_SUCCESS);
    EXPECT_EQ(target->Count, 5u);
    CollectionListCopy copy = CollectionListCopy::FromList(*source_->get());
    source_.reset();  // frees every string and CLSID of the source

    const auto* begin = reinterpret_cast<const std::byte*>(target);
    const auto inside = [&](const void* p) {
        const auto* b = static_cast<const std::byte*>(p);
        return b >= begin + kEntries && b < begin + kMarshalled;
    };
    EXPECT_EQ(reinterpret_cast<const std::byte*>(target->List[0].Value.puuid), begin + kEntries);
    EXPECT_TRUE(IsEqualGUID(*target->List[0].Value.puuid, kDataFmtid));
    EXPECT_TRUE(inside(target->List[1].Value.pwszVal));
    EXPECT_EQ(std::u16string(target->List[1].Value.pwszVal), u"Activity");
    EXPECT_TRUE(inside(target->List[3].Value.pwszVal));
    EXPECT_EQ(std::u16string(target->List[3].Value.pwszVal), u"");
    EXPECT_EQ(target->List[4].Value.pwszVal, nullptr);

    // The client's copy is marshalled the same way and keeps its own pointers when copied again.
    CollectionListCopy second = copy;
    copy = CollectionListCopy();
    ASSERT_EQ(second.Count(), 5u);
    EXPECT_EQ(second.SizeInBytes(), kMarshalled);
    EXPECT_EQ(std::u16string(second[1].Value.pwszVal), u"Activity");
    EXPECT_EQ(reinterpret_cast<const std::byte*>(second[0].Value.puuid),
              reinterpret_cast<const std::byte*>(&second.List()) + kEntries);
}

TEST_F(ListUtilsTest, CopyRefusesNullsOverlapAndMalformedSources)
{
    SENSOR_COLLECTION_LIST* target = Buffer(kMarshalled);
    EXPECT_EQ(CollectionsListCopyAndMarshall(nullptr, source_->get()), STATUS_INVALID_PARAMETER);
    DriverList plain(2);
    plain.Set(0, 1, Ui4(1));
    EXPECT_EQ(CollectionsListCopyAndMarshall(plain.get(), plain.get()), STATUS_INVALID_PARAMETER);

    plain.get()->Count = 3;  // one more than its 104 bytes hold
    EXPECT_EQ(CollectionsListCopyAndMarshall(target, plain.get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(CollectionsListGetMarshalledSize(plain.get()), 0u);
    plain.get()->Count = 1;
    EXPECT_EQ(TakeViolations(), (std::vector<ViolationKind>(2, ViolationKind::ListCountExceedsSize)));
}

TEST_F(ListUtilsTest, PropertiesCopyNeedsRoomForEveryKey)
{
    std::vector<std::uint64_t> source((SENSOR_PROPERTY_LIST_SIZE(3) + 7) / 8, 0), target(source.size(), 0);
    auto* keys = reinterpret_cast<SENSOR_PROPERTY_LIST*>(source.data());
    *keys = {SENSOR_PROPERTY_LIST_SIZE(3), 3, {}};
    for (DWORD i = 0; i < 3; ++i)
        keys->List[i] = {kDataFmtid, 130 + i};
    auto* exact = reinterpret_cast<SENSOR_PROPERTY_LIST*>(target.data());
    *exact = {SENSOR_PROPERTY_LIST_SIZE(3) - 1, 0, {}};
    EXPECT_EQ(PropertiesListCopy(exact, keys), STATUS_INSUFFICIENT_RESOURCES);
    exact->AllocatedSizeInBytes = SENSOR_PROPERTY_LIST_SIZE(3);
    ASSERT_EQ(PropertiesListCopy(exact, keys), STATUS_SUCCESS);
    EXPECT_EQ(exact->Count, 3u);
    EXPECT_TRUE(IsEqualPropertyKey(exact->List[2], PROPERTYKEY{kDataFmtid, 132}));
}

}  // namespace
}  // namespace host::sensorscx::testing
