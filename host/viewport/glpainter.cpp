#include "host/viewport/glpainter.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <span>

#include "host/viewport/glmesh.h"
#include "host/viewport/glshaders.h"
#include "host/viewport/graphicswindow.h"
#include "host/viewport/picturestore.h"
#include "host/viewport/windowtext.h"

namespace host {

namespace {

constexpr double kNear = kNearDepth;  // depth precision doesn't depend on it
constexpr double kLift = 2;           // of what a window draws over surfaces, pixels
// As an 8 bit sRGB channel comes out again, linear.
float LinearOf(float channel) {
  const float srgb = std::floor(std::clamp(channel, 0.0f, 1.0f) * 255.0f + 0.5f) / 255.0f;
  return srgb <= 0.04045f ? srgb / 12.92f : std::pow((srgb + 0.055f) / 1.055f, 2.4f);
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
  GLuint background = 0, mesh = 0, grid = 0, dots = 0, lines = 0, text = 0;
  GLint meshToView = 0, meshNormalToView = 0, meshColors = 0;  // set for each node
  std::string error;
};

const Programs& ThePrograms() {
  static const Programs programs = [] {
    Programs made;
    made.background = Link(kScreenVertexShader, kBackgroundShader, made.error);
    made.mesh = Link(kMeshVertexShader, kMeshShader, made.error);
    made.meshToView = glGetUniformLocation(made.mesh, "toView");
    made.meshNormalToView = glGetUniformLocation(made.mesh, "normalToView");
    made.meshColors = glGetUniformLocation(made.mesh, "colors");
    made.grid = Link(kScreenVertexShader, kGridShader, made.error);
    made.dots = Link(kWindowVertexShader, kDotShader, made.error);
    made.lines = Link(kWindowVertexShader, kPlainShader, made.error);
    made.text = Link(kTextVertexShader, kPlainShader, made.error);
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

void SetToView(GLint place, const double (&rows)[4][3]) {
  float toView[16] = {};
  for (int i = 0; i < 4; ++i)
    for (int k = 0; k < 3; ++k) toView[i * 4 + k] = float(rows[i][k]);
  toView[15] = 1;
  glUniformMatrix4fv(place, 1, GL_FALSE, toView);
}

// Normals go by the cofactors, which keep them on their side of a face in a mirrored mesh too.
void SetNormalToView(GLint place, const double (&r)[4][3]) {
  float cofactors[9] = {};
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
  glUniformMatrix3fv(place, 1, GL_FALSE, cofactors);
}

// The colours of all nodes, one after the other; equal lists stand there once.
struct Palette {
  std::vector<std::array<float, 4>> texels;
  std::vector<std::array<GLuint, 2>> ranges;  // first and count, by node

  explicit Palette(const std::vector<PaintedMesh>& meshes) {
    std::map<std::vector<std::array<float, 4>>, GLuint> known;
    for (const PaintedMesh& painted : meshes) {
      std::vector<std::array<float, 4>> own;
      for (const Color& c : painted.colors)
        own.push_back({LinearOf(c.r), LinearOf(c.g), LinearOf(c.b), 1});
      const auto [at, isNew] = known.try_emplace(own, GLuint(texels.size()));
      if (isNew) texels.insert(texels.end(), own.begin(), own.end());
      ranges.push_back({at->second, GLuint(own.size())});
    }
  }
};

}  // namespace

struct GlPainter::State {
  explicit State(PictureStore& kept) : store(kept) {}

  PictureStore& store;
  PictureStore::Frames frames;
  int width = 0, height = 0;
  Lens lens;
  Point3 up{0, 0, 1};
  std::string error;
  GLuint arrays[2] = {}, windowBuffer = 0, paletteBuffer = 0, palette = 0;

  void SetUpArrays();
  void SetProjection(GLuint program) const;
  void SendPalette(const Palette& colors);
  struct Lift {
    double factor, add;
  };
  Lift OfDepths() const;
  std::vector<GraphicsWindow::Vertex> TextTriangles(const GraphicsWindow& window,
                                                    const std::vector<BatchRows>& batches) const;
  void DrawBatches(GLuint program, GLenum kind, size_t base, size_t end,
                   size_t GraphicsWindow::Batch::*first, const GraphicsWindow& window,
                   const std::vector<BatchRows>& batches) const;
};

// Array 0 holds nothing, for shaders that make their own vertices.
void GlPainter::State::SetUpArrays() {
  glGenVertexArrays(2, arrays);
  glGenBuffers(1, &windowBuffer);
  glBindVertexArray(arrays[1]);
  glBindBuffer(GL_ARRAY_BUFFER, windowBuffer);
  const auto at = [](size_t offset) { return reinterpret_cast<const void*>(offset); };
  constexpr GLsizei stride = sizeof(GraphicsWindow::Vertex);
  glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, stride, at(0));
  glVertexAttribPointer(1, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride, at(12));
  for (GLuint i = 0; i < 2; ++i) glEnableVertexAttribArray(i);
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

GlPainter::GlPainter(PictureStore& store, int width, int height, const Lens& lens, const Point3& up)
    : s_(std::make_unique<State>(store)) {
  s_->width = width, s_->height = height;
  s_->lens = lens;
  s_->up = up;
  if (!epoxy_has_gl_extension("GL_ARB_clip_control")) {
    s_->error = "OpenGL has no clip control";
    return;
  }
  s_->error = ThePrograms().error;
  s_->frames = store.FramesOf(width, height, s_->error);
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
  glDeleteVertexArrays(2, s_->arrays);
  glDeleteBuffers(1, &s_->windowBuffer);
  glDeleteTextures(1, &s_->palette);
  glDeleteBuffers(1, &s_->paletteBuffer);
  s_->store.End(!s_->error.empty());
}

void GlPainter::State::SendPalette(const Palette& colors) {
  GLint most = 0;
  glGetIntegerv(GL_MAX_TEXTURE_BUFFER_SIZE, &most);
  if (colors.texels.size() > size_t(most))
    error = "OpenGL takes no more than " + std::to_string(most) + " colours of materials";
  glGenBuffers(1, &paletteBuffer);
  glBindBuffer(GL_TEXTURE_BUFFER, paletteBuffer);
  glBufferData(GL_TEXTURE_BUFFER, GLsizeiptr(colors.texels.size() * sizeof colors.texels[0]),
               colors.texels.data(), GL_STREAM_DRAW);
  glGenTextures(1, &palette);
  glBindTexture(GL_TEXTURE_BUFFER, palette);
  glTexBuffer(GL_TEXTURE_BUFFER, GL_RGBA32F, paletteBuffer);
}

void GlPainter::Draw(const std::vector<PaintedMesh>& meshes) {
  if (!s_->error.empty() || meshes.empty()) return;
  const Palette colors(meshes);
  s_->SendPalette(colors);
  const Programs& programs = ThePrograms();
  glUseProgram(programs.mesh);
  s_->SetProjection(programs.mesh);
  Set(programs.mesh, "up", s_->up);
  Set(programs.mesh, "parallel", s_->lens.parallel ? 1 : 0);
  for (size_t i = 0; i < meshes.size(); ++i) {
    SetToView(programs.meshToView, meshes[i].toView);
    SetNormalToView(programs.meshNormalToView, meshes[i].toView);
    glUniform2ui(programs.meshColors, colors.ranges[i][0], colors.ranges[i][1]);
    meshes[i].mesh->Draw();
  }
}

GlPainter::State::Lift GlPainter::State::OfDepths() const {
  const double pixels = kLift * 2 * lens.halfWidth / width;
  return lens.parallel ? Lift{1, pixels * 0.5 / lens.reach} : Lift{1 + pixels, 0};
}

std::vector<GraphicsWindow::Vertex> GlPainter::State::TextTriangles(
    const GraphicsWindow& window, const std::vector<BatchRows>& batches) const {
  std::vector<GraphicsWindow::Vertex> triangles;
  const Projection pixels{Matrix3(), lens.parallel, lens.halfWidth, lens.halfHeight, width, height};
  for (size_t b = 0; b < batches.size(); ++b) {
    const bool last = b + 1 == batches.size();
    const size_t end = last ? window.Texts().size() : window.Batches()[b + 1].firstText;
    for (size_t i = window.Batches()[b].firstText; batches[b].shown && i < end; ++i) {
      const GraphicsWindow::Text& text = window.Texts()[i];
      double v[3], x = 0, y = 0;
      Through(batches[b].toView, text.at, v);
      if (!pixels.ToPixel(v, x, y) || !std::isfinite(x) || !std::isfinite(y)) continue;
      const double deep = lens.parallel ? 0.5 + 0.5 * v[2] / lens.reach : kNear / -v[2];
      const Lift lift = OfDepths();
      const bool over = window.Batches()[b].overAll;
      const auto z = over ? 1.0f : float(std::clamp(deep * lift.factor + lift.add, 0.0, 1.0));
      // On whole pixels, where its edges are sharp.
      const auto left = float(std::lround(x)), foot = float(std::lround(y));
      const std::vector<TextCorner> corners = TextRectangles(text.text);
      for (size_t r = 0; r < corners.size(); r += 4)
        for (const size_t c : {0, 1, 2, 0, 2, 3})
          triangles.push_back({{left + corners[r + c].x, foot + corners[r + c].y, z}, text.rgba});
    }
  }
  return triangles;
}

void GlPainter::State::DrawBatches(GLuint program, GLenum kind, size_t base, size_t end,
                                   size_t GraphicsWindow::Batch::*first,
                                   const GraphicsWindow& window,
                                   const std::vector<BatchRows>& batches) const {
  glUseProgram(program);
  SetProjection(program);
  const Lift lift = OfDepths();
  Set(program, "lift", lift.factor, lift.add);
  Set(program, "dotSize", kDotSize);
  for (size_t b = 0; b < batches.size(); ++b) {
    const size_t from = window.Batches()[b].*first;
    const size_t to = b + 1 < batches.size() ? window.Batches()[b + 1].*first : end;
    if (from == to || !batches[b].shown) continue;
    SetToView(glGetUniformLocation(program, "toView"), batches[b].toView);
    if (window.Batches()[b].overAll) glDepthRange(1, 1);  // in front of all, also of what follows
    glDrawArrays(kind, GLint(base + from), GLsizei(to - from));
    glDepthRange(0, 1);
  }
}

void GlPainter::DrawWindow(const GraphicsWindow& window, const std::vector<BatchRows>& batches) {
  const auto &dots = window.Dots(), &lines = window.Lines();
  if (!s_->error.empty() || (dots.empty() && lines.empty() && window.Texts().empty())) return;
  const std::vector<GraphicsWindow::Vertex> text = s_->TextTriangles(window, batches);

  constexpr size_t size = sizeof(GraphicsWindow::Vertex);
  glBindVertexArray(s_->arrays[1]);
  glBindBuffer(GL_ARRAY_BUFFER, s_->windowBuffer);
  glBufferData(GL_ARRAY_BUFFER, GLsizeiptr((dots.size() + lines.size() + text.size()) * size),
               nullptr, GL_STREAM_DRAW);
  size_t at = 0;
  using Vertices = std::span<const GraphicsWindow::Vertex>;
  for (const Vertices list : {Vertices(dots), Vertices(lines), Vertices(text)}) {
    glBufferSubData(GL_ARRAY_BUFFER, GLintptr(at * size), GLsizeiptr(list.size() * size),
                    list.data());
    at += list.size();
  }

  // What a parallel view shows beyond the depth of its scene stays before or behind all of it; at
  // the far end it has the depth of the background.
  if (s_->lens.parallel) glEnable(GL_DEPTH_CLAMP);
  glDepthFunc(GL_GEQUAL);
  const Programs& programs = ThePrograms();
  using Batch = GraphicsWindow::Batch;
  glUseProgram(programs.dots);
  Set(programs.dots, "least", s_->frames.multisampled ? 0 : 0.5);
  glEnable(GL_PROGRAM_POINT_SIZE);
  if (s_->frames.multisampled) glEnable(GL_SAMPLE_ALPHA_TO_COVERAGE);
  s_->DrawBatches(programs.dots, GL_POINTS, 0, dots.size(), &Batch::firstDot, window, batches);
  glDisable(GL_SAMPLE_ALPHA_TO_COVERAGE);

  GLfloat widths[2] = {1, 1};
  glGetFloatv(GL_ALIASED_LINE_WIDTH_RANGE, widths);
  glLineWidth(std::clamp(float(kLineWidth), widths[0], widths[1]));
  s_->DrawBatches(programs.lines, GL_LINES, dots.size(), lines.size(), &Batch::firstLine, window,
                  batches);

  glUseProgram(programs.text);
  Set(programs.text, "size", s_->width, s_->height);
  glDrawArrays(GL_TRIANGLES, GLint(dots.size() + lines.size()), GLsizei(text.size()));
  glDisable(GL_DEPTH_CLAMP);
  glDepthFunc(GL_GREATER);
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
    glBindFramebuffer(GL_READ_FRAMEBUFFER, s_->frames.frame[0]);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, s_->frames.frame[1]);
    glBlitFramebuffer(0, 0, w, h, 0, 0, w, h, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_FRAMEBUFFER, s_->frames.frame[1]);
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
