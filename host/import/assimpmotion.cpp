#include "host/import/assimpscene.h"
#include "host/import/assimpvalues.h"

#include <assimp/anim.h>
#include <assimp/scene.h>

#include <cmath>

namespace host {

namespace {

constexpr double kUsualTicksPerSecond = 25;  // the library's own choice where a file says nothing

// Adds a key. Files repeat and turn back times: what isn't later than the last key is passed over.
bool AddTime(PlannedTrack& track, double time) {
  const auto seconds = float(time);
  if (!std::isfinite(seconds)) return false;
  if (!track.times.empty() && seconds <= track.times.back()) return false;
  track.times.push_back(seconds);
  return true;
}

PlannedTrack TrackOf(const aiVectorKey* keys, unsigned count, double perSecond) {
  PlannedTrack track;
  for (unsigned i = 0; i < count; ++i) {
    const aiVector3D& v = keys[i].mValue;
    if (!IsFinite({v.x, v.y, v.z}) || !AddTime(track, keys[i].mTime / perSecond)) continue;
    track.values.insert(track.values.end(), {v.x, v.y, v.z});
  }
  return track;
}

PlannedTrack TrackOf(const aiQuatKey* keys, unsigned count, double perSecond) {
  PlannedTrack track;
  for (unsigned i = 0; i < count; ++i) {
    const aiQuaternion& q = keys[i].mValue;
    const double x = q.x, y = q.y, z = q.z, w = q.w;
    const double length = std::sqrt(x * x + y * y + z * z + w * w);
    if (!(length > 0) || !std::isfinite(length)) continue;
    if (!AddTime(track, keys[i].mTime / perSecond)) continue;
    for (const double c : {x, y, z, w}) track.values.push_back(float(c / length));
  }
  return track;
}

}  // namespace

void AssimpScene::ReadTracks(const aiNodeAnim& channel, double perSecond) {
  const auto found = plannedOf_.find(NameOf(channel.mNodeName));
  if (found == plannedOf_.end()) return;
  PlannedNode& node = plan_.nodes[size_t(found->second)];
  node.position = TrackOf(channel.mPositionKeys, channel.mNumPositionKeys, perSecond);
  node.rotation = TrackOf(channel.mRotationKeys, channel.mNumRotationKeys, perSecond);
  node.scale = TrackOf(channel.mScalingKeys, channel.mNumScalingKeys, perSecond);
}

// A channel names a mesh, or a node, some readers with a number after "*".
void AssimpScene::ReadWeights(const aiMeshMorphAnim& channel, double perSecond) {
  std::string name = NameOf(channel.mName);
  std::vector<int> nodes;
  for (int attempt = 0; attempt < 2 && nodes.empty(); ++attempt) {
    if (const auto mesh = nodesOfMeshName_.find(name); mesh != nodesOfMeshName_.end())
      nodes = mesh->second;
    else if (const auto node = plannedOf_.find(name); node != plannedOf_.end())
      nodes = {node->second};
    name = name.substr(0, name.rfind('*'));
  }
  for (const int index : nodes) {
    PlannedNode& node = plan_.nodes[size_t(index)];
    if (node.mesh < 0) continue;
    const std::vector<float>& rest = plan_.meshes[size_t(node.mesh)].weights;
    if (rest.empty()) continue;
    PlannedTrack track;
    for (unsigned i = 0; i < channel.mNumKeys; ++i) {
      const aiMeshMorphKey& key = channel.mKeys[i];
      if (!AddTime(track, key.mTime / perSecond)) continue;
      const size_t first = track.values.size();
      track.values.insert(track.values.end(), rest.begin(), rest.end());
      for (unsigned k = 0; k < key.mNumValuesAndWeights; ++k)
        if (key.mValues[k] < rest.size() && std::isfinite(key.mWeights[k]))
          track.values[first + key.mValues[k]] = float(key.mWeights[k]);
    }
    node.weights = std::move(track);
  }
}

void AssimpScene::ReadAnimation() {
  if (scene_.mNumAnimations == 0) return;
  const aiAnimation& animation = *scene_.mAnimations[0];
  const double stated = animation.mTicksPerSecond;
  const double perSecond = stated > 0 && std::isfinite(stated) ? stated : kUsualTicksPerSecond;
  for (unsigned i = 0; i < animation.mNumChannels; ++i)
    ReadTracks(*animation.mChannels[i], perSecond);
  for (unsigned i = 0; i < animation.mNumMorphMeshChannels; ++i)
    ReadWeights(*animation.mMorphMeshChannels[i], perSecond);
}

}  // namespace host
