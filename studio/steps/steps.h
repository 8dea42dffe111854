#pragma once

#include <string>
#include <utility>
#include <vector>

#include "studio/job/jsonout.h"
#include "studio/steps/stage.h"

namespace studio {

/// What came of a step.
struct Outcome {
  std::string text;      // for its line
  std::string answer;    // the line's end that was asked for, told without lines too
  std::string document;  // what was asked for on standard output, lines of its own
  std::vector<std::pair<std::string, std::string>> fields;  // names and JSON values

  void Add(const char* name, std::string json) { fields.emplace_back(name, std::move(json)); }
  void Add(const char* name, long long n) { Add(name, std::to_string(n)); }
  void AddText(const char* name, std::string_view text_) { Add(name, JsonOut().Text(text_).Str()); }
};

/// Writes a JSON document to the step's "file"; without one it is the step's document and its field
/// `name`.
void HandOut(Stage& stage, const Call& call, const char* name, const std::string& json,
             Outcome& out);

/// Does a step as a job does it: what it writes is checked before, and Mokset files that are
/// missing are told behind what reads or keeps them. Throws StepFailure; and host::Cancelled where
/// the work was asked to end.
void DoStep(Stage& stage, const Call& call, Outcome& out);

using StepFunction = void (*)(Stage& stage, const Call& call, Outcome& out);
/// Null for a name that isn't a step's.
StepFunction FunctionOf(std::string_view name);

/// Why a Mokset file can't be read whole; empty if it can.
std::string WhyNoMokset(const WStr& path);
/// Before a type lets go of its file, if it has one.
void KeepFileForUndo(Stage& stage, sowfield::Sowfield& object, int type);

// Scene.
void OpenSceneFile(Stage& stage, const Call& call, Outcome& out);
void Save(Stage& stage, const Call& call, Outcome& out);
void Open(Stage& stage, const Call& call, Outcome& out);
void Merge(Stage& stage, const Call& call, Outcome& out);
void Primitive(Stage& stage, const Call& call, Outcome& out);
void Spline(Stage& stage, const Call& call, Outcome& out);
void Camera(Stage& stage, const Call& call, Outcome& out);
void Delete(Stage& stage, const Call& call, Outcome& out);
void Selection(Stage& stage, const Call& call, Outcome& out);
void Time(Stage& stage, const Call& call, Outcome& out);
void Key(Stage& stage, const Call& call, Outcome& out);
void Undo(Stage& stage, const Call& call, Outcome& out);
void Redo(Stage& stage, const Call& call, Outcome& out);
// Object.
void Create(Stage& stage, const Call& call, Outcome& out);
void Select(Stage& stage, const Call& call, Outcome& out);
void AddTypes(Stage& stage, const Call& call, Outcome& out);
void ReplaceSource(Stage& stage, const Call& call, Outcome& out);
void RemoveTypes(Stage& stage, const Call& call, Outcome& out);
void Proxy(Stage& stage, const Call& call, Outcome& out);
void ConvertType(Stage& stage, const Call& call, Outcome& out);
void LoadType(Stage& stage, const Call& call, Outcome& out);
void ExportType(Stage& stage, const Call& call, Outcome& out);
void UpdateTypes(Stage& stage, const Call& call, Outcome& out);
void SelectRows(Stage& stage, const Call& call, Outcome& out);
void TypeColour(Stage& stage, const Call& call, Outcome& out);
void Seed(Stage& stage, const Call& call, Outcome& out);
void Check(Stage& stage, const Call& call, Outcome& out);
void ShowStats(Stage& stage, const Call& call, Outcome& out);
// Parameters.
void Set(Stage& stage, const Call& call, Outcome& out);
void Get(Stage& stage, const Call& call, Outcome& out);
void DumpParams(Stage& stage, const Call& call, Outcome& out);
// Painting and pictures.
void Stroke(Stage& stage, const Call& call, Outcome& out);
void Leave(Stage& stage, const Call& call, Outcome& out);
void Picture(Stage& stage, const Call& call, Outcome& out);
void Pick(Stage& stage, const Call& call, Outcome& out);
void DumpPlacements(Stage& stage, const Call& call, Outcome& out);

}  // namespace studio
