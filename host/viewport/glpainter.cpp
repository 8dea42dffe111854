#include "host/viewport/glpainter.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "host/viewport/glshaders.h"

namespace host {

namespace {

constexpr double kNear = 1e-4;  // world units; depth precision doesn't depend on it
constexpr int kMostSmoothedPixels = 1 << 24;
constexpr size_t kFacesAtOnce = 1 << 15;
// Beyond this a face is smaller than a pixel, and the tables of corner normals reach gigabytes.
constexpr size_t kMostSmoothFaces = 4'000'000;

struct Vertex {
  Point3 position;
  std::uint8_t srgb[4];
  std::int16_t normal[4];
};

std::uint8_t ByteOf(float channel) {
  return std::uint8_t(std::clamp(channel, 0.0f, 1.0f) * 255.0f + 0.5f);
}

GLuint Compile(GLenum kind, const char* source, std::string& error) {
  const GLuint shader = glCreateShader(kind);
  glShaderSource(shader, 1, &source, nullptr);
  glCompileShader(shader);
  GLint done = 0;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &done);
  if (!done) {
    char log[512] = "";
    glGetShaderInfoLog(shader, sizeof log, nullptr, log);
    error = std::string("a shader does not compile: ") + log;
  }
  return shader;
}

GLuint Link(const char* vertex, const char* fragment, std::string& error) {
  const GLuint program = glCreateProgram();
  for (const GLuint shader :
       {Compile(GL_VERTEX_SHADER, vertex, error), Compile(GL_FRAGMENT_SHADER, fragment, error)}) {
    glAttachShader(program, shader);
    glDeleteShader(shader);
  }
  glLinkProgram(program);
  GLint done = 0;
  glGetProgramiv(program, GL_LINK_STATUS, &done);
  if (!done && error.empty()) error = "a shader program does not link";
  return program;
}

/// What outlives a picture, for the one context of the process.
struct Programs {
  GLuint background = 0, mesh = 0, grid = 0;
  std::string error;
};

const Programs& ThePrograms() {
  static const Programs programs = [] {
    Programs made;
    made.background = Link(kScreenVertexShader, kBackgroundShader, made.error);
    made.mesh = Link(kMeshVertexShader, kMeshShader, made.error);
    made.grid = Link(kScreenVertexShader, kGridShader, made.error);
    return made;
  }();
  return programs;
}

void Set(GLuint program, const char* name, const Point3& p) {
  glUniform3f(glGetUniformLocation(program, name), p.x, p.y, p.z);
}
void Set(GLuint program, const char* name, double x) {
  glUniform1f(glGetUniformLocation(program, name), float(x));
}
void Set(GLuint program, const char* name, double x, double y) {
  glUniform2f(glGetUniformLocation(program, name), float(x), float(y));
}

}  // namespace

struct GlPainter::State {
  int width = 0, height = 0;
  Lens lens;
  Point3 up{0, 0, 1};
  std::string error;
  GLuint frame[2] = {}, color[2] = {}, depth = 0;
  GLuint arrays[2] = {}, buffer = 0;
  std::vector<Vertex> staged;

  void MakeFrames();
  void SetUpArrays();
  void SetProjection(GLuint program) const;
  void Stage(const PaintedMesh& painted, const std::vector<Point3>& normals, size_t first,
             size_t last, const std::vector<std::array<std::uint8_t, 3>>& srgb);
};

// Frame 0 is drawn into, frame 1 gets its samples merged.
void GlPainter::State::MakeFrames() {
  GLint most = 0;
  glGetIntegerv(GL_MAX_SAMPLES, &most);
  const bool smooth = std::int64_t(width) * height <= kMostSmoothedPixels;
  const int samples = smooth ? std::min(4, int(most)) : 0;
  glGenFramebuffers(2, frame);
  glGenRenderbuffers(2, color);
  glGenRenderbuffers(1, &depth);
  for (int i = 0; i < 2; ++i) {
    glBindRenderbuffer(GL_RENDERBUFFER, color[i]);
    glRenderbufferStorageMultisample(GL_RENDERBUFFER, i == 0 ? samples : 0, GL_RGBA8, width,
                                     height);
    glBindFramebuffer(GL_FRAMEBUFFER, frame[i]);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, color[i]);
    if (i == 0) {
      glBindRenderbuffer(GL_RENDERBUFFER, depth);
      glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, GL_DEPTH_COMPONENT32F, width,
                                       height);
      glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depth);
    }
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
      error = "OpenGL gives no frame of " + std::to_string(width) + " x " + std::to_string(height) +
              " pixels";
  }
  glBindFramebuffer(GL_FRAMEBUFFER, frame[0]);
}

