#include "studio/job/checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>

#include "host/files/modelfiles.h"
#include "host/math/wstr.h"
#include "studio/job/paramrules.h"

namespace studio {
namespace {

/// Checks one value of one field.
class FieldCheck {
 public:
  FieldCheck(const FieldDecl& field, const Report& report) : field_(field), report_(report) {}

  void Check(const Value& v) {
    switch (field_.type) {
      case FieldType::Text:
        Text(v);
        break;
      case FieldType::Number:
        Number(v);
        break;
      case FieldType::Integer:
        Whole(v);
        break;
      case FieldType::Flag:
        if (v.kind != Value::Kind::Bool) Wrong(v, "true or false");
        break;
      case FieldType::Choice:
        Choice(v);
        break;
      case FieldType::Colour:
        Colour(v);
        break;
      case FieldType::Point2:
        Numbers(v, 2, 2, "[x, y]");
        break;
      case FieldType::Point3:
        Numbers(v, 3, 3, "[x, y, z]");
        break;
      case FieldType::Cells:
        if (Numbers(v, 2, 2, "two whole numbers in a list"))
          for (const Value& n : v.items) Whole(n);
        break;
      case FieldType::Sizes:
        Numbers(v, 1, 3, "a list of one to three numbers");
        break;
      case FieldType::Rect:
        Numbers(v, 4, 4, "[x0, y0, x1, y1]");
        break;
      case FieldType::Texts:
        Texts(v);
        break;
      case FieldType::Rows:
        if (!v.IsList()) Wrong(v, "a list of row numbers and names");
        for (const Value& row : v.items) Row(row);
        break;
      case FieldType::Row:
        Row(v);
        break;
      case FieldType::Mouse:
        Way(v, 2, 2, "[x, y]");
        break;
      case FieldType::Points:
        Way(v, 2, 3, "[x, y, z]");
        break;
      case FieldType::Knots:
        Way(v, 3, 3, "[x, y, z]");
        if (v.items.size() == 1)
          report_(v.place, fmt::format("\"{}\" needs two points, this list has 1", field_.name));
        break;
      case FieldType::View:
        View(v);
        break;
      case FieldType::Amount:
        Amount(v);
        break;
      case FieldType::Scalar:
        Scalar(v);
        break;
      case FieldType::Scalars:
        if (!v.IsObject() || v.members.empty())
          Wrong(v, "an object with a value for each parameter");
        for (const Member& m : v.members) Scalar(m.value);
        break;
    }
  }

 private:
  void Wrong(const Value& v, std::string_view wanted) {
    report_(v.place,
            fmt::format("\"{}\" takes {}, this is {}", field_.name, wanted,
                        v.IsList() && v.items.empty() ? "an empty list" : KindName(v.kind)));
  }

  bool Text(const Value& v) {
    if (!v.IsText()) {
      Wrong(v, "a text");
    } else if (v.text.empty()) {
      report_(v.place, fmt::format("\"{}\" is empty", field_.name));
    } else if (v.text.find('\0') != std::string::npos) {
      report_(v.place, fmt::format("\"{}\" holds a zero character", field_.name));
    } else {
      return true;
    }
    return false;
  }

  bool Number(const Value& v) {
    if (!v.IsNumber()) {
      Wrong(v, "a number");
      return false;
    }
    if (v.number >= field_.low && v.number <= field_.high) return true;
    report_(v.place, fmt::format("\"{}\" can't be {}: the range is {}", field_.name, v.number,
                                 RangeText(field_)));
    return false;
  }

  void Whole(const Value& v) {
    if (!v.IsNumber()) return Wrong(v, "a whole number");
    if (v.number != std::trunc(v.number)) {
      report_(v.place,
              fmt::format("\"{}\" takes a whole number, this is {}", field_.name, v.number));
    } else {
      Number(v);
    }
  }

  void Choice(const Value& v) {
    std::vector<std::string> choices(1);
    for (const char c : std::string_view(field_.choices)) {
      if (c == '|') {
        choices.emplace_back();
      } else {
        choices.back() += c;
      }
    }
    if (v.IsText() && std::find(choices.begin(), choices.end(), v.text) != choices.end()) return;
    const std::string all = fmt::format("{}", fmt::join(choices, ", "));
    if (!v.IsText()) return Wrong(v, "one of " + all);
    report_(v.place,
            fmt::format("\"{}\" can't be \"{}\": it is one of {}", field_.name, v.text, all));
  }

  void Colour(const Value& v) {
    const bool right = v.IsText() && v.text.size() == 7 && v.text[0] == '#' &&
                       std::all_of(v.text.begin() + 1, v.text.end(),
                                   [](unsigned char c) { return std::isxdigit(c) != 0; });
    if (!right)
      report_(v.place,
              fmt::format("\"{}\" takes a colour as \"#rrggbb\" in hexadecimal", field_.name));
  }

