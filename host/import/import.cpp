#include "host/import/import.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <new>

#include "host/exchange/importplan.h"
#include "host/exchange/planscene.h"
#include "host/files/modelfiles.h"
#include "host/import/assimpimport.h"
#include "host/import/gltfimport.h"
#include "host/import/modelreader.h"
#include "host/interface.h"
#include "host/math/wstr.h"
#include "host/scene/mtl.h"

namespace host {

namespace {

constexpr size_t kLongestMessage = 400;
constexpr size_t kMostWarnings = 20;

// Library texts and names from files may hold line breaks and go on for long.
std::string OneLine(const std::string& text) {
  std::string line;
  for (const char c : text) {
    const bool control = (unsigned char)c < 0x20 || c == 0x7F;
    if (!control) {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  if (line.size() > kLongestMessage) line = line.substr(0, kLongestMessage) + "...";
  return line;
}

bool IsUsable(const Matrix3& tm) {
  for (int i = 0; i < 4; ++i)
    if (!IsFinite(tm.GetRow(i))) return false;
  return tm.IsInvertible();
}

void CheckOptions(const ImportOptions& options) {
  if (!std::isfinite(options.scale) || options.scale <= 0)
    throw ImportFault("the scale is " + std::to_string(options.scale) +
                      ", it must be finite and above 0");
  if (options.mostBytes < ImportOptions::kLeastBytes)
    throw ImportFault("the limit of memory is " + std::to_string(options.mostBytes) +
                      " bytes, it must be at least " + std::to_string(ImportOptions::kLeastBytes));
  if (!(options.mostSeconds > 0 && options.mostSeconds <= ImportOptions::kMostSeconds))
    throw ImportFault("the limit of time is " + std::to_string(options.mostSeconds) +
                      " s, it must be above 0 and at most " +
                      std::to_string(int(ImportOptions::kMostSeconds)));
}

// Brings the file's axes and unit to the scene's, in the matrices of the top nodes.
void Place(ImportPlan& plan, const ImportOptions& options, const Interface& ip) {
  const double sceneUnit = MetresPer(ip.MasterUnitType()) * double(ip.MasterUnitScale());
  const float scale = float((plan.metres > 0 ? plan.metres / sceneUnit : 1) * options.scale);
  const bool quarter = options.up == ImportOptions::Up::Y ||
                       (options.up == ImportOptions::Up::FromFormat && !plan.zUp);

  std::vector<Matrix3> world(plan.nodes.size());
  for (size_t i = 0; i < plan.nodes.size(); ++i) {
    PlannedNode& node = plan.nodes[i];
    const bool own = IsUsable(node.local);
    if (node.parent < 0) TurnTopNode(node, quarter, scale);
    world[i] = node.parent < 0 ? node.local : node.local * world[size_t(node.parent)];
    if (!own || !IsUsable(node.local) || !IsUsable(world[i]))
      throw ImportFault(NodeLabel(node.name, i) + ": its matrix " +
                        (own ? "under its parents " : "") + "has no inverse or is not finite");
  }
}

BitmapTex* MakePicture(PlannedImage& image) {
  auto* made = new BitmapTex;
  made->SetName(FromUtf8(image.name));
  if (image.path.empty())
    made->SetPicture(FromUtf8(image.name),
                     std::make_shared<const std::vector<std::byte>>(std::move(image.bytes)));
  else
    made->SetPicture(FromUtf8(image.path));
  return made;
}

// One a planned material; null for those that no mesh shows.
std::vector<Mtl*> MakeMaterials(ImportPlan& plan) {
  std::vector<bool> shown(plan.materials.size(), false);
  for (const PlannedMesh& mesh : plan.meshes)
    for (const int slot : mesh.slots)
      if (slot >= 0) shown[size_t(slot)] = true;
  std::vector<BitmapTex*> pictures(plan.images.size(), nullptr);
  for (size_t i = 0; i < plan.materials.size(); ++i)
    if (const int image = plan.materials[i].image; image >= 0 && shown[i])
      if (auto& made = pictures[size_t(image)]; !made)
        made = MakePicture(plan.images[size_t(image)]);
  std::vector<Mtl*> materials;
  for (size_t i = 0; i < plan.materials.size(); ++i) {
    auto* made = shown[i] ? new StdMtl : nullptr;
    materials.push_back(made);
    if (!made) continue;
    made->SetName(FromUtf8(plan.materials[i].name));
    made->SetDiffuse(plan.materials[i].diffuse, 0);
    if (const int image = plan.materials[i].image; image >= 0)
      made->SetSubTexmap(StdMtl::kDiffuseMap, pictures[size_t(image)]);
  }
  return materials;
}

std::optional<ImportResult> Import(Interface& ip, const std::string& what,
                                   const ImportOptions& options, std::string& error,
                                   const std::function<ImportPlan()>& read) {
  ImportPlan plan;
  try {
    CheckOptions(options);
    plan = read();
    if (plan.meshes.empty()) throw ImportFault("holds no mesh");
    CheckMotion(plan);
    Place(plan, options, ip);
  } catch (const ImportFault& fault) {
    return error = OneLine(what + ": " + fault.what()), std::nullopt;
  } catch (const std::bad_alloc&) {
    return error = OneLine(what + ": not enough memory"), std::nullopt;
  }
  ImportResult result;
  for (const std::string& w : plan.warnings) {
    if (result.warnings.size() == kMostWarnings) {
      const size_t left = plan.warnings.size() - kMostWarnings;
      result.warnings.push_back(what + ": and " + std::to_string(left) + " warnings more");
      break;
    }
    result.warnings.push_back(OneLine(what + ": " + w));
  }
  result.nodes = AddToScene(ip, plan, MakeMaterials(plan));
  return result;
}

void CheckFile(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  if (!IsModelExtension(extension))
    throw ImportFault("\"" + extension +
                      "\" files cannot be imported, but .gltf, .glb, .fbx, .dae, .obj, .blend, "
                      ".3ds, .ply, .stl and others");
  std::error_code code;
  if (!std::filesystem::is_regular_file(path, code))
    throw ImportFault(code ? code.message() : "it is not a regular file");
}

}  // namespace

std::optional<ImportResult> ImportModel(Interface& ip, const std::string& path,
                                        const ImportOptions& options, std::string& error) {
  return Import(ip, path, options, error, [&] {
    CheckFile(path);
    return ReadModelApart(path, {options.mostBytes, options.mostSeconds});
  });
}

std::optional<ImportResult> ImportGltfBytes(Interface& ip, std::span<const std::byte> bytes,
                                            const ImportOptions& options, std::string& error) {
  return Import(ip, "glTF", options, error, [&] {
    ImportPlan plan = ReadGltf(bytes, "");
    plan.metres = 1;
    return plan;
  });
}

std::optional<ImportResult> ImportObjBytes(Interface& ip, std::span<const std::byte> bytes,
                                           const ImportOptions& options, std::string& error) {
  return Import(ip, "OBJ", options, error, [&] { return ReadAssimp(bytes, "", "model.obj"); });
}

}  // namespace host
