#include "studio/job/paramrules.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <vector>

#include "host/math/wstr.h"
#include "sowfield/model/paramedit.h"
#include "sowfield/resources/strings.h"
#include "studio/job/steptable.h"

namespace studio {

using sowfield::IndexForm;
using sowfield::ParamEntry;

namespace {

constexpr int kModes = 7;

}  // namespace

const ParamEntry* FindParamByName(const std::string& name, std::string& why) {
  if (const ParamEntry* entry = sowfield::FindParam(FromUtf8(name))) return entry;
  std::vector<std::string> names;
  for (const ParamEntry& e : sowfield::AllParams()) names.push_back(ToUtf8(e.name));
  why = fmt::format("there is no parameter \"{}\"{}", name, DidYouMean(name, names));
  return nullptr;
}

std::string WhyNotSettable(const ParamEntry& entry) {
  switch (entry.id) {
    case sowfield::Excl_On:
    case sowfield::Excl_Splines:
    case sowfield::CamNode:
    case sowfield::CamClip:
    case sowfield::ColorShift:
    case sowfield::Texture_Names:
      return fmt::format("\"{}\" is not available yet", ToUtf8(entry.name));
    default:
      return sowfield::WhyNotInput(entry);
  }
}

int DisplayModeByName(const std::string& name) {
  for (int mode = 0; mode < kModes; ++mode)
    if (DisplayModeName(mode) == name) return mode;
  return -1;
}

std::string DisplayModeName(int mode) {
  const wchar_t* text = mode >= 0 && mode < kModes
                            ? sowfield::GetString(sowfield::kStringDisplayModes + unsigned(mode))
                            : nullptr;
  return text ? ToUtf8(text) : std::string();
}

bool NumberToStore(const ParamEntry& entry, const Value& value, double& number, std::string& why) {
  const std::string name = ToUtf8(entry.name);
  if (value.IsText() && entry.id == sowfield::Display_Type) {
    number = std::numeric_limits<double>::quiet_NaN();
    return true;
  }
  if (value.IsText() && entry.id == sowfield::Display_Mode) {
    number = DisplayModeByName(value.text);
    if (number < 0) {
      std::vector<std::string> names;
      for (int mode = 0; mode < kModes; ++mode) names.push_back(DisplayModeName(mode));
      why = fmt::format("there is no display mode \"{}\"{}", value.text,
                        DidYouMean(value.text, names));
      return false;
    }
  } else if (value.IsNumber()) {
    number = value.number;
  } else if (value.kind == Value::Kind::Bool && entry.panel == sowfield::Range{0, 1}) {
    number = value.flag;
  } else {
    why = fmt::format("\"{}\" takes a number, this is {}", name, KindName(value.kind));
    return false;
  }

  why = sowfield::WhyNotValue(entry, number, entry.panel);
  return why.empty();
}

namespace {

std::string EntriesText(const ParamEntry& e) {
  if (!e.IsTable()) return "";
  if (e.form == IndexForm::Slot) return ", one for all types and one a type";
  return e.form == IndexForm::Type ? ", one a type" : ", a list";
}

std::string KindText(const ParamEntry& e) {
  if (!e.IsNumber()) {
    const bool text = e.type == ParamType::String || e.type == ParamType::Filename;
    return text                          ? "text"
           : e.type == ParamType::Node   ? "node"
           : e.type == ParamType::Point3 ? "point"
                                         : "material";
  }
  if (e.panel == sowfield::Range{0, 1} && e.role != sowfield::Role::Kept) return "0 or 1";
  return e.IsWhole() ? "whole number" : "number";
}

// The ends that depend on the scene in words.
std::string InputText(const ParamEntry& e) {
  if (!e.IsNumber()) return "";
  switch (e.id) {
    case sowfield::Tr_ZPos_Min:
    case sowfield::Tr_ZPos_Max:
      return "by the unit of the scene: -5000 to 5000 in metres";
    case sowfield::Brush_Size:
    case sowfield::Brush_LineSize:
      return "from what the smallest type takes to " + sowfield::NumberText(e.panel.high);
    case sowfield::Display_Type:
      return "0 to the number of types";
    default:
      return sowfield::RangeText(e.panel);
  }
}

// What a scene file may hold without being mended as it is opened.
std::string StoredText(const ParamEntry& e) {
  if (!e.IsNumber() || e.hard == sowfield::Range{}) return "";
  return e.id == sowfield::Display_Type ? InputText(e) : sowfield::RangeText(e.hard);
}

std::string DefaultText(const ParamEntry& e) {
  if (!e.IsNumber()) return "";
  const std::string own = sowfield::NumberText(e.Default(1));
  return e.Default(0) == e.Default(1)
             ? own
             : fmt::format("{}, a type {}", sowfield::NumberText(e.Default(0)), own);
}

std::string SetTable() {
  std::string text =
      "| parameter | id | holds | unit | default | input takes | a file may hold | in the panel | "
      "effect |\n|---|---|---|---|---|---|---|---|---|\n";
  for (const ParamEntry& e : sowfield::AllParams())
    if (e.role == sowfield::Role::Editable)
      text += fmt::format("| `{}` | {} | {}{}{} | {} | {} | {} | {} | {} | {} |\n", ToUtf8(e.name),
                          int(e.id), KindText(e), EntriesText(e),
                          e.animatable ? ", can be animated" : "", e.unit, DefaultText(e),
                          InputText(e), StoredText(e), e.label, e.meaning);
  return text;
}

std::string ListOf(sowfield::Role role) {
  std::string text =
      "| parameter | id | holds | unit | range | meaning |\n|---|---|---|---|---|---|\n";
  for (const ParamEntry& e : sowfield::AllParams())
    if (e.role == role)
      text += fmt::format("| `{}` | {} | {}{} | {} | {} | {} |\n", ToUtf8(e.name), int(e.id),
                          KindText(e), EntriesText(e), e.unit, StoredText(e), e.meaning);
  return text;
}

}  // namespace

std::string ParamsAsMarkdown() {
  using sowfield::Role;
  return "## What users set\n\n" + SetTable() + "\n## What the object keeps\n\n" +
         ListOf(Role::Kept) + "\n## What panels mirror\n\n" + ListOf(Role::Mirrored) +
         "\n## Reserved\n\n" + ListOf(Role::Reserved);
}

}  // namespace studio