  bool Numbers(const Value& v, size_t least, size_t most, std::string_view wanted) {
    if (!v.IsList()) {
      Wrong(v, wanted);
      return false;
    }
    if (v.items.size() < least || v.items.size() > most) {
      report_(v.place, fmt::format("\"{}\" takes {}, this list has {}", field_.name, wanted,
                                   v.items.size()));
      return false;
    }
    bool all = true;
    for (const Value& n : v.items) all = Number(n) && all;
    return all;
  }

  void Way(const Value& v, size_t least, size_t most, std::string_view point) {
    const std::string wanted = fmt::format("a list of {}", point);
    if (!v.IsList() || v.items.empty()) return Wrong(v, wanted);
    for (const Value& p : v.items) Numbers(p, least, most, fmt::format("points as {}", point));
  }

  void Texts(const Value& v) {
    if (!v.IsList()) {
      if (!v.IsText()) return Wrong(v, "a text or a list of texts");
      Text(v);
      return;
    }
    if (v.items.empty()) Wrong(v, "a text or a list of texts");
    for (const Value& t : v.items) Text(t);
  }

  void Row(const Value& v) {
    if (v.IsText()) {
      Text(v);
    } else if (v.IsNumber()) {
      Whole(v);
    } else {
      Wrong(v, "a whole number or a name");
    }
  }

  void Scalar(const Value& v) {
    if (v.IsList() || v.IsObject() || v.kind == Value::Kind::Null)
      Wrong(v, "a number, true, false or a text");
  }

  void Amount(const Value& v) {
    if (v.IsNumber()) return Whole(v);
    if (!v.IsObject()) return Wrong(v, "a whole number, or an object with \"min\" and \"max\"");
    for (const Member& m : v.members) {
      if (m.key == "min" || m.key == "max") {
        Whole(m.value);
      } else {
        report_(m.place,
                fmt::format("\"{}\" has \"min\" and \"max\", not \"{}\"", field_.name, m.key));
      }
    }
    const Value *min = v.Find("min"), *max = v.Find("max");
    if (v.members.empty())
      report_(v.place, fmt::format("\"{}\" needs \"min\" or \"max\"", field_.name));
    if (min && max && min->IsNumber() && max->IsNumber() && min->number > max->number)
      report_(v.place, fmt::format("\"{}\" has a \"min\" above its \"max\"", field_.name));
  }

  void View(const Value& v) {
    if (v.IsText()) {
      if (v.text != "top")
        report_(v.place, fmt::format("\"{}\" can't be \"{}\": it is \"top\" or an object in braces",
                                     field_.name, v.text));
      return;
    }
    if (!v.IsObject()) return Wrong(v, "\"top\" or an object in braces");
    size_t faults = 0;
    const Report counting = [&](Place place, std::string text) {
      ++faults;
      report_(place, std::move(text));
    };
    CheckFields(ViewFields(), v, {}, counting);
    if (faults == 0) ViewTogether(v);
  }

  void ViewTogether(const Value& v) {
    const Value *eye = v.Find("eye"), *target = v.Find("target");
    const int ways = int(eye || target) + int(v.Find("camera") != nullptr) +
                     int(v.Find("orthographic") != nullptr);
    if (ways != 1) {
      report_(v.place, "a view has \"eye\" and \"target\", or \"camera\", or \"orthographic\"");
      return;
    }
    const auto only = [&](const char* field, bool allowed, const char* with) {
      if (const Value* given = v.Find(field); given && !allowed)
        report_(given->place, fmt::format("\"{}\" goes with {} only", field, with));
    };
    only("fov", eye || target, "\"eye\" and \"target\"");
    only("span", v.Find("orthographic"), "\"orthographic\"");
    only("center", v.Find("orthographic"), "\"orthographic\"");
    if (!eye && !target) return;
    if (!eye || !target) {
      report_(v.place, fmt::format("the field \"{}\" is missing", eye ? "target" : "eye"));
      return;
    }
    CheckApart(*eye, *target);
  }

 public:
  void CheckApart(const Value& eye, const Value& target) {
    bool apart = false;
    for (size_t i = 0; i < 3; ++i)
      apart = apart || float(eye.items[i].number) != float(target.items[i].number);
    if (!apart) report_(target.place, "\"eye\" and \"target\" are the same point");
  }

 private:
  const FieldDecl& field_;
  const Report& report_;
};

// Checks what a step's fields must be to each other.
class TogetherCheck {
 public:
  TogetherCheck(const Value& step, const Report& report) : step_(step), report_(report) {}

