#include "studio/steps/outputs.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "host/files/file.h"
#include "host/files/modelfiles.h"
#include "host/math/wstr.h"
#include "host/scenefile/scenefile.h"
#include "sowfield/proxy/moksetfile.h"

namespace studio {
namespace {

// Enough to tell what a file is.
constexpr size_t kHead = 4096;

std::string HeadOf(const std::string& path) {
  host::FileSource file;
  std::string why;
  if (!file.Open(path, why)) return {};
  std::string head(std::min(file.Size(), kHead), 0);
  return file.Read(0, std::as_writable_bytes(std::span(head))) ? head : std::string();
}

bool IsMokset(const std::string& path, const std::string& head) {
  if (head.starts_with("Vorn_MoksetV")) return true;
  // The first generation has no mark.
  Mesh mesh;
  return !sowfield::ReadMoksetFile(FromUtf8(path), mesh).fault;
}

bool IsModel(const std::string& path, const std::string& head) {
  if (host::LooksLikeScene(path)) return false;
  const std::string ending = host::ExtensionOf(path);
  if (ending == ".glb") return head.starts_with("glTF");
  if (ending == ".gltf") return head.starts_with('{') && head.find("\"asset\"") != head.npos;
  return head.find('\0') == head.npos && ("\n" + head).find("\nv ") != head.npos;
}

// A list of this program begins with the object's name.
bool IsList(const std::string& head, const char* of) {
  return head.starts_with("{\n\"object\":") &&
         head.find(fmt::format("\n\"{}\":[", of)) != head.npos;
}

bool IsOfKind(const std::string& path, OutputKind kind) {
  const std::string head = HeadOf(path);
  switch (kind) {
    case OutputKind::Scene:
      return host::LooksLikeScene(path);
    case OutputKind::Mokset:
      return IsMokset(path, head);
    case OutputKind::Picture:
      return head.starts_with("\x89PNG\r\n\x1a\n");
    case OutputKind::Placements:
      return IsList(head, "placements");
    case OutputKind::Params:
      return IsList(head, "params");
    case OutputKind::Model:
      return IsModel(path, head);
  }
  return false;
}

const char* NameOf(OutputKind kind) {
  switch (kind) {
    case OutputKind::Scene:
      return "scene that this program saved";
    case OutputKind::Mokset:
      return "Mokset file";
    case OutputKind::Picture:
      return "PNG picture";
    case OutputKind::Placements:
      return "list of placements that this program wrote";
    case OutputKind::Params:
      return "list of parameters that this program wrote";
    case OutputKind::Model:
      return "model of that format";
  }
  return "";
}

bool NeedsWord(OutputKind kind) {
  return kind == OutputKind::Scene || kind == OutputKind::Mokset || kind == OutputKind::Model;
}

}  // namespace

std::string WhyNoScene(const std::string& file) {
  if (std::error_code code; !std::filesystem::exists(file, code) && !code)
    return fmt::format("there is no file \"{}\"", file);
  host::FileSource source;
  if (std::string why; !source.Open(file, why)) return why;
  return host::LooksLikeScene(file)
             ? ""
             : fmt::format("\"{}\" is no scene that this program saved", file);
}

std::string WhyNotWritten(const Output& output, std::span<const SourceFile> sources,
                          const std::string& how) {
  const std::string& path = output.path;
  for (const SourceFile& source : sources)
    if (host::SameFile(path, source.path))
      return fmt::format("\"{}\" is in use, it is {}: it won't be replaced", path, source.what);
  std::error_code code;
  if (!std::filesystem::is_regular_file(path, code)) return "";  // what can't be is told later
  if (std::filesystem::file_size(path, code) == 0) return "";
  host::FileSource readable;
  if (std::string why; !readable.Open(path, why)) return why;
  if (!IsOfKind(path, output.kind))
    return fmt::format("\"{}\" is no {}: it won't be replaced", path, NameOf(output.kind));
  if (NeedsWord(output.kind) && !output.replace)
    return fmt::format("\"{}\" is there already: {} replaces it", path, how);
  return "";
}

}  // namespace studio
