#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/exchange/importplan.h"
#include "host/exchange/meshbuilder.h"
#include "host/import/picturelist.h"

struct aiAnimation;
struct aiCamera;
struct aiMaterial;
struct aiMesh;
struct aiMeshMorphAnim;
struct aiNode;
struct aiNodeAnim;
struct aiScene;

namespace host {

/// Vertices of each of the scene's meshes, for files that store a shape for each frame.
using ShapeOfMeshes = std::vector<std::vector<Point3>>;

/// The vertices of all meshes of a scene.
ShapeOfMeshes ShapeOf(const aiScene& scene);

/// Turns a scene that assimp read into a plan. The scene may be broken: what the library doesn't
/// promise is checked. Throws ImportFault.
class AssimpScene {
 public:
  /// `modelName` names a root that has none of its own.
  AssimpScene(const aiScene& scene, std::string modelName, ImportPlan& plan, PictureList& pictures)
      : scene_(scene), modelName_(std::move(modelName)), plan_(plan), pictures_(pictures) {}
  /// Once. `frames` are all shapes of the file over time, if it has any: the scene's own one first.
  void Read(const std::vector<ShapeOfMeshes>& frames, double framesPerSecond);

 private:
  struct Entry {
    const aiNode* node;
    int parent;  // in entries_
    int depth;
    bool kept;
    int planned = -1;  // in the plan
  };
  struct SkinOfParts {
    std::map<std::string, int> boneOf;
    PlannedSkin skin;
    int self = -1;  // the bone that the node itself is, for vertices without bones
  };

  void ReadMaterials();
  int PictureOf(const aiMaterial& material);

  void ListNodes();
  void ChooseNodes();
  bool DropsRoot() const;
  void ReadNodes();
  int ParentOf(const Entry& entry) const;
  std::string LabelOf(const Entry& entry) const;

  int MeshOf(const std::vector<unsigned>& parts, int node, const std::string& label);
  TrianglePart ReadPart(const aiMesh& mesh, const std::string& label);
  void ReadCorners(const aiMesh& mesh, TrianglePart& part);
  void ReadTargets(const aiMesh& mesh, const std::string& label, TrianglePart& part,
                   std::vector<float>& weights);
  void ReadBones(const aiMesh& mesh, int node, TrianglePart& part, SkinOfParts& all);
  void ReadFrames(unsigned mesh, const std::string& label, TrianglePart& part) const;
  void SplitFrames(PlannedMesh& mesh) const;
  bool HasBones(const std::vector<unsigned>& parts) const;

  void ReadCameras();
  void ReadAnimation();
  void ReadTracks(const aiNodeAnim& channel, double perSecond);
  void ReadWeights(const aiMeshMorphAnim& channel, double perSecond);
  void Conclude();

  const aiScene& scene_;
  std::string modelName_;
  ImportPlan& plan_;
  PictureList& pictures_;
  const std::vector<ShapeOfMeshes>* frames_ = nullptr;
  double framesPerSecond_ = 1;
  std::vector<Entry> entries_;            // parents before children
  std::map<std::string, int> plannedOf_;  // the first node of a name
  std::set<std::string> bones_, moving_, lenses_;
  std::set<unsigned> noMaterial_;
  std::vector<unsigned> strays_;  // meshes that no node shows, where nodes are missing
  std::map<std::vector<unsigned>, int> meshOf_;
  std::map<std::string, std::vector<int>> nodesOfMeshName_;  // in the plan
  size_t faces_ = 0;
  bool skipped_ = false, lostBones_ = false;
};

}  // namespace host