  void Primitive() {
    const std::string& kind = Given("kind")->text;
    const size_t wanted = kind == "box" ? 3 : kind == "plane" ? 2 : 1;
    if (const Value* size = Given("size"); size && size->items.size() != wanted)
      report_(size->place, fmt::format("\"size\" of a {} has {} number{}, this list has {}", kind,
                                       wanted, wanted == 1 ? "" : "s", size->items.size()));
    OnlyFor("segments", kind == "sphere", "a sphere");
    OnlyFor("cells", kind == "plane", "a plane");
  }

  void Stroke() {
    const Value *mouse = Given("mouse"), *points = Given("points"), *on = Given("on");
    if (!mouse == !points) {
      report_(points ? points->place : step_.place,
              "the way is told by \"mouse\" or by \"points\": one of them is needed");
      return;
    }
    if (mouse) CheckMouse(*mouse);
    if (on && !points) report_(on->place, "\"on\" goes with \"points\" only");
    if (points)
      for (const Value& p : points->items) {
        if (on && p.items.size() != 2)
          report_(p.place, "with \"on\" a point is [x, y]: its height is that of the surface");
        if (!on && p.items.size() != 3)
          report_(p.place, "a point is [x, y, z]; [x, y] needs \"on\" with the node to drop it on");
      }
    if (Given("events") && Given("spacing"))
      report_(Given("spacing")->place, "\"spacing\" and \"events\" tell the same thing: give one");
    if (const Value* keys = Given("keys")) {
      for (const Value* key : Args(*FindStep("stroke"), step_).Texts("keys"))
        if (key->text != "ctrl" && key->text != "alt" && key->text != "shift")
          report_(key->place,
                  fmt::format("there is no key \"{}\": they are ctrl, alt, shift", key->text));
      if (keys->IsText() && keys->text.empty()) report_(keys->place, "\"keys\" is empty");
    }
  }

  void Open() {
    if (const Value* join = Given("join"); join && Given("name"))
      report_(join->place, "\"join\" and \"name\" both name what is opened: give one");
  }

  void Save() { EndsIn({".glb", ".gltf"}, "scenes are glTF files"); }

  void Picture() {
    EndsIn({".png"}, "pictures are PNG files");
    if (const Value* cursor = Given("cursor"))
      Inside("view", cursor->place, cursor->items[0], cursor->items[1]);
  }

  void Pick() {
    const Value *at = Given("at"), *rect = Given("rect");
    if (!at == !rect)
      return report_(step_.place, "where to pick is told by \"at\" or by \"rect\": give one");
    OnlyFor("crossing", rect != nullptr, "a rectangle");
    if (at) Inside("pick", at->place, at->items[0], at->items[1]);
    for (size_t i = 0; rect && i < 4; i += 2)
      Inside("pick", rect->place, rect->items[i], rect->items[i + 1]);
  }

  void Set() {
    const Value *param = Given("param"), *value = Given("value"), *values = Given("values");
    if (!param == !values) {
      report_(step_.place, "what is set is told by \"param\" and \"value\", or by \"values\"");
    } else if (!values && !value) {
      report_(step_.place, "the field \"value\" is missing");
    } else if (values && value) {
      report_(value->place, "\"value\" goes with \"param\" only");
    } else if (values) {
      for (const Member& m : values->members) SetOne(m.key, m.place, m.value);
    } else {
      SetOne(param->text, param->place, *value);
    }
  }

  void Key() {
    const Value *node = Given("node"), *param = Given("param"), *value = Given("value");
    if (!node == !param)
      return report_(step_.place, "what is keyed is told by \"node\" or by \"param\": give one");
    bool parts = false;
    for (const char* part : {"position", "rotation", "scale"}) {
      OnlyFor(part, node != nullptr, "a node");
      parts = parts || Given(part);
    }
    OnlyFor("value", param != nullptr, "a parameter");
    if (node && !parts)
      report_(step_.place, "a key of a node needs \"position\", \"rotation\" or \"scale\"");
    if (!param) return;
    std::string why;
    const sowfield::ParamEntry* entry = FindParamByName(param->text, why);
    if (entry && !entry->animatable) why = fmt::format("\"{}\" can't be animated", param->text);
    if (!why.empty()) return report_(param->place, why);
    if (!value) return report_(step_.place, "the field \"value\" is missing");
    double number;
    if (!NumberToStore(*entry, *value, number, why)) report_(value->place, why);
  }

  void Get() {
    std::string why;
    const Value& param = *Given("param");
    const sowfield::ParamEntry* entry = FindParamByName(param.text, why);
    if (!entry) return report_(param.place, why);
    Entry(*entry, param.place, false);
  }

