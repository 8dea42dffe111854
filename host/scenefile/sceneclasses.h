#pragma once

#include "host/scene/mtl.h"
#include "host/scene/object.h"
#include "host/scenefile/scenevalues.h"

namespace host {

/// What a thing of one of the host's classes stores, both ways.
struct SceneClass {
  SClass_ID super;
  Class_ID id;
  ReferenceTarget* (*make)();
  /// Both throw SceneFault. Reading checks all that could do harm later; values that can't, such
  /// as a coordinate that isn't finite, come back as they were.
  nlohmann::json (*write)(SceneOut& out, const ReferenceTarget& thing);
  void (*read)(const SceneIn& in, ReferenceTarget& thing, const nlohmann::json& data);
};

/// Null for a class that isn't the host's own.
const SceneClass* FindSceneClass(SClass_ID super, Class_ID id);

/// A node's matrix under its parent, of the time without keys, bit for bit.
Matrix3 StillMatrixOf(const INode& node);
/// Sets it together with the controller (null for none), which stays as it is.
void SetStillMatrix(INode& node, const Matrix3& still, ReferenceTarget* control);
/// Hangs all children of a node behind those of another; nothing is recorded.
void TakeChildren(INode& from, INode& to);

nlohmann::json BlockValue(SceneOut& out, IParamBlock2& block);
/// Fills a new block that nobody owns yet. Entries beyond what the descriptor declares are kept.
void ReadBlock(const SceneIn& in, IParamBlock2& block, const nlohmann::json& value);

/// What a thing of a plug-in's class stores: its parameter blocks, meshes that it refers to, and
/// the sub-materials and maps of a material.
nlohmann::json PluginValue(SceneOut& out, const ReferenceTarget& thing);
/// Its blocks are exchanged for new ones. Throws SceneFault.
void ReadPlugin(const SceneIn& in, ReferenceTarget& thing, const nlohmann::json& value);

/// Things of classes that aren't registered: they show nothing, and keep all that the file told.
class UnknownThing {
 public:
  virtual ~UnknownThing() = default;
  std::shared_ptr<const KeptValues> kept;
};
/// Null for a super class that nothing here stands for.
ReferenceTarget* MakeUnknownThing(SClass_ID super, Class_ID id);

}  // namespace host
