// Steps about the type list: proxies as sources, another source, removal.

#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using TypeSteps = JobTest;

TEST_F(TypeSteps, ReplaceAndRemoveWorkOnTypesOfAllKinds) {
  const Result r =
      RunSteps(kField + R"(, {"do": "primitive", "kind": "box", "name": "fir", "size": [2, 2, 5]},
{"do": "proxy", "kind": "vray", "from": "fir", "name": "proxy", "file": "fir.vrmesh"},
{"do": "proxy", "kind": "mokset", "from": "fir", "name": "kept"},
{"do": "add", "nodes": ["proxy", "kept", "fir"]},
{"do": "replace", "type": "stone", "node": "proxy"},
{"do": "get", "param": "Geo_Kind"}, {"do": "remove", "types": [1, "kept"]},
{"do": "get", "param": "Geo_Names"}, {"do": "check", "types": 2})");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.Step(10)["value"].dump(), "[3,3,1,0]");
  EXPECT_EQ(r.Step(11)["removed"], 2);
  EXPECT_EQ(r.Step(12)["value"].dump(), R"(["proxy","fir"])");
}

TEST_F(TypeSteps, SayWhatTheyCantDo) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"do": "replace", "type": "stone", "node": "sow"})", "can't become an object type"},
      {R"({"do": "remove", "types": ["stone", "tree"]})", "no object type is named \"tree\""},
      {R"({"do": "proxy", "kind": "corona", "from": "stone", "file": "x"})", "tell its file"},
      {R"({"do": "camera", "name": "eye", "eye": [0, 0, 9], "target": [0, 1, 0]},
{"do": "proxy", "kind": "mokset", "from": "eye"})",
       "it has none"}};
  for (const auto& [step, said] : cases) {
    const Result r = RunSteps(kField + ",\n" + step);
    EXPECT_EQ(r.status, 1) << step;
    EXPECT_NE(r.err.find(said), std::string::npos) << r.err;
  }
}

}  // namespace
}  // namespace studio
