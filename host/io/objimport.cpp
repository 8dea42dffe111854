#include "host/io/file.h"
#include "host/io/importplan.h"
#include "host/io/meshbuilder.h"

#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/Importer.hpp>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <set>
#include <string_view>

namespace host {

namespace {

constexpr size_t kLargestFile = size_t(1) << 30;
constexpr size_t kShortestFile = 16;  // the library refuses shorter ones

class MemoryStream : public Assimp::IOStream {
 public:
  explicit MemoryStream(std::span<const std::byte> bytes) : bytes_(bytes) {}
  explicit MemoryStream(std::vector<std::byte> own) : own_(std::move(own)), bytes_(own_) {}

  size_t Read(void* to, size_t size, size_t count) override {
    if (size == 0) return 0;
    const size_t whole = std::min(count, (bytes_.size() - at_) / size);
    if (whole > 0) std::memcpy(to, bytes_.data() + at_, whole * size);
    at_ += whole * size;
    return whole;
  }
  size_t Write(const void*, size_t, size_t) override { return 0; }
  aiReturn Seek(size_t offset, aiOrigin origin) override {
    const size_t from = origin == aiOrigin_SET ? 0 : origin == aiOrigin_CUR ? at_ : bytes_.size();
    if (offset > bytes_.size() - from) return aiReturn_FAILURE;
    at_ = from + offset;
    return aiReturn_SUCCESS;
  }
  size_t Tell() const override { return at_; }
  size_t FileSize() const override { return bytes_.size(); }
  void Flush() override {}

 private:
  std::vector<std::byte> own_;
  std::span<const std::byte> bytes_;
  size_t at_ = 0;
};

// Shows the library the model, and files beside it; the folders of a name are cut off, so that
// nothing else on the machine can be reached.
class ModelFiles : public Assimp::IOSystem {
 public:
  /// Names that could not be opened go to `missing`.
  ModelFiles(std::span<const std::byte> model, std::string name, std::string folder,
             std::set<std::string>& missing)
      : model_(model), name_(std::move(name)), folder_(std::move(folder)), missing_(missing) {}

  bool Exists(const char* file) const override {
    const std::string name = BaseName(file);
    std::error_code code;
    return name == name_ || (!folder_.empty() && !name.empty() &&
                             std::filesystem::is_regular_file(folder_ + "/" + name, code));
  }
  char getOsSeparator() const override { return '/'; }
  Assimp::IOStream* Open(const char* file, const char*) override {
    const std::string name = BaseName(file);
    if (name == name_) return new MemoryStream(model_);
    std::vector<std::byte> bytes;
    std::string error;
    const bool read = !folder_.empty() && !name.empty() &&
                      ReadFile(folder_ + "/" + name, bytes, error) && bytes.size() < kLargestFile;
    if (read) return new MemoryStream(std::move(bytes));
    // After a failure the library tries the model's own name, which nobody asked for.
    const bool guess = name == name_.substr(0, name_.size() - 3) + "mtl" && !missing_.empty();
    if (!guess) missing_.insert(name);
    return nullptr;
  }
  void Close(Assimp::IOStream* stream) override { delete stream; }

 private:
  static std::string BaseName(const std::string& path) {
    const size_t cut = path.find_last_of("/\\");
    return cut == std::string::npos ? path : path.substr(cut + 1);
  }
  std::span<const std::byte> model_;
  std::string name_, folder_;
  std::set<std::string>& missing_;
};

std::vector<Point3> Points(const aiVector3D* from, unsigned count) {
  std::vector<Point3> points;
  points.reserve(count);
  for (unsigned i = 0; i < count; ++i) points.emplace_back(from[i].x, from[i].y, from[i].z);
  return points;
}

// Finds faces that name what isn't there, line by line. The library only says that there is one,
// and doesn't free its mesh then.
class IndexCheck {
 public:
  void Line(std::string_view line, size_t number) {
    number_ = number;
    const std::string_view word = NextWord(line);
    for (size_t i = 0; i < 3; ++i)
      if (word == kKinds[i].keyword) ++counts_[i];
    if (word == "o" || word == "g") object_ = NextWord(line);
    if (word != "f") return;
    for (std::string_view corner = NextWord(line); !corner.empty(); corner = NextWord(line))
      Corner(corner);
  }

