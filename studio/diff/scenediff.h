#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "studio/diff/objectdiff.h"
#include "studio/steps/stage.h"

namespace studio {

/// A thing of the scene and what differs in it.
struct ThingChange {
  std::string label;
  std::vector<Change> changes;
};

/// Two Sowfield objects that belong together and differ.
struct ObjectPair {
  ObjectChange change;
  BlockAt a, b;
};

/// What two scenes differ in. Nodes belong together by their names, the first to the first of a
/// name; other things by who refers to them, materials and maps by a name that each scene has once.
/// Nothing differs if, and only if, both are saved as the same bytes.
struct SceneChange {
  std::vector<Change> scene;  // units, times, layers, order of the nodes
  std::vector<std::string> nodesOnlyA, nodesOnlyB;
  std::vector<ThingChange> nodes;
  std::vector<ThingChange> things;
  std::vector<ObjectPair> objects;

  bool Nothing() const {
    return scene.empty() && nodesOnlyA.empty() && nodesOnlyB.empty() && nodes.empty() &&
           things.empty() && objects.empty();
  }
};

/// Compares what two stages hold, as it would be saved. With `object` only the Sowfield objects of
/// nodes of that name, and what they refer to other than nodes. Throws host::SceneFault for a scene
/// that can't be saved. The result refers to the stages' blocks.
SceneChange CompareScenes(Stage& a, Stage& b, const std::optional<std::string>& object);

}  // namespace studio
