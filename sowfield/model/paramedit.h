#pragma once

#include <string>
#include <vector>

#include "sowfield/model/distribution.h"

namespace sowfield {

/// A number for one entry of a parameter, as a spinner, a check box, a job or a script gives it.
struct ParamWrite {
  const ParamEntry* param;
  int index;  // 0 for a scalar
  double value;
};

/// What input may give: the panel's range, narrowed to the types that are there, the least brush
/// that they take, and the unit of the scene.
Range InputRange(const Distribution& d, const ParamEntry& e);
/// Step of the parameter's spinner in the unit of the scene; 0 where the spinner chooses it.
double InputStep(const ParamEntry& e);

/// Why input can't set a parameter, whatever the value; empty if it can.
std::string WhyNotInput(const ParamEntry& e);
/// Why a value can't be stored in the parameter: a fraction of a whole number, or out of a range;
/// empty if it can.
std::string WhyNotValue(const ParamEntry& e, double value, const Range& range);
/// Why an object can't take a write: the entry, or the value for it; empty if it can.
std::string WhyNotWritable(const Distribution& d, const ParamWrite& write);

/// Carries out one edit, whatever the order of its writes, each of which must be writable: the
/// switches first that others depend on, then what goes along with a value, then the rest.
///
/// A lower end takes the upper end along while its row has no range; the X scale takes those of Y
/// and Z while it stands for them; an animation that is switched on gets its random values; another
/// mode than Point Cloud ends its share of samples; new widths of shifts drop the shifts drawn.
/// Listeners hear what changed, each event once, and the object is refreshed once, if it looks
/// different. Opens no undo step.
void WriteParams(Distribution& d, TimeValue t, std::vector<ParamWrite> writes);

}  // namespace sowfield
