#include "studio/commands/diff.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <ostream>

#include "host/scenefile/scenefile.h"
#include "host/scenefile/scenevalues.h"
#include "studio/commands/files.h"
#include "studio/diff/scenediff.h"
#include "studio/steps/steps.h"

namespace studio {
namespace {

/// A list in the text; --json tells all.
constexpr size_t kMostShown = 10;
constexpr size_t kMostEntriesShown = 3;

/// Ends the command with status 2.
struct Trouble : host::Error {
  using Error::Error;
};

void OpenScene(Stage& stage, const std::string& file) {
  if (const std::string why = WhyNoScene(file); !why.empty()) throw Trouble(why);
  std::vector<Fault> faults;
  const Value step = StepOf("open").With("file", Value::Text(file));
  const std::optional<Call> call = CallOf(step, faults);
  if (!call) throw Trouble(faults.front().text);
  try {
    Outcome outcome;
    OpenSceneFile(stage, *call, outcome);
  } catch (const StepFailure& f) {
    throw Trouble(f.what());
  }
  // Two objects can't both have the panels.
  stage.StopEditing();
}

bool HasObject(Stage& stage, const std::string& name) {
  for (const INode* n : stage.SowfieldNodes())
    if (ToUtf8(n->GetName()) == name) return true;
  return false;
}

/// Lines of text, with what is left out told.
class Report {
 public:
  explicit Report(std::ostream& out) : out_(out) {}

  void Whole(const SceneChange& change) {
    Changes("scene", change.scene);
    Names("nodes only in the first scene", change.nodesOnlyA);
    Names("nodes only in the second scene", change.nodesOnlyB);
    for (const ThingChange& n : change.nodes) Changes("node \"" + n.label + "\"", n.changes);
    for (const ThingChange& t : change.things) Changes(t.label, t.changes);
  }

  void Object(const ObjectChange& o, const PlacementValues& values) {
    out_ << "object \"" << o.name << "\"\n";
    Names("  types only in the first scene", o.typesOnlyA);
    Names("  types only in the second scene", o.typesOnlyB);
    Cut(o.typesMoved, kMostShown, "  ", [&](const Change& c) {
      out_ << fmt::format("  type \"{}\": number {} -> {}\n", c.what, c.a, c.b);
    });
    Lines(o.params, "  ", kMostShown);
    for (const TableChange& t : o.tables) {
      out_ << fmt::format("  table {}: {} of {} entries differ\n", t.name, Number(t.entries.size()),
                          Number(std::max(t.countA, t.countB)));
      Lines(t.entries, "    ", kMostEntriesShown);
    }
    Placements(o, values);
  }

 private:
  static std::string Number(size_t n) { return Grouped((long long)(n)); }

  template <class List, class F>
  void Cut(const List& list, size_t most, const char* indent, F show) {
    for (size_t i = 0; i < std::min(list.size(), most); ++i) show(list[i]);
    if (list.size() > most) out_ << indent << "... and " << Number(list.size() - most) << " more\n";
  }

  void Lines(const std::vector<Change>& changes, const char* indent, size_t most) {
    Cut(changes, most, indent, [&](const Change& c) {
      out_ << fmt::format("{}{}: {} -> {}\n", indent, c.what, c.a, c.b);
    });
  }

  void Changes(const std::string& label, const std::vector<Change>& changes) {
    if (changes.empty()) return;
    out_ << label << '\n';
    Lines(changes, "  ", kMostShown);
  }

  void Names(const char* label, const std::vector<std::string>& names) {
    if (names.empty()) return;
    out_ << label << ':';
    for (size_t i = 0; i < std::min(names.size(), kMostShown); ++i)
      out_ << (i ? ", " : " ") << '"' << names[i] << '"';
    if (names.size() > kMostShown)
      out_ << " ... and " << Number(names.size() - kMostShown) << " more";
    out_ << '\n';
  }

  void Placements(const ObjectChange& o, const PlacementValues& values) {
    if (o.onlyA.empty() && o.onlyB.empty() && o.changed.empty()) return;
    out_ << fmt::format("  placements: {} -> {}\n", Number(o.placementsA), Number(o.placementsB));
    Places("    only in the first scene", o.onlyA);
    Places("    only in the second scene", o.onlyB);
    if (o.changed.empty()) return;
    out_ << "    changed: " << Number(o.changed.size()) << " (";
    const char* between = "";
    for (size_t i = 0; i < std::size(kPlacementParts); ++i) {
      const auto count = std::count_if(o.changed.begin(), o.changed.end(),
                                       [&](const auto& c) { return (c.parts & (1u << i)) != 0; });
      if (count == 0) continue;
      out_ << between << kPlacementParts[i] << ' ' << Number(size_t(count));
      between = ", ";
    }
    out_ << ")\n";
    Cut(o.changed, kMostEntriesShown, "      ", [&](const PlacementChange& c) {
      out_ << "      " << c.a;
      if (c.b != c.a) out_ << " (" << c.b << " in the second)";
      const char* sign = ": ";
      for (const Change& v : values.Of(c)) {
        // Twelve numbers tell nothing at a glance that the other parts don't.
        if (c.parts != kMatrix && v.what == kPlacementParts[5]) continue;
        out_ << sign << fmt::format("{} {} -> {}", v.what, v.a, v.b);
        sign = "; ";
      }
      out_ << '\n';
    });
  }

