#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using Validation = JobTest;

// Jobs with one step in line 2, an @ where the fault lies, and what is said of it.
TEST_F(Validation, EveryFaultIsToldWithItsPlace) {
  const struct {
    const char* step;
    const char* said;
  } cases[] = {
      {"@7", "step 1: a step is an object in braces, this is a number"},
      {"@{\"file\": \"a.obj\"}",
       "step 1: the field \"do\" is missing: it names what the step does"},
      {"{\"do\": @3}", "step 1: \"do\" is the name of a step, this is a number"},
      {"{\"do\": @\"strok\"}", "step 1: there is no step \"strok\", did you mean \"stroke\"?"},
      {"{\"do\": @\"save\", \"file\": \"x\"}", "step 1: there is no step \"save\""},
      {"@{\"do\": \"open\"}", "step 1 (open): the field \"file\" is missing"},
      {"{\"do\": \"open\", \"file\": @4}",
       "step 1 (open): \"file\" takes a text, this is a number"},
      {"{\"do\": \"open\", \"file\": @\"\"}", "step 1 (open): \"file\" is empty"},
      {"{\"do\": \"open\", \"file\": @\"a\\u0000b\"}",
       "step 1 (open): \"file\" holds a zero character"},
      {"{\"do\": \"open\", \"file\": \"a\", @\"sclae\": 1}",
       "step 1 (open): unknown field \"sclae\", did you mean \"scale\"?"},
      {"{\"do\": \"open\", \"file\": \"a\", \"scale\": @0}",
       "step 1 (open): \"scale\" can't be 0: the range is 1e-06 to 1000000"},
      {"{\"do\": \"open\", \"file\": \"a\", \"up\": @\"x\"}",
       "step 1 (open): \"up\" can't be \"x\": it is one of y, z"},
      {"{\"do\": \"open\", \"file\": \"a\", \"at\": @[1, 2]}",
       "step 1 (open): \"at\" takes [x, y, z], this list has 2"},
      {"{\"do\": \"open\", \"file\": \"a\", \"at\": [1, 2, @\"3\"]}",
       "step 1 (open): \"at\" takes a number, this is a text"},
      {"{\"do\": \"primitive\", \"kind\": \"box\", \"size\": @[1]}",
       "step 1 (primitive): \"size\" of a box has 3 numbers, this list has 1"},
      {"{\"do\": \"primitive\", \"kind\": \"box\", \"segments\": @8}",
       "step 1 (primitive): \"segments\" is for a sphere only"},
      {"{\"do\": \"primitive\", \"kind\": \"sphere\", \"segments\": @8.5}",
       "step 1 (primitive): \"segments\" takes a whole number, this is 8.5"},
      {"{\"do\": \"primitive\", \"kind\": \"box\", \"colour\": @\"green\"}",
       "step 1 (primitive): \"colour\" takes a colour as \"#rrggbb\" in hexadecimal"},
      {"{\"do\": \"camera\", \"name\": \"c\", \"eye\": [1, 2, 3], \"target\": @[1, 2, 3]}",
       "step 1 (camera): \"eye\" and \"target\" are the same point"},
      {"{\"do\": \"add\", \"nodes\": @[]}",
       "step 1 (add): \"nodes\" takes a text or a list of texts, this is an empty list"},
      {"{\"do\": \"view\", \"file\": @\"a.jpg\"}",
       "step 1 (view): pictures are PNG files: \"a.jpg\" doesn't end in .png"},
      {"{\"do\": \"view\", \"file\": \"a.png\", \"size\": [@15, 100]}",
       "step 1 (view): \"size\" can't be 15: the range is 16 to 8192"},
      {"{\"do\": \"view\", \"file\": \"a.png\", \"grid\": @1}",
       "step 1 (view): \"grid\" takes true or false, this is a number"},
      {"{\"do\": \"view\", \"file\": \"a.png\", \"view\": @{\"eye\": [0, 0, 1]}}",
       "step 1 (view): the field \"target\" is missing"},
      {"{\"do\": \"view\", \"file\": \"a.png\", \"view\": {\"camera\": \"c\", \"fov\": @30}}",
       "step 1 (view): \"fov\" goes with \"eye\" and \"target\" only"},
      {"{\"do\": \"view\", \"file\": \"a.png\", \"view\": {@\"fow\": 30}}",
       "step 1 (view): unknown field \"fow\", did you mean \"fov\"?"},
      {"{\"do\": \"view\", \"file\": \"a.png\", \"size\": [64, 48], \"cursor\": @[64, 3]}",
       "step 1 (view): the mouse position [64, 3] lies outside of the view, which is 64 x 48 "
       "pixels"},
      {"@{\"do\": \"pick\"}",
       "step 1 (pick): where to pick is told by \"at\" or by \"rect\": give one"},
      {"{\"do\": \"pick\", \"rect\": @[1, 1, 2]}",
       "step 1 (pick): \"rect\" takes [x0, y0, x1, y1], this list has 3"},
      {"{\"do\": \"pick\", \"at\": [1, 1], \"crossing\": @false}",
       "step 1 (pick): \"crossing\" is for a rectangle only"},
      {"@{\"do\": \"stroke\", \"tool\": \"line\"}",
       "step 1 (stroke): the way is told by \"mouse\" or by \"points\": one of them is needed"},
      {"{\"do\": \"stroke\", \"tool\": \"line\", \"mouse\": [@[960, 1]]}",
       "step 1 (stroke): the mouse position [960, 1] lies outside of the view, which is 960 x 540 "
       "pixels"},
      {"{\"do\": \"stroke\", \"tool\": \"line\", \"points\": [@[1, 2]]}",
       "step 1 (stroke): a point is [x, y, z]; [x, y] needs \"on\" with the node to drop it on"},
      {"{\"do\": \"stroke\", \"tool\": \"line\", \"mouse\": [[1, 2]], \"spacing\": @2, \"events\": "
       "3}",
       "step 1 (stroke): \"spacing\" and \"events\" tell the same thing: give one"},
      {"{\"do\": \"stroke\", \"tool\": \"line\", \"mouse\": [[1, 2]], \"keys\": [@\"meta\"]}",
       "step 1 (stroke): there is no key \"meta\": they are ctrl, alt, shift"},
      {"{\"do\": \"set\", \"param\": @\"Brush_Amont\", \"value\": 3}",
       "step 1 (set): there is no parameter \"Brush_Amont\", did you mean \"Brush_Amount\"?"},
      {"@{\"do\": \"set\", \"param\": \"Brush_Amount\"}",
       "step 1 (set): the field \"value\" is missing"},
      {"{\"do\": \"set\", \"param\": \"Brush_Amount\", \"value\": @501}",
       "step 1 (set): \"Brush_Amount\" can't be 501: the range is 1 to 500"},
      {"{\"do\": \"set\", \"param\": \"Brush_Amount\", \"value\": @2.5}",
       "step 1 (set): \"Brush_Amount\" takes a whole number, this is 2.5"},
      {"{\"do\": \"set\", \"param\": \"Brush_Amount\", \"value\": @true}",
       "step 1 (set): \"Brush_Amount\" takes a number, this is true or false"},
      {"{\"do\": \"set\", \"param\": @\"Tr_Random\", \"value\": true}",
       "step 1 (set): \"Tr_Random\" has an entry for each transform row: tell which with \"row\""},
      {"{\"do\": \"set\", \"param\": \"Tr_AnimOn\", \"value\": 1, \"row\": @\"all\"}",
       "step 1 (set): \"Tr_AnimOn\" has no entry for all types"},
      {"{\"do\": \"set\", \"param\": @\"Show_Logo\", \"value\": 1, \"index\": 0}",
       "step 1 (set): \"Show_Logo\" is a single value: it takes no index, type or row"},
      {"{\"do\": \"set\", \"param\": \"Tr_ZPos_Min\", \"value\": @1e39, \"row\": 0}",
       "step 1 (set): \"Tr_ZPos_Min\" can't be 1e+39: it is too large to store"},
      {"{\"do\": \"set\", \"param\": @\"Ins_Pos\", \"value\": 0, \"index\": 0}",
       "step 1 (set): \"Ins_Pos\" is kept by the object itself: it changes with types, strokes and "
       "seeds"},
      {"{\"do\": \"set\", \"param\": @\"Z_Pos\", \"value\": 0}",
       "step 1 (set): \"Z_Pos\" is reserved and can't be set"},
      {"{\"do\": \"set\", \"param\": @\"Excl_On\", \"value\": 1}",
       "step 1 (set): \"Excl_On\" is not available yet"},
      {"{\"do\": \"set\", \"param\": @\"Color Shift\", \"value\": 1}",
       "step 1 (set): \"Color Shift\" is not available yet"},
      {"{\"do\": \"set\", \"values\": {\"Display_Mode\": @\"Squirel\"}}",
       "step 1 (set): there is no display mode \"Squirel\", did you mean \"Squirrel\"?"},
      {"{\"do\": \"get\", \"param\": \"Ins_Pos\", \"type\": @0}",
       "step 1 (get): \"Ins_Pos\" isn't kept by type: use \"index\""},
      {"{\"do\": \"undo\", \"count\": @0}",
       "step 1 (undo): \"count\" can't be 0: the range is 1 to 1000000"},
      {"{\"do\": \"check\", \"types\": @{\"min\": 3, \"max\": 2}}",
       "step 1 (check): \"types\" has a \"min\" above its \"max\""},
      {"{\"do\": \"check\", \"types\": {@\"least\": 3}}",
       "step 1 (check): \"types\" has \"min\" and \"max\", not \"least\""},
  };
  for (const auto& c : cases) {
    std::string step = c.step;
    const size_t at = step.find('@');
    ASSERT_NE(at, std::string::npos) << step;
    step.erase(at, 1);
    const Result result = RunText("{\"steps\": [\n" + step + "]}");
    EXPECT_EQ(result.status, 1) << c.step;
    EXPECT_EQ(result.err.substr(0, result.err.find('\n')),
              "job.json:2:" + std::to_string(at + 1) + ": " + c.said);
    EXPECT_EQ(result.out, "");
  }
}

