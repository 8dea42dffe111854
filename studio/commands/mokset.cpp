#include "studio/commands/mokset.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <ostream>
#include <span>
#include <utility>

#include "host/exchange/objtext.h"
#include "host/exchange/viewermesh.h"
#include "host/files/file.h"
#include "host/files/modelfiles.h"
#include "host/gltf/gltfwriter.h"
#include "host/host.h"
#include "host/import/import.h"
#include "host/scene/join.h"
#include "host/scene/triobject.h"
#include "sowfield/proxy/moksetfile.h"
#include "studio/job/jsonout.h"
#include "studio/steps/outputs.h"

namespace studio {
namespace {

using sowfield::MoksetFault;
using sowfield::MoksetInfo;

struct Unit {
  const char* name;
  double metres;
};
constexpr Unit kUnits[] = {{"inches", 0.0254},     {"feet", 0.3048},      {"miles", 1609.344},
                           {"millimetres", 0.001}, {"centimetres", 0.01}, {"metres", 1},
                           {"kilometres", 1000}};

// Null for files that tell none.
const Unit* UnitOf(const MoksetInfo& info) {
  return info.unit >= 0 && size_t(info.unit) < std::size(kUnits) ? &kUnits[info.unit] : nullptr;
}

std::string TextOf(const MoksetFault& fault) {
  return fault.offset == 0 ? fault.text : fmt::format("byte {}: {}", fault.offset, fault.text);
}

void PutPlace(JsonOut& json, const MoksetFault& fault) {
  json.BeginObject().Key("byte").Int((long long)(fault.offset));
  json.Key("text").Text(fault.text).End();
}

void PutFault(JsonOut& json, const MoksetFault& fault) {
  json.Key("ok").Flag(!fault);
  if (fault) PutPlace(json.Key("error"), fault);
}

void PutCounts(JsonOut& json, const MoksetInfo& info) {
  json.Key("generation").Int(info.generation).Key("vertices").Int(info.vertices);
  json.Key("texture_vertices").Int(info.textureVertices).Key("faces").Int(info.faces);
  json.Key("samples").Int((long long)(info.samples.size()));
}

struct Streams {
  std::ostream &out, &err;
  bool json;
};

// What came of it, as a document or as lines of text.
void Tell(const Streams& to, const JsonOut& json, const std::string& text) {
  to.out << (to.json ? json.Str() + "\n" : text);
}

int Fail(const Streams& to, const std::string& file, const MoksetFault& fault) {
  const std::string text = TextOf(fault);
  // Messages of the host name the file themselves.
  const bool named =
      text.starts_with(file + ": ") || text.find('"' + file + '"') != std::string::npos;
  to.err << (named ? "" : file + ": ") << text << '\n';
  JsonOut json;
  json.BeginObject().Key("file").Text(file);
  PutFault(json, fault);
  Tell(to, json.End(), "");
  return 1;
}

// A file of another kind altogether is taken for one of the first generation.
MoksetFault WithHint(MoksetFault fault, int generation) {
  if (fault && generation == 1)
    fault.text += " (it has no Mokset mark, so it was read as generation 1)";
  return fault;
}

int ShowInfo(const Streams& to, const std::string& file) {
  const MoksetInfo info = sowfield::ReadMoksetInfo(FromUtf8(file));
  if (info.fault) return Fail(to, file, WithHint(info.fault, info.generation));
  // The head may be sound where the mesh isn't.
  Mesh mesh;
  const MoksetFault ofMesh =
      WithHint(sowfield::ReadMoksetFile(FromUtf8(file), mesh).fault, info.generation);
  if (ofMesh) to.err << file << ": " << TextOf(ofMesh) << '\n';
  const Unit* unit = UnitOf(info);
  JsonOut json;
  json.BeginObject().Key("file").Text(file);
  PutFault(json, ofMesh);
  PutCounts(json, info);
  const Point3 &low = info.box.Min(), &high = info.box.Max();
  json.Key("box");
  if (info.vertices == 0) {
    json.Null();
  } else {
    json.BeginObject().Key("min").Point(low).Key("max").Point(high).End();
  }
  json.Key("multiplier").Int(info.multiplier).Key("unit");
  unit ? json.Text(unit->name) : json.Null();
  json.Key("bytes").Int((long long)(info.bytes)).End();

  std::string text = fmt::format("{}: Mokset file of generation {}, {} bytes\n", file,
                                 info.generation, Grouped((long long)(info.bytes)));
  const auto row = [&](const char* name, const std::string& value) {
    text += fmt::format("  {:<17} {}\n", name, value);
  };
  row("vertices", Grouped(info.vertices));
  row("texture vertices", Grouped(info.textureVertices));
  row("faces", Grouped(info.faces));
  row("samples", Grouped((long long)(info.samples.size())));
  row("box", info.vertices == 0 ? "empty"
                                : fmt::format("{} {} {} to {} {} {}", low.x, low.y, low.z, high.x,
                                              high.y, high.z));
  row("multiplier", info.generation == 1 ? "none" : std::to_string(info.multiplier));
  row("unit", unit ? unit->name : "not told");
  Tell(to, json, text);
  return ofMesh ? 1 : 0;
}

int Verify(const Streams& to, std::span<const std::string> files) {
  JsonOut json;
  json.BeginList();
  std::string text;
  int status = 0;
  for (const std::string& file : files) {
    MoksetInfo info;
    std::vector<MoksetFault> faults = sowfield::CheckMoksetFile(FromUtf8(file), info);
    json.Line().BeginObject().Key("file").Text(file);
    if (!faults.empty()) {
      faults[0] = WithHint(faults[0], info.generation);
      PutFault(json, faults[0]);
      json.Key("errors").BeginList();
      for (const MoksetFault& fault : faults) {
        to.err << file << ": " << TextOf(fault) << '\n';
        PutPlace(json, fault);
      }
      json.End();
      status = 1;
    } else {
      PutFault(json, {});
      PutCounts(json, info);
      text += fmt::format("{}: sound, generation {}, {} vertices, {} faces\n", file,
                          info.generation, Grouped(info.vertices), Grouped(info.faces));
    }
    json.End();
  }
  Tell(to, json.Line().End(), text);
  return status;
}

int WrongEnding(const Streams& to, const std::string& target, const char* endings) {
  Fail(to, target, {0, fmt::format("its ending must be {}", endings)});
  return 2;
}

int Done(const Streams& to, const std::string& from, const std::string& target, const Mesh& mesh) {
  JsonOut json;
  json.BeginObject().Key("file").Text(from).Key("ok").Flag(true).Key("written").Text(target);
  json.Key("vertices").Int(mesh.getNumVerts()).Key("faces").Int(mesh.getNumFaces()).End();
  Tell(to, json,
       fmt::format("{}: {} vertices, {} faces\n", target, Grouped(mesh.getNumVerts()),
                   Grouped(mesh.getNumFaces())));
  return 0;
}

// One node, which stands upright and in metres by itself, with a material for each id of a face.
std::shared_ptr<const host::ExportPlan> PlanOf(const Mesh& mesh, const std::string& name,
                                               double metres) {
  auto plan = std::make_shared<host::ExportPlan>();
  plan->metres = metres;
  const auto materialOf = [&](int id) {
    plan->materials.push_back({fmt::format("material {}", id), {1, 1, 1}});
    return int(plan->materials.size()) - 1;
  };
  host::ExportMesh shown;
  for (host::ViewerPart& part : host::ViewerParts(mesh, nullptr, materialOf))
    shown.parts.push_back(std::move(part.triangles));
  if (shown.parts.empty()) return plan;
  plan->meshes.push_back(std::move(shown));
  plan->nodes.emplace_back().name = name;
  plan->nodes[0].mesh = 0;
  return plan;
}

// Why a file can't be made of another one.
std::string WhyNotMade(const Output& output, const std::string& from) {
  const SourceFile source{from, "what is read"};
  return WhyNotWritten(output, {&source, 1}, "--force");
}

int Export(const Streams& to, const std::string& file, const Output& output) {
  const std::string& target = output.path;
  const std::string ending = host::ExtensionOf(target);
  if (ending != ".obj" && ending != ".gltf" && ending != ".glb")
    return WrongEnding(to, target, ".obj, .gltf or .glb");
  if (const std::string why = WhyNotMade(output, file); !why.empty())
    return Fail(to, target, {0, why});
  Mesh mesh;
  const MoksetInfo info = sowfield::ReadMoksetFile(FromUtf8(file), mesh);
  if (info.fault) return Fail(to, file, WithHint(info.fault, info.generation));
  const std::string name = std::filesystem::path(file).stem().string();
  std::string bytes, error;
  if (ending == ".obj") {
    bytes = host::ObjOf(mesh, name);
  } else {
    const Unit* unit = UnitOf(info);
    const auto form = ending == ".glb" ? host::GltfForm::Binary : host::GltfForm::Json;
    if (!host::GltfFileOf(PlanOf(mesh, name, unit ? unit->metres : 1), form, bytes, error))
      return Fail(to, file, {0, error});
  }
  if (!host::WriteFileSafely(target, std::as_bytes(std::span(bytes)), error))
    return Fail(to, file, {0, error});
  return Done(to, file, target, mesh);
}

// The mesh where it stands in the world; mirrored ones are turned the right way round.
Mesh MeshInWorld(INode* node) {
  Mesh mesh = *EvalMesh(node, 0).mesh;
  const Matrix3 tm = node->GetObjectTM(0);
  for (Point3& v : mesh.verts) v = v * tm;
  if (tm.Determinant() < 0) {
    for (Face& face : mesh.faces) {
      const std::uint32_t edges = face.edgeVisFlags();
      std::swap(face.v[0], face.v[2]);
      face.setEdgeVisFlags(edges & EDGE_B, edges & EDGE_A, edges & EDGE_C);
    }
    for (TVFace& face : mesh.maps[1].faces) std::swap(face.t[0], face.t[2]);
  }
  return mesh;
}

// The one node that was asked for; null with `error` told.
INode* ChooseNode(Scene& scene, std::vector<INode*> nodes, const std::string& name, bool join,
                  std::string& error) {
  std::erase_if(nodes, [](INode* node) {
    const EvaluatedMesh mesh = EvalMesh(node, 0);
    return !mesh || mesh.mesh->verts.empty();
  });
  if (!name.empty())
    std::erase_if(nodes, [&](INode* node) { return ToUtf8(node->GetName()) != name; });
  if (nodes.size() == 1) return nodes[0];
  if (nodes.empty()) {
    error = name.empty() ? "no node has a mesh" : "no node with a mesh is named \"" + name + "\"";
    return nullptr;
  }
  if (join) {
    INode* joined = host::JoinNodes(scene, nodes, L"joined", 0);
    if (!joined) error = "the parts don't fit into one mesh";
    return joined;
  }
  error = fmt::format("{} nodes have a mesh; choose one with --node or take all with --join:",
                      nodes.size());
  constexpr size_t kMostShown = 10;
  for (size_t i = 0; i < nodes.size() && i < kMostShown; ++i)
    error += (i ? ", " : " ") + ToUtf8(nodes[i]->GetName());
  if (nodes.size() > kMostShown) error += ", ...";
  return nullptr;
}

int Import(const Streams& to, const std::string& model, const Output& output,
           const std::string& name, bool join) {
  const std::string& target = output.path;
  if (host::ExtensionOf(target) != ".vorn") return WrongEnding(to, target, ".Vorn");
  if (const std::string why = WhyNotMade(output, model); !why.empty())
    return Fail(to, target, {0, why});
  host::Host host;
  std::string error;
  const auto result = host::ImportModel(host.Services(), model, {}, error);
  if (!result) return Fail(to, model, {0, error});
  for (const std::string& warning : result->warnings) to.err << "warning: " << warning << '\n';
  INode* node = ChooseNode(host.GetScene(), result->nodes, name, join, error);
  if (!node) return Fail(to, model, {0, error});
  const Mesh mesh = MeshInWorld(node);
  sowfield::Generator generator;
  if (!sowfield::WriteMoksetFile(mesh, FromUtf8(target), generator, &error))
    return Fail(to, model, {0, error});
  return Done(to, model, target, mesh);
}

}  // namespace

MoksetCommand::MoksetCommand(CLI::App& app)
    : command_(app.add_subcommand("mokset", "Tells of, checks and makes Mokset files (.Vorn)")) {
  command_->require_subcommand(1);
  const auto add = [&](const char* name, const char* help) {
    CLI::App* one = command_->add_subcommand(name, help);
    one->add_flag("--json", json_, "print one JSON document");
    return one;
  };
  info_ = add("info", "Tells what a file holds and whether it can be read");
  info_->add_option("file", file_, "the Mokset file")->required();
  verify_ = add("verify", "Reads files whole and tells what is wrong with them");
  verify_->add_option("files", files_, "the Mokset files")->required();
  export_ = add("export", "Writes the mesh of a file as a model");
  export_->add_option("file", file_, "the Mokset file")->required();
  export_->add_option("model", target_, "what to write: .obj, .gltf or .glb")->required();
  import_ = add("import", "Writes a mesh of any model, where it stands in the world, as a file");
  import_->add_option("model", file_, "the model")->required();
  import_->add_option("file", target_, "the Mokset file to write")->required();
  CLI::Option* node = import_->add_option("--node", node_, "take the node of this name");
  import_->add_flag("--join", join_, "make all nodes one mesh")->excludes(node);
  for (CLI::App* command : {export_, import_})
    command->add_flag("--force", force_, "replace a file of that kind that is there already");
}

bool MoksetCommand::Parsed() const { return command_->parsed(); }

int MoksetCommand::Run(std::ostream& out, std::ostream& err) const {
  const Streams to{out, err, json_};
  if (info_->parsed()) return ShowInfo(to, file_);
  if (verify_->parsed()) return Verify(to, files_);
  if (export_->parsed()) return Export(to, file_, {target_, OutputKind::Model, force_});
  return Import(to, file_, {target_, OutputKind::Mokset, force_}, node_, join_);
}

}  // namespace studio
