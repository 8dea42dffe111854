#pragma once

namespace host {

// A triangle over the whole picture; `at` runs from -1 to 1 in it.
inline constexpr const char* kScreenVertexShader = R"(#version 330 core
out vec2 at;
void main() {
  at = vec2(gl_VertexID == 1 ? 3.0 : -1.0, gl_VertexID == 2 ? 3.0 : -1.0);
  gl_Position = vec4(at, 0.0, 1.0);
}
)";

inline constexpr const char* kBackgroundShader = R"(#version 330 core
in vec2 at;
out vec4 color;
void main() {
  float h = smoothstep(-1.0, 1.0, at.y);
  vec3 c = mix(vec3(0.905, 0.908, 0.905), vec3(0.772, 0.812, 0.852), h);
  // A trace of noise keeps 8 bits from showing bands.
  float noise = fract(52.9829189 * fract(dot(gl_FragCoord.xy, vec2(0.06711056, 0.00583715))));
  color = vec4(c + (noise - 0.5) / 255.0, 1.0);
}
)";

inline constexpr const char* kMeshVertexShader = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in uint material;
uniform samplerBuffer palette;  // linear colours of all nodes
uniform uvec2 colors;           // of this one: where they begin, how many
uniform mat4 toView;
uniform mat3 normalToView;
uniform mat4 projection;
out vec3 viewed;
out vec3 viewedNormal;
flat out vec3 albedo;
void main() {
  vec4 p = toView * vec4(position, 1.0);
  viewed = p.xyz;
  vec3 n = normalToView * normal;
  float size = length(n);
  viewedNormal = size > 0.0 ? n / size : vec3(0.0);
  albedo = texelFetch(palette, int(colors.x + material % colors.y)).rgb;
  gl_Position = projection * p;
}
)";

// Normals stand on the side from which a face turns left; seen from the other side they are turned
// over, so that both sides are lit alike.
inline constexpr const char* kMeshShader = R"(#version 330 core
in vec3 viewed;
in vec3 viewedNormal;
flat in vec3 albedo;
uniform vec3 up;
uniform float parallel;
out vec4 color;

vec3 Encode(vec3 c) {
  return mix(12.92 * c, 1.055 * pow(c, vec3(1.0 / 2.4)) - 0.055, step(0.0031308, c));
}

void main() {
  vec3 toEye = normalize(mix(-viewed, vec3(0.0, 0.0, 1.0), parallel));
  float size = length(viewedNormal);
  vec3 n = size > 1e-3 ? viewedNormal / size : toEye;
  if (!gl_FrontFacing && size > 1e-3) n = -n;

  vec3 sky = vec3(0.46, 0.49, 0.54), ground = vec3(0.29, 0.265, 0.24);
  vec3 light = mix(ground, sky, 0.5 + 0.5 * dot(n, up));
  float key = max(0.0, dot(n, normalize(vec3(-0.55, 0.70, 0.60))));
  float fill = max(0.0, dot(n, normalize(vec3(0.75, 0.05, 0.65))));
  light += key * vec3(0.62, 0.60, 0.56) + fill * vec3(0.07, 0.08, 0.10);
  vec3 lit = albedo * light;
  // A weak sheen tells curved from flat.
  vec3 halfway = normalize(normalize(vec3(-0.55, 0.70, 0.60)) + toEye);
  lit += 0.035 * pow(max(0.0, dot(n, halfway)), 24.0);
  color = vec4(Encode(clamp(lit, 0.0, 1.0)), 1.0);
}
)";

inline constexpr const char* kWindowVertexShader = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec4 srgb;
uniform mat4 toView;
uniform mat4 projection;
uniform vec2 lift;  // of the depth: a factor and what is added
uniform float dotSize;
flat out vec4 shade;
void main() {
  gl_Position = projection * (toView * vec4(position, 1.0));
  gl_Position.z = gl_Position.z * lift.x + lift.y;
  gl_PointSize = dotSize + 1.0;
  shade = srgb;
}
)";

