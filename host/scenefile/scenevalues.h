#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/core/errors.h"
#include "host/core/paramblock.h"
#include "host/gltf/glb.h"
#include "host/math/matrix3.h"
#include "host/scenefile/scenelosses.h"
#include "host/scenefile/scenepaths.h"

namespace host {

// How values stand in a scene file. docs/scene-format.md describes all of it.

/// The extension that holds a scene, and the version of it that is written.
inline constexpr const char* kSceneExtension = "SOWFIELD_scene";
inline constexpr int kSceneVersion = 1;
/// The text's own checksum stands behind this; nothing in quotes can look like it.
inline constexpr std::string_view kCrcMark = "\"jsonCrc\":\"";
/// How deep lists and objects may lie in the text, and nodes under one another.
inline constexpr int kDeepestText = 64;
inline constexpr int kDeepestSceneNode = 4096;

/// Ends the saving or the opening of a scene; its text is one line that names the thing at fault.
class SceneFault : public Error {
 public:
  using Error::Error;
};

/// Values that this program can't interpret, kept as they were read: unknown parameters, and
/// objects of classes that aren't registered. In the tree {"ref": i} stands for targets[i] and
/// {"view": i} for blobs[i].
class KeptValues {
 public:
  KeptValues();
  ~KeptValues();
  std::unique_ptr<nlohmann::json> tree;  // never null
  std::vector<Pin<ReferenceTarget>> targets;
  std::vector<std::vector<std::byte>> blobs;
};

/// A float as a JSON number, which reads back with the same bits; one that isn't finite as the hex
/// text of its bits.
nlohmann::json FloatValue(float value);
nlohmann::json FloatList(std::span<const float> values);
nlohmann::json MatrixValue(const Matrix3& m);
nlohmann::json HexValue(std::uint32_t value);
nlohmann::json ClassValue(Class_ID id);

// Each throws SceneFault, naming `what`, for a value of another kind or range.
float FloatOf(const nlohmann::json& value, const char* what);
std::vector<float> FloatsOf(const nlohmann::json& value, size_t count, const char* what);
Matrix3 MatrixOf(const nlohmann::json& value, const char* what);
int IntOf(const nlohmann::json& value, int low, int high, const char* what);
bool FlagOf(const nlohmann::json& value, const char* what);
WStr TextOf(const nlohmann::json& value, const char* what);
std::uint32_t HexOf(const nlohmann::json& value, const char* what);
Class_ID ClassOf(const nlohmann::json& value, const char* what);
const nlohmann::json& MemberOf(const nlohmann::json& object, const char* name);
const nlohmann::json& ListOf(const nlohmann::json& object, const char* name);

/// What the things of a scene write themselves through. Numbers the things that they refer to.
class SceneOut {
 public:
  /// `nodes` are all that the scene holds; they get the first numbers. `path` is the scene file;
  /// without one the paths that the scene names stay absolute.
  SceneOut(BinaryParts& parts, std::span<INode* const> nodes, const std::string& path = {});

  ScenePaths paths;

  /// {"ref": id}, or null for no target and for a node that isn't in the scene.
  nlohmann::json Ref(ReferenceTarget* target);
  /// The id of a thing that was numbered before.
  nlohmann::json Id(const ReferenceTarget* target) const;
  /// The next thing, in the order of first mention, that isn't a node; null when all were given.
  ReferenceTarget* NextThing();

  /// A table, borrowed until the file is written. `type` is one of the table types.
  template <class T>
  auto Table(const char* type, std::span<const T> values) {
    return Described(type, values.size() * (sizeof(T) / ElementSize(type)), std::as_bytes(values));
  }
  nlohmann::json Texts(std::span<const WStr> values);
  nlohmann::json Kept(const KeptValues& kept);

  /// Bytes of an element of a table type; 0 for one that is unknown or has no fixed size.
  static size_t ElementSize(std::string_view type);

 private:
  nlohmann::json Described(const char* type, size_t count, std::span<const std::byte> bytes);
  nlohmann::json Release(const nlohmann::json& tree, const KeptValues& kept);

