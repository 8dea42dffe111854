#include "studio/job/paramrules.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <string_view>
#include <vector>

#include "host/math/wstr.h"
#include "sowfield/plugin/entry.h"
#include "studio/job/steptable.h"

namespace studio {

using sowfield::IndexForm;
using sowfield::ParamEntry;

namespace {

constexpr int kModes = 7;

std::string RangeOf(const ParamEntry& entry) {
  return RangeText({.name = "",
                    .type = FieldType::Number,
                    .low = entry.panel.low,
                    .high = entry.panel.high,
                    .meaning = ""});
}

}  // namespace

const ParamEntry* FindParamByName(const std::string& name, std::string& why) {
  if (const ParamEntry* entry = sowfield::FindParam(FromUtf8(name))) return entry;
  std::vector<std::string> names;
  for (const ParamEntry& e : sowfield::AllParams()) names.push_back(ToUtf8(e.name));
  why = fmt::format("there is no parameter \"{}\"{}", name, DidYouMean(name, names));
  return nullptr;
}

std::string WhyNotSettable(const ParamEntry& entry) {
  const std::string name = ToUtf8(entry.name);
  switch (entry.id) {
    case sowfield::Excl_On:
    case sowfield::Excl_Splines:
    case sowfield::CamNode:
    case sowfield::CamClip:
    case sowfield::ColorShift:
    case sowfield::Texture_Names:
      return fmt::format("\"{}\" is not available yet", name);
    case sowfield::Random_Trans:
      return "\"Random_Trans\" mirrors the panel's check box: set \"Tr_Random\" of a row";
    case sowfield::Unify_Scale:
      return "\"Unify_Scale\" mirrors the panel's check box: set \"Tr_Unify\" of a row";
    case sowfield::AnimOffset:
      return "\"AnimOffset\" mirrors the panel's check box: set \"Tr_AnimOn\" of a type";
    default:
      break;
  }
  if (entry.role == sowfield::Role::Reserved)
    return fmt::format("\"{}\" is reserved and can't be set", name);
  const bool ofRows = entry.form == IndexForm::Slot || entry.id == sowfield::Geo_PaintPct ||
                      entry.id == sowfield::Tr_AnimOn || entry.id == sowfield::Tr_AnimMin ||
                      entry.id == sowfield::Tr_AnimMax;
  if (entry.IsTable() && !ofRows)
    return fmt::format(
        "\"{}\" is kept by the object itself: it changes with types, strokes and seeds", name);
  return {};
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

  const bool whole = entry.type == ParamType::Int || entry.type == ParamType::Bool;
  if (whole && number != std::trunc(number)) {
    why = fmt::format("\"{}\" takes a whole number, this is {}", name, number);
    return false;
  }
  if (!entry.panel.Contains(number)) {
    why = fmt::format("\"{}\" can't be {}: the range is {}", name, number, RangeOf(entry));
    return false;
  }
  const double most =
      whole ? double(std::numeric_limits<int>::max()) : double(std::numeric_limits<float>::max());
  if (std::fabs(number) > most) {
    why = fmt::format("\"{}\" can't be {}: it is too large to store", name, number);
    return false;
  }
  return true;
}

const ParamEntry* UpperEndOf(const ParamEntry& entry) {
  const std::wstring_view name = entry.name;
  if (entry.form != IndexForm::Slot || !name.ends_with(L"_Min")) return nullptr;
  return sowfield::FindParam(std::wstring(name.substr(0, name.size() - 3)) + L"Max");
}

}  // namespace studio
