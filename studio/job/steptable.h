#pragma once

#include <limits>
#include <span>
#include <string>
#include <string_view>

namespace studio {

/// What a field takes.
enum class FieldType {
  Text,
  Number,
  Integer,
  Flag,     // true or false
  Choice,   // one of FieldDecl::choices
  Colour,   // "#rrggbb"
  Point2,   // [x, y]
  Point3,   // [x, y, z]
  Cells,    // two whole numbers
  Sizes,    // one to three numbers
  Rect,     // [x0, y0, x1, y1]
  Texts,    // a text, or a list of them
  Rows,     // a list of whole numbers and texts
  Row,      // a whole number or a text
  Mouse,    // a list of [x, y]
  Points,   // a list of [x, y, z], or of [x, y]
  Knots,    // a list of at least two [x, y, z]
  View,     // "top", or an object with the fields of ViewFields
  Amount,   // a whole number, or {"min": a, "max": b}
  Scalar,   // a number, true, false or a text
  Scalars,  // an object of such values by parameter name
};

/// How a type reads in the documents.
const char* TypeName(FieldType type);

/// One field of a step: reading, help and the document are all made from this.
struct FieldDecl {
  const char* name;
  FieldType type;
  bool required = false;
  const char* initial = "";                               // the default as JSON; empty for none
  double low = -std::numeric_limits<double>::infinity();  // of each number in the value
  double high = std::numeric_limits<double>::infinity();
  const char* unit = "";
  const char* choices = "";  // parted by '|'
  const char* meaning;
};

struct StepDecl {
  const char* name;
  const char* meaning;
  bool keepsPainting;  // paint mode goes on behind this step
  std::span<const FieldDecl> fields;

  /// Null for a field that the step hasn't.
  const FieldDecl* Find(std::string_view field) const;
};

/// All steps, in the order of the documents.
std::span<const StepDecl> AllSteps();
/// Null for an unknown name.
const StepDecl* FindStep(std::string_view name);
/// The fields of a job file itself, without "steps".
const StepDecl& JobFields();
/// The fields of a view that is given as an object.
const StepDecl& ViewFields();

/// The allowed range of a field in words, such as "above 0" or "1 to 179"; empty without one.
std::string RangeText(const FieldDecl& field);
/// `, did you mean "x"?` for the name among the candidates that is nearly `name`, else empty.
std::string DidYouMean(std::string_view name, std::span<const std::string> candidates);

/// One line for each step: its name and what it does.
std::string StepList();
/// One step with its fields, for a terminal.
std::string StepHelp(const StepDecl& step);
/// The tables of docs/jobs.md.
std::string StepsAsMarkdown();

}  // namespace studio
