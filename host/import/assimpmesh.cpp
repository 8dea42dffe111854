#include "host/import/assimpscene.h"
#include "host/import/assimpvalues.h"

#include <assimp/mesh.h>
#include <assimp/scene.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace host {

namespace {

constexpr unsigned kMostBones = 0xFFFF;

std::vector<Point3> Points(const aiVector3D* from, unsigned count) {
  std::vector<Point3> points;
  points.reserve(count);
  for (unsigned i = 0; i < count; ++i) points.push_back(PointOf(from[i]));
  return points;
}

// Takes the place of the lightest of the four, if heavier.
void AddWeight(VertexBones& bones, int bone, float weight) {
  const auto least = std::min_element(bones.weight, bones.weight + 4);
  if (!(weight > *least)) return;
  *least = weight;
  bones.bone[least - bones.weight] = std::uint16_t(bone);
}

}  // namespace

ShapeOfMeshes ShapeOf(const aiScene& scene) {
  ShapeOfMeshes shape;
  for (unsigned i = 0; i < scene.mNumMeshes; ++i)
    shape.push_back(Points(scene.mMeshes[i]->mVertices, scene.mMeshes[i]->mNumVertices));
  return shape;
}

// Frames go through the builder as morph targets do: differences from the first shape.
void AssimpScene::ReadFrames(unsigned mesh, const std::string& label, TrianglePart& part) const {
  for (const ShapeOfMeshes& frame : *frames_) {
    if (mesh >= frame.size() || frame[mesh].size() != part.positions.size())
      throw ImportFault(label + ": its frames differ in their vertices");
    std::vector<Point3> target(part.positions.size());
    for (size_t i = 0; i < target.size(); ++i) target[i] = frame[mesh][i] - part.positions[i];
    part.targets.push_back(std::move(target));
  }
}

void AssimpScene::SplitFrames(PlannedMesh& mesh) const {
  for (size_t k = 0; k < frames_->size(); ++k) {
    mesh.frameTimes.push_back(float(double(k) / framesPerSecond_));
    std::vector<Point3>& frame = mesh.targets[k];
    for (size_t i = 0; i < frame.size(); ++i) frame[i] += mesh.mesh.verts[i];
    mesh.frames.push_back(std::move(frame));
  }
  mesh.targets.clear();
}

int AssimpScene::MeshOf(const std::vector<unsigned>& parts, int node, const std::string& label) {
  // A skin depends on its node where vertices hang on that one alone.
  const auto known = meshOf_.find(parts);
  if (known != meshOf_.end()) return known->second;
  const bool skinned = HasBones(parts);
  MeshBuilder builder;
  SkinOfParts skin;
  std::vector<float> weights;
  for (const unsigned number : parts) {
    const aiMesh& mesh = *scene_.mMeshes[number];
    if ((faces_ += mesh.mNumFaces) > kMostImportedFaces)
      throw ImportFault(label + ": more than " + std::to_string(kMostImportedFaces) +
                        " faces in one import");
    TrianglePart part = ReadPart(mesh, label);
    if (part.corners.empty()) continue;
    if (frames_->empty())
      ReadTargets(mesh, label, part, weights);
    else
      ReadFrames(number, label, part);
    if (skinned) ReadBones(mesh, node, part, skin);
    builder.Add(part, label);
  }
  if (builder.NumFaces() == 0) return meshOf_[parts] = -1;
  PlannedMesh made = builder.Take();
  if (!frames_->empty()) SplitFrames(made);
  weights.resize(made.targets.size(), 0);
  made.weights = std::move(weights);
  if (made.skin) {
    made.skin->nodes = std::move(skin.skin.nodes);
    made.skin->inverseBind = std::move(skin.skin.inverseBind);
  }
  plan_.meshes.push_back(std::move(made));
  return meshOf_[parts] = int(plan_.meshes.size()) - 1;
}

TrianglePart AssimpScene::ReadPart(const aiMesh& mesh, const std::string& label) {
  TrianglePart part;
  if (!mesh.HasPositions() || !mesh.mFaces) return part;
  part.positions = Points(mesh.mVertices, mesh.mNumVertices);
  if (mesh.HasNormals()) part.normals = Points(mesh.mNormals, mesh.mNumVertices);
  for (unsigned i = 0; i < AI_MAX_NUMBER_OF_TEXTURECOORDS; ++i) {
    if (!mesh.HasTextureCoords(i)) continue;
    std::vector<Point3> uvs = Points(mesh.mTextureCoords[i], mesh.mNumVertices);
    for (Point3& uv : uvs)
      if (!IsFinite(uv)) uv = Point3(0, 0, 0);  // some exporters write these for unmapped faces
    if (i == 0) {
      part.uvs = std::move(uvs);
    } else {
      part.moreUvs.resize(i);
      part.moreUvs[i - 1] = std::move(uvs);
    }
  }
  ReadCorners(mesh, part);
  if (mesh.mMaterialIndex >= scene_.mNumMaterials)
    throw ImportFault(label + ": names a material that isn't there");
  part.material = noMaterial_.contains(mesh.mMaterialIndex) ? -1 : int(mesh.mMaterialIndex);
  return part;
}

