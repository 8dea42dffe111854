#include <epoxy/gl.h>

#include <array>
#include <memory>

#include "bench/painted.h"
#include "bench/rows.h"
#include "host/scene/primitives.h"
#include "host/viewport/glcontext.h"
#include "host/viewport/glshaders.h"
#include "host/viewport/meshstaging.h"
#include "host/viewport/picture.h"
#include "host/viewport/picturestore.h"
#include "host/viewport/viewexp.h"
#include "sowfield/model/displaymode.h"

namespace bench {
namespace {

constexpr int kWidth = 960, kHeight = 540;

GLuint Shader(GLenum kind, const char* source) {
  const GLuint shader = glCreateShader(kind);
  glShaderSource(shader, 1, &source, nullptr);
  glCompileShader(shader);
  return shader;
}

/// The least that a picture costs: a loop that draws buffers made beforehand with the painter's own
/// program into a frame like its own, and reads the pixels. Seen as a parallel view from above.
class BareLoop {
 public:
  BareLoop(const std::vector<const Mesh*>& meshes, const Point3& middle, float span) {
    program_ = glCreateProgram();
    glAttachShader(program_, Shader(GL_VERTEX_SHADER, host::kMeshVertexShader));
    glAttachShader(program_, Shader(GL_FRAGMENT_SHADER, host::kMeshShader));
    glLinkProgram(program_);
    glUseProgram(program_);
    for (const Mesh* mesh : meshes) Send(*mesh);
    MakeFrame();
    const float s = 2 / span,
                scale[16] = {s, 0, 0, 0, 0, s * kWidth / kHeight, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const float toView[16] = {1, 0, 0,     0, 0,         1,         0,    0,
                              0, 0, 1e-4f, 0, -middle.x, -middle.y, 0.5f, 1};
    const float same[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1}, grey[4] = {0.2f, 0.2f, 0.2f, 1};
    glUniformMatrix4fv(glGetUniformLocation(program_, "projection"), 1, GL_FALSE, scale);
    glUniformMatrix4fv(glGetUniformLocation(program_, "toView"), 1, GL_FALSE, toView);
    glUniformMatrix3fv(glGetUniformLocation(program_, "normalToView"), 1, GL_FALSE, same);
    glUniform2ui(glGetUniformLocation(program_, "colors"), 0, 1);
    glUniform3f(glGetUniformLocation(program_, "up"), 0, 0, 1);
    glUniform1f(glGetUniformLocation(program_, "parallel"), 1);
    GLuint buffer = 0, texture = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_TEXTURE_BUFFER, buffer);
    glBufferData(GL_TEXTURE_BUFFER, sizeof grey, grey, GL_STATIC_DRAW);
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_BUFFER, texture);
    glTexBuffer(GL_TEXTURE_BUFFER, GL_RGBA32F, buffer);
    rgb_.resize(size_t(kWidth) * kHeight * 3);
  }

  void Run() {
    glUseProgram(program_);
    glBindFramebuffer(GL_FRAMEBUFFER, frame_[0]);
    glClipControl(GL_LOWER_LEFT, GL_ZERO_TO_ONE);
    glViewport(0, 0, kWidth, kHeight);
    glClearDepth(0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_GREATER);
    for (const Sent& sent : sent_) {
      glBindVertexArray(sent.array);
      glDrawElements(GL_TRIANGLES, sent.indices, GL_UNSIGNED_SHORT,
                     reinterpret_cast<const void*>(sent.offset));
    }
    glBindFramebuffer(GL_READ_FRAMEBUFFER, frame_[0]);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, frame_[1]);
    glBlitFramebuffer(0, 0, kWidth, kHeight, 0, 0, kWidth, kHeight, GL_COLOR_BUFFER_BIT,
                      GL_NEAREST);
    glBindFramebuffer(GL_FRAMEBUFFER, frame_[1]);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, kWidth, kHeight, GL_RGB, GL_UNSIGNED_BYTE, rgb_.data());
  }

 private:
  struct Sent {
    GLuint array = 0;
    GLsizei indices = 0;
    size_t offset = 0;
  };

  void Send(const Mesh& mesh) {
    host::MeshStaging staging(mesh);
    const auto ends = staging.PieceEnds(0, mesh.faces.size());
    size_t first = 0;
    for (const size_t end : ends.value()) {
      for (const host::StagedChunk& c : staging.Stage(first, end).chunks) {
        constexpr GLsizei stride = sizeof(host::StagedVertex);
        const size_t size = c.vertices.size() * stride;
        GLuint array = 0, buffer = 0;
        glGenVertexArrays(1, &array);
        glGenBuffers(1, &buffer);
        glBindVertexArray(array);
        glBindBuffer(GL_ARRAY_BUFFER, buffer);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffer);
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(size + c.indices.size() * 2), nullptr,
                     GL_STATIC_DRAW);
        glBufferSubData(GL_ARRAY_BUFFER, 0, GLsizeiptr(size), c.vertices.data());
        glBufferSubData(GL_ARRAY_BUFFER, GLintptr(size), GLsizeiptr(c.indices.size() * 2),
                        c.indices.data());
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, stride, nullptr);
        glVertexAttribPointer(1, 3, GL_SHORT, GL_TRUE, stride, reinterpret_cast<void*>(12));
        glVertexAttribIPointer(2, 1, GL_UNSIGNED_SHORT, stride, reinterpret_cast<void*>(18));
        for (GLuint i = 0; i < 3; ++i) glEnableVertexAttribArray(i);
        sent_.push_back({array, GLsizei(c.indices.size()), size});
      }
      first = end;
    }
  }

  void MakeFrame() {
    GLuint buffers[3];
    glGenFramebuffers(2, frame_);
    glGenRenderbuffers(3, buffers);
    for (int i = 0; i < 3; ++i) {
      glBindRenderbuffer(GL_RENDERBUFFER, buffers[i]);
      glRenderbufferStorageMultisample(GL_RENDERBUFFER, i < 2 ? 4 : 0,
                                       i == 1 ? GL_DEPTH_COMPONENT32F : GL_RGBA8, kWidth, kHeight);
      glBindFramebuffer(GL_FRAMEBUFFER, frame_[i / 2]);
      glFramebufferRenderbuffer(GL_FRAMEBUFFER, i == 1 ? GL_DEPTH_ATTACHMENT : GL_COLOR_ATTACHMENT0,
                                GL_RENDERBUFFER, buffers[i]);
    }
  }

  GLuint program_ = 0, frame_[2] = {};
  std::vector<Sent> sent_;
  std::vector<std::uint8_t> rgb_;
};