 private:
  void EndsIn(std::initializer_list<const char*> wanted, const char* why) {
    const Value& file = *Given("file");
    const std::string end = host::ExtensionOf(file.text);
    if (std::find(wanted.begin(), wanted.end(), end) == wanted.end())
      report_(file.place, fmt::format("{}: \"{}\" doesn't end in {}", why, file.text,
                                      fmt::join(wanted, " or ")));
  }
  const Value* Given(std::string_view field) const { return step_.Find(field); }

  void OnlyFor(const char* field, bool allowed, const char* what) {
    if (const Value* given = Given(field); given && !allowed)
      report_(given->place, fmt::format("\"{}\" is for {} only", field, what));
  }

  void CheckMouse(const Value& mouse) {
    for (const Value& p : mouse.items) {
      if (p.items.size() != 2) {
        report_(p.place, "a mouse position is [x, y]");
      } else {
        Inside("stroke", p.place, p.items[0], p.items[1]);
      }
    }
  }

  // A mouse position told in a step with the fields of a view.
  void Inside(const char* step, Place place, const Value& x, const Value& y) {
    const std::vector<double> size = Args(*FindStep(step), step_).Numbers("size");
    if (std::round(x.number) < size[0] && std::round(y.number) < size[1]) return;
    report_(place, fmt::format("the mouse position [{}, {}] lies outside of the view, which is "
                               "{} x {} pixels",
                               x.number, y.number, size[0], size[1]));
  }

  void SetOne(const std::string& name, Place place, const Value& value) {
    std::string why;
    const sowfield::ParamEntry* entry = FindParamByName(name, why);
    if (!entry) return report_(place, why);
    if (why = WhyNotSettable(*entry); !why.empty()) return report_(place, why);
    Entry(*entry, place, true);
    double number;
    if (!NumberToStore(*entry, value, number, why)) report_(value.place, why);
  }

  // Which of index, type and row suit the parameter.
  void Entry(const sowfield::ParamEntry& entry, Place place, bool needed) {
    using sowfield::IndexForm;
    const Value *index = Given("index"), *type = Given("type"), *row = Given("row");
    const int given = int(index != nullptr) + int(type != nullptr) + int(row != nullptr);
    const std::string name = ToUtf8(entry.name);
    if (given > 1) {
      report_(step_.place, "\"index\", \"type\" and \"row\" tell the same thing: give one");
    } else if (!entry.IsTable() && given > 0) {
      report_(place, fmt::format("\"{}\" is a single value: it takes no index, type or row", name));
    } else if (entry.IsTable() && given == 0 && needed) {
      report_(place, fmt::format("\"{}\" has an entry for each {}: tell which with \"{}\"", name,
                                 entry.form == IndexForm::Slot ? "transform row" : "type",
                                 entry.form == IndexForm::Slot ? "row" : "type"));
    } else if (type && entry.form != IndexForm::Slot && entry.form != IndexForm::Type) {
      report_(type->place, fmt::format("\"{}\" isn't kept by type: use \"index\"", name));
    } else if (row && entry.form != IndexForm::Slot && entry.form != IndexForm::Type) {
      report_(row->place, fmt::format("\"{}\" isn't kept by row: use \"index\"", name));
    } else if (row && entry.form == IndexForm::Type &&
               (row->text == "all" || (row->IsNumber() && row->number == 0))) {
      report_(row->place, fmt::format("\"{}\" has no entry for all types", name));
    }
  }

  const Value& step_;
  const Report& report_;
};

}  // namespace

void CheckFields(const StepDecl& decl, const Value& object, std::string_view skip,
                 const Report& report) {
  for (const Member& m : object.members) {
    if (!skip.empty() && m.key == skip) continue;
    if (const FieldDecl* field = decl.Find(m.key)) {
      FieldCheck(*field, report).Check(m.value);
      continue;
    }
    std::vector<std::string> names;
    for (const FieldDecl& f : decl.fields) names.push_back(f.name);
    report(m.place, fmt::format("unknown field \"{}\"{}", m.key, DidYouMean(m.key, names)));
  }
  for (const FieldDecl& f : decl.fields)
    if (f.required && !object.Find(f.name))
      report(object.place, fmt::format("the field \"{}\" is missing", f.name));
}

void CheckTogether(const StepDecl& decl, const Value& object, const Report& report) {
  TogetherCheck check(object, report);
  const std::string_view name = decl.name;
  if (name == "open") check.Open();
  if (name == "primitive") check.Primitive();
  if (name == "stroke") check.Stroke();
  if (name == "save") check.Save();
  if (name == "view") check.Picture();
  if (name == "pick") check.Pick();
  if (name == "set") check.Set();
  if (name == "get") check.Get();
  if (name == "key") check.Key();
  if (name == "camera")
    FieldCheck(*decl.Find("eye"), report).CheckApart(*object.Find("eye"), *object.Find("target"));
}

}  // namespace studio
