#define TINYGLTF_IMPLEMENTATION
#include "host/import/gltfmodel.h"

#include <array>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>

#include "host/exchange/importfault.h"
#include "host/files/file.h"
#include "host/files/modelfiles.h"

namespace host {

namespace {

using nlohmann::json;

constexpr int kDeepestJson = 200;  // copying and writing go down by calls
constexpr size_t kLargestJson = size_t(1) << 30;

enum class Kind {
  Text,
  Number,
  Whole,
  Flag,
  Numbers,
  Wholes,
  WholeByName,
  WholesByName,  // a list of them
  Object,
  Objects
};

struct Member {
  const char* name;
  Kind kind;
  std::initializer_list<Member> members = {};
  bool needed = false;
};

// All that is handed on. tinygltf passes over values of a wrong type in silence, and follows what
// nobody asked for (images, nested extras).
const std::initializer_list<Member> kBufferView = {{"buffer", Kind::Whole},
                                                   {"byteOffset", Kind::Whole},
                                                   {"byteLength", Kind::Whole},
                                                   {"byteStride", Kind::Whole}};
const std::initializer_list<Member> kSparseIndices = {{"bufferView", Kind::Whole, {}, true},
                                                      {"byteOffset", Kind::Whole},
                                                      {"componentType", Kind::Whole, {}, true}};
const std::initializer_list<Member> kSparseValues = {{"bufferView", Kind::Whole, {}, true},
                                                     {"byteOffset", Kind::Whole}};
const std::initializer_list<Member> kSparse = {{"count", Kind::Whole, {}, true},
                                               {"indices", Kind::Object, kSparseIndices, true},
                                               {"values", Kind::Object, kSparseValues, true}};
const std::initializer_list<Member> kAccessor = {
    {"bufferView", Kind::Whole},      {"byteOffset", Kind::Whole}, {"componentType", Kind::Whole},
    {"normalized", Kind::Flag},       {"count", Kind::Whole},      {"type", Kind::Text},
    {"sparse", Kind::Object, kSparse}};
const std::initializer_list<Member> kPrimitive = {{"attributes", Kind::WholeByName},
                                                  {"indices", Kind::Whole},
                                                  {"material", Kind::Whole},
                                                  {"mode", Kind::Whole},
                                                  {"targets", Kind::WholesByName}};
const std::initializer_list<Member> kMesh = {
    {"name", Kind::Text}, {"weights", Kind::Numbers}, {"primitives", Kind::Objects, kPrimitive}};
const std::initializer_list<Member> kSkin = {
    {"name", Kind::Text}, {"inverseBindMatrices", Kind::Whole}, {"joints", Kind::Wholes, {}, true}};
const std::initializer_list<Member> kTarget = {{"node", Kind::Whole},
                                               {"path", Kind::Text, {}, true}};
const std::initializer_list<Member> kChannel = {{"sampler", Kind::Whole, {}, true},
                                                {"target", Kind::Object, kTarget, true}};
const std::initializer_list<Member> kSampler = {{"input", Kind::Whole, {}, true},
                                                {"output", Kind::Whole, {}, true},
                                                {"interpolation", Kind::Text}};
const std::initializer_list<Member> kAnimation = {{"name", Kind::Text},
                                                  {"channels", Kind::Objects, kChannel},
                                                  {"samplers", Kind::Objects, kSampler}};
const std::initializer_list<Member> kNode = {
    {"name", Kind::Text},        {"children", Kind::Wholes}, {"matrix", Kind::Numbers},
    {"rotation", Kind::Numbers}, {"scale", Kind::Numbers},   {"translation", Kind::Numbers},
    {"mesh", Kind::Whole},       {"camera", Kind::Whole},    {"skin", Kind::Whole},
    {"weights", Kind::Numbers}};
const std::initializer_list<Member> kScene = {{"name", Kind::Text}, {"nodes", Kind::Wholes}};
const std::initializer_list<Member> kPbr = {{"baseColorFactor", Kind::Numbers}};
const std::initializer_list<Member> kMaterial = {{"name", Kind::Text},
                                                 {"pbrMetallicRoughness", Kind::Object, kPbr}};
const std::initializer_list<Member> kLens = {
    {"aspectRatio", Kind::Number}, {"yfov", Kind::Number}, {"znear", Kind::Number}};
// These are not imported, but tinygltf refuses a file whose parallel camera has none.
const std::initializer_list<Member> kParallelLens = {{"xmag", Kind::Number},
                                                     {"ymag", Kind::Number},
                                                     {"zfar", Kind::Number},
                                                     {"znear", Kind::Number}};
const std::initializer_list<Member> kCamera = {{"name", Kind::Text},
                                               {"type", Kind::Text},
                                               {"perspective", Kind::Object, kLens},
                                               {"orthographic", Kind::Object, kParallelLens}};

bool IsWhole(const json& v) {
  return v.is_number_integer() && v >= 0 && v <= std::numeric_limits<int>::max();
}

template <class Test>
bool All(const json& v, Test test) {
  return std::all_of(v.begin(), v.end(), test);
}

bool IsWholeByName(const json& v) { return v.is_object() && All(v, IsWhole); }

const char* Misfit(const json& v, Kind kind) {
  switch (kind) {
    case Kind::Text:
      return v.is_string() ? nullptr : "a text";
    case Kind::Number:
      return v.is_number() ? nullptr : "a number";
    case Kind::Flag:
      return v.is_boolean() ? nullptr : "true or false";
    case Kind::Object:
      return v.is_object() ? nullptr : "an object";
    case Kind::Whole:
      return IsWhole(v) ? nullptr : "a whole number from 0 to 2147483647";
    case Kind::Numbers:
      return v.is_array() && All(v, [](const json& e) { return e.is_number(); })
                 ? nullptr
                 : "a list of numbers";
    case Kind::Wholes:
      return v.is_array() && All(v, IsWhole) ? nullptr
                                             : "a list of whole numbers from 0 to 2147483647";
    case Kind::WholeByName:
      return IsWholeByName(v) ? nullptr : "an object of whole numbers from 0";
    case Kind::WholesByName:
      return v.is_array() && All(v, IsWholeByName) ? nullptr
                                                   : "a list of objects of whole numbers from 0";
    case Kind::Objects:
      return v.is_array() ? nullptr : "a list";
  }
  return nullptr;
}

void MustFit(const json& v, Kind kind, const std::string& where) {
  if (const char* wanted = Misfit(v, kind)) throw ImportFault(where + " is not " + wanted);
}

json Pick(const json& from, std::initializer_list<Member> members, const std::string& where) {
  MustFit(from, Kind::Object, where);
  json picked = json::object();
  for (const Member& m : members) {
    const auto found = from.find(m.name);
    const std::string path = where + "." + m.name;
    if (found == from.end()) {
      if (m.needed) throw ImportFault(path + " is missing");
      continue;
    }
    MustFit(*found, m.kind, path);
    json& value = picked[m.name];
    if (m.kind == Kind::Objects) {
      value = json::array();
      for (size_t i = 0; i < found->size(); ++i)
        value.push_back(Pick((*found)[i], m.members, path + "[" + std::to_string(i) + "]"));
    } else {
      value = m.kind == Kind::Object ? Pick(*found, m.members, path) : *found;
    }
  }
  return picked;
}

const json* ListOf(const json& from, const char* name, const std::string& where) {
  const auto found = from.find(name);
  if (found == from.end()) return nullptr;
  if (!found->is_array()) throw ImportFault(where + " is not a list");
  return &*found;
}

json PickAll(const json& from, const char* name, std::initializer_list<Member> members) {
  json picked = json::array();
  const json* list = ListOf(from, name, name);
  for (size_t i = 0; list && i < list->size(); ++i)
    picked.push_back(Pick((*list)[i], members, std::string(name) + "[" + std::to_string(i) + "]"));
  return picked;
}

json PickModel(const json& root) {
  json picked = {{"asset", {{"version", "2.0"}}}};
  picked["bufferViews"] = PickAll(root, "bufferViews", kBufferView);
  picked["accessors"] = PickAll(root, "accessors", kAccessor);
  picked["meshes"] = PickAll(root, "meshes", kMesh);
  picked["nodes"] = PickAll(root, "nodes", kNode);
  picked["scenes"] = PickAll(root, "scenes", kScene);
  picked["materials"] = PickAll(root, "materials", kMaterial);
  picked["cameras"] = PickAll(root, "cameras", kCamera);
  picked["skins"] = PickAll(root, "skins", kSkin);
  picked["animations"] = PickAll(root, "animations", kAnimation);
  if (const auto scene = root.find("scene"); scene != root.end()) {
    MustFit(*scene, Kind::Whole, "scene");
    picked["scene"] = *scene;
  }
  return picked;
}

std::uint32_t Word(std::span<const std::byte> bytes, size_t at) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data() + at, 4);
  return word;
}

