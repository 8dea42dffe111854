#pragma once

#include <functional>
#include <vector>

#include "studio/job/job.h"

namespace studio {

using Report = std::function<void(Place, std::string)>;

/// Checks the members of an object against the fields of a table: names, types, ranges, what is
/// needed. `skip` names one member that belongs to someone else.
void CheckFields(const StepDecl& decl, const Value& object, std::string_view skip,
                 const Report& report);

/// Checks what the fields of a step must be to each other. They passed CheckFields.
void CheckTogether(const StepDecl& decl, const Value& object, const Report& report);

}  // namespace studio
