#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <numeric>
#include <vector>

#include "studio/job/steptable.h"

namespace studio {

const char* TypeName(FieldType type) {
  switch (type) {
    case FieldType::Text:
      return "text";
    case FieldType::Number:
      return "number";
    case FieldType::Integer:
      return "whole number";
    case FieldType::Flag:
      return "true or false";
    case FieldType::Choice:
      return "one of";
    case FieldType::Colour:
      return "\"#rrggbb\"";
    case FieldType::Point2:
      return "[x, y]";
    case FieldType::Point3:
      return "[x, y, z]";
    case FieldType::Cells:
      return "[a, b], whole";
    case FieldType::Sizes:
      return "list of 1 to 3 numbers";
    case FieldType::Rect:
      return "[x0, y0, x1, y1]";
    case FieldType::Texts:
      return "text or list of texts";
    case FieldType::Rows:
      return "list of numbers and texts";
    case FieldType::Row:
      return "whole number or text";
    case FieldType::Mouse:
      return "list of [x, y]";
    case FieldType::Points:
    case FieldType::Knots:
      return "list of [x, y, z]";
    case FieldType::View:
      return "\"top\" or view";
    case FieldType::Amount:
      return "whole number or {\"min\", \"max\"}";
    case FieldType::Scalar:
      return "number, text, true or false";
    case FieldType::Scalars:
      return "object of values";
  }
  return "";
}

std::string RangeText(const FieldDecl& field) {
  const bool low = std::isfinite(field.low), high = std::isfinite(field.high);
  // Digits up to ten million, powers of ten beyond.
  const auto text = [](double n) {
    return std::fabs(n) > 1e7 ? fmt::format("{:g}", n) : fmt::format("{:.10g}", n);
  };
  if (low && high) return text(field.low) + " to " + text(field.high);
  if (low) return "at least " + text(field.low);
  if (high) return "at most " + text(field.high);
  return {};
}

namespace {

// Number of letters put in, left out or changed (V. Levenshtein, "Binary codes capable of
// correcting deletions, insertions, and reversals", 1966).
size_t Changes(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t(0));
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t changed = diagonal + (a[i] != b[j]);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

std::string Choices(const FieldDecl& field) {
  std::string text;
  for (const char c : std::string_view(field.choices))
    text += c == '|' ? std::string(", ") : std::string(1, c);
  return text;
}

std::string TypeAndRange(const FieldDecl& field) {
  std::string text = TypeName(field.type);
  if (field.type == FieldType::Choice) text += " " + Choices(field);
  if (const std::string range = RangeText(field); !range.empty()) text += ", " + range;
  if (*field.unit) text += std::string(" ") + field.unit;
  return text;
}

std::string NeedOrDefault(const FieldDecl& field) {
  return field.required ? "needed" : *field.initial ? field.initial : "";
}

std::string MarkdownTable(const StepDecl& step) {
  if (step.fields.empty()) return "No fields.\n";
  std::string text = "| field | takes | default | meaning |\n|---|---|---|---|\n";
  for (const FieldDecl& f : step.fields)
    text += fmt::format("| `{}` | {} | {} | {} |\n", f.name, TypeAndRange(f), NeedOrDefault(f),
                        f.meaning);
  return text;
}

}  // namespace

std::string DidYouMean(std::string_view name, std::span<const std::string> candidates) {
  const std::string* best = nullptr;
  size_t least = name.size() < 5 ? 2 : 3;  // one change in a short name, two in a longer one
  for (const std::string& c : candidates)
    if (const size_t n = Changes(name, c); n < least) least = n, best = &c;
  return best ? ", did you mean \"" + *best + "\"?" : std::string();
}

std::string StepList() {
  std::string text;
  for (const StepDecl& s : AllSteps()) text += fmt::format("{:<11} {}\n", s.name, s.meaning);
  return text;
}

std::string StepHelp(const StepDecl& step) {
  std::string text = fmt::format("{}: {}\n", step.name, step.meaning);
  for (const FieldDecl& f : step.fields) {
    text += fmt::format("  {:<12} {}", f.name, TypeAndRange(f));
    if (const std::string need = NeedOrDefault(f); f.required) {
      text += " (needed)";
    } else if (!need.empty()) {
      text += " (default " + need + ")";
    }
    text += fmt::format("\n               {}\n", f.meaning);
  }
  return text;
}

std::string StepsAsMarkdown() {
  std::string text = "## The job\n\n" + MarkdownTable(JobFields());
  text += "\n## Views\n\n" + MarkdownTable(ViewFields());
  text += "\n## Steps\n";
  for (const StepDecl& s : AllSteps()) {
    std::string meaning = s.meaning;
    meaning[0] = char(std::toupper(static_cast<unsigned char>(meaning[0])));
    text += fmt::format("\n### {}\n\n{}.\n\n{}", s.name, meaning, MarkdownTable(s));
  }
  return text;
}

}  // namespace studio