struct Parts {
  std::span<const std::byte> text, binary;
};

constexpr std::uint32_t kGlbMagic = 0x46546C67, kJsonChunk = 0x4E4F534A, kBinChunk = 0x004E4942;

Parts SplitGlb(std::span<const std::byte> bytes) {
  if (bytes.size() < 4 || Word(bytes, 0) != kGlbMagic) return {bytes, {}};
  if (bytes.size() < 20) throw ImportFault("the GLB is cut off in its header");
  if (Word(bytes, 4) != 2)
    throw ImportFault("version " + std::to_string(Word(bytes, 4)) +
                      " of GLB is not supported, only 2");
  const size_t stated = Word(bytes, 8);
  if (stated > bytes.size() || stated < 20)
    throw ImportFault("the GLB states a length of " + std::to_string(stated) + ", but has " +
                      std::to_string(bytes.size()) + " bytes");
  Parts parts;
  for (size_t at = 12; at + 8 <= stated;) {
    const size_t size = Word(bytes, at);
    const std::uint32_t type = Word(bytes, at + 4);
    if (size > stated - at - 8) throw ImportFault("a chunk reaches beyond the end of the GLB");
    const auto chunk = bytes.subspan(at + 8, size);
    if (at == 12 && type != kJsonChunk) throw ImportFault("the GLB does not begin with JSON");
    if (at == 12) parts.text = chunk;
    if (type == kBinChunk && !parts.binary.data()) parts.binary = chunk;
    at += 8 + (size + 3) / 4 * 4;
  }
  return parts;
}

