#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "host/exchange/importplan.h"
#include "host/files/modelfiles.h"

namespace host {

/// Collects the pictures of a plan, each once.
class PictureList {
 public:
  PictureList(ModelFolder& folder, ImportPlan& plan) : folder_(folder), plan_(plan) {}
  /// Both give the index into the plan's images. A picture that isn't there or whose header can't
  /// be read is -1 and a warning.
  int FromFile(const std::string& name);
  int FromBytes(const std::string& name, std::vector<std::byte> bytes);

 private:
  int Add(const std::string& name, const std::string& path, std::vector<std::byte> bytes);
  int Refuse(const std::string& name, const std::string& reason);
  ModelFolder& folder_;
  ImportPlan& plan_;
  std::map<std::string, int> byName_;
};

}  // namespace host
