#include "host/import/assimpimport.h"

#include "host/files/file.h"
#include "host/files/modelfiles.h"
#include "host/import/assimpscene.h"
#include "host/import/objcheck.h"

#include <assimp/cimport.h>
#include <assimp/config.h>
#include <assimp/importerdesc.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/Importer.hpp>
#include <cstring>
#include <filesystem>
#include <set>
#include <string_view>

namespace host {

namespace {

constexpr size_t kLargestFile = size_t(1) << 30;
// Vertices are joined later, over all parts of a node.
constexpr unsigned kSteps =
    aiProcess_Triangulate | aiProcess_GenUVCoords | aiProcess_TransformUVCoords;

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

// Shows the library the model and the files in its folder, so that nothing else on the machine can
// be reached. Their own names are tried first: a case-blind match may be another file.
class ModelFiles : public Assimp::IOSystem {
 public:
  /// Names that could not be opened go to `missing`.
  ModelFiles(std::span<const std::byte> model, std::string name, ModelFolder& folder,
             std::set<std::string>& missing)
      : model_(model), name_(std::move(name)), folder_(folder), missing_(missing) {}

  bool Exists(const char* file) const override {
    return file == name_ || !folder_.Find(file, false).empty();
  }
  char getOsSeparator() const override { return '/'; }
  Assimp::IOStream* Open(const char* file, const char*) override {
    if (file == name_) return new MemoryStream(model_);
    std::vector<std::byte> bytes;
    std::string error;
    const std::string path = folder_.Find(file, false);
    const bool read = !path.empty() && ReadFile(path, bytes, error) && bytes.size() < kLargestFile;
    if (read) return new MemoryStream(std::move(bytes));
    missing_.insert(BaseNameOf(file));
    return nullptr;
  }
  void Close(Assimp::IOStream* stream) override { delete stream; }