  /// After the last line: a face may come before its vertices.
  void End() const {
    for (size_t i = 0; i < 3; ++i)
      if (largest_[i].index > counts_[i]) Fail(largest_[i].where, i, largest_[i].index);
  }

 private:
  struct KindOfIndex {
    const char* keyword;
    const char* name;
  };
  static constexpr KindOfIndex kKinds[3] = {
      {"v", "vertex"}, {"vt", "texture vertex"}, {"vn", "normal"}};
  struct Largest {
    std::int64_t index = 0;
    std::string where;
  };

  static bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
  static std::string_view NextWord(std::string_view& line) {
    while (!line.empty() && IsBlank(line.front())) line.remove_prefix(1);
    size_t size = 0;
    while (size < line.size() && !IsBlank(line[size])) ++size;
    const std::string_view word = line.substr(0, size);
    line.remove_prefix(size);
    return word;
  }

  std::string Where() const {
    return (object_.empty() ? "" : "object \"" + object_ + "\", ") + "line " +
           std::to_string(number_);
  }
  void Fail(const std::string& where, size_t kind, std::int64_t index) const {
    throw ImportFault(where + ": a face uses " + kKinds[kind].name + " " + std::to_string(index) +
                      ", but there are only " + std::to_string(counts_[kind]));
  }

  void Corner(std::string_view corner) {
    for (size_t i = 0; i < 3; ++i) {
      const size_t slash = std::min(corner.find('/'), corner.size());
      const std::string_view part = corner.substr(0, slash);
      std::int64_t index = 0;
      const auto read = std::from_chars(part.data(), part.data() + part.size(), index);
      if (read.ec == std::errc::result_out_of_range || index < -counts_[i]) Fail(Where(), i, index);
      if (index > largest_[i].index) largest_[i] = {index, index > counts_[i] ? Where() : ""};
      if (slash == corner.size()) return;
      corner.remove_prefix(slash + 1);
    }
  }

  std::int64_t counts_[3] = {};
  Largest largest_[3];
  std::string object_;
  size_t number_ = 0;
};

void CheckIndices(std::span<const std::byte> bytes) {
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (text.substr(0, 2) == "\xFF\xFE" || text.substr(0, 2) == "\xFE\xFF")
    throw ImportFault("is UTF-16 text, only UTF-8 is read");
  IndexCheck check;
  std::string joined;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    const bool goesOn = !line.empty() && line.back() == '\\';
    if (goesOn) line.remove_suffix(1);
    if (goesOn || !joined.empty()) joined.append(line).push_back(' ');
    if (goesOn) continue;
    check.Line(joined.empty() ? line : std::string_view(joined), number);
    joined.clear();
  }
  check.End();
}

class ObjReader {
 public:
  explicit ObjReader(const aiScene& scene) : scene_(scene) {}

  ImportPlan Read() {
    ReadMaterials();
    std::vector<const aiNode*> open = {scene_.mRootNode};
    while (!open.empty()) {
      const aiNode* n = open.back();
      open.pop_back();
      if (n->mNumMeshes > 0) ReadNode(*n);
      for (unsigned i = n->mNumChildren; i-- > 0;) open.push_back(n->mChildren[i]);
    }
    if (skipped_) plan_.warnings.push_back("points and lines are not imported");
    return std::move(plan_);
  }

 private:
  // Faces before any material are given one by the library; here they have none.
  bool IsNone(unsigned material) const { return none_.contains(material); }

