#pragma once

#include <memory>

#include "host/interface.h"
#include "host/scenefile/scenevalues.h"

namespace host {

/// Takes a scene apart: nodes may refer to one another through their objects, and a ring of them
/// would keep itself alive.
struct DismantleScene {
  void operator()(Scene* scene) const;
};

/// A scene that was read, beside the one in force.
struct OpenedScene {
  std::unique_ptr<Scene, DismantleScene> scene;
  Interval range{0, 16000};
  TimeValue time = 0;
  UnitType unit = UNITS_METERS;
  float unitScale = 1;
  std::vector<std::string> settled;  // values that objects' classes have changed, a line each
};

/// Builds what a description of kSceneExtension holds. Throws SceneFault, which names the thing at
/// fault. Where a damaged scene is recovered, what can't be read falls back to what a new node has,
/// or is dropped: a node's children go to the root then, and a thing's nodes show nothing.
OpenedScene BuildScene(SceneIn& in, const nlohmann::json& description);

}  // namespace host
