#include "host/io/modelreader.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "host/host.h"
#include "host/io/import.h"
#include "host/io/modelfiles.h"
#include "host/io/planstream.h"
#include "host/scene/triobject.h"

namespace {

namespace fs = std::filesystem;
using host::ImportOptions;
using host::ImportPlan;

const fs::path kModels = "/usr/share/assimp/models";

size_t OpenDescriptors() {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

/// No child is left, dead or alive.
bool IsChildless() { return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

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

// Files that can't be read, checked by hand, with the library's own reason or ours.
std::map<std::string, std::string> RefusedModels() {
  std::map<std::string, std::string> refused;
  std::ifstream list(SOWFIELD_REFUSED_MODELS);
  for (std::string line; std::getline(list, line);) {
    const size_t tab = line.find('\t');
    if (tab != std::string::npos) refused[line.substr(0, tab)] = line.substr(tab + 1);
  }
  return refused;
}

TEST(ModelReader, AllTestModelsAreReadOrRefusedWithTheKnownReason) {
  const std::map<std::string, std::string> refused = RefusedModels();
  ASSERT_FALSE(refused.empty());
  size_t found = 0, models = 0;
  for (const auto& entry : fs::recursive_directory_iterator(kModels)) {
    const fs::path& path = entry.path();
    if (!entry.is_regular_file() || !host::IsModelExtension(host::ExtensionOf(path.string())))
      continue;
    ++models;
    const std::string error = Import(path);
    const auto known = refused.find(path.lexically_relative(kModels).string());
    found += known != refused.end();
    if (known == refused.end())
      EXPECT_EQ(error, "");
    else
      EXPECT_EQ(error.find(path.string() + ": " + known->second), 0u) << error;
  }
  EXPECT_GT(models, 350u);
  EXPECT_EQ(found, refused.size());
  EXPECT_TRUE(IsChildless());
}

TEST(ModelReader, LimitsEndTheChildAndLeaveNothingBehind) {
  const size_t before = OpenDescriptors();
  ImportOptions hasty;
  hasty.mostSeconds = 0.001;
  EXPECT_NE(Import(kModels / "BLEND/SuzanneSubdiv_252.blend", hasty).find("in 0.001 s"),
            std::string::npos);
  ImportOptions frugal;
  frugal.mostBytes = ImportOptions::kLeastBytes;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_NE(
      Import(kModels / "BLEND/SuzanneSubdiv_252.blend", frugal).find("more memory than 64 MiB"),
      std::string::npos);
#endif
  frugal.mostBytes -= 1;
  EXPECT_NE(Import(kModels / "OBJ/box.obj", frugal).find("at least 67108864"), std::string::npos);
  hasty.mostSeconds = 0;
  EXPECT_NE(Import(kModels / "OBJ/box.obj", hasty).find("above 0"), std::string::npos);
  EXPECT_TRUE(IsChildless());
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(ModelReader, AReaderThatCrashesIsToldOfInOneLine) {
  // The library goes down this hierarchy by calls, until its stack is used up.
  const fs::path deep = fs::path(testing::TempDir()) / "modelreader_test.dae";
  {
    std::ofstream file(deep);
    file << "<COLLADA version='1.4.1'><library_visual_scenes><visual_scene id='s'>";
    for (int i = 0; i < 300000; ++i) file << "<node>";
    for (int i = 0; i < 300000; ++i) file << "</node>";
    file << "</visual_scene></library_visual_scenes></COLLADA>";
  }
  const size_t before = OpenDescriptors();
  const std::string error = Import(deep);
  EXPECT_EQ(error.find(deep.string() + ": cannot be read: the reader "), 0u) << error;
  EXPECT_TRUE(IsChildless());
  EXPECT_EQ(OpenDescriptors(), before);
  fs::remove(deep);
}

TEST(ModelReader, ThreadsReadAtTheSameTime) {
  std::atomic<int> read = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&read] {
      for (int k = 0; k < 5; ++k)
        read += host::ReadModelApart((kModels / "OBJ/spider.obj").string(), {}).nodes.size() == 19;
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(read, 20);
  EXPECT_TRUE(IsChildless());
}

ImportPlan SmallPlan() {
  ImportPlan plan;
  plan.zUp = true;
  plan.metres = 0.25;
  plan.images = {{"a.png", "", {std::byte{1}, std::byte{2}}}};
  plan.materials = {{"red", {1, 0.5f, 0}, 0}};
  host::PlannedMesh mesh;
  mesh.mesh.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  mesh.mesh.faces = {Face{{0, 1, 2}, 1, EDGE_ALL}};
  mesh.mesh.maps[1] = {{{0, 0, 0}}, {TVFace{{0, 0, 0}}}, true};
  mesh.slots = {0};
  mesh.targets = {{{0, 0, 1}, {0, 0, 2}, {0, 0, 3}}};
  mesh.weights = {0.5f};
  mesh.skin = host::PlannedSkin{{0}, {Matrix3()}, std::vector<host::VertexBones>(3)};
  plan.meshes.push_back(mesh);
  plan.nodes.resize(2);
  plan.nodes[0].name = "root";
  plan.nodes[1].parent = 0;
  plan.nodes[1].mesh = 0;
  plan.nodes[1].fov = 0.5f;
  plan.nodes[1].position = {host::KeyShape::Step, {0, 1}, {0, 0, 0, 1, 2, 3}};
  plan.warnings = {"one", ""};
  return plan;
}

bool IsRefused(std::span<const std::byte> bytes) {
  try {
    host::DecodePlan(bytes);
    return false;
  } catch (const host::ImportFault&) {
    return true;
  }
}

TEST(PlanStream, APlanComesBackWholeOrNotAtAll) {
  const std::vector<std::byte> bytes = host::EncodePlan(SmallPlan());
  const ImportPlan back = host::DecodePlan(bytes);
  EXPECT_EQ(host::EncodePlan(back), bytes);
  EXPECT_TRUE(back.zUp);
  EXPECT_EQ(back.metres, 0.25);
  EXPECT_EQ(back.images.at(0).bytes.at(1), std::byte{2});
  EXPECT_EQ(back.meshes.at(0).mesh.faces.at(0).v[2], 2u);
  EXPECT_EQ(back.meshes.at(0).skin->vertices.size(), 3u);
  EXPECT_EQ(back.nodes.at(1).position.values.at(4), 2);
  EXPECT_EQ(back.warnings.at(0), "one");

  for (size_t size = 0; size < bytes.size(); ++size)
    EXPECT_TRUE(IsRefused(std::span(bytes).first(size))) << size;
  std::vector<std::byte> longer = bytes;
  longer.push_back({});
  EXPECT_TRUE(IsRefused(longer));
  // Any byte may be wrong: no count asks for more than there is, and what is taken is sound.
  for (size_t i = 0; i < bytes.size(); ++i)
    for (const int flip : {0x01, 0x80, 0xFF}) {
      std::vector<std::byte> wrong = bytes;
      wrong[i] ^= std::byte(flip);
      EXPECT_TRUE(IsRefused(wrong) || host::EncodePlan(host::DecodePlan(wrong)) == wrong) << i;
    }
}

TEST(PlanStream, IndicesMustNameWhatIsThere) {
  const auto refuses = [](auto change) {
    ImportPlan plan = SmallPlan();
    change(plan);
    return IsRefused(host::EncodePlan(plan));
  };
  EXPECT_TRUE(refuses([](ImportPlan& p) { p.materials[0].image = 1; }));
  EXPECT_TRUE(refuses([](ImportPlan& p) { p.meshes[0].slots[0] = 1; }));
  EXPECT_TRUE(refuses([](ImportPlan& p) { p.nodes[0].parent = 0; }));
  EXPECT_TRUE(refuses([](ImportPlan& p) { p.nodes[1].mesh = -2; }));
  EXPECT_TRUE(refuses([](ImportPlan& p) { p.meshes[0].mesh.faces[0].v[1] = 3; }));
}

}  // namespace
