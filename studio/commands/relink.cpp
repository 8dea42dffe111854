#include "studio/commands/relink.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <ostream>
#include <set>

#include "host/files/file.h"
#include "sowfield/objects/proxylife.h"
#include "sowfield/proxy/moksetfile.h"
#include "studio/commands/commandsteps.h"
#include "studio/commands/files.h"
#include "studio/steps/fileuses.h"

namespace studio {
namespace {

namespace fs = std::filesystem;

std::string Turned(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

/// What came of one file that the scene names.
struct Move {
  std::string who, from, to;
  std::string why;  // it stays as it is for this reason; empty if it doesn't
};

// The new path of a file under `from`, or of `from` itself; empty for any other.
std::string Mapped(const std::string& path, const std::string& from, const std::string& to) {
  if (path == from) return to;
  if (!path.starts_with(from) || from.empty()) return {};
  const std::string rest = path.substr(from.size());
  if (from.back() == '/') return (fs::path(to) / rest).string();
  return rest[0] == '/' ? (fs::path(to) / rest.substr(1)).string() : "";
}

std::string WhyNotTaken(const FileUse& use, const WStr& to) {
  FileUse other = use;
  other.path = to;
  if (!IsThere(other)) return fmt::format("there is no file \"{}\"", ToUtf8(to));
  return use.kind == FileUse::Kind::Mokset ? WhyNoMokset(to) : "";
}

// A type takes box, counts and samples of the new file with it.
void Take(const FileUse& use, const WStr& path) {
  if (!use.object) return use.Name(path);
  if (!sowfield::PointTypeAtFile(use.object->distribution, use.type, path))
    throw Failure{1, fmt::format("{} can't take \"{}\"", use.who, ToUtf8(path))};
}

/// Finds each file that isn't below the scene's folder a name in it, and copies it there.
class Collection {
 public:
  Collection(fs::path folder, bool dryRun) : folder_(std::move(folder)), dryRun_(dryRun) {}

  bool IsBelow(const std::string& file) const {
    std::error_code code;
    const fs::path near =
        fs::weakly_canonical(file, code).lexically_relative(fs::weakly_canonical(folder_, code));
    return !near.empty() && *near.begin() != "..";
  }

  /// The path of the copy, of one that was there already or of a new one.
  std::string Copy(const std::string& file) {
    for (const auto& [from, to] : copies_)
      if (host::SameFile(from, file)) return to;
    const fs::path name = fs::path(file).filename();
    for (int number = 1;; ++number) {
      fs::path free = folder_ / name;
      if (number > 1)
        free.replace_filename(
            fmt::format("{}_{}{}", name.stem().string(), number, name.extension().string()));
      if (taken_.contains(free.string())) continue;
      if (std::error_code code; !fs::exists(fs::symlink_status(free, code))) {
        if (!dryRun_) Write(file, free.string());
      } else if (!SameBytes(file, free.string())) {
        continue;
      }
      taken_.insert(free.string());
      return copies_[file] = free.string();
    }
  }

 private:
  static constexpr size_t kPiece = size_t(1) << 20;

  static host::FileSource& Opened(host::FileSource& source, const std::string& file) {
    std::string error;
    if (!source.Open(file, error)) throw Failure{1, error};
    return source;
  }

  // Hands over a file in pieces; false as soon as `use` gives it.
  template <class F>
  static bool InPieces(const std::string& file, F use) {
    host::FileSource source;
    Opened(source, file);
    std::vector<std::byte> piece;
    for (size_t at = 0; at < source.Size(); at += piece.size()) {
      piece.resize(std::min(kPiece, source.Size() - at));
      if (!source.Read(at, piece))
        throw Failure{1, fmt::format("cannot read \"{}\" to its end", file)};
      if (!use(at, std::span<const std::byte>(piece))) return false;
    }
    return true;
  }

  static bool SameBytes(const std::string& a, const std::string& b) {
    if (!fs::is_regular_file(b)) return false;
    host::FileSource other;
    if (Opened(other, b).Size() != fs::file_size(a)) return false;
    std::vector<std::byte> piece;
    return InPieces(a, [&](size_t at, std::span<const std::byte> bytes) {
      piece.resize(bytes.size());
      return other.Read(at, piece) && std::equal(bytes.begin(), bytes.end(), piece.begin());
    });
  }

  static void Write(const std::string& from, const std::string& to) {
    host::SafeFile file(to);
    const bool written =
        file.Open() &&
        InPieces(from,
                 [&](size_t, std::span<const std::byte> bytes) { return file.Write(bytes); }) &&
        file.Commit();
    if (!written) throw Failure{1, file.Error()};
  }

  fs::path folder_;
  bool dryRun_;
  std::map<std::string, std::string> copies_;
  std::set<std::string> taken_;
};

std::vector<Move> Relink(CommandSteps& steps, const std::string& from, const std::string& to,
                         bool dryRun) {
  Stage& stage = steps.GetStage();
  // Paths of other systems are told as they are stored.
  const std::string full = stage.Resolve(from), text = Turned(from), target = stage.Resolve(to);
  std::vector<Move> moves;
  const std::vector<FileUse> uses = FilesOf(stage.Ip().GetScene());
  for (const FileUse& use : uses) {
    const std::string path = ToUtf8(use.path);
    std::string other = Mapped(Turned(path), text, target);
    if (other.empty()) other = Mapped(path, full, target);
    if (other.empty() || other == path) continue;
    const WStr taken = stage.ResolveToKeep(Value::Text(other));
    moves.push_back({use.who, path, other, WhyNotTaken(use, taken)});
    if (moves.back().why.empty() && !dryRun) Take(use, taken);
  }
  if (!moves.empty()) return moves;
  std::set<std::string> named;
  for (const FileUse& use : uses) named.insert('"' + ToUtf8(use.path) + '"');
  constexpr size_t kMostShown = 3;
  std::vector<std::string> shown(named.begin(), named.end());
  shown.resize(std::min(shown.size(), kMostShown));
  throw Failure{1,
                fmt::format("nothing in the scene names \"{}\": it names {}{}", from,
                            named.empty() ? "no files" : fmt::format("{}", fmt::join(shown, ", ")),
                            named.size() > kMostShown ? " and others" : "")};
}

std::vector<Move> Collect(CommandSteps& steps, const std::string& scene, bool dryRun) {
  Stage& stage = steps.GetStage();
  Collection collection(fs::path(host::FileBehind(stage.Resolve(scene))).parent_path(), dryRun);
  std::vector<Move> moves;
  for (const FileUse& use : FilesOf(stage.Ip().GetScene())) {
    const std::string path = sowfield::NativePathOf(use.path);
    if (!IsThere(use)) {
      moves.push_back({use.who, ToUtf8(use.path), "", "it is missing"});
    } else if (!collection.IsBelow(path)) {
      const std::string copy = collection.Copy(path);
      moves.push_back({use.who, ToUtf8(use.path), copy, ""});
      if (!dryRun) use.Name(stage.ResolveToKeep(Value::Text(copy)));
    }
  }
  return moves;
}

std::string AsText(const std::vector<Move>& moves, bool dryRun) {
  std::string text;
  size_t changed = 0;
  for (const Move& m : moves) {
    if (!m.why.empty()) continue;
    text += fmt::format("{}: \"{}\" -> \"{}\"\n", m.who, m.from, m.to);
    ++changed;
  }
  return text +
         fmt::format("{} {}\n", Counted(changed, "path"), dryRun ? "would change" : "changed");
}

std::string AsJson(const std::string& scene, const std::vector<Move>& moves, bool saved) {
  JsonOut json;
  json.BeginObject().Key("file").Text(scene).Key("saved").Flag(saved);
  for (const bool changed : {true, false}) {
    json.Line().Key(changed ? "changed" : "unchanged").BeginList();
    for (const Move& m : moves) {
      if (m.why.empty() != changed) continue;
      json.Line().BeginObject().Key("what").Text(m.who).Key("from").Text(m.from);
      json.Key(changed ? "to" : "why").Text(changed ? m.to : m.why).End();
    }
    json.End();
  }
  return json.Line().End().Str() + "\n";
}

}  // namespace

PathCommands::PathCommands(CLI::App& app) {
  relink_ = app.add_subcommand("relink", "Lets a scene find its files where they are now");
  collect_ = app.add_subcommand("collect", "Copies all files that a scene names beside it");
  for (CLI::App* command : {relink_, collect_}) {
    command->add_option("scene", scene_, "the scene file, which is saved in its place")->required();
    command->add_flag("--dry-run", dryRun_, "only tell what would change");
    command->add_flag("--json", json_, "print one JSON document");
  }
  relink_->add_option("old", from_, "a file or a folder as the scene names it")
      ->required()
      ->check(WhyEmpty);
  relink_->add_option("new", to_, "the file or the folder in its stead")
      ->required()
      ->check(WhyEmpty);
}

bool PathCommands::Parsed() const { return relink_->parsed() || collect_->parsed(); }

int PathCommands::Run(std::ostream& out, std::ostream& err) const {
  const char* name = relink_->parsed() ? "relink" : "collect";
  try {
    CommandSteps steps(err);
    // What is missing is told below, with what came of it.
    steps.GetStage().tellsMissing = false;
    steps.OpenScene(scene_, false);
    steps.GetStage().StopEditing();
    const std::vector<Move> moves =
        relink_->parsed() ? Relink(steps, from_, to_, dryRun_) : Collect(steps, scene_, dryRun_);
    const auto stays = [](const Move& m) { return !m.why.empty(); };
    const bool all = std::none_of(moves.begin(), moves.end(), stays);
    const bool any = !std::all_of(moves.begin(), moves.end(), stays);
    if (any && !dryRun_) steps.Do(StepOf("save").With("file", Value::Text(scene_)));
    for (const Move& m : moves)
      if (stays(m)) err << fmt::format("{}: {}: \"{}\": {}\n", name, m.who, m.from, m.why);
    out << (json_ ? AsJson(scene_, moves, any && !dryRun_) : AsText(moves, dryRun_));
    return all ? 0 : 1;
  } catch (const std::exception& e) {
    return TellFailure(name, e, err);
  }
}

}  // namespace studio