// Arrays 0 hold nothing, for shaders that make their own vertices.
void GlPainter::State::SetUpArrays() {
  glGenVertexArrays(2, arrays);
  glGenBuffers(1, &buffer);
  glBindVertexArray(arrays[1]);
  glBindBuffer(GL_ARRAY_BUFFER, buffer);
  const auto at = [](size_t offset) { return reinterpret_cast<const void*>(offset); };
  glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, sizeof(Vertex), at(0));
  glVertexAttribPointer(1, 4, GL_UNSIGNED_BYTE, GL_TRUE, sizeof(Vertex), at(12));
  glVertexAttribPointer(2, 3, GL_SHORT, GL_TRUE, sizeof(Vertex), at(16));
  for (GLuint i = 0; i < 3; ++i) glEnableVertexAttribArray(i);
}

// Depth runs from 1 in front to 0 far away: with floating point that keeps about the same relative
// precision at any distance, and a perspective needs no far plane.
void GlPainter::State::SetProjection(GLuint program) const {
  float m[16] = {};
  m[0] = float(1 / lens.halfWidth);
  m[5] = float(1 / lens.halfHeight);
  if (lens.parallel) {
    m[10] = float(0.5 / lens.reach);
    m[14] = 0.5f;
    m[15] = 1;
  } else {
    m[11] = -1;
    m[14] = float(kNear);
  }
  glUniformMatrix4fv(glGetUniformLocation(program, "projection"), 1, GL_FALSE, m);
}

GlPainter::GlPainter(int width, int height, const Lens& lens, const Point3& up)
    : s_(std::make_unique<State>()) {
  s_->width = width, s_->height = height;
  s_->lens = lens;
  s_->up = up;
  if (!epoxy_has_gl_extension("GL_ARB_clip_control")) {
    s_->error = "OpenGL has no clip control";
    return;
  }
  s_->error = ThePrograms().error;
  s_->MakeFrames();
  if (!s_->error.empty()) return;
  s_->SetUpArrays();
  glClipControl(GL_LOWER_LEFT, GL_ZERO_TO_ONE);
  glViewport(0, 0, width, height);
  glClearDepth(0);
  glDepthMask(GL_TRUE);
  glClear(GL_DEPTH_BUFFER_BIT);
  glDisable(GL_DEPTH_TEST);
  glDisable(GL_BLEND);
  glBindVertexArray(s_->arrays[0]);
  glUseProgram(ThePrograms().background);
  glDrawArrays(GL_TRIANGLES, 0, 3);
  glEnable(GL_DEPTH_TEST);
  glDepthFunc(GL_GREATER);
}

GlPainter::~GlPainter() {
  glBindFramebuffer(GL_FRAMEBUFFER, 0);
  glDeleteFramebuffers(2, s_->frame);
  glDeleteRenderbuffers(2, s_->color);
  glDeleteRenderbuffers(1, &s_->depth);
  glDeleteVertexArrays(2, s_->arrays);
  glDeleteBuffers(1, &s_->buffer);
}

void GlPainter::State::Stage(const PaintedMesh& painted, const std::vector<Point3>& normals,
                             size_t first, size_t last,
                             const std::vector<std::array<std::uint8_t, 3>>& srgb) {
  staged.clear();
  for (size_t i = first; i < last; ++i) {
    const Face& face = painted.mesh->faces[i];
    const auto& c = srgb[face.getMatID() % srgb.size()];
    const Mesh& mesh = *painted.mesh;
    const Point3& p0 = mesh.verts[face.v[0]];
    const Point3 own = Normalize(CrossProd(mesh.verts[face.v[1]] - p0, mesh.verts[face.v[2]] - p0));
    const bool smooth = !normals.empty() && face.smGroup != 0;
    for (size_t k = 0; k < 3; ++k) {
      Vertex v{mesh.verts[face.v[k]], {c[0], c[1], c[2], 255}, {0, 0, 0, 0}};
      // Normals of two sides that share their corners cancel each other.
      const bool shared = smooth && Length(normals[i * 3 + k]) > 0.5f;
      const Point3& n = shared ? normals[i * 3 + k] : own;
      for (int j = 0; j < 3; ++j)
        v.normal[j] = std::int16_t(std::clamp(n[j], -1.0f, 1.0f) * 32767.0f);
      staged.push_back(v);
    }
  }
}

