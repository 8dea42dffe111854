#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using Validation = JobTest;

// The tables are written with backticks for quotation marks.
std::string Quoted(std::string text) {
  for (char& c : text) c = c == '`' ? '"' : c;
  return text;
}

TEST_F(Validation, EveryFaultIsToldWithItsPlace) {
  const std::string png = "`file`: `a.png`, ", line = "`tool`: `line`, ", box = "`kind`: `box`, ",
                    amount = "`param`: `Brush_Amount`";
  // The step's name, its fields with an @ where the fault lies if that isn't the step, and what
  // is said at first. Without a name the step is as written.
  const struct {
    std::string step, fields, said;
  } cases[] = {
      {"", "7", "a step is an object in braces, this is a number"},
      {"", "{`file`: `a`}", "the field `do` is missing: it names what the step does"},
      {"", "{`do`: @3}", "`do` is the name of a step, this is a number"},
      {"", "{`do`: @`strok`}", "there is no step `strok`, did you mean `stroke`?"},
      {"open", "", "the field `file` is missing"},
      {"open", "`file`: @4", "`file` takes a text, this is a number"},
      {"open", "`file`: @``", "`file` is empty"},
      {"open", "`file`: @`a\\u0000b`", "`file` holds a zero character"},
      {"open", "`file`: `a`, @`sclae`: 1", "unknown field `sclae`, did you mean `scale`?"},
      {"open", "`file`: `a`, `scale`: @0", "`scale` can't be 0: the range is 1e-06 to 1000000"},
      {"open", "`file`: `a`, `up`: @`x`", "`up` can't be `x`: it is one of y, z"},
      {"open", "`file`: `a`, `at`: @[1, 2]", "`at` takes [x, y, z], this list has 2"},
      {"open", "`file`: `a`, `at`: [1, 2, @`3`]", "`at` takes a number, this is a text"},
      {"primitive", box + "`size`: @[1]", "`size` of a box has 3 numbers, this list has 1"},
      {"primitive", box + "`segments`: @8", "`segments` is for a sphere only"},
      {"primitive", box + "`colour`: @`red`", "`colour` takes a colour as `#rrggbb`"},
      {"camera", "`name`: `c`, `eye`: [1, 2, 3], `target`: @[1, 2, 3]", "`eye` and `target`"},
      {"add", "`nodes`: @[]", "`nodes` takes a text or a list of texts, this is an empty list"},
      {"view", "`file`: @`a.jpg`", "pictures are PNG files: `a.jpg` doesn't end in .png"},
      {"view", png + "`size`: [@15, 9]", "`size` can't be 15: the range is 16 to 8192"},
      {"view", png + "`grid`: @1", "`grid` takes true or false, this is a number"},
      {"view", png + "`view`: @{`eye`: [0, 0, 1]}", "the field `target` is missing"},
      {"view", png + "`view`: {`camera`: `c`, `fov`: @30}", "`fov` goes with `eye` and `target`"},
      {"view", png + "`view`: {@`fow`: 30}", "unknown field `fow`, did you mean `fov`?"},
      {"view", png + "`size`: [64, 48], `cursor`: @[3, 48]", "the mouse position [3, 48] lies"},
      {"pick", "", "where to pick is told by `at` or by `rect`: give one"},
      {"pick", "`rect`: @[1, 1, 2]", "`rect` takes [x0, y0, x1, y1], this list has 3"},
      {"pick", "`at`: [1, 1], `crossing`: @false", "`crossing` is for a rectangle only"},
      {"stroke", "`tool`: `line`", "the way is told by `mouse` or by `points`"},
      {"stroke", line + "`mouse`: [@[960, 1]]", "the mouse position [960, 1] lies outside"},
      {"stroke", line + "`points`: [@[1, 2]]", "a point is [x, y, z]; [x, y] needs `on`"},
      {"stroke", line + "`mouse`: [[1, 2]], `spacing`: @2, `events`: 3", "`spacing` and"},
      {"stroke", line + "`mouse`: [[1, 2]], `keys`: [@`meta`]", "there is no key `meta`"},
      {"set", "`param`: @`Brush_Amont`, `value`: 3",
       "there is no parameter `Brush_Amont`, did you mean `Brush_Amount`?"},
      {"set", amount, "the field `value` is missing"},
      {"set", amount + ", `value`: @501", "`Brush_Amount` can't be 501: the range is 1 to 500"},
      {"set", amount + ", `value`: @2.5", "`Brush_Amount` takes a whole number, this is 2.5"},
      {"set", "`param`: @`Tr_Random`, `value`: true", "`Tr_Random` has an entry for each"},
      {"set", "`param`: `Tr_AnimOn`, `value`: 1, `row`: @`all`", "`Tr_AnimOn` has no entry"},
      {"set", "`param`: @`Show_Logo`, `value`: 1, `index`: 0", "`Show_Logo` is a single value"},
      {"set", "`param`: `Tr_ZPos_Min`, `value`: @1e39, `row`: 0", "`Tr_ZPos_Min` can't be 1e+39"},
      {"set", "`param`: @`Ins_Pos`, `value`: 0, `index`: 0", "`Ins_Pos` is kept by the object"},
      {"set", "`param`: @`Z_Pos`, `value`: 0", "`Z_Pos` is reserved and can't be set"},
      {"set", "`param`: @`Excl_On`, `value`: 1", "`Excl_On` is not available yet"},
      {"set", "`values`: {`Display_Mode`: @`Squirel`}",
       "there is no display mode `Squirel`, did you mean `Squirrel`?"},
      {"get", "`param`: `Ins_Pos`, `type`: @0", "`Ins_Pos` isn't kept by type: use `index`"},
      {"check", "`types`: @{`min`: 3, `max`: 2}", "`types` has a `min` above its `max`"},
      {"check", "`types`: {@`least`: 3}", "`types` has `min` and `max`, not `least`"},
  };
  for (const auto& [name, fields, said] : cases) {
    std::string step = "{`do`: `" + name + (fields.empty() ? "`" : "`, ") + fields + "}";
    if (name.empty()) step = fields;
    const size_t at = step.find('@') + 1;  // 0 without one
    if (at > 0) step.erase(at - 1, 1);
    const std::string place = "job.json:2:" + std::to_string(at > 0 ? at : 1) + ": step 1" +
                              (name.empty() ? "" : " (" + name + ")") + ": ";
    const Result result = RunText(Quoted("{`steps`: [\n" + step + "]}"));
    EXPECT_TRUE(result.status == 1 && result.out.empty()) << step;
    EXPECT_EQ(result.err.find(Quoted(place + said)), 0u) << result.err;
  }
}

