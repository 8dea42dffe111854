#include "host/import/assimpscene.h"

#include "host/files/png.h"
#include "host/import/assimpvalues.h"
#include "host/math/elementary.h"

#include <assimp/material.h>
#include <assimp/scene.h>

#include <algorithm>

namespace host {

namespace {

constexpr size_t kLongestSide = 16384;

// A picture that the model holds as plain pixels, as a file would hold it.
std::vector<std::byte> PixelsAsPng(const aiTexture& texture) {
  const size_t width = texture.mWidth, height = texture.mHeight;
  if (!texture.pcData || width == 0 || width > kLongestSide || height > kLongestSide) return {};
  std::vector<std::uint8_t> rgb;
  rgb.reserve(width * height * 3);
  for (size_t i = 0; i < width * height; ++i) {
    const aiTexel& t = texture.pcData[i];
    rgb.insert(rgb.end(), {t.r, t.g, t.b});
  }
  std::vector<std::byte> png;
  std::string error;
  if (!EncodePng(int(width), int(height), rgb, png, error)) png.clear();
  return png;
}

std::vector<std::byte> ContentOf(const aiTexture& texture) {
  if (texture.mHeight > 0) return PixelsAsPng(texture);
  const auto* first = reinterpret_cast<const std::byte*>(texture.pcData);
  return first ? std::vector<std::byte>(first, first + texture.mWidth) : std::vector<std::byte>();
}

}  // namespace

void AssimpScene::Read(const std::vector<ShapeOfMeshes>& frames, double framesPerSecond) {
  frames_ = &frames;
  framesPerSecond_ = framesPerSecond;
  ReadMaterials();
  ListNodes();
  ChooseNodes();
  ReadNodes();
  ReadCameras();
  ReadAnimation();
  Conclude();
}

void AssimpScene::Conclude() {
  if (plan_.meshes.empty())
    throw ImportFault(scene_.mNumMeshes > 0 ? "holds points or lines, but no faces"
                                            : "holds no mesh");
  if (skipped_) plan_.warnings.push_back("points and lines are not imported");
  if (lostBones_)
    plan_.warnings.push_back("a skin names bones that are no nodes; they are passed over");
  for (unsigned i = 1; i < scene_.mNumAnimations; ++i) {
    if (i == 4) return plan_.warnings.push_back("other animations are left out too");
    plan_.warnings.push_back("the animation \"" + NameOf(scene_.mAnimations[i]->mName) +
                             "\" is left out, only the first one is taken");
  }
}

int AssimpScene::PictureOf(const aiMaterial& material) {
  for (const aiTextureType type : {aiTextureType_DIFFUSE, aiTextureType_BASE_COLOR}) {
    aiString path;
    if (material.GetTexture(type, 0, &path) != aiReturn_SUCCESS || path.length == 0) continue;
    if (path.data[0] == '$') continue;  // stands in for a file that the model doesn't name
    const std::string name = NameOf(path);
    const aiTexture* held = scene_.GetEmbeddedTexture(path.C_Str());
    if (!held) return pictures_.FromFile(name);
    const std::string own = NameOf(held->mFilename);
    return pictures_.FromBytes(own.empty() ? name : own, ContentOf(*held));
  }
  return -1;
}

void AssimpScene::ReadMaterials() {
  for (unsigned i = 0; i < scene_.mNumMaterials; ++i) {
    const aiMaterial& m = *scene_.mMaterials[i];
    aiString name;
    aiColor3D color(0.6f, 0.6f, 0.6f);
    m.Get(AI_MATKEY_NAME, name);
    if (m.Get(AI_MATKEY_COLOR_DIFFUSE, color) != aiReturn_SUCCESS)
      m.Get(AI_MATKEY_BASE_COLOR, color);
    PlannedMtl made{NameOf(name), {color.r, color.g, color.b}};
    if (!IsFinite({color.r, color.g, color.b}))
      throw ImportFault("material \"" + made.name + "\": its colour is not finite");
    made.image = PictureOf(m);
    // The library gives one to meshes that have none.
    if (made.name == AI_DEFAULT_MATERIAL_NAME && made.image < 0) noMaterial_.insert(i);
    plan_.materials.push_back(std::move(made));
  }
}

// Without calls into itself: the depth is the file's.
void AssimpScene::ListNodes() {
  std::vector<Entry> open = {{scene_.mRootNode, -1, 0, false}};
  std::vector<bool> shown(scene_.mNumMeshes, false);
  bool missing = false;
  while (!open.empty()) {
    const Entry entry = open.back();
    open.pop_back();
    const aiNode& n = *entry.node;
    if (entry.depth > kDeepestNode)
      throw ImportFault(NodeLabel(NameOf(n.mName), entries_.size()) + " lies more than " +
                        std::to_string(kDeepestNode) + " nodes deep");
    const int own = int(entries_.size());
    entries_.push_back(entry);
    for (unsigned i = 0; i < n.mNumMeshes; ++i) {
      if (n.mMeshes[i] >= scene_.mNumMeshes)
        throw ImportFault(NodeLabel(NameOf(n.mName), size_t(own)) +
                          " names a mesh that isn't there");
      shown[n.mMeshes[i]] = true;
    }
    for (unsigned i = n.mNumChildren; i-- > 0;) {
      if (n.mChildren[i])
        open.push_back({n.mChildren[i], own, entry.depth + 1, false});
      else
        missing = true;
    }
  }
  for (unsigned i = 0; missing && i < scene_.mNumMeshes; ++i)
    if (!shown[i]) strays_.push_back(i);
}

// Nodes that hold nothing and under which nothing lies, such as lights, are left out.
void AssimpScene::ChooseNodes() {
  for (unsigned i = 0; i < scene_.mNumMeshes; ++i)
    for (unsigned k = 0; k < scene_.mMeshes[i]->mNumBones; ++k)
      bones_.insert(NameOf(scene_.mMeshes[i]->mBones[k]->mName));
  for (unsigned i = 0; i < scene_.mNumCameras; ++i)
    lenses_.insert(NameOf(scene_.mCameras[i]->mName));
  if (scene_.mNumAnimations > 0)
    for (unsigned i = 0; i < scene_.mAnimations[0]->mNumChannels; ++i)
      moving_.insert(NameOf(scene_.mAnimations[0]->mChannels[i]->mNodeName));
  for (size_t i = entries_.size(); i-- > 0;) {
    Entry& e = entries_[i];
    const std::string name = NameOf(e.node->mName);
    e.kept = e.kept || e.node->mNumMeshes > 0 || bones_.contains(name) || lenses_.contains(name);
    if (e.kept && e.parent >= 0) entries_[size_t(e.parent)].kept = true;
  }
  if (DropsRoot()) entries_[0].kept = false;
}

// The root is the library's frame for a file's nodes. Its matrix goes into theirs, unless they
// move.
bool AssimpScene::DropsRoot() const {
  const aiNode& root = *scene_.mRootNode;
  const std::string name = NameOf(root.mName);
  if (root.mNumMeshes > 0 || bones_.contains(name) || moving_.contains(name) ||
      lenses_.contains(name))
    return false;
  if (root.mTransformation.IsIdentity()) return true;
  for (unsigned i = 0; i < root.mNumChildren; ++i)
    if (root.mChildren[i] && moving_.contains(NameOf(root.mChildren[i]->mName))) return false;
  return true;
}

int AssimpScene::ParentOf(const Entry& entry) const {
  return entry.parent < 0 ? -1 : entries_[size_t(entry.parent)].planned;
}

std::string AssimpScene::LabelOf(const Entry& entry) const {
  return NodeLabel(NameOf(entry.node->mName), size_t(entry.planned));
}

// All nodes come before the first mesh, for bones are nodes.
void AssimpScene::ReadNodes() {
  const bool rootDropped = !entries_[0].kept;
  for (Entry& e : entries_) {
    if (!e.kept) continue;
    PlannedNode node;
    node.name = NameOf(e.node->mName);
    node.local = MatrixOf(e.node->mTransformation);
    if (rootDropped && e.parent == 0)
      node.local = node.local * MatrixOf(scene_.mRootNode->mTransformation);
    node.parent = ParentOf(e);
    e.planned = int(plan_.nodes.size());
    if (e.node->mNumMeshes == 1 && node.name.empty())
      node.name = NameOf(scene_.mMeshes[e.node->mMeshes[0]]->mName);
    // The library calls a root that it makes "<Root>" and so on.
    if (e.parent < 0 && (node.name.empty() || node.name[0] == '<')) node.name = modelName_;
    plannedOf_.emplace(NameOf(e.node->mName), e.planned);
    plan_.nodes.push_back(std::move(node));
  }
  for (const Entry& e : entries_) {
    if (e.planned < 0 || e.node->mNumMeshes == 0) continue;
    const std::vector<unsigned> parts(e.node->mMeshes, e.node->mMeshes + e.node->mNumMeshes);
    plan_.nodes[size_t(e.planned)].mesh = MeshOf(parts, e.planned, LabelOf(e));
    for (const unsigned part : parts)
      nodesOfMeshName_[NameOf(scene_.mMeshes[part]->mName)].push_back(e.planned);
  }
  for (const unsigned stray : strays_) {
    PlannedNode node;
    node.name = NameOf(scene_.mMeshes[stray]->mName);
    const int own = int(plan_.nodes.size());
    plan_.nodes.push_back(node);
    plan_.nodes.back().mesh = MeshOf({stray}, own, NodeLabel(node.name, size_t(own)));
  }
}

void AssimpScene::ReadCameras() {
  std::set<std::string> seen;
  for (unsigned i = 0; i < scene_.mNumCameras; ++i) {
    const aiCamera& c = *scene_.mCameras[i];
    const std::string name = NameOf(c.mName);
    const auto found = plannedOf_.find(name);
    if (found == plannedOf_.end() || !seen.insert(name).second) continue;
    const auto fov = c.mHorizontalFOV;
    if (!(fov > 0 && double(fov) < kPi)) {
      plan_.warnings.push_back("camera \"" + name + "\": its field of view is " +
                               std::to_string(fov) + ", so it is left out");
      continue;
    }
    // A camera looks along its node's -Z with Y up; the library's has a frame of its own.
    const Point3 back = Normalize(-PointOf(c.mLookAt));
    const Point3 right = Normalize(CrossProd(PointOf(c.mUp), back));
    const Matrix3 frame(right, CrossProd(back, right), back, PointOf(c.mPosition));
    PlannedNode eye;
    eye.name = name + "_camera";  // its node has the name
    eye.parent = found->second;
    if (frame.IsInvertible()) eye.local = frame;
    eye.fov = fov;
    PlannedNode& node = plan_.nodes[size_t(found->second)];
    if (eye.local.IsIdentity() && node.mesh < 0)
      node.fov = fov;
    else
      plan_.nodes.push_back(std::move(eye));
  }
}

}  // namespace host