  void Places(const char* label, const std::vector<int>& places) {
    if (places.empty()) return;
    out_ << label << ": " << Number(places.size()) << " (";
    for (size_t i = 0; i < std::min(places.size(), kMostShown); ++i)
      out_ << (i ? ", " : "") << places[i];
    if (places.size() > kMostShown) out_ << ", ...";
    out_ << ")\n";
  }

  std::ostream& out_;
};

void PutChanges(JsonOut& json, const std::vector<Change>& changes) {
  json.BeginList();
  for (const Change& c : changes) {
    json.Line().BeginObject().Key("what").Text(c.what).Key("a").Raw(c.a).Key("b").Raw(c.b);
    json.End();
  }
  json.End();
}

void PutNames(JsonOut& json, const char* key, const std::vector<std::string>& names) {
  json.Key(key).BeginList();
  for (const std::string& n : names) json.Text(n);
  json.End();
}

void PutThings(JsonOut& json, const char* key, const std::vector<ThingChange>& things) {
  json.Line().Key(key).BeginList();
  for (const ThingChange& t : things) {
    json.Line().BeginObject().Key("name").Text(t.label).Key("changes");
    PutChanges(json, t.changes);
    json.End();
  }
  json.End();
}

void PutPlacements(JsonOut& json, const ObjectChange& o, const PlacementValues& values) {
  json.Line().Key("placements").BeginObject();
  json.Key("count_a").Int((long long)(o.placementsA));
  json.Key("count_b").Int((long long)(o.placementsB));
  for (const bool first : {true, false}) {
    json.Key(first ? "only_a" : "only_b").BeginList();
    for (const int p : first ? o.onlyA : o.onlyB) json.Int(p);
    json.End();
  }
  json.Key("changed").BeginList();
  for (const PlacementChange& c : o.changed) {
    json.Line().BeginObject().Key("a").Int(c.a).Key("b").Int(c.b).Key("parts");
    PutChanges(json, values.Of(c));
    json.End();
  }
  json.End().End();
}

void PutObject(JsonOut& json, const ObjectChange& o, const PlacementValues& values) {
  json.Line().BeginObject().Key("object").Text(o.name).Key("types").BeginObject();
  PutNames(json, "only_a", o.typesOnlyA);
  PutNames(json, "only_b", o.typesOnlyB);
  json.Key("moved");
  PutChanges(json, o.typesMoved);
  json.End().Line().Key("params");
  PutChanges(json, o.params);
  json.Line().Key("tables").BeginList();
  for (const TableChange& t : o.tables) {
    json.Line().BeginObject().Key("name").Text(t.name);
    json.Key("count_a").Int((long long)(t.countA)).Key("count_b").Int((long long)(t.countB));
    json.Key("entries");
    PutChanges(json, t.entries);
    json.End();
  }
  json.End();
  PutPlacements(json, o, values);
  json.End();
}

}  // namespace

DiffCommand::DiffCommand(CLI::App& app)
    : command_(app.add_subcommand("diff", "Tells what differs between two scene files")) {
  command_->add_option("first", a_, "a scene file")->required();
  command_->add_option("second", b_, "another one")->required();
  command_->add_flag("--json", json_, "print one JSON document that tells all");
  command_->add_option("--object", object_, "compare only the Sowfield object of this name")
      ->check(WhyEmpty);
  command_->footer("Exit status: 0 nothing differs, 1 something does, 2 they can't be compared.");
}

bool DiffCommand::Parsed() const { return command_->parsed(); }

int DiffCommand::Run(std::ostream& out, std::ostream& err) const {
  try {
    Stage a("", err);
    OpenScene(a, a_);
    Stage b("", err);
    OpenScene(b, b_);
    if (!object_.empty() && !HasObject(a, object_) && !HasObject(b, object_))
      throw Trouble(fmt::format("no Sowfield object is named \"{}\"", object_));
    const SceneChange change =
        CompareScenes(a, b, object_.empty() ? std::nullopt : std::optional<std::string>(object_));
    const bool same = change.Nothing();
    JsonOut json;
    Report report(out);
    if (json_) {
      json.BeginObject().Line().Key("a").Text(a_).Line().Key("b").Text(b_);
      json.Line().Key("same").Flag(same).Line().Key("scene");
      PutChanges(json, change.scene);
      json.Line();
      PutNames(json, "nodes_only_a", change.nodesOnlyA);
      json.Line();
      PutNames(json, "nodes_only_b", change.nodesOnlyB);
      PutThings(json, "nodes", change.nodes);
      PutThings(json, "things", change.things);
      json.Line().Key("objects").BeginList();
    } else {
      if (same) out << "nothing differs\n";
      report.Whole(change);
    }
    for (const ObjectPair& pair : change.objects) {
      const PlacementValues values(pair.a, pair.b);
      json_ ? PutObject(json, pair.change, values) : report.Object(pair.change, values);
    }
    if (json_) out << json.End().Line().End().Str() << '\n';
    return same ? 0 : 1;
  } catch (const std::exception& e) {
    err << "diff: " << host::TextOf(e) << '\n';
  }
  return 2;
}

}  // namespace studio