TEST_F(Validation, AFaultInTheLastStepKeepsAllOthersFromRunning) {
  const Result result = RunText(
      Quoted("{`steps`: [{`do`: `primitive`, `kind`: `box`}, {`do`: `view`, `file`: `made.png`},\n"
             "{`do`: `stroke`, `tool`: `line`, `radiu`: 1},\n{`do`: `undo`, `count`: `2`}]}"));
  EXPECT_EQ(result.err,
            Quoted("job.json:2:34: step 3 (stroke): unknown field `radiu`\n"
                   "job.json:3:25: step 4 (undo): `count` takes a whole number, this is a text\n"));
  EXPECT_FALSE(std::filesystem::exists(Path("made.png")));
}

TEST_F(Validation, TheJobItselfIsChecked) {
  const std::pair<const char*, const char*> cases[] = {
      {"[]", "1:1: a job is an object in braces with `steps` in it"},
      {"{}", "1:1: the field `steps` is missing"},
      {"{`steps`: {}}", "1:11: `steps` is a list, this is an object in braces"},
      {"{`steps`: []}", "1:11: `steps` is empty: there is nothing to do"},
      {"{`unit`: `ells`, `steps`: [{`do`: `leave`}]}", "1:10: `unit` can't be `ells`"},
      {"{`step`: [], `steps`: [{`do`: `leave`}]}", "1:2: unknown field `step`"},
  };
  for (const auto& [text, said] : cases) {
    const Result result = RunText(Quoted(text));
    EXPECT_EQ(result.status, 1) << text;
    EXPECT_EQ(result.err.find(Quoted(std::string("job.json:") + said)), 0u) << result.err;
  }
}

}  // namespace
}  // namespace studio
