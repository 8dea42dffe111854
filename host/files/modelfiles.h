#pragma once

#include <map>
#include <string>

namespace host {

/// What follows the last slash or backslash.
std::string BaseNameOf(const std::string& path);
/// In lower case, with its dot; empty without one. A to Z alone are changed.
std::string ExtensionOf(const std::string& path);
/// A relative path as an URI (RFC 3986, section 2): all but letters, digits and -_.~/ is encoded.
std::string UriOf(const std::string& path);
/// A URI's %20 and so on as the letters that they stand for.
std::string DecodePercent(const std::string& text);

/// Finds what a model names. Files come from other machines: their paths are seldom true here.
class ModelFolder {
 public:
  /// Empty for a model in memory: nothing is found.
  explicit ModelFolder(std::string folder) : folder_(std::move(folder)) {}
  /// The path of a file: as written, relative to the model's folder and with either slash; else by
  /// its base name, ignoring case, in the model's folder, then in the folders there that are called
  /// texture(s), map(s), image(s), picture(s), material(s) or tex, one level deep. Names that lead
  /// out of the folder are taken as written only with `mayLeave`, absolute ones never. Empty if
  /// there is none.
  std::string Find(const std::string& name, bool mayLeave);

 private:
  void List();
  std::string folder_;
  bool listed_ = false;
  std::map<std::string, std::string> byName_;  // lower case
};

}  // namespace host
