#include "host/io/modelreader.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "host/host.h"
#include "host/io/import.h"
#include "host/io/modelfiles.h"
#include "host/io/planstream.h"
#include "host/scene/triobject.h"

namespace {

namespace fs = std::filesystem;
using host::ImportOptions;
using host::ImportPlan;

const fs::path kModels = "/usr/share/assimp/models", kOpen = "/proc/self/fd";

/// The error, in one line, with nothing imported; or nothing, and a sound scene with faces.
std::string Import(const fs::path& path, const ImportOptions& options = {}) {
  host::Host host;
  std::string error;
  const auto result = host::ImportModel(host.Services(), path.string(), options, error);
  EXPECT_EQ(result.has_value(), error.empty()) << path << error;
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  EXPECT_EQ(host.GetScene().AllNodes().empty(), !result) << path;
  size_t faces = 0;
  for (INode* node : host.GetScene().AllNodes())
    if (const EvaluatedMesh shown = EvalMesh(node, 0)) {
      EXPECT_EQ(shown.mesh->FirstFault(), "") << path;
      faces += shown.mesh->faces.size();
    }
  EXPECT_EQ(faces > 0, result.has_value()) << path;
  return error;
}

TEST(ModelReader, AllTestModelsAreReadOrRefusedWithTheKnownReason) {
  // Files that can't be read, checked by hand, with the library's own reason or ours.
  std::map<std::string, std::string> refused;
  std::ifstream list(SOWFIELD_REFUSED_MODELS);
  for (std::string line; std::getline(list, line);)
    if (const size_t tab = line.find('\t'); tab != line.npos)
      refused[line.substr(0, tab)] = line.substr(tab + 1);
  size_t models = 0;
  for (const auto& entry : fs::recursive_directory_iterator(kModels)) {
    const std::string path = entry.path().string();
    if (!entry.is_regular_file() || !host::IsModelExtension(host::ExtensionOf(path))) continue;
    ++models;
    const std::string error = Import(path);
    const auto known = refused.extract(entry.path().lexically_relative(kModels).string());
    EXPECT_EQ(error.substr(0, known ? path.size() + 2 + known.mapped().size() : error.npos),
              known ? path + ": " + known.mapped() : "");
  }
  EXPECT_GT(models, 350u);
  EXPECT_TRUE(refused.empty());
}

TEST(ModelReader, WhatEndsTheChildIsToldAndLeavesNothingBehind) {
  // The library goes down this hierarchy by calls, until its stack is used up.
  const fs::path deep =
      fs::path(testing::TempDir()) / ("modelreader_test_" + std::to_string(getpid()) + ".dae");
  std::string nodes;
  for (int i = 0; i < 600000; ++i) nodes += i < 300000 ? "<node>" : "</node>";
  std::ofstream(deep) << "<COLLADA version='1.4.1'><library_visual_scenes><visual_scene id='s'>"
                      << nodes << "</visual_scene></library_visual_scenes></COLLADA>";
  const fs::path suzanne = kModels / "BLEND/SuzanneSubdiv_252.blend";
  constexpr size_t kLeast = ImportOptions::kLeastBytes;
  const std::tuple<fs::path, ImportOptions, const char*> cases[] = {
    {deep, {}, ".dae: cannot be read: the reader "},
    {suzanne, {.mostSeconds = 0.001}, "in 0.001 s"},
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    {suzanne, {.mostBytes = kLeast}, "more memory than 64 MiB"},
#endif
    {suzanne, {.mostBytes = kLeast - 1}, "at least 67108864"},
    {suzanne, {.mostSeconds = 0}, "above 0"}
  };
  const auto descriptors = [] { return std::distance(fs::directory_iterator(kOpen), {}); };
  const auto before = descriptors();
  for (const auto& [path, options, says] : cases) {
    const std::string error = Import(path, options);
    EXPECT_NE(error.find(says), std::string::npos) << error << "\nlacks " << says;
  }
  EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a child is left";
  EXPECT_EQ(descriptors(), before);
  fs::remove(deep);
}

ImportPlan SmallPlan() {
  ImportPlan plan;
  plan.images = {{"a.png", "", {std::byte{1}}}};
  plan.materials = {{"red", {1, 0.5f, 0}, 0}};
  host::PlannedMesh mesh;
  mesh.mesh.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  mesh.mesh.faces = {Face{{0, 1, 2}, 1, EDGE_ALL}};
  mesh.mesh.maps[1] = {{{0, 0, 0}}, {TVFace{{0, 0, 0}}}, true};
  mesh.slots = {0};
  mesh.targets = {{{0, 0, 1}, {0, 0, 2}, {0, 0, 3}}};
  mesh.skin = host::PlannedSkin{{0}, {Matrix3()}, std::vector<host::VertexBones>(3)};
  plan.meshes.push_back(mesh);
  plan.nodes.resize(2);
  plan.nodes[1].parent = 0;
  plan.nodes[1].mesh = 0;
  plan.nodes[1].position = {host::KeyShape::Step, {0, 1}, {0, 0, 0, 1, 2, 3}};
  plan.warnings = {"one"};
  return plan;
}

bool IsRefused(std::span<const std::byte> bytes) try {
  host::DecodePlan(bytes);
  return false;
} catch (const host::ImportFault&) {
  return true;
}

TEST(PlanStream, APlanComesBackWholeOrNotAtAll) {
  std::vector<std::byte> bytes = host::EncodePlan(SmallPlan());
  EXPECT_EQ(host::EncodePlan(host::DecodePlan(bytes)), bytes);
  for (size_t size = 0; size < bytes.size(); ++size)
    EXPECT_TRUE(IsRefused(std::span(bytes).first(size))) << size;
  // Any byte may be wrong: no count asks for more than there is, and what is taken is sound.
  for (size_t i = 0; i < bytes.size(); ++i)
    for (const int flip : {0x01, 0x80, 0xFF}) {
      std::vector<std::byte> wrong = bytes;
      wrong[i] ^= std::byte(flip);
      EXPECT_TRUE(IsRefused(wrong) || host::EncodePlan(host::DecodePlan(wrong)) == wrong) << i;
    }
  bytes.push_back({});
  EXPECT_TRUE(IsRefused(bytes));
  // Indices must name what is there.
  void (*const faults[])(host::PlannedMesh&, ImportPlan&) = {
      [](auto&, auto& plan) { plan.materials[0].image = 1; },
      [](auto& mesh, auto&) { mesh.slots[0] = 1; },
      [](auto&, auto& plan) { plan.nodes[0].parent = 0; },
      [](auto&, auto& plan) { plan.nodes[1].mesh = -2; },
      [](auto& mesh, auto&) { mesh.mesh.faces[0].v[1] = 3; }};
  for (const auto& fault : faults) {
    ImportPlan plan = SmallPlan();
    fault(plan.meshes[0], plan);
    EXPECT_TRUE(IsRefused(host::EncodePlan(plan))) << &fault - faults;
  }
}

}  // namespace
