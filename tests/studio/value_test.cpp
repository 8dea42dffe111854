#include "studio/job/value.h"

#include <gtest/gtest.h>

#include "studio/job/jsonout.h"

namespace studio {
namespace {

TEST(Value, EveryValueAndKeyKnowsItsPlace) {
  Fault fault;
  const auto root = ReadJson(
      "{ \"a\": [1,\n  -2.5e1, {\"é\": \"x\\\"y\", \"b\":null}],\n\t\"c\" :true}\n", fault);
  ASSERT_TRUE(root) << fault.text;
  const Value& list = *root->Find("a");
  EXPECT_EQ(list.items[0].place, (Place{1, 9}));
  EXPECT_EQ(list.items[1].place, (Place{2, 3}));
  EXPECT_EQ(list.items[1].number, -25);
  const Value& object = list.items[2];
  EXPECT_EQ(object.place, (Place{2, 11}));
  EXPECT_EQ(object.members[0].key, "é");
  // The key's two bytes are one column.
  EXPECT_EQ(object.members[0].value.place, (Place{2, 17}));
  EXPECT_EQ(object.members[0].value.text, "x\"y");
  EXPECT_EQ(object.members[1].place, (Place{2, 25}));
  EXPECT_EQ(object.members[1].value.kind, Value::Kind::Null);
  EXPECT_EQ(root->members[1].place, (Place{3, 2}));
  EXPECT_TRUE(root->Find("c")->flag);
  EXPECT_EQ(root->Find("d"), nullptr);
  const auto marked = ReadJson("\xEF\xBB\xBF[7]", fault);  // the byte order mark is no fault
  EXPECT_TRUE(marked && marked->items[0].place == (Place{1, 2}));
}

TEST(Value, FaultsTellTheirPlace) {
  const struct {
    std::string text;
    Place place;
    const char* why;
  } cases[] = {
      {"", {1, 1}, "isn't JSON"},
      {"{\"a\": 1,\n \"b\": 2,\n \"a\": 3}", {3, 2}, "the first is in line 1"},
      {"{\"a\": 1,\n  x}", {2, 3}, "isn't JSON"},
      {"[1, 1e999]", {1, 5}, "isn't JSON"},
      {"[1] 2", {1, 5}, "isn't JSON"},
      {"[\"\xFF\"]", {1, 3}, "isn't JSON"},
      {std::string(40, '['), {1, 33}, "more than 32 deep"},
  };
  for (const auto& c : cases) {
    Fault fault;
    EXPECT_FALSE(ReadJson(c.text, fault)) << c.text;
    EXPECT_NE(fault.text.find(c.why), std::string::npos) << c.text << ": " << fault.text;
    EXPECT_EQ(fault.place.line, c.place.line) << c.text;
    EXPECT_NEAR(fault.place.column, c.place.column, c.why[0] == 'i' ? 5 : 0) << c.text;
    EXPECT_EQ(fault.text.find('\n'), std::string::npos);
  }
}

TEST(JsonOut, NumbersReadBackAndTextsAreEscaped) {
  EXPECT_EQ(Grouped(999) + ' ' + Grouped(1000) + ' ' + Grouped(-1234567), "999 1,000 -1,234,567");
  JsonOut json;
  json.BeginObject().Key("f").Float(0.1f).Key("d").Double(1e300).Key("n").Float(-0.0f);
  json.Key("x").Float(std::numeric_limits<float>::infinity()).Key("t").Text("a\"\\\n\x01é");
  json.Key("bytes").Text("\xe9t\xc3\xa9");  // a path may have any
  json.Key("l").BeginList().Int(1).Flag(true).Null().End().Key("e").BeginList().End().End();
  EXPECT_EQ(json.Str(),
            "{\"f\":0.1,\"d\":1e+300,\"n\":-0,\"x\":\"inf\",\"t\":\"a\\\"\\\\\\u000a\\u0001é\","
            "\"bytes\":\"\uFFFDté\",\"l\":[1,true,null],\"e\":[]}");
}

}  // namespace
}  // namespace studio
