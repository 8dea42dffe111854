#pragma once

#include <string>

#include "sowfield/model/params.h"
#include "studio/job/value.h"

namespace studio {

/// The parameter of a stored name; null for an unknown one, with `why`.
const sowfield::ParamEntry* FindParamByName(const std::string& name, std::string& why);

/// Why a job can't set a parameter; empty if it can.
std::string WhyNotSettable(const sowfield::ParamEntry& entry);

/// Turns a value into the number that is stored. False with `why` for a wrong type or a number out
/// of range. A text is a mode of Display_Mode; one of Display_Type (a type's name) stays unknown
/// here and gives NaN.
bool NumberToStore(const sowfield::ParamEntry& entry, const Value& value, double& number,
                   std::string& why);

/// The display mode of a name; -1 for an unknown one.
int DisplayModeByName(const std::string& name);
std::string DisplayModeName(int mode);

/// All parameters as the tables of docs/parameters.md.
std::string ParamsAsMarkdown();

}  // namespace studio
