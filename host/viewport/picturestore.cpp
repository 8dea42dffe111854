#include "host/viewport/picturestore.h"

#include <epoxy/gl.h>

#include <algorithm>

#include "host/viewport/glcontext.h"

namespace host {

namespace {

constexpr std::int64_t kMostSmoothedPixels = 1 << 24;
constexpr std::int64_t kMostKeptPixels = 1 << 22;  // of a frame, at up to 36 bytes each

}  // namespace

PictureStore::~PictureStore() {
  const GlScope scope;
  if (!scope.Error().empty()) return;
  DropFrames();
  all_.clear();
}

void PictureStore::MakeFrames(int width, int height, std::string& error) {
  Frames& f = frames_;
  f.width = width, f.height = height;
  GLint most = 0;
  glGetIntegerv(GL_MAX_SAMPLES, &most);
  const bool smooth = std::int64_t(width) * height <= kMostSmoothedPixels;
  const int samples = smooth ? std::min(4, int(most)) : 0;
  f.multisampled = samples > 1;
  glGenFramebuffers(2, f.frame);
  glGenRenderbuffers(2, f.color);
  glGenRenderbuffers(1, &f.depth);
  for (int i = 0; i < 2; ++i) {
    glBindRenderbuffer(GL_RENDERBUFFER, f.color[i]);
    glRenderbufferStorageMultisample(GL_RENDERBUFFER, i == 0 ? samples : 0, GL_RGBA8, width,
                                     height);
    glBindFramebuffer(GL_FRAMEBUFFER, f.frame[i]);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, f.color[i]);
    if (i == 0) {
      glBindRenderbuffer(GL_RENDERBUFFER, f.depth);
      glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, GL_DEPTH_COMPONENT32F, width,
                                       height);
      glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, f.depth);
    }
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
      error = "OpenGL gives no frame of " + std::to_string(width) + " x " + std::to_string(height) +
              " pixels";
  }
}

void PictureStore::DropFrames() {
  glBindFramebuffer(GL_FRAMEBUFFER, 0);
  glDeleteFramebuffers(2, frames_.frame);
  glDeleteRenderbuffers(2, frames_.color);
  glDeleteRenderbuffers(1, &frames_.depth);
  frames_ = {};
}

const PictureStore::Frames& PictureStore::FramesOf(int width, int height, std::string& error) {
  if (frames_.width != width || frames_.height != height) {
    DropFrames();
    MakeFrames(width, height, error);
  }
  glBindFramebuffer(GL_FRAMEBUFFER, frames_.frame[0]);
  return frames_;
}

const GlMesh& PictureStore::Of(const Mesh& mesh) {
  // Also the same content in another mesh.
  const auto same = byStamp_.find(mesh.Stamp());
  Kept* kept = same != byStamp_.end() ? same->second : nullptr;
  if (!kept) {
    kept = byMesh_[&mesh];
    // What this picture shows already, of a copy that was made before, stays.
    if (!kept || kept->used == picture_) {
      all_.push_back(std::make_unique<Kept>());
      kept = byMesh_[&mesh] = all_.back().get();
      kept->mesh = &mesh;
    }
    byStamp_.erase(kept->gl.Stamp());
    kept->gl.Update(mesh);
    byStamp_[kept->gl.Stamp()] = kept;
  }
  kept->used = picture_;
  return kept->gl;
}

void PictureStore::End(bool failed) {
  const auto unused = [&](const auto& kept) { return failed || kept->used != picture_; };
  if (std::erase_if(all_, unused) > 0) {
    byMesh_.clear(), byStamp_.clear();
    for (const auto& kept : all_) {
      byMesh_[kept->mesh] = kept.get();
      byStamp_[kept->gl.Stamp()] = kept.get();
    }
  }
  if (failed || std::int64_t(frames_.width) * frames_.height > kMostKeptPixels) DropFrames();
}

}  // namespace host