TEST_F(Validation, AFaultInTheLastStepKeepsAllOthersFromRunning) {
  const Result result = RunText(
      "{\"steps\": [{\"do\": \"primitive\", \"kind\": \"box\"},\n"
      "{\"do\": \"view\", \"file\": \"made.png\"},\n"
      "{\"do\": \"stroke\", \"tool\": \"line\", \"radiu\": 1},\n"
      "{\"do\": \"undo\", \"count\": \"2\"}]}");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "job.json:3:34: step 3 (stroke): unknown field \"radiu\"\n"
            "job.json:4:25: step 4 (undo): \"count\" takes a whole number, this is a text\n");
  EXPECT_FALSE(std::filesystem::exists(Path("made.png")));
}

TEST_F(Validation, TheJobItselfIsChecked) {
  const struct {
    const char* text;
    const char* said;
  } cases[] = {
      {"[]", "1:1: a job is an object in braces with \"steps\" in it"},
      {"{}", "1:1: the field \"steps\" is missing"},
      {"{\"steps\": {}}", "1:11: \"steps\" is a list, this is an object in braces"},
      {"{\"steps\": []}", "1:11: \"steps\" is empty: there is nothing to do"},
      {"{\"unit\": \"yards\", \"steps\": [{\"do\": \"leave\"}]}",
       "1:10: \"unit\" can't be \"yards\": it is one of inches, feet, miles, millimetres, "
       "centimetres, metres, kilometres"},
      {"{\"step\": [], \"steps\": [{\"do\": \"leave\"}]}", "1:2: unknown field \"step\""},
      {"{\"steps\": [{\"do\": \"leave\", \"do\": \"leave\"}]}",
       "1:28: the field \"do\" stands here a second time; the first is in line 1"},
  };
  for (const auto& c : cases) {
    const Result result = RunText(c.text);
    EXPECT_EQ(result.status, 1) << c.text;
    EXPECT_EQ(result.err, std::string("job.json:") + c.said + "\n");
  }
}

}  // namespace
}  // namespace studio
