#include "host/hidparser/item_tokenizer.h"

#include <gtest/gtest.h>

#include "test_support.h"

namespace host::hid {
namespace {

using test::Hex;

struct Tokens {
    std::vector<Item> items;
    bool failed = false;
    ParseError error;
};

Tokens Tokenize(const std::vector<std::uint8_t>& bytes)
{
    Tokens tokens;
    ItemTokenizer tokenizer(bytes);
    Item item;
    for (;;) {
        const auto result = tokenizer.Next(item, tokens.error);
        if (result == ItemTokenizer::Result::End) break;
        if (result == ItemTokenizer::Result::Error) {
            tokens.failed = true;
            break;
        }
        tokens.items.push_back(item);
    }
    return tokens;
}

TEST(ItemTokenizer, DecodesEveryShortItemSize)
{
    const Tokens tokens = Tokenize(Hex("A0 05 20 0A 08 03 0B 44 05 20 00"));
    ASSERT_FALSE(tokens.failed);
    ASSERT_EQ(tokens.items.size(), 4u);

    EXPECT_EQ(tokens.items[0].type, ItemType::Main);
    EXPECT_EQ(tokens.items[0].tag, 10);
    EXPECT_EQ(tokens.items[0].size, 0);
    EXPECT_EQ(tokens.items[0].data, 0u);

    EXPECT_EQ(tokens.items[1].offset, 1u);
    EXPECT_EQ(tokens.items[1].type, ItemType::Global);
    EXPECT_EQ(tokens.items[1].size, 1);
    EXPECT_EQ(tokens.items[1].data, 0x20u);

    EXPECT_EQ(tokens.items[2].offset, 3u);
    EXPECT_EQ(tokens.items[2].type, ItemType::Local);
    EXPECT_EQ(tokens.items[2].size, 2);
    EXPECT_EQ(tokens.items[2].data, 0x0308u);

    EXPECT_EQ(tokens.items[3].offset, 6u);
    EXPECT_EQ(tokens.items[3].size, 4);
    EXPECT_EQ(tokens.items[3].data, 0x00200544u);
}

TEST(ItemTokenizer, SignExtendsFromTheItemSize)
{
    const Tokens tokens = Tokenize(Hex("15 81 16 01 80 17 00 00 00 80 25 7F 14"));
    ASSERT_EQ(tokens.items.size(), 5u);
    EXPECT_EQ(tokens.items[0].Signed(), -127);
    EXPECT_EQ(tokens.items[1].Signed(), -32767);
    EXPECT_EQ(tokens.items[2].Signed(), INT32_MIN);
    EXPECT_EQ(tokens.items[3].Signed(), 127);
    EXPECT_EQ(tokens.items[4].Signed(), 0);
}

TEST(ItemTokenizer, StepsOverLongItems)
{
    const Tokens tokens = Tokenize(Hex("FE 02 F1 AA BB 05 20"));
    ASSERT_FALSE(tokens.failed);
    ASSERT_EQ(tokens.items.size(), 2u);
    EXPECT_TRUE(tokens.items[0].isLong);
    EXPECT_EQ(tokens.items[0].type, ItemType::Reserved);
    EXPECT_EQ(tokens.items[0].tag, 0xF1);
    EXPECT_EQ(tokens.items[0].size, 2);
    EXPECT_EQ(tokens.items[1].offset, 5u);
    EXPECT_EQ(tokens.items[1].data, 0x20u);
}

TEST(ItemTokenizer, RefusesItemsCutByTheEnd)
{
    struct Case {
        const char* bytes;
        std::size_t offset;
        const char* reason;
    };
    const Case cases[] = {
        {"05 20 26 FF", 2, "truncated item 0x26: needs 2 data bytes, 1 left"},
        {"05 20 27", 2, "truncated item 0x27: needs 4 data bytes, 0 left"},
        {"FE 05 10 00", 0, "long item needs 5 data bytes, 1 left"},
        {"09 01 FE 01", 2, "truncated long item header"},
    };
    for (const Case& c : cases) {
        const Tokens tokens = Tokenize(Hex(c.bytes));
        EXPECT_TRUE(tokens.failed) << c.bytes;
        EXPECT_EQ(tokens.error.offset, c.offset) << c.bytes;
        EXPECT_EQ(tokens.error.reason, c.reason) << c.bytes;
    }
}

}  // namespace
}  // namespace host::hid