  void ReadMaterials() {
    bool textured = false;
    for (unsigned i = 0; i < scene_.mNumMaterials; ++i) {
      const aiMaterial& m = *scene_.mMaterials[i];
      aiString name;
      aiColor3D color(0.6f, 0.6f, 0.6f);
      m.Get(AI_MATKEY_NAME, name);
      m.Get(AI_MATKEY_COLOR_DIFFUSE, color);
      textured = textured || m.GetTextureCount(aiTextureType_DIFFUSE) > 0;
      if (std::strcmp(name.C_Str(), AI_DEFAULT_MATERIAL_NAME) == 0) none_.insert(i);
      if (!IsFinite({color.r, color.g, color.b}))
        throw ImportFault("material \"" + std::string(name.C_Str()) +
                          "\": its colour is not finite");
      plan_.materials.push_back({name.C_Str(), {color.r, color.g, color.b}});
    }
    if (textured)
      plan_.warnings.push_back(
          "diffuse textures are not shown, their materials keep the plain colour");
  }

  void ReadNode(const aiNode& n) {
    PlannedNode node;
    node.name = n.mName.C_Str();
    const std::string label = NodeLabel(node.name, plan_.nodes.size());
    MeshBuilder builder;
    for (unsigned i = 0; i < n.mNumMeshes; ++i) {
      const aiMesh& mesh = *scene_.mMeshes[n.mMeshes[i]];
      if ((faces_ += mesh.mNumFaces) > kMostImportedFaces)
        throw ImportFault(label + ": more than " + std::to_string(kMostImportedFaces) +
                          " faces in one import");
      builder.Add(ReadPart(mesh), label);
    }
    if (builder.NumFaces() == 0) return;
    node.mesh = int(plan_.meshes.size());
    plan_.meshes.push_back(builder.Take());
    plan_.nodes.push_back(std::move(node));
  }

  TrianglePart ReadPart(const aiMesh& mesh) {
    TrianglePart part;
    part.positions = Points(mesh.mVertices, mesh.mNumVertices);
    if (mesh.HasNormals()) part.normals = Points(mesh.mNormals, mesh.mNumVertices);
    if (mesh.HasTextureCoords(0)) part.uvs = Points(mesh.mTextureCoords[0], mesh.mNumVertices);
    const bool encoded = mesh.mPrimitiveTypes & aiPrimitiveType_NGONEncodingFlag;
    for (unsigned i = 0; i < mesh.mNumFaces; ++i) {
      const aiFace& face = mesh.mFaces[i];
      if (face.mNumIndices != 3) {
        skipped_ = true;
        continue;
      }
      // Triangles of one quad begin with the same vertex and share the edge between them.
      const size_t last = part.corners.size();
      const bool quad = encoded && last >= 3 && part.corners[last - 3] == face.mIndices[0] &&
                        part.corners[last - 1] == face.mIndices[1];
      if (quad) part.edges.back() &= std::uint8_t(~EDGE_C);
      part.edges.push_back(std::uint8_t(quad ? EDGE_ALL & ~EDGE_A : EDGE_ALL));
      part.corners.insert(part.corners.end(), face.mIndices, face.mIndices + 3);
    }
    part.material = IsNone(mesh.mMaterialIndex) ? -1 : int(mesh.mMaterialIndex);
    return part;
  }

  const aiScene& scene_;
  ImportPlan plan_;
  std::set<unsigned> none_;
  size_t faces_ = 0;
  bool skipped_ = false;
};

}  // namespace

ImportPlan ReadObj(std::span<const std::byte> bytes, const std::string& folder,
                   const std::string& fileName) {
  if (bytes.size() < kShortestFile) throw ImportFault("holds no mesh");
  if (bytes.size() > kLargestFile)
    throw ImportFault("is " + std::to_string(bytes.size()) + " bytes long, at most " +
                      std::to_string(kLargestFile) + " are read");
  CheckIndices(bytes);
  std::set<std::string> missing;
  Assimp::Importer importer;
  importer.SetIOHandler(new ModelFiles(bytes, fileName, folder, missing));  // the importer's now
  // Vertices are joined later, over all parts of a node.
  const aiScene* scene = importer.ReadFile(fileName, aiProcess_Triangulate);
  if (!scene || !scene->mRootNode)
    throw ImportFault(std::string("cannot be read: ") + importer.GetErrorString());
  ImportPlan plan = ObjReader(*scene).Read();
  for (const std::string& name : missing)
    plan.warnings.push_back("the material file \"" + name + "\" was not read");
  return plan;
}

}  // namespace host
