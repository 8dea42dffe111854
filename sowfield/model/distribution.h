#pragma once

#include <optional>
#include <vector>

#include "host/core/paramblock.h"
#include "sowfield/model/generator.h"
#include "sowfield/model/listener.h"
#include "sowfield/model/params.h"
#include "sowfield/model/typekind.h"

namespace sowfield {

/// Where the source of type t stands: Geo_Nodes[node], or Proxy_Files[file] of a type from a file.
/// Each of the three ordinals counts the types below t that have an entry in its table.
struct TypeRef {
  int type = 0;
  int kind = kFromNode;
  int node = 0;      // index into Geo_Nodes
  int file = 0;      // index into Proxy_Files and Proxy_MtlIndex
  int original = 0;  // index into Proxy_Nodes
  bool HasNode() const { return kind != kFromFile; }
  bool HasOriginal() const { return kind == kFromVRayProxy; }
};

/// Walks the types in order with their ordinals. The tables may not change during the walk.
class TypeWalk {
 public:
  explicit TypeWalk(const IParamBlock2& block) : kinds_(block.Ints(Geo_Kind)) {}

  class Iterator {
   public:
    Iterator(std::span<const int> kinds, int type) : kinds_(kinds) {
      ref_.type = type;
      ReadKind();
    }
    const TypeRef& operator*() const { return ref_; }
    const TypeRef* operator->() const { return &ref_; }
    Iterator& operator++() {
      ++(ref_.HasNode() ? ref_.node : ref_.file);
      if (ref_.HasOriginal()) ++ref_.original;
      ++ref_.type;
      ReadKind();
      return *this;
    }
    bool operator!=(const Iterator& o) const { return ref_.type != o.ref_.type; }

   private:
    void ReadKind() {
      ref_.kind = ref_.type < int(kinds_.size()) ? kinds_[size_t(ref_.type)] : kFromNode;
    }
    std::span<const int> kinds_;
    TypeRef ref_;
  };

  Iterator begin() const { return {kinds_, 0}; }
  Iterator end() const { return {kinds_, int(kinds_.size())}; }

 private:
  std::span<const int> kinds_;
};

/// What the lists show as selected; panels will mirror it, jobs set it.
struct ListState {
  std::vector<int>
      objectRows;  // rows of the object list, ascending: 0 is "All Objects", t + 1 type t
  std::vector<int> painterRows;  // rows of the painter's list, ascending: row t is type t
  int objectListFirst = -1;
  int objectListCount = 0;
  int paintListFirst = -1;
  int paintListCount = 0;

  void SelectObjectRows(std::vector<int> rows);
  void SelectPainterRows(std::vector<int> rows);
};

/// What the features need of the object that owns the distribution.
class ObjectSide {
 public:
  virtual ~ObjectSide() = default;
  /// Rebuilds the display mesh at the host's time, tells the dependents, redraws the views.
  virtual void RefreshObject() = 0;
  /// The first scene node that refers to the object; null before there is one.
  virtual INode* OwnNode() = 0;
  /// Whether this object's panels are open: boxes are shown only then.
  virtual bool PanelsOpen() const = 0;
};

/// The spine: object types and placements in one parameter block, and the run-time state that the
/// features share. A feature is a set of functions over a Distribution.
class Distribution {
 public:
  explicit Distribution(ObjectSide& object) : object_(object) {}
  Distribution(const Distribution&) = delete;
  Distribution& operator=(const Distribution&) = delete;

  /// The block; null only after the object let go of it.
  IParamBlock2* block = nullptr;
  Generator rng;
  /// The time that every table read passes, and that of the last display build.
  TimeValue curTime = 0;
  ListState lists;
  /// The smallest brush radius that the panel takes, scene units; 0 before there is a type.
  float brushMinimum = 0;
  /// Whether it was said that the exclusion splines, which the block asks for now, do nothing yet.
  mutable bool exclusionTold = false;
  /// The smallest of what the types' boxes give for it, with the time it holds for; unknown since
  /// one of what IsOfSources names has changed.
  struct LeastRadius {
    float value;
    TimeValue t;
  };
  std::optional<LeastRadius> leastRadius;

  int TypeCount() const { return block->Count(Proxy_Files) + block->Count(Geo_Nodes); }
  int PlacementCount() const { return block->Count(Ins_Pos); }
  /// 0 <= type < TypeCount().
  TypeRef FindType(int type) const;
  /// The last type, without a walk; there must be one.
  TypeRef LastType() const;
  /// The source node; null for a type from a file and while the host takes a node away.
  INode* SourceNode(const TypeRef& type) const {
    return type.HasNode() ? block->GetINode(Geo_Nodes, curTime, type.node) : nullptr;
  }

  void RefreshObject() { object_.RefreshObject(); }
  INode* OwnNode() { return object_.OwnNode(); }
  bool PanelsOpen() const { return object_.PanelsOpen(); }

  /// 1 while the tables agree with each other, 0 in the middle of a change. Setting 1 delivers the
  /// list events that waited, each once. While a ListChange lives the list isn't ready.
  int ListReady() const { return listReady_; }
  void SetListReady(int ready);

  void AddListener(Listener* listener) { listeners_.push_back(listener); }
  void RemoveListener(Listener* listener) { std::erase(listeners_, listener); }
  void Tell(Event event);

 private:
  friend class ListChange;
  void Deliver(Event event);

  ObjectSide& object_;
  int listReady_ = 1;
  int changes_ = 0;  // ListChanges that are under way, one in the other
  std::vector<Listener*> listeners_;
  std::vector<Event> waiting_;
};

/// The 8 random tables get the 100 entries of the slot just added.
void AppendRandomBlock(Distribution& d);
/// Refills the block of a slot; slot 0 renews all blocks.
void ReseedRandomBlock(Distribution& d, int slot);
/// Fills Rnd_Anim if it is empty.
void EnsureAnimTable(Distribution& d);
/// Gives a scene from before the N rows its rows and random values, and refreshes; else nothing.
void UpgradeNormalRows(Distribution& d);

}  // namespace sowfield
