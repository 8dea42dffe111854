#include <climits>

#include "host/core/notify.h"
#include "host/core/session.h"
#include "host/interface.h"
#include "host/scenefile/scenebuild.h"
#include "host/scenefile/scenecontainer.h"
#include "host/scenefile/scenefile.h"
#include "host/scenefile/scenemerge.h"
#include "host/scenefile/scenerecover.h"

namespace host {

using nlohmann::json;

namespace {

// Parsing copes with any depth; what walks the tree afterwards doesn't.
void CheckTextDepth(const std::string& text) {
  int depth = 0;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c == '\\') ++i;
      if (c == '"') quoted = false;
    } else if (c == '"') {
      quoted = true;
    } else if (c == '{' || c == '[') {
      if (++depth > kDeepestText) throw SceneFault("its description lies too deep");
    } else if (c == '}' || c == ']') {
      --depth;
    }
  }
}

bool NamesItsChecksum(const json& root) {
  static const json::json_pointer place(std::string("/extensions/") + kSceneExtension + "/jsonCrc");
  return root.is_object() && root.contains(place);
}

// A text whose checksum isn't where this program writes it.
json ParseForeign(const std::string& text, Losses* losses) {
  json root = json::parse(WholeText(text), nullptr, losses != nullptr);
  const std::string why = NamesItsChecksum(root)
                              ? "its description was changed by another program, or damaged: it is "
                                "not written as this program writes"
                              : "it is no scene that this program saved";
  if (!losses) throw SceneFault(why);
  losses->Add(why);
  CheckTextDepth(std::string(WholeText(text)));
  return root;
}

json ParseScene(const GlbContent& content, Losses* losses) {
  std::string text = content.json;
  const size_t mark = text.find(kCrcMark), at = mark + kCrcMark.size();
  if (mark == std::string::npos || at + 8 > text.size()) return ParseForeign(text, losses);
  const std::string expected = text.substr(at, 8);
  text.replace(at, 8, "00000000");
  const std::string found = CrcText(Crc32c(std::as_bytes(std::span(text))));
  if (found != expected) {
    const std::string why = "its description is damaged: its checksum is " + found + ", expected " +
                            expected + ", unless another program has changed it";
    if (!losses) throw SceneFault(why);
    losses->Add(why);
    text.resize(WholeText(text).size());
  }
  CheckTextDepth(text);
  return json::parse(text);
}

// A file to read, and what is known to be wrong with it where it is recovered all the same.
struct Found {
  const ByteSource& source;
  std::string path, damage;
};

OpenedScene ReadScene(const Found& file, Losses* losses) {
  GlbContent content;
  std::string why;
  if (!ReadContainer(file.source, content, why)) {
    if (!losses) throw SceneFault(why);
    const std::string damage = file.damage.empty() ? why : file.damage;
    if (content.json.empty() && !FindDamagedParts(file.source, content, why)) throw SceneFault(why);
    losses->Add(damage);
  }
  const json root = ParseScene(content, losses);
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

// The description of a pair is worth reading even where its other file is lost, which `error` tells
// then.
std::unique_ptr<ByteSource> OpenSource(const std::string& path, const OpenOptions& options,
                                       std::string& error) {
  error.clear();
  std::unique_ptr<ByteSource> source = OpenContainer(path, error);
  if (source || !options.recover) return source;
  auto file = std::make_unique<FileSource>();
  std::string why;
  return file->Open(path, why) ? std::move(file) : nullptr;
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
