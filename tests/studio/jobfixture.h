#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "host/scenefile/scenefile.h"
#include "studio/commands/cli.h"
#include "studio/commands/run.h"
#include "studio/steps/stage.h"

namespace studio {

inline ::testing::AssertionResult Says(const std::string& whole, const std::string& part) {
  if (whole.find(part) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << '"' << part << "\" isn't in: " << whole;
}

/// Runs jobs in a folder of its own.
class JobTest : public ::testing::Test {
 public:
  struct Result {
    int status = -1;
    std::string out, err;
    nlohmann::json json;  // with RunOptions::json

    /// What came of step n, from 1.
    const nlohmann::json& Step(size_t n) const { return json.at("steps").at(n - 1); }
  };

 protected:
  void SetUp() override {
    folder_ = std::filesystem::temp_directory_path() /
              ("sowfield-jobs-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::filesystem::path Path(const std::string& name) const { return folder_ / name; }
  std::string Read(const std::string& name) const {
    std::ifstream in(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
  }

  /// A triangle with a texture in a folder's "m.obj".
  void WriteTextured(const std::string& folder, const std::string& picture) const {
    Write(folder + "m.mtl", "newmtl a\nmap_Kd " + picture + "\n");
    Write(folder + "m.obj",
          "mtllib m.mtl\nusemtl a\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 3/1\n");
  }

  /// Opens a scene, changes it and saves it.
  template <class F>
  void Change(const std::string& from, const std::string& to, F change) const {
    std::ostringstream notices;
    Stage stage("", notices);
    std::string error;
    ASSERT_TRUE(host::OpenScene(stage.Ip(), Path(from).string(), {}, error)) << error;
    change(stage);
    ASSERT_TRUE(host::SaveScene(stage.Ip(), Path(to).string(), {}, error)) << error;
  }

  /// Runs a job text. In `err` the job's path reads as "job.json".
  Result RunText(const std::string& text, RunOptions options = {}) const {
    Write("job.json", text);
    std::ostringstream out, err;
    Result result;
    result.status = RunJob(Path("job.json").string(), options, out, err);
    result.out = out.str();
    result.err = err.str();
    const std::string whole = Path("job.json").string();
    for (size_t at; (at = result.err.find(whole)) != std::string::npos;)
      result.err.replace(at, whole.size(), "job.json");
    if (options.json) result.json = nlohmann::json::parse(result.out);
    return result;
  }
  /// Runs steps, told without the brackets round them, one a line.
  Result RunSteps(const std::string& steps, RunOptions options = {.json = true}) const {
    return RunText("{\"steps\": [\n" + steps + "\n]}", options);
  }
  /// Steps that succeed.
  Result Done(const std::string& steps) const {
    Result result = RunSteps(steps);
    EXPECT_EQ(result.status, 0) << result.err;
    return result;
  }
  /// Runs a job that fails for that reason.
  void ExpectFault(const std::string& steps, const std::string& said) const {
    const Result result = RunSteps(steps);
    EXPECT_TRUE(result.status == 1 && result.json["ok"] == false) << steps;
    EXPECT_TRUE(Says(result.err, said));
  }
  /// Jobs that begin with the same steps, each with what it fails for.
  void ExpectFaults(const std::string& before,
                    std::initializer_list<std::pair<std::string, std::string>> cases) const {
    for (const auto& [steps, said] : cases) ExpectFault(before + steps, said);
  }
  /// The program with such words, in '...' where they hold spaces; @ is the folder. `to` may stand
  /// for its standard output.
  Result Command(const std::string& line, std::ostream* to = nullptr) const {
    std::vector<std::string> words = {"sowfield"};
    std::istringstream in(line);
    for (std::string word; in >> std::quoted(word, '\'');)
      words.push_back(word.starts_with('@') ? Path(word.substr(1)).string() : word);
    std::vector<const char*> args;
    for (const std::string& word : words) args.push_back(word.c_str());
    std::ostringstream out, err;
    const int status = RunCommandLine(int(args.size()), args.data(), to ? *to : out, err);
    return {status, out.str(), err.str(), {}};
  }

  std::filesystem::path folder_;
};

inline const std::string kTriangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";

/// A plane of 20 x 20 at height 0 and a unit box far from it that is the first type.
inline const std::string kField =
    R"({"do": "primitive", "kind": "plane", "name": "field", "size": [20, 20]},
{"do": "primitive", "kind": "box", "name": "stone", "size": [1, 1, 1], "at": [50, 50, 0]},
{"do": "create", "name": "sow", "at": [30, 0]},
{"do": "add", "nodes": "stone"})";

/// A view of the field from above in which a pixel is 0.1 wide.
inline const std::string kView =
    R"("view": {"orthographic": "top", "center": [0, 0, 0], "span": 24.1}, "size": [241, 241])";

/// A stroke over the field seen from above; `more` are further fields.
inline std::string Stroke(const std::string& tool, const std::string& points,
                          const std::string& more = "") {
  return R"(, {"do": "stroke", "tool": ")" + tool + "\", " + kView + R"(, "points": )" + points +
         more + "}";
}

}  // namespace studio