json ParseJson(std::span<const std::byte> text) {
  if (text.size() > kLargestJson)
    throw ImportFault("its JSON is " + std::to_string(text.size()) + " bytes long, at most " +
                      std::to_string(kLargestJson) + " are read");
  const auto* first = reinterpret_cast<const char*>(text.data());
  try {
    return json::parse(first, first + text.size(), [](int depth, json::parse_event_t, json&) {
      if (depth > kDeepestJson) throw ImportFault("its JSON is nested too deep");
      return true;
    });
  } catch (const json::exception& e) {
    throw ImportFault(std::string("is not JSON: ") + e.what());
  }
}

void CheckVersion(const json& root) {
  MustFit(root, Kind::Object, "the glTF");
  const auto asset = root.find("asset");
  const bool stated = asset != root.end() && asset->is_object() && asset->contains("version") &&
                      (*asset)["version"].is_string();
  if (!stated) throw ImportFault("is not glTF: asset.version is missing");
  const std::string version = (*asset)["version"];
  if (version.rfind("2.", 0) != 0)
    throw ImportFault("glTF version " + version + " is not supported, only 2");
}

// Required ones that change no shape, or whose shapes are read.
const std::set<std::string> kKnownExtensions = {"KHR_mesh_quantization", "KHR_texture_transform",
                                                "KHR_texture_basisu",    "KHR_lights_punctual",
                                                "KHR_materials_unlit",   "EXT_texture_webp"};

void CheckExtensions(const json& root, std::vector<std::string>& warnings) {
  if (const json* required = ListOf(root, "extensionsRequired", "extensionsRequired"))
    for (const json& e : *required) {
      MustFit(e, Kind::Text, "an entry of extensionsRequired");
      const std::string name = e;
      if (!kKnownExtensions.contains(name) && name.rfind("KHR_materials_", 0) != 0)
        throw ImportFault("requires the extension " + name + ", which is not supported");
    }
  if (const json* used = ListOf(root, "extensionsUsed", "extensionsUsed"))
    for (const json& e : *used)
      if (e == "EXT_mesh_gpu_instancing")
        warnings.push_back("instances of EXT_mesh_gpu_instancing are not imported");
}

