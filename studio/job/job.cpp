#include "studio/job/job.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "studio/job/checks.h"

namespace studio {
namespace {

const Value& DefaultOf(const FieldDecl& field) {
  static std::map<const FieldDecl*, Value> known;
  const auto [found, isNew] = known.try_emplace(&field);
  if (isNew) {
    Fault fault;
    if (std::optional<Value> value = ReadJson(field.initial, fault))
      found->second = *std::move(value);
  }
  return found->second;
}

// Null with reports for a step whose name isn't known. A step of no job has the number 0, and what
// is told of it doesn't name it.
const StepDecl* CheckStep(const Value& step, int number, const Report& report) {
  const auto reportStep = [&](Place place, const std::string& text) {
    report(place, number == 0 ? text : fmt::format("step {}: {}", number, text));
  };
  if (!step.IsObject()) {
    reportStep(step.place,
               fmt::format("a step is an object in braces, this is {}", KindName(step.kind)));
    return nullptr;
  }
  const Value* name = step.Find("do");
  if (!name) {
    reportStep(step.place, "the field \"do\" is missing: it names what the step does");
    return nullptr;
  }
  if (!name->IsText()) {
    reportStep(name->place,
               fmt::format("\"do\" is the name of a step, this is {}", KindName(name->kind)));
    return nullptr;
  }
  const StepDecl* decl = FindStep(name->text);
  if (!decl) {
    std::vector<std::string> names;
    for (const StepDecl& s : AllSteps()) names.push_back(s.name);
    reportStep(name->place,
               fmt::format("there is no step \"{}\"{}", name->text, DidYouMean(name->text, names)));
    return nullptr;
  }

  size_t faults = 0;
  const Report reportField = [&](Place place, const std::string& text) {
    ++faults;
    report(place, number == 0 ? text : StepPrefix(number, decl->name) + text);
  };
  CheckFields(*decl, step, "do", reportField);
  if (faults == 0) CheckTogether(*decl, step, reportField);
  return decl;
}

}  // namespace

const Value& Args::Get(std::string_view field) const {
  if (const Value* given = Given(field)) return *given;
  return DefaultOf(*decl_->Find(field));
}

Place Args::PlaceOf(std::string_view field) const {
  const Value* given = Given(field);
  return given ? given->place : object_->place;
}

std::vector<double> Args::Numbers(std::string_view field) const {
  std::vector<double> numbers;
  for (const Value& v : Get(field).items) numbers.push_back(v.number);
  return numbers;
}

std::vector<const Value*> Args::Texts(std::string_view field) const {
  const Value& value = Get(field);
  if (value.IsText()) return {&value};
  std::vector<const Value*> texts;
  for (const Value& v : value.items) texts.push_back(&v);
  return texts;
}

std::string StepPrefix(int number, std::string_view name) {
  return fmt::format("step {} ({}): ", number, name);
}

Value StepOf(std::string name) { return Value().With("do", Value::Text(std::move(name))); }

std::optional<Call> CallOf(const Value& step, std::vector<Fault>& faults) {
  faults.clear();
  const StepDecl* decl = CheckStep(step, 0, [&](Place place, std::string why) {
    faults.push_back({place, std::move(why)});
  });
  if (!faults.empty()) return std::nullopt;
  return Call{decl, 0, step.place, Args(*decl, step)};
}

std::optional<Job> ReadJob(std::string_view text, std::vector<Fault>& faults) {
  faults.clear();
  Fault fault;
  std::optional<Value> root = ReadJson(text, fault);
  if (!root) {
    faults.push_back(fault);
    return std::nullopt;
  }
  const Report report = [&](Place place, std::string why) {
    faults.push_back({place, std::move(why)});
  };

  Job job;
  job.root = std::make_unique<Value>(*std::move(root));
  const Value* steps = job.root->Find("steps");
  if (!job.root->IsObject()) {
    report(job.root->place, "a job is an object in braces with \"steps\" in it");
  } else {
    CheckFields(JobFields(), *job.root, "steps", report);
    if (!steps) {
      report(job.root->place, "the field \"steps\" is missing");
    } else if (!steps->IsList()) {
      report(steps->place, fmt::format("\"steps\" is a list, this is {}", KindName(steps->kind)));
    } else if (steps->items.empty()) {
      report(steps->place, "\"steps\" is empty: there is nothing to do");
    }
  }
  if (steps && steps->IsList()) {
    for (const Value& step : steps->items) {
      const int number = int(job.calls.size()) + 1;
      const StepDecl* decl = CheckStep(step, number, report);
      job.calls.push_back({decl, number, step.place, decl ? Args(*decl, step) : Args()});
    }
  }
  if (!faults.empty()) {
    std::stable_sort(faults.begin(), faults.end(), [](const Fault& a, const Fault& b) {
      return a.place.line != b.place.line ? a.place.line < b.place.line
                                          : a.place.column < b.place.column;
    });
    return std::nullopt;
  }
  job.fields = Args(JobFields(), *job.root);
  return job;
}

}  // namespace studio
