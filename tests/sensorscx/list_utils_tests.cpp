#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "host/sensorscx/violations.h"
#include "platform/sensorsutils.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

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
        PROPVARIANT absent{};
        absent.vt = VT_LPWSTR;  // a string entry without a string
        source_->Set(4, 8, absent);
    }
    void TearDown() override
    {
        source_.reset();
        LedgerTest::TearDown();
    }

    static constexpr ULONG kEntries = 8 + 48 * 5;
    static constexpr ULONG kMarshalled = kEntries + 16 + 2 * 9 + 2 * 1;

    std::unique_ptr<DriverList> source_;
};

// A caller's buffer of exactly `bytes` bytes with its header set.
std::vector<std::uint64_t> Buffer(ULONG bytes)
{
    std::vector<std::uint64_t> storage((bytes + 7) / 8 + 1, 0);
    reinterpret_cast<SENSOR_COLLECTION_LIST*>(storage.data())->AllocatedSizeInBytes = bytes;
    return storage;
}

TEST_F(ListUtilsTest, MarshalledSizeCountsEntriesStringsAndClsids)
{
    EXPECT_EQ(CollectionsListGetMarshalledSize(source_->get()), kMarshalled);
    EXPECT_EQ(CollectionsListGetMarshalledSizeWithoutSerialization(source_->get()), kEntries);
    EXPECT_EQ(CollectionsListGetMarshalledSize(nullptr), 0u);
    EXPECT_EQ(CollectionsListGetMarshalledSizeWithoutSerialization(nullptr), 0u);
}

TEST_F(ListUtilsTest, WithoutSerializationIgnoresTheAllocatedSize)
{
    // History buffers reach it with an allocated size the driver never set.
    SENSOR_COLLECTION_LIST list{};
    list.Count = 6;
    EXPECT_EQ(CollectionsListGetMarshalledSizeWithoutSerialization(&list), 8u + 48 * 6);
}

