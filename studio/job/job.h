#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "studio/job/steptable.h"
#include "studio/job/value.h"

namespace studio {

/// The fields of a step, a view or a job: what was given, else the table's default. Fields are
/// asked for by the names of the table and in its types, which were checked when the job was read.
class Args {
 public:
  Args() = default;
  Args(const StepDecl& decl, const Value& object) : decl_(&decl), object_(&object) {}

  /// Null for a field that wasn't given.
  const Value* Given(std::string_view field) const { return object_->Find(field); }
  bool Has(std::string_view field) const { return Given(field) != nullptr; }
  /// The given value or the default. One of them must exist.
  const Value& Get(std::string_view field) const;
  /// Where the field stands, or else the whole object.
  Place PlaceOf(std::string_view field) const;

  const std::string& Text(std::string_view field) const { return Get(field).text; }
  double Number(std::string_view field) const { return Get(field).number; }
  int Integer(std::string_view field) const { return int(Get(field).number); }
  bool Flag(std::string_view field) const { return Get(field).flag; }
  std::vector<double> Numbers(std::string_view field) const;
  /// A text or a list of texts, as a list.
  std::vector<const Value*> Texts(std::string_view field) const;

 private:
  const StepDecl* decl_ = nullptr;
  const Value* object_ = nullptr;
};

/// One step of a job.
struct Call {
  const StepDecl* decl = nullptr;
  int number = 0;  // from 1; 0 in no job
  Place place;     // of the step
  Args args;
};

/// A job whose steps all have the shape that the table tells.
struct Job {
  std::unique_ptr<Value> root;  // what the calls point into
  Args fields;
  std::vector<Call> calls;
};

/// Reads a job and checks every step. On failure `faults` tells everything that is wrong, in the
/// order of the text, or the one thing that makes it unreadable.
std::optional<Job> ReadJob(std::string_view text, std::vector<Fault>& faults);

/// A step without fields.
Value StepOf(std::string name);

/// The same checks of a step that stands in no job. The call points into `step`. On failure
/// `faults` tells everything that is wrong, without naming the step.
std::optional<Call> CallOf(const Value& step, std::vector<Fault>& faults);

/// "step 4 (stroke): ".
std::string StepPrefix(int number, std::string_view name);

}  // namespace studio