ViewExp FromAbove(const Point3& middle, float span) {
  return ViewExp::Orthographic(middle + Point3(0, 0, 100), middle, span, kWidth, kHeight);
}

void DrawOrFail(benchmark::State& state, Interface& ip, ViewExp view) {
  std::string error;
  if (!host::DrawScene(ip, view, {.grid = false}, error)) state.SkipWithError(error.c_str());
}

constexpr int kSquirrels = 9759;
const Point3 kMiddle(500, 500, 0);
constexpr float kSpan = 1900;

Body SquirrelPicture(bool kept) {
  return [=](benchmark::State& state) {
    Painted& scene = SceneOf(kSquirrels);
    scene.Set(sowfield::Display_Mode, sowfield::kShowSquirrel);
    for (auto _ : state) {
      if (!kept) scene.object->mesh.InvalidateGeomCache();
      DrawOrFail(state, scene.host.Services(), FromAbove(kMiddle, kSpan));
    }
    scene.Set(sowfield::Display_Mode, 0);
  };
}

Body SquirrelLoop() {
  return [](benchmark::State& state) {
    Painted& scene = SceneOf(kSquirrels);
    scene.Set(sowfield::Display_Mode, sowfield::kShowSquirrel);
    scene.object->UpdateMesh(0);
    const host::GlScope scope;
    BareLoop loop({&scene.object->mesh}, kMiddle, kSpan);
    for (auto _ : state) loop.Run();
    scene.Set(sowfield::Display_Mode, 0);
  };
}

// Boxes that all fill the same part of the picture.
struct Boxes {
  Boxes() {
    for (int i = 0; i < 2000; ++i) {
      auto* box = new BoxObject;
      box->SetSize(1, 1, 1);
      host.Services().CreateObjectNode(box);
      box->UpdateMesh(0);
      meshes.push_back(&box->mesh);
    }
  }
  host::Host host;
  std::vector<const Mesh*> meshes;
};

}  // namespace

void AddPictureRows() {
  const std::string bare = "a bare loop over the same buffers";
  AddRow("a first picture of 9,759 squirrels", SquirrelPicture(false), bare, SquirrelLoop(),
         AtMost(1.3));
  AddRow("the next picture of 9,759 squirrels", SquirrelPicture(true), bare, SquirrelLoop(),
         AtMost(1.3));
  AddRow(
      "a picture of 2,000 boxes on one spot",
      [](benchmark::State& state) {
        DropScene();
        Boxes boxes;
        for (auto _ : state) DrawOrFail(state, boxes.host.Services(), FromAbove({0, 0, 0}, 2));
      },
      bare,
      [](benchmark::State& state) {
        DropScene();
        Boxes boxes;
        const host::GlScope scope;
        BareLoop loop(boxes.meshes, {0, 0, 0}, 2);
        for (auto _ : state) loop.Run();
      },
      AtMost(1.3));
}

}  // namespace bench