  BinaryParts& parts_;
  std::unordered_map<const ReferenceTarget*, std::uint32_t> ids_;
  std::deque<ReferenceTarget*> waiting_;
};

/// What the things of a scene are read through. With `losses` a damaged scene is recovered: what
/// reading can go on behind is added there instead of thrown. A table is then as long as the bytes
/// that are there, and a reference to nothing is null.
class SceneIn {
 public:
  /// `path` is the scene file.
  SceneIn(const ByteSource& source, const GlbContent& content, const nlohmann::json& root,
          const std::string& path, Losses* losses = nullptr);

  const ScenePaths paths;

  Losses* GetLosses() const { return losses_; }
  /// A fault that reading can go on behind.
  void Fault(const std::string& text) const;
  /// False if the work was at fault and the scene is being recovered.
  template <class F>
  bool Try(F work) const {
    try {
      work();
      return true;
    } catch (const SceneFault& f) {
      if (!losses_) throw;
      losses_->Add(f.what());
      return false;
    }
  }

  /// Makes a thing known under the id that stands in its description; the first keeps an id.
  void Add(const nlohmann::json& id, ReferenceTarget* target);
  /// References to that id are faults from now on, unless another thing has it.
  void Drop(const nlohmann::json& id, const ReferenceTarget* target);
  /// Null for null. An id that nothing has is a fault.
  ReferenceTarget* Ref(const nlohmann::json& value) const;
  /// The same without a fault.
  ReferenceTarget* Find(const nlohmann::json& value) const;
  /// The same; a thing of another kind is a fault, and null then.
  template <class T>
  T* RefTo(const nlohmann::json& value, const char* what) const {
    ReferenceTarget* target = Ref(value);
    T* typed = dynamic_cast<T*>(target);
    if (target && !typed) Fault(std::string(what) + " refers to a thing that is none");
    return typed;
  }

  template <class Container>
  Container Table(const nlohmann::json& table, const char* type, const char* what) const {
    using T = typename Container::value_type;
    const size_t perEntry = sizeof(T) / SceneOut::ElementSize(type);
    const size_t count = Count(table, type, what);
    if (count % perEntry != 0)
      Fault(std::string(what) + " has " + std::to_string(count) +
            " numbers, expected a multiple of " + std::to_string(perEntry));
    Container values;
    values.reserve(count / perEntry);
    Pour(table, sizeof(T), count / perEntry, what, [&](std::span<const std::byte> piece) {
      const T* first = reinterpret_cast<const T*>(piece.data());
      values.insert(values.end(), first, first + piece.size() / sizeof(T));
      return true;
    });
    return values;
  }
  std::vector<WStr> Texts(const nlohmann::json& table, const char* what) const;
  /// Tables are read and checked, references resolved: all things must be known by now.
  std::shared_ptr<const KeptValues> Keep(const nlohmann::json& tree) const;

 private:
  struct View {
    size_t offset = 0, size = 0;  // in the file
    size_t told = 0;              // the size by its description
  };
  size_t Count(const nlohmann::json& table, const char* type, const char* what) const;
  std::vector<std::byte> Bytes(const nlohmann::json& table, const char* what) const;
  // Hands over a table in pieces of whole entries that stay in the processor's cache, so that the
  // checksum costs next to nothing. An empty table gives none.
  void Pour(const nlohmann::json& table, size_t entry, size_t entries, const char* what,
            const ByteSink& sink) const;
  void CheckSum(const nlohmann::json& table, std::uint32_t sum, const char* what) const;
  View ViewOf(const nlohmann::json& table, const char* what) const;
  nlohmann::json Capture(const nlohmann::json& tree, KeptValues& kept) const;
  void CaptureTable(nlohmann::json& table, KeptValues& kept) const;

  const ByteSource& source_;
  const GlbContent& content_;
  const nlohmann::json& root_;
  Losses* losses_;
  std::unordered_map<std::uint32_t, ReferenceTarget*> things_;  // null for those that were dropped
  mutable size_t taken_ = 0;  // bytes of all tables that were read
};

}  // namespace host