void GlPainter::Draw(const PaintedMesh& painted) {
  if (!s_->error.empty() || painted.mesh->faces.empty()) return;
  const GLuint program = ThePrograms().mesh;
  glUseProgram(program);
  glBindVertexArray(s_->arrays[1]);
  s_->SetProjection(program);
  Set(program, "up", s_->up);
  Set(program, "parallel", s_->lens.parallel ? 1 : 0);

  // Normals go by the cofactors, which keep them on their side of a face in a mirrored mesh too.
  const auto& r = painted.toView;
  float toView[16] = {}, cofactors[9] = {};
  for (int i = 0; i < 4; ++i)
    for (int k = 0; k < 3; ++k) toView[i * 4 + k] = float(r[i][k]);
  toView[15] = 1;
  double largest = 0, c[9];
  for (int i = 0; i < 3; ++i) {
    const auto &a = r[(i + 1) % 3], &b = r[(i + 2) % 3];
    for (int k = 0; k < 3; ++k) {
      const int y = (k + 1) % 3, z = (k + 2) % 3;
      c[i * 3 + k] = a[y] * b[z] - a[z] * b[y];
      largest = std::max(largest, std::fabs(c[i * 3 + k]));
    }
  }
  for (int i = 0; i < 9; ++i) cofactors[i] = largest > 0 ? float(c[i] / largest) : 0.0f;
  glUniformMatrix4fv(glGetUniformLocation(program, "toView"), 1, GL_FALSE, toView);
  glUniformMatrix3fv(glGetUniformLocation(program, "normalToView"), 1, GL_FALSE, cofactors);

  std::vector<std::array<std::uint8_t, 3>> srgb;
  for (const Color& color : painted.colors)
    srgb.push_back({ByteOf(color.r), ByteOf(color.g), ByteOf(color.b)});
  const auto& faces = painted.mesh->faces;
  const bool smooth =
      faces.size() <= kMostSmoothFaces &&
      std::any_of(faces.begin(), faces.end(), [](const Face& f) { return f.smGroup != 0; });
  const std::vector<Point3> normals = smooth ? CornerNormals(*painted.mesh) : std::vector<Point3>();

  glBindBuffer(GL_ARRAY_BUFFER, s_->buffer);
  for (size_t first = 0; first < faces.size(); first += kFacesAtOnce) {
    s_->Stage(painted, normals, first, std::min(first + kFacesAtOnce, faces.size()), srgb);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(s_->staged.size() * sizeof(Vertex)), s_->staged.data(),
                 GL_STREAM_DRAW);
    glDrawArrays(GL_TRIANGLES, 0, GLsizei(s_->staged.size()));
  }
}

void GlPainter::DrawGrid(const GridPlane& grid) {
  if (!s_->error.empty()) return;
  const GLuint program = ThePrograms().grid;
  const Lens& lens = s_->lens;
  glUseProgram(program);
  glBindVertexArray(s_->arrays[0]);
  Set(program, "halfSize", lens.halfWidth, lens.halfHeight);
  Set(program, "parallel", lens.parallel ? 1 : 0);
  Set(program, "u", grid.u);
  Set(program, "v", grid.v);
  Set(program, "normal", grid.normal);
  Set(program, "eye", Point3(float(grid.eyeU), float(grid.eyeV), float(grid.height)));
  Set(program, "eyeCell", std::fmod(grid.eyeU, 10 * grid.spacing),
      std::fmod(grid.eyeV, 10 * grid.spacing));
  Set(program, "spacing", grid.spacing);
  Set(program, "fade", grid.fade);
  if (lens.parallel) {
    Set(program, "depthOf", -0.5 / lens.reach, 0.5);
  } else {
    Set(program, "depthOf", kNear, 0);
  }
  glEnable(GL_BLEND);
  glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
  glDrawArrays(GL_TRIANGLES, 0, 3);
  glDisable(GL_BLEND);
}

bool GlPainter::Finish(std::vector<std::uint8_t>& rgb, std::string& error) {
  if (s_->error.empty()) {
    const int w = s_->width, h = s_->height;
    glBindFramebuffer(GL_READ_FRAMEBUFFER, s_->frame[0]);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, s_->frame[1]);
    glBlitFramebuffer(0, 0, w, h, 0, 0, w, h, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_FRAMEBUFFER, s_->frame[1]);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    const size_t row = size_t(w) * 3;
    rgb.resize(row * size_t(h));
    glReadPixels(0, 0, w, h, GL_RGB, GL_UNSIGNED_BYTE, rgb.data());
    for (size_t y = 0; y < size_t(h) / 2; ++y)
      std::swap_ranges(rgb.begin() + long(y * row), rgb.begin() + long((y + 1) * row),
                       rgb.begin() + long((size_t(h) - 1 - y) * row));
    const GLenum code = glGetError();
    if (code == GL_OUT_OF_MEMORY) s_->error = "OpenGL has not enough memory";
    if (code != GL_NO_ERROR && s_->error.empty())
      s_->error = "OpenGL reports error " + std::to_string(code);
  }
  error = s_->error;
  return error.empty();
}

}  // namespace host