// Texts come as pixels from the upper left corner, and a depth.
inline constexpr const char* kTextVertexShader = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec4 srgb;
uniform vec2 size;
flat out vec4 shade;
void main() {
  vec2 at = 2.0 * position.xy / size - 1.0;
  gl_Position = vec4(at.x, -at.y, position.z, 1.0);
  shade = srgb;
}
)";

inline constexpr const char* kPlainShader = R"(#version 330 core
flat in vec4 shade;
out vec4 color;
void main() { color = vec4(shade.rgb, 1.0); }
)";

// The alpha of the rim becomes a share of the pixel's samples.
inline constexpr const char* kDotShader = R"(#version 330 core
flat in vec4 shade;
uniform float dotSize, least;
out vec4 color;
void main() {
  float away = length(gl_PointCoord - 0.5) * (dotSize + 1.0);
  float alpha = clamp(0.5 * dotSize + 0.5 - away, 0.0, 1.0);
  if (alpha <= least) discard;
  color = vec4(shade.rgb, alpha);
}
)";

inline constexpr const char* kGridShader = R"(#version 330 core
in vec2 at;
uniform vec2 halfSize;
uniform float parallel;
uniform vec3 u, v, normal;
uniform vec3 eye;      // u, v, height over the plane
uniform vec2 eyeCell;  // u, v within a strong cell
uniform float spacing, fade;
uniform vec2 depthOf;  // depth = x / way, or x * way + y in a parallel view
out vec4 color;

// How much of the pixel the lines of one family cover, less where they crowd.
vec2 Lines(vec2 p, vec2 footprint, float step) {
  vec2 f = footprint / step;
  vec2 off = abs(fract(p / step - 0.5) - 0.5) / max(f, 1e-9);
  return clamp(1.1 - off, 0.0, 1.0) * (1.0 - smoothstep(0.08, 0.35, f));
}

void main() {
  vec3 from = parallel > 0.5 ? vec3(at * halfSize, 0.0) : vec3(0.0);
  vec3 dir = parallel > 0.5 ? vec3(0.0, 0.0, -1.0) : vec3(at * halfSize, -1.0);
  float fall = -dot(dir, normal);
  float way = (eye.z + dot(from, normal)) / (abs(fall) > 1e-7 ? fall : 1e-7);
  vec3 hit = from + way * dir;
  vec2 moved = vec2(dot(hit, u), dot(hit, v));
  vec2 footprint = fwidth(moved);
  float depth = parallel > 0.5 ? depthOf.x * way + depthOf.y : depthOf.x / way;
  float slack = fwidth(depth) + (parallel > 0.5 ? 1e-6 : depth * 2e-4);
  if (parallel < 0.5 && way <= 0.0) discard;

  vec2 weak = Lines(eyeCell + moved, footprint, spacing);
  vec2 strong = Lines(eyeCell + moved, footprint, 10.0 * spacing);
  vec2 axis = clamp(1.6 - abs(eye.xy + moved) / max(footprint, 1e-9), 0.0, 1.0);
  float near = parallel > 0.5 ? 1.0 : 1.0 - smoothstep(0.15, 1.0, length(hit) / fade);

  float a = max(0.20 * max(weak.x, weak.y), 0.38 * max(strong.x, strong.y));
  vec3 c = vec3(0.30, 0.33, 0.37);
  // The line of u = 0 runs along v.
  c = mix(c, vec3(0.24, 0.52, 0.25), axis.x);
  c = mix(c, vec3(0.70, 0.26, 0.22), axis.y);
  a = max(a, 0.75 * max(axis.x, axis.y)) * near;
  if (a < 0.004) discard;
  color = vec4(c, a);
  // A little behind its place, so that surfaces lying on the plane show.
  gl_FragDepth = clamp(depth - slack, 0.0, 1.0);
}
)";

}  // namespace host