int Base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  return c == '+' ? 62 : c == '/' ? 63 : -1;
}

std::vector<unsigned char> DecodeBase64(std::string_view text, const std::string& where) {
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  std::vector<unsigned char> bytes;
  bytes.reserve(text.size() / 4 * 3 + 3);
  std::uint32_t held = 0;
  int bits = 0;
  for (const char c : text) {
    const int value = Base64Value(c);
    if (value < 0) throw ImportFault(where + " is not valid base64");
    held = held << 6 | std::uint32_t(value);
    if ((bits += 6) < 8) continue;
    bits -= 8;
    bytes.push_back((unsigned char)(held >> bits));
  }
  return bytes;
}

// A model names files beside or below itself; anything else isn't read.
bool StaysInFolder(const std::string& name) {
  if (name.empty() || name[0] == '/' || name.find('\0') != std::string::npos ||
      name.find(':') != std::string::npos)
    return false;
  const std::string slashed = "/" + name + "/";
  return slashed.find("/../") == std::string::npos && name.find('\\') == std::string::npos;
}

}  // namespace

std::vector<unsigned char> FetchGltfUri(const std::string& uri, const std::string& folder,
                                        const std::string& where) {
  if (uri.rfind("data:", 0) == 0) {
    const size_t comma = uri.find(',');
    if (comma == std::string::npos || uri.substr(0, comma).find(";base64") == std::string::npos)
      throw ImportFault(where + ".uri is not base64 data");
    return DecodeBase64(std::string_view(uri).substr(comma + 1), where + ".uri");
  }
  const std::string name = DecodePercent(uri);
  if (folder.empty())
    throw ImportFault(where + " is in the file \"" + name + "\", which a glTF in memory has not");
  if (!StaysInFolder(name))
    throw ImportFault(where + ".uri \"" + name + "\" is not a file in the model's folder");
  std::vector<std::byte> bytes;
  std::string error;
  if (!ReadFile(folder + "/" + name, bytes, error)) throw ImportFault(where + ": " + error);
  const auto* first = reinterpret_cast<const unsigned char*>(bytes.data());
  return {first, first + bytes.size()};
}

namespace {

std::vector<tinygltf::Buffer> LoadBuffers(const json& root, std::span<const std::byte> binary,
                                          const std::string& folder) {
  std::vector<tinygltf::Buffer> buffers;
  const json* list = ListOf(root, "buffers", "buffers");
  for (size_t i = 0; list && i < list->size(); ++i) {
    const std::string where = "buffers[" + std::to_string(i) + "]";
    const json known = Pick((*list)[i], {{"uri", Kind::Text}, {"byteLength", Kind::Whole}}, where);
    if (!known.contains("byteLength")) throw ImportFault(where + ".byteLength is missing");
    const size_t length = known["byteLength"];
    tinygltf::Buffer& buffer = buffers.emplace_back();
    if (known.contains("uri")) {
      buffer.data = FetchGltfUri(known["uri"].get_ref<const std::string&>(), folder, where);
    } else if (i == 0 && binary.data()) {
      const auto* first = reinterpret_cast<const unsigned char*>(binary.data());
      buffer.data.assign(first, first + binary.size());
    } else {
      throw ImportFault(where + " has no data");
    }
    if (buffer.data.size() < length)
      throw ImportFault(where + " states " + std::to_string(length) + " bytes, but has " +
                        std::to_string(buffer.data.size()));
  }
  return buffers;
}

}  // namespace

GltfModel LoadGltf(std::span<const std::byte> bytes, const std::string& folder) {
  const Parts parts = SplitGlb(bytes);
  const json root = ParseJson(parts.text);
  CheckVersion(root);
  GltfModel loaded;
  CheckExtensions(root, loaded.warnings);

  const std::string picked = PickModel(root).dump();
  std::string error, warning;
  tinygltf::TinyGLTF reader;
  if (!reader.LoadASCIIFromString(&loaded.model, &error, &warning, picked.data(),
                                  unsigned(picked.size()), ""))
    throw ImportFault(error.empty() ? "cannot be read as glTF" : error);
  loaded.model.buffers = LoadBuffers(root, parts.binary, folder);
  loaded.pictures = ReadGltfPictures(root, loaded.model, folder);
  return loaded;
}

}  // namespace host
