#include "bench/painted.h"

namespace bench {
namespace {
std::unique_ptr<Painted> scene;
int sceneSize = -1, sceneTypes = -1;
}  // namespace

Painted& SceneOf(int placements, int types) {
  if (!scene || sceneSize != placements || sceneTypes != types) {
    scene.reset();
    scene = std::make_unique<Painted>(placements, types);
    sceneSize = placements, sceneTypes = types;
  }
  return *scene;
}

void DropScene() { scene.reset(); }

}  // namespace bench
