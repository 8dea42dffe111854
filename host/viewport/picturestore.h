#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/viewport/glmesh.h"

namespace host {

/// What drawing keeps from picture to picture with the process's OpenGL context: the buffers of the
/// meshes of the last picture, and the frame that it was drawn into. All but the destructor is to
/// be called within a GlScope.
class PictureStore {
 public:
  /// Where a picture comes to be: frame 0 is drawn into, frame 1 gets its samples merged.
  struct Frames {
    int width = 0, height = 0;
    unsigned frame[2] = {}, color[2] = {}, depth = 0;
    bool multisampled = false;
  };

  PictureStore() = default;
  PictureStore(const PictureStore&) = delete;
  PictureStore& operator=(const PictureStore&) = delete;
  ~PictureStore();

  /// Before all else of a picture.
  void Begin() { ++picture_; }
  /// Frames of that size, the first of them in force; `error` is set if OpenGL gives none.
  const Frames& FramesOf(int width, int height, std::string& error);
  /// The buffers of a mesh, brought up to date. They stay valid to the picture's end.
  const GlMesh& Of(const Mesh& mesh);
  /// What the picture had no use for goes; after a failure, of which memory may be the cause, all.
  void End(bool failed);

  /// How many meshes have buffers.
  size_t Meshes() const { return all_.size(); }

 private:
  struct Kept {
    GlMesh gl;
    const Mesh* mesh = nullptr;  // whose content it follows; to compare only
    std::uint64_t used = 0;      // the last picture that did
  };
  void MakeFrames(int width, int height, std::string& error);
  void DropFrames();

  Frames frames_;
  std::uint64_t picture_ = 0;
  std::vector<std::unique_ptr<Kept>> all_;
  std::unordered_map<const Mesh*, Kept*> byMesh_;
  std::unordered_map<std::uint64_t, Kept*> byStamp_;
};

}  // namespace host