 private:
  std::span<const std::byte> model_;
  std::string name_;
  ModelFolder& folder_;
  std::set<std::string>& missing_;
};

struct FormatFrame {
  std::string_view importer;  // how the library's name of its reader begins
  bool zUp;
  double metres;
};

// What the library leaves of a format's own axes and unit. It turns 3DS, ASE, Collada, DXF, IFC,
// IQM, MD2 to MD5, MDC and MDL to Y up by itself, and brings Collada and IFC to metres. Formats
// that aren't here have Y up, or say nothing about axes, and have no unit.
constexpr FormatFrame kFrames[] = {
    {"3D GameStudio Heightmap", true, 0},       // heights along Z
    {"Terragen", true, 0},                      // the same
    {"3mf", true, 0.001},                       // the plate lies in XY; millimetres by default
    {"Additive manufacturing", true, 0.001},    // the same
    {"Stereolithography", true, 0},             // as CAD and slicers have it
    {"TrueSpace", true, 0},                     // that program's axes
    {"CharacterStudio", true, 0},               // the same
    {"Valve SMD", true, 0},                     // the game's axes
    {"Quake III BSP", true, 0},                 // the game's axes
    {"Quick3D", true, 0},                       // that program's axes
    {"XGL", true, 0},                           // its writers were CAD programs
    {"Open Game Engine Exchange", true, 0},     // Z up by default
    {"Collada", false, 1},                      // as the library hands it over
    {"Industry Foundation Classes", false, 1},  // the same
    {"Blender", true, 1},                       // its axes, and its default unit
    {"LightWave", false, 1},                    // metres by definition
    {"Extensible 3D", false, 1},                // the same
};

std::string_view ImporterName(const Assimp::Importer& importer) {
  const int index = importer.GetPropertyInteger("importerIndex", -1);
  const aiImporterDesc* info = index < 0 ? nullptr : importer.GetImporterInfo(size_t(index));
  return info ? info->mName : "";
}

void SetFrame(const aiScene& scene, std::string_view importer, ImportPlan& plan) {
  for (const FormatFrame& frame : kFrames)
    if (importer.substr(0, frame.importer.size()) == frame.importer)
      plan.zUp = frame.zUp, plan.metres = frame.metres;
  if (importer != "Autodesk FBX Importer" || !scene.mMetaData) return;
  // These two are handed on and not acted upon; a unit is so many centimetres.
  int up = 1;
  if (scene.mMetaData->Get("UpAxis", up)) plan.zUp = up == 2;
  double centimetres = 1;
  float single = 1;
  if (scene.mMetaData->Get("UnitScaleFactor", single))
    centimetres = double(single);
  else if (!scene.mMetaData->Get("UnitScaleFactor", centimetres))
    return;
  if (centimetres > 0) plan.metres = 0.01 * centimetres;
}

// A file that holds whole shapes over time, by its first four letters.
struct FramedFormat {
  std::string_view magic;
  size_t countAt;  // offset of the number of frames, 32 bits
  double framesPerSecond;
};
constexpr FramedFormat kFramedFormats[] = {{"IDP2", 40, 10}, {"IDP3", 76, 10}};  // MD2, MD3
constexpr std::uint32_t kMostFrames = 1024;  // both formats' own limit

// The library reads one frame at a time; the scene holds the first one.
std::vector<ShapeOfMeshes> ReadFrames(Assimp::Importer& importer, std::span<const std::byte> bytes,
                                      const std::string& fileName, ImportPlan& plan,
                                      double& framesPerSecond) {
  std::vector<ShapeOfMeshes> frames;
  for (const FramedFormat& format : kFramedFormats) {
    std::uint32_t count = 0;
    if (bytes.size() < format.countAt + 4 || std::memcmp(bytes.data(), format.magic.data(), 4) != 0)
      continue;
    std::memcpy(&count, bytes.data() + format.countAt, 4);
    framesPerSecond = format.framesPerSecond;
    if (count > kMostFrames)
      plan.warnings.push_back("only the first " + std::to_string(kMostFrames) + " of " +
                              std::to_string(count) + " frames are taken");
    count = std::min(count, kMostFrames);
    for (std::uint32_t k = 0; k < count && count > 1; ++k) {
      importer.SetPropertyInteger(AI_CONFIG_IMPORT_GLOBAL_KEYFRAME, int(k));
      const aiScene* scene = importer.ReadFile(fileName, kSteps);
      if (!scene) throw ImportFault("frame " + std::to_string(k) + " cannot be read");
      frames.push_back(ShapeOf(*scene));
    }
    importer.SetPropertyInteger(AI_CONFIG_IMPORT_GLOBAL_KEYFRAME, 0);
  }
  return frames;
}

void WarnOfMissing(const std::set<std::string>& missing, const std::string& fileName,
                   ImportPlan& plan) {
  // Readers also try names that no model mentions: their own with another extension, and parts of
  // the game that a model was made for. Only these two always mean what they ask for.
  const std::string extension = ExtensionOf(fileName);
  if (extension != ".obj" && extension != ".lws") return;
  const std::string own = fileName.substr(0, fileName.size() - extension.size());
  for (const std::string& name : missing) {
    const bool guess = name == own + ".mtl" && missing.size() > 1;
    if (!guess) plan.warnings.push_back("the file \"" + name + "\" was not read");
  }
}

}  // namespace

bool IsAssimpExtension(const std::string& extension) {
  return extension.size() > 1 && aiIsExtensionSupported(extension.c_str()) == AI_TRUE;
}

ImportPlan ReadAssimp(std::span<const std::byte> bytes, const std::string& folder,
                      const std::string& fileName) {
  if (bytes.size() > kLargestFile)
    throw ImportFault("is " + std::to_string(bytes.size()) + " bytes long, at most " +
                      std::to_string(kLargestFile) + " are read");
  if (ExtensionOf(fileName) == ".obj") CheckObjIndices(bytes);

  ModelFolder files(folder);
  std::set<std::string> missing;
  Assimp::Importer importer;
  importer.SetIOHandler(new ModelFiles(bytes, fileName, files, missing));  // the importer's now
  // Pivots would come as chains of nodes that the model doesn't have.
  importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, false);
  ImportPlan plan;
  double framesPerSecond = 1;
  const std::vector<ShapeOfMeshes> frames =
      ReadFrames(importer, bytes, fileName, plan, framesPerSecond);
  const aiScene* scene = importer.ReadFile(fileName, kSteps);
  const std::string_view said = importer.GetErrorString();
  if (!scene || !scene->mRootNode) {
    if (said.find("bad_alloc") != std::string_view::npos) throw std::bad_alloc();
    throw ImportFault("cannot be read: " + (said.empty() ? "it is empty" : std::string(said)));
  }
  PictureList pictures(files, plan);
  AssimpScene(*scene, std::filesystem::path(fileName).stem().string(), plan, pictures)
      .Read(frames, framesPerSecond);
  SetFrame(*scene, ImporterName(importer), plan);
  WarnOfMissing(missing, fileName, plan);
  return plan;
}

}  // namespace host
