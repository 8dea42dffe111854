#include <climits>
#include <nlohmann/json.hpp>

#include "host/core/notify.h"
#include "host/core/session.h"
#include "host/interface.h"
#include "host/scenefile/scenebuild.h"
#include "host/scenefile/scenecontainer.h"
#include "host/scenefile/scenefile.h"
#include "host/scenefile/scenemerge.h"
#include "host/scenefile/scenerecords.h"
#include "host/scenefile/scenerecover.h"

namespace host {

using nlohmann::json;

namespace {

bool NamesItsChecksum(const json& root) {
  static const json::json_pointer place(std::string("/extensions/") + kSceneExtension + "/jsonCrc");
  return root.is_object() && root.contains(place);
}

bool HoldsScene(const json& root) {
  static const json::json_pointer place(std::string("/extensions/") + kSceneExtension);
  return root.is_object() && root.contains(place) && root[place].is_object();
}

// Empty, or why a text isn't as this program wrote it. `root` is what can be read of it then.
std::string ReadText(const std::string& written, json& root) {
  std::string text = written;
  const size_t mark = text.find(kCrcMark), at = mark + kCrcMark.size();
  std::string why;
  if (mark != std::string::npos && at + 8 <= text.size()) {
    const std::string expected = text.substr(at, 8);
    text.replace(at, 8, "00000000");
    const std::string found = CrcText(Crc32c(std::as_bytes(std::span(text))));
    if (found != expected)
      why = "its description is damaged: its checksum is " + found + ", expected " + expected +
            ", unless another program has changed it";
  } else {
    why = "it is no scene that this program saved";
  }
  if (!why.empty()) text.resize(WholeText(text).size());
  if (LiesTooDeep(text)) return "its description lies too deep";
  root = json::parse(text, nullptr, why.empty());
  if (mark == std::string::npos && NamesItsChecksum(root))
    why =
        "its description was changed by another program, or damaged: it is not written as this "
        "program writes";
  return why;
}

// How much of what records tell stands otherwise in the text, where that can be read at all.
std::string Differences(const json& text, const json& recorded) {
  size_t nodes = 0, things = 0, others = 0;
  for (const auto& [name, value] : recorded.items()) {
    const auto there = text.find(name);
    const bool listed = name == "nodes" || name == "things";
    if (there == text.end() || !listed || !there->is_array() || there->size() != value.size()) {
      others += there == text.end() || *there != value;
      continue;
    }
    for (size_t i = 0; i < value.size(); ++i)
      (name == "nodes" ? nodes : things) += (*there)[i] != value[i];
  }
  if (nodes + things + others == 0) return "";
  return ": " + std::to_string(nodes) + " nodes, " + std::to_string(things) + " things and " +
         std::to_string(others) + " other values are as they were saved, not as it has them";
}

// What a damaged file has for a description, and from where its places count.
json RecoverDescription(const ByteSource& source, GlbContent& content, Losses& losses) {
  json root;
  std::string why;
  try {
    why = ReadText(content.json, root);
  } catch (const json::exception& e) {
    why = std::string("its description can't be read: ") + e.what();
  }
  if (why.empty()) return root;
  const bool readable = HoldsScene(root);
  // A text that another program has written anew is what that one wants it to be.
  const bool foreign =
      readable && NamesItsChecksum(root) && content.json.find(kCrcMark) == std::string::npos;
  RecordedScene recorded = foreign ? RecordedScene() : FindRecords(source);
  if (!recorded.root || (readable && !recorded.lack.empty())) {
    if (!readable) throw SceneFault(why + ", and its bytes don't tell of a scene");
    losses.Add(why);
    return root;
  }
  json& scene = (*recorded.root)["extensions"][kSceneExtension];
  if (!content.json.empty())
    losses.Add(why + ". Its bytes tell of the scene" +
               (readable ? Differences(root["extensions"][kSceneExtension], scene) : ""));
  if (!recorded.lack.empty()) losses.Add(recorded.lack);
  content.binOffset = 0;
  content.binSize = source.Size();
  return std::move(*recorded.root);
}

// A file to read, and what is known to be wrong with it where it is recovered all the same.
struct Found {
  const ByteSource& source;
  std::string path, damage;
};

json ReadDescription(const Found& file, GlbContent& content, Losses* losses) {
  std::string why;
  if (!ReadContainer(file.source, content, why)) {
    if (!losses) throw SceneFault(why);
    losses->Add(file.damage.empty() ? why : file.damage);
    if (content.json.empty()) FindDamagedParts(file.source, content, why);
    if (content.json.empty() && !HasRecords(file.source)) throw SceneFault(why);
  }
  if (losses) return RecoverDescription(file.source, content, *losses);
  json root;
  if (why = ReadText(content.json, root); !why.empty()) throw SceneFault(why);
  return root;
}

OpenedScene ReadScene(const Found& file, Losses* losses) {
  GlbContent content;
  const json root = ReadDescription(file, content, losses);
  const json& scene = MemberOf(MemberOf(root, "extensions"), kSceneExtension);
  SceneIn in(file.source, content, root, file.path, losses);
  int version = kSceneVersion;
  in.Try([&] { version = IntOf(MemberOf(scene, "version"), 1, INT_MAX, "the version"); });
  if (version > kSceneVersion)
    throw SceneFault("it has version " + std::to_string(version) + " of " + kSceneExtension +
                     ", this program reads up to " + std::to_string(kSceneVersion));
  return BuildScene(in, scene);
}

// Puts a scene with its time and units in force; what was there before is in `other` then.
void Exchange(Interface& ip, OpenedScene& other) {
  const Interval range = ip.GetAnimRange();
  const TimeValue time = ip.GetTime();
  const UnitType unit = ip.MasterUnitType();
  const float scale = ip.MasterUnitScale();
  ip.SetAnimRange(other.range);
  ip.SetTime(other.time, false);
  ip.SetMasterUnit(other.unit, other.unitScale);
  other.scene.reset(ip.ExchangeScene(std::unique_ptr<Scene>(other.scene.release())).release());
  other.range = range, other.time = time, other.unit = unit, other.unitScale = scale;
}

// Reads a scene beside the present one and hands it to `take`, which can't fail. Why not, else.
std::string Read(const Found& file, const OpenOptions& options, OpenedScene& opened,
                 const std::function<void()>& take) {
  if (theHold.Holding() || theHold.RestoreOrRedoing() != 0) return "an undo step is open";
  std::string why;
  BroadcastNotification({NOTIFY_FILE_PRE_OPEN});
  try {
    std::vector<std::string> lines;
    {
      Losses losses(lines);
      opened = ReadScene(file, options.recover ? &losses : nullptr);
    }
    if (options.recover) *options.recover = std::move(lines);
    if (options.settled) *options.settled = std::move(opened.settled);
    take();
  } catch (const SceneFault& f) {
    why = f.what();
  } catch (const json::exception& e) {
    why = std::string("its description can't be read: ") + e.what();
  } catch (const std::bad_alloc&) {
    why = "there isn't enough memory";
  }
  if (!why.empty()) opened.scene.reset();  // objects that are refused hear of nothing
  BroadcastNotification({NOTIFY_FILE_POST_OPEN});
  return why;
}

bool Open(Interface& ip, const Found& file, const OpenOptions& options, std::string& error) {
  OpenedScene opened;
  const std::string why = Read(file, options, opened, [&] { Exchange(ip, opened); });
  if (!why.empty()) {
    error = "cannot open \"" + file.path + "\": " + why;
    return false;
  }
  // The steps know the old nodes: they go first.
  CoreSession::InForce().hold.Clear();
  opened.scene.reset();
  ip.RedrawViews(ip.GetTime());
  return true;
}

bool Merge(Interface& ip, const Found& file, const OpenOptions& options, MergedScene& merged,
           std::string& error) {
  OpenedScene opened;
  MergedScene done;
  const std::string why = Read(file, options, opened, [&] { done = Adopt(ip, opened); });
  if (!why.empty()) {
    error = "cannot merge \"" + file.path + "\": " + why;
    return false;
  }
  merged = std::move(done);
  ip.RedrawViews(ip.GetTime());
  return true;
}

bool HasSoundText(const ByteSource& source) {
  GlbContent content;
  std::string why;
  json root;
  try {
    return FindDamagedParts(source, content, why) && ReadText(content.json, root).empty();
  } catch (const json::exception&) {
    return false;
  }
}

// The description of a pair is worth reading even where its other file is lost, which `error` tells
// then. One that is damaged may not name that file, whose bytes tell enough.
std::unique_ptr<ByteSource> OpenSource(const std::string& path, const OpenOptions& options,
                                       std::string& error) {
  error.clear();
  std::unique_ptr<ByteSource> source = OpenContainer(path, error);
  if (!options.recover) return source;
  GlbContent content;
  std::string why;
  if (source && (!IsPairPath(path) || (ReadContainer(*source, content, why), content.binSize > 0)))
    return source;
  auto text = std::make_unique<FileSource>();
  if (!text->Open(path, why)) return nullptr;
  const bool sound = HasSoundText(*text);
  if (!source) source = std::move(text);
  std::string name;
  auto bytes = sound ? nullptr : OpenBytesBeside(path, name);
  if (!bytes || !HasRecords(*bytes)) return source;
  error = "its text is damaged, and doesn't name its bytes: those in \"" + name + "\" are taken";
  return bytes;
}

}  // namespace

bool OpenScene(Interface& ip, const std::string& path, const OpenOptions& options,
               std::string& error) {
  const std::unique_ptr<ByteSource> source = OpenSource(path, options, error);
  return source && Open(ip, {*source, path, error}, options, error);
}

bool OpenSceneBytes(Interface& ip, std::span<const std::byte> bytes, const std::string& name,
                    const OpenOptions& options, std::string& error) {
  return Open(ip, {MemorySource(bytes), name, ""}, options, error);
}

bool MergeScene(Interface& ip, const std::string& path, const OpenOptions& options,
                MergedScene& merged, std::string& error) {
  const std::unique_ptr<ByteSource> source = OpenSource(path, options, error);
  return source && Merge(ip, {*source, path, error}, options, merged, error);
}

bool MergeSceneBytes(Interface& ip, std::span<const std::byte> bytes, const std::string& name,
                     const OpenOptions& options, MergedScene& merged, std::string& error) {
  return Merge(ip, {MemorySource(bytes), name, ""}, options, merged, error);
}

}  // namespace host
