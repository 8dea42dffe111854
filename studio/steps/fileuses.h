#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/core/paramblock.h"
#include "host/scene/scene.h"
#include "host/scene/texmap.h"

namespace sowfield {
class Sowfield;
}

namespace studio {

/// A file outside the scene that something in the scene names.
struct FileUse {
  /// Mokset files are read from where they are named; pictures and others are passed on.
  enum class Kind { Mokset, Picture, Other };
  Kind kind = Kind::Other;
  WStr path;        // as it is named
  std::string who;  // for messages: `type 2 "oak" of "sow"`

  // Where it is named: an object type, an entry of a parameter block, or a picture.
  sowfield::Sowfield* object = nullptr;
  int type = -1;
  IParamBlock2* block = nullptr;
  ParamID id = -1;
  int index = 0;
  BitmapTex* picture = nullptr;

  /// Names another file, and nothing else changes. Recorded for undo.
  void Name(const WStr& other) const;
};

/// All that the nodes show and wear, in their order. Pictures whose bytes the scene holds aren't
/// files.
std::vector<FileUse> FilesOf(std::span<INode* const> nodes);
std::vector<FileUse> FilesOf(const Scene& scene);

/// Whether the file is there.
bool IsThere(const FileUse& use);

/// The Mokset files that aren't there, one line each: who, and the path.
std::vector<std::string> MissingFiles(const Scene& scene);

}  // namespace studio