TEST_F(ListUtilsTest, CopyIntoExactSizeSucceedsOneByteShortFails)
{
    auto exact = Buffer(kMarshalled);
    auto* target = reinterpret_cast<SENSOR_COLLECTION_LIST*>(exact.data());
    ASSERT_EQ(CollectionsListCopyAndMarshall(target, source_->get()), STATUS_SUCCESS);
    EXPECT_EQ(target->AllocatedSizeInBytes, kMarshalled);
    EXPECT_EQ(target->Count, 5u);

    auto shorter = Buffer(kMarshalled - 1);
    auto* small = reinterpret_cast<SENSOR_COLLECTION_LIST*>(shorter.data());
    EXPECT_EQ(CollectionsListCopyAndMarshall(small, source_->get()), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(small->Count, 0u);
    EXPECT_EQ(small->AllocatedSizeInBytes, kMarshalled - 1);
}

TEST_F(ListUtilsTest, CopyPointsInsideTheTargetAndOutlivesTheSource)
{
    auto storage = Buffer(kMarshalled);
    auto* target = reinterpret_cast<SENSOR_COLLECTION_LIST*>(storage.data());
    ASSERT_EQ(CollectionsListCopyAndMarshall(target, source_->get()), STATUS_SUCCESS);
    source_.reset();  // frees every string and CLSID of the source

    const auto* begin = reinterpret_cast<const std::byte*>(target);
    const auto inside = [&](const void* p) {
        const auto* b = static_cast<const std::byte*>(p);
        return b >= begin + 8 + 48 * 5 && b < begin + kMarshalled;
    };
    // CLSIDs come first after the entries, then the strings in entry order.
    EXPECT_EQ(reinterpret_cast<const std::byte*>(target->List[0].Value.puuid), begin + kEntries);
    EXPECT_TRUE(IsEqualGUID(*target->List[0].Value.puuid, kDataFmtid));
    EXPECT_TRUE(inside(target->List[1].Value.pwszVal));
    EXPECT_EQ(std::u16string(target->List[1].Value.pwszVal), u"Activity");
    EXPECT_EQ(target->List[2].Value.ulVal, 50u);
    EXPECT_TRUE(inside(target->List[3].Value.pwszVal));
    EXPECT_EQ(std::u16string(target->List[3].Value.pwszVal), u"");
    EXPECT_EQ(target->List[4].Value.pwszVal, nullptr);
}

TEST_F(ListUtilsTest, CopyRefusesNullsOverlapAndMalformedSources)
{
    auto storage = Buffer(kMarshalled);
    auto* target = reinterpret_cast<SENSOR_COLLECTION_LIST*>(storage.data());
    EXPECT_EQ(CollectionsListCopyAndMarshall(nullptr, source_->get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(CollectionsListCopyAndMarshall(target, nullptr), STATUS_INVALID_PARAMETER);

    DriverList plain(2);
    plain.Set(0, 1, Ui4(1));
    EXPECT_EQ(CollectionsListCopyAndMarshall(plain.get(), plain.get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(ViolationLog::Instance().Count(), 0u);

    plain.get()->Count = 3;  // one more than its 104 bytes hold
    EXPECT_EQ(CollectionsListCopyAndMarshall(target, plain.get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(CollectionsListGetMarshalledSize(plain.get()), 0u);
    EXPECT_TRUE(ViolationLog::Instance().Contains(ViolationKind::ListCountExceedsSize));
    plain.get()->Count = 1;
    ViolationLog::Instance().Reset();
}

TEST_F(ListUtilsTest, PropertiesCopyChecksOnlyTheKeys)
{
    std::vector<std::uint64_t> source((SENSOR_PROPERTY_LIST_SIZE(3) + 7) / 8, 0);
    auto* keys = reinterpret_cast<SENSOR_PROPERTY_LIST*>(source.data());
    keys->AllocatedSizeInBytes = SENSOR_PROPERTY_LIST_SIZE(3);
    keys->Count = 3;
    for (DWORD i = 0; i < 3; ++i)
        keys->List[i] = {kDataFmtid, 130 + i};

    std::vector<std::uint64_t> exactStorage((SENSOR_PROPERTY_LIST_SIZE(3) + 7) / 8, 0);
    auto* exact = reinterpret_cast<SENSOR_PROPERTY_LIST*>(exactStorage.data());
    exact->AllocatedSizeInBytes = SENSOR_PROPERTY_LIST_SIZE(3);
    ASSERT_EQ(PropertiesListCopy(exact, keys), STATUS_SUCCESS);
    EXPECT_EQ(exact->Count, 3u);
    EXPECT_EQ(exact->AllocatedSizeInBytes, 68u);
    EXPECT_TRUE(IsEqualPropertyKey(exact->List[2], PROPERTYKEY{kDataFmtid, 132}));

    exact->AllocatedSizeInBytes = 67;
    exact->Count = 0;
    EXPECT_EQ(PropertiesListCopy(exact, keys), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(exact->Count, 0u);
    EXPECT_EQ(PropertiesListCopy(nullptr, keys), STATUS_INVALID_PARAMETER);
}

TEST_F(ListUtilsTest, EmptyListMarshalsToItsHeader)
{
    DriverList empty(0);
    EXPECT_EQ(CollectionsListGetMarshalledSize(empty.get()), 8u);
    auto storage = Buffer(8);
    auto* target = reinterpret_cast<SENSOR_COLLECTION_LIST*>(storage.data());
    target->Count = 9;
    EXPECT_EQ(CollectionsListCopyAndMarshall(target, empty.get()), STATUS_SUCCESS);
    EXPECT_EQ(target->Count, 0u);
}

TEST_F(ListUtilsTest, CopyCanBeCopiedAgainAndKeepsItsOwnPointers)
{
    CollectionListCopy first = CollectionListCopy::FromList(*source_->get());
    CollectionListCopy second = first;
    first = CollectionListCopy();
    source_.reset();
    ASSERT_EQ(second.Count(), 5u);
    EXPECT_EQ(second.SizeInBytes(), kMarshalled);
    EXPECT_EQ(std::u16string(second[1].Value.pwszVal), u"Activity");
    const auto* begin = reinterpret_cast<const std::byte*>(&second.List());
    EXPECT_EQ(reinterpret_cast<const std::byte*>(second[0].Value.puuid), begin + kEntries);
}

}  // namespace
}  // namespace host::sensorscx::testing