void AssimpScene::ReadCorners(const aiMesh& mesh, TrianglePart& part) {
  const bool encoded = mesh.mPrimitiveTypes & aiPrimitiveType_NGONEncodingFlag;
  for (unsigned i = 0; i < mesh.mNumFaces; ++i) {
    const aiFace& face = mesh.mFaces[i];
    if (face.mNumIndices != 3) {
      skipped_ = true;
      continue;
    }
    // Triangles of one polygon begin with the same vertex and share the edge between them.
    const size_t last = part.corners.size();
    const bool same = encoded && last >= 3 && part.corners[last - 3] == face.mIndices[0] &&
                      part.corners[last - 1] == face.mIndices[1];
    if (same) part.edges.back() &= std::uint8_t(~EDGE_C);
    part.edges.push_back(std::uint8_t(same ? EDGE_ALL & ~EDGE_A : EDGE_ALL));
    part.corners.insert(part.corners.end(), face.mIndices, face.mIndices + 3);
  }
}

void AssimpScene::ReadTargets(const aiMesh& mesh, const std::string& label, TrianglePart& part,
                              std::vector<float>& weights) {
  weights.resize(std::max(weights.size(), size_t(mesh.mNumAnimMeshes)), 0);
  for (unsigned i = 0; i < mesh.mNumAnimMeshes; ++i) {
    const aiAnimMesh& shape = *mesh.mAnimMeshes[i];
    std::vector<Point3> target(part.positions.size(), Point3(0, 0, 0));
    if (shape.mVertices) {
      if (shape.mNumVertices != mesh.mNumVertices)
        throw ImportFault(label + ": a morph target has " + std::to_string(shape.mNumVertices) +
                          " vertices, the mesh " + std::to_string(mesh.mNumVertices));
      for (size_t k = 0; k < target.size(); ++k)
        target[k] = PointOf(shape.mVertices[k]) - part.positions[k];
    }
    part.targets.push_back(std::move(target));
    if (std::isfinite(shape.mWeight)) weights[i] = shape.mWeight;
  }
}

bool AssimpScene::HasBones(const std::vector<unsigned>& parts) const {
  return std::any_of(parts.begin(), parts.end(),
                     [&](unsigned i) { return scene_.mMeshes[i]->HasBones(); });
}

void AssimpScene::ReadBones(const aiMesh& mesh, int node, TrianglePart& part, SkinOfParts& all) {
  part.bones.assign(part.positions.size(), VertexBones{});
  const auto add = [&](int bone, const Matrix3& inverseBind) {
    if (all.skin.nodes.size() >= kMostBones) throw ImportFault("a skin has more than 65535 bones");
    all.skin.nodes.push_back(bone);
    all.skin.inverseBind.push_back(inverseBind);
    return int(all.skin.nodes.size()) - 1;
  };
  for (unsigned i = 0; i < mesh.mNumBones; ++i) {
    const aiBone& bone = *mesh.mBones[i];
    const auto found = plannedOf_.find(NameOf(bone.mName));
    const Matrix3 inverseBind = MatrixOf(bone.mOffsetMatrix);
    if (found == plannedOf_.end() || !inverseBind.IsInvertible()) {
      lostBones_ = true;
      continue;
    }
    // Parts of a node may bind the same bone in different ways.
    auto& known = all.boneOf.try_emplace(NameOf(bone.mName), -1).first->second;
    if (known < 0 || !(all.skin.inverseBind[size_t(known)] == inverseBind))
      known = add(found->second, inverseBind);
    for (unsigned k = 0; k < bone.mNumWeights; ++k)
      if (bone.mWeights[k].mVertexId < part.bones.size())
        AddWeight(part.bones[bone.mWeights[k].mVertexId], known, bone.mWeights[k].mWeight);
  }
  for (VertexBones& bones : part.bones) {
    const double sum = std::accumulate(bones.weight, bones.weight + 4, 0.0);
    if (!(sum > 0 && std::isfinite(sum))) {
      if (all.self < 0) all.self = add(node, Matrix3());
      bones = {{std::uint16_t(all.self)}, {1}};
      continue;
    }
    for (float& weight : bones.weight) weight = float(double(weight) / sum);
  }
}

}  // namespace host
