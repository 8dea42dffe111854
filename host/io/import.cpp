#include "host/io/import.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <new>

#include "host/interface.h"
#include "host/io/file.h"
#include "host/io/importplan.h"
#include "host/math/wstr.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"
#include "host/scene/triobject.h"

namespace host {

std::string NodeLabel(const std::string& name, size_t number) {
  return name.empty() ? "node " + std::to_string(number) : "node \"" + name + "\"";
}

namespace {

constexpr size_t kLongestMessage = 400;

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

double MetresPer(UnitType unit) {
  switch (unit) {
    case UNITS_INCHES:
      return 0.0254;
    case UNITS_FEET:
      return 0.3048;
    case UNITS_MILES:
      return 1609.344;
    case UNITS_MILLIMETERS:
      return 0.001;
    case UNITS_CENTIMETERS:
      return 0.01;
    case UNITS_METERS:
      return 1;
    case UNITS_KILOMETERS:
      return 1000;
  }
  return 1;
}

bool IsUsable(const Matrix3& tm) {
  for (int i = 0; i < 4; ++i)
    if (!IsFinite(tm.GetRow(i))) return false;
  return tm.IsInvertible();
}

// Brings the file's axes and unit to the scene's, in the matrices of the top nodes.
void Place(ImportPlan& plan, const ImportOptions& options, double unit) {
  if (!std::isfinite(options.scale) || options.scale <= 0)
    throw ImportFault("the scale is " + std::to_string(options.scale) +
                      ", it must be finite and above 0");
  const float scale = float(unit * options.scale);
  Matrix3 turn;
  if (options.up != ImportOptions::Up::Z) turn.RotateX(1.0f, 0.0f);  // a quarter, +Y to +Z
  turn.Scale({scale, scale, scale});

  std::vector<Matrix3> world(plan.nodes.size());
  for (size_t i = 0; i < plan.nodes.size(); ++i) {
    PlannedNode& node = plan.nodes[i];
    const bool own = IsUsable(node.local);
    if (node.parent < 0) node.local = node.local * turn;
    world[i] = node.parent < 0 ? node.local : node.local * world[size_t(node.parent)];
    if (!own || !IsUsable(node.local) || !IsUsable(world[i]))
      throw ImportFault(NodeLabel(node.name, i) + ": its matrix " +
                        (own ? "under its parents " : "") + "has no inverse or is not finite");
  }
}

Mtl* MaterialOf(const PlannedMesh& mesh, const std::vector<Mtl*>& materials) {
  const auto of = [&](int i) { return i < 0 ? nullptr : materials[size_t(i)]; };
  if (mesh.slots.size() <= 1) return mesh.slots.empty() ? nullptr : of(mesh.slots[0]);
  auto* multi = new MultiMtl;
  for (size_t i = 0; i < mesh.slots.size(); ++i) multi->SetSubMtl(int(i), of(mesh.slots[i]));
  return multi;
}

// All was checked before; nothing here fails.
std::vector<INode*> AddToScene(Interface& ip, ImportPlan& plan) {
  std::vector<bool> shown(plan.materials.size(), false);
  for (const PlannedMesh& mesh : plan.meshes)
    for (const int slot : mesh.slots)
      if (slot >= 0) shown[size_t(slot)] = true;
  std::vector<Mtl*> materials;
  for (size_t i = 0; i < plan.materials.size(); ++i) {
    auto* made = shown[i] ? new StdMtl : nullptr;
    materials.push_back(made);
    if (!made) continue;
    made->SetName(FromUtf8(plan.materials[i].name));
    made->SetDiffuse(plan.materials[i].diffuse, 0);
  }
  std::vector<TriObject*> objects;
  std::vector<Mtl*> materialOf;
  for (PlannedMesh& mesh : plan.meshes) {
    objects.push_back(new TriObject);
    objects.back()->mesh = std::move(mesh.mesh);
    materialOf.push_back(MaterialOf(mesh, materials));
  }

  std::vector<INode*> nodes;
  for (const PlannedNode& planned : plan.nodes) {
    Object* object = nullptr;
    if (planned.mesh >= 0) object = objects[size_t(planned.mesh)];
    if (planned.fov) {
      auto* camera = new CameraObject;
      camera->SetFOV(0, *planned.fov);
      object = camera;
    }
    INode* node = ip.CreateObjectNode(object);
    if (!planned.name.empty()) node->SetName(FromUtf8(planned.name));
    if (planned.mesh >= 0) node->SetMtl(materialOf[size_t(planned.mesh)]);
    node->SetNodeTM(0, planned.local);
    // The matrix stays what it is, so it is the one under the parent from here on.
    if (planned.parent >= 0) nodes[size_t(planned.parent)]->AttachChild(node, false);
    nodes.push_back(node);
  }
  return nodes;
}

std::optional<ImportResult> Import(Interface& ip, const std::string& what, double unit,
                                   const ImportOptions& options, std::string& error,
                                   const std::function<ImportPlan()>& read) {
  ImportPlan plan;
  try {
    plan = read();
    if (plan.meshes.empty()) throw ImportFault("holds no mesh");
    Place(plan, options, unit);
  } catch (const ImportFault& fault) {
    return error = OneLine(what + ": " + fault.what()), std::nullopt;
  } catch (const std::bad_alloc&) {
    return error = OneLine(what + ": not enough memory"), std::nullopt;
  }
  ImportResult result;
  for (const std::string& w : plan.warnings) result.warnings.push_back(OneLine(what + ": " + w));
  result.nodes = AddToScene(ip, plan);
  return result;
}

double UnitOfGltf(const Interface& ip) {
  return 1.0 / (MetresPer(ip.MasterUnitType()) * double(ip.MasterUnitScale()));
}

}  // namespace

std::optional<ImportResult> ImportModel(Interface& ip, const std::string& path,
                                        const ImportOptions& options, std::string& error) {
  const std::filesystem::path file(path);
  std::string extension = file.extension().string();
  for (char& c : extension) c = c >= 'A' && c <= 'Z' ? char(c + 32) : c;
  const bool gltf = extension == ".gltf" || extension == ".glb";
  if (!gltf && extension != ".obj")
    return error = OneLine(path + ": cannot import \"" + extension +
                           "\" files, only .gltf, .glb and .obj"),
           std::nullopt;
  std::vector<std::byte> bytes;
  if (!ReadFile(path, bytes, error)) return std::nullopt;
  const std::string folder = file.has_parent_path() ? file.parent_path().string() : ".";
  return Import(ip, path, gltf ? UnitOfGltf(ip) : 1.0, options, error, [&] {
    return gltf ? ReadGltf(bytes, folder) : ReadObj(bytes, folder, file.filename().string());
  });
}

std::optional<ImportResult> ImportGltfBytes(Interface& ip, std::span<const std::byte> bytes,
                                            const ImportOptions& options, std::string& error) {
  return Import(ip, "glTF", UnitOfGltf(ip), options, error, [&] { return ReadGltf(bytes, ""); });
}

std::optional<ImportResult> ImportObjBytes(Interface& ip, std::span<const std::byte> bytes,
                                           const ImportOptions& options, std::string& error) {
  return Import(ip, "OBJ", 1.0, options, error, [&] { return ReadObj(bytes, "", "model.obj"); });
}

}  // namespace host
