#include "tools/hidsensor/json_writer.h"

#include <gtest/gtest.h>

namespace hidsensor {
namespace {

TEST(JsonWriter, CompactNestingAndEscapes)
{
    JsonWriter json(false);
    json.BeginObject()
        .Field("a", 1)
        .Key("list").BeginArray().Int(-2).Bool(true).String("q\"\\\n\x01").EndArray()
        .Key("empty").BeginObject().EndObject()
        .EndObject();
    EXPECT_EQ(json.Text(), R"({"a":1,"list":[-2,true,"q\"\\\n\u0001"],"empty":{}})");
}

TEST(JsonWriter, PrettyIndentsTwoSpaces)
{
    JsonWriter json(true);
    json.BeginObject().Key("x").BeginArray().Int(1).EndArray().EndObject();
    EXPECT_EQ(json.Text(), "{\n  \"x\": [\n    1\n  ]\n}");
}

}  // namespace
}  // namespace hidsensor
