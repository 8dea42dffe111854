#include <fmt/format.h>

#include "host/files/modelfiles.h"
#include "sowfield/objects/proxylife.h"
#include "sowfield/proxy/moksetfile.h"
#include "studio/steps/steps.h"

namespace studio {

using sowfield::Sowfield;

namespace {

// The asked type of the edited object.
struct AskedType {
  AskedType(Stage& stage, const Call& call)
      : object(stage.Edited(call.place)),
        named(*call.args.Given("type")),
        type(Stage::TypeOf(object, named)) {}
  int Kind() const { return object.distribution.FindType(type).kind; }
  [[noreturn]] void Refuse(const std::string& why) const {
    throw StepFailure{named.place, fmt::format("type {}: {}", type, why)};
  }

  Sowfield& object;
  const Value& named;
  int type;
};

// Where the file stands that was told, with its folders.
WStr FileToWrite(Stage& stage, const Value& file) {
  if (host::ExtensionOf(file.text) != ".vorn")
    throw StepFailure{file.place, fmt::format("\"{}\" must end in .Vorn", file.text)};
  Value native = file;
  native.text = sowfield::NativePathOf(stage.ResolveToKeep(file));
  WStr path = stage.ResolveToKeep(native);
  stage.MakeRoomFor(native);
  return path;
}

}  // namespace

std::string WhyNoMokset(const WStr& path) {
  Mesh mesh;
  const sowfield::MoksetInfo info = sowfield::ReadMoksetFile(path, mesh);
  if (info.generation == -1) return "it can't be opened";
  if (info.generation == 0) return "its version isn't known";
  return info.fault ? fmt::format("at byte {}: {}", info.fault.offset, info.fault.text) : "";
}

void KeepFileForUndo(Stage& stage, Sowfield& object, int type) {
  const sowfield::Distribution& d = object.distribution;
  const sowfield::TypeRef found = d.FindType(type);
  if (found.kind == sowfield::kFromFile)
    stage.KeepForUndo(d.block->GetStr(sowfield::Proxy_Files, d.curTime, found.file));
}

void ConvertType(Stage& stage, const Call& call, Outcome& out) {
  const AskedType asked(stage, call);
  sowfield::Distribution& d = asked.object.distribution;
  if (const std::string why = sowfield::WhyNotConvertible(d, asked.type); !why.empty())
    asked.Refuse("it can't become a Mokset: " + why);
  const Value& file = *call.args.Given("file");
  const WStr path = FileToWrite(stage, file);
  bool written = false;
  std::string error;
  sowfield::ConvertType(d, asked.type, path, written, &error);
  d.RefreshObject();
  if (!written) throw StepFailure{file.place, error};
  const sowfield::MoksetInfo info = sowfield::ReadMoksetInfo(path);
  out.AddText("file", file.text);
  out.Add("vertices", info.vertices);
  out.Add("faces", info.faces);
  out.text = fmt::format("{}: {} vertices, {} faces", file.text, Grouped(info.vertices),
                         Grouped(info.faces));
}

void LoadType(Stage& stage, const Call& call, Outcome& out) {
  const AskedType asked(stage, call);
  if (asked.Kind() != sowfield::kFromFile) asked.Refuse("it doesn't live in a file");
  const Value& file = *call.args.Given("file");
  const WStr path = FromUtf8(stage.Resolve(file.text));
  KeepFileForUndo(stage, asked.object, asked.type);
  if (!sowfield::PointTypeAtFile(asked.object.distribution, asked.type, path))
    throw StepFailure{file.place, fmt::format("\"{}\": {}", file.text, WhyNoMokset(path))};
  out.AddText("file", file.text);
  out.text = fmt::format("type {} shows {}", asked.type, file.text);
}

void ExportType(Stage& stage, const Call& call, Outcome& out) {
  const AskedType asked(stage, call);
  if (asked.Kind() != sowfield::kFromFile) asked.Refuse("it doesn't live in a file");
  sowfield::Distribution& d = asked.object.distribution;
  const WStr path = d.block->GetStr(sowfield::Proxy_Files, d.curTime, d.FindType(asked.type).file);
  if (const std::string why = WhyNoMokset(path); !why.empty())
    asked.Refuse(fmt::format("its file \"{}\": {}", ToUtf8(path), why));
  KeepFileForUndo(stage, asked.object, asked.type);
  if (!sowfield::ExportMoksetToObject(d, asked.type)) asked.Refuse("its file is missing");
  d.RefreshObject();
  const std::string name = ToUtf8(d.SourceNode(d.FindType(asked.type))->GetName());
  out.AddText("node", name);
  out.text = fmt::format("type {} is the node \"{}\"", asked.type, name);
}

void UpdateTypes(Stage& stage, const Call& call, Outcome& out) {
  sowfield::Distribution& d = stage.Edited(call.place).distribution;
  sowfield::UpdateAllTypes(d);
  d.RefreshObject();
  out.Add("types", d.TypeCount());
  out.text = Counted(size_t(d.TypeCount()), "type");
  JsonOut unread;
  unread.BeginList();
  const std::span<const WStr> files = d.block->Strings(sowfield::Proxy_Files);
  for (const sowfield::TypeRef& type : sowfield::TypeWalk(*d.block)) {
    if (type.kind != sowfield::kFromFile) continue;
    const WStr& path = files[size_t(type.file)];
    const std::string why = WhyNoMokset(path);
    if (why.empty()) continue;
    unread.Int(type.type);
    out.text +=
        fmt::format("\n  type {} keeps what it knew: \"{}\": {}", type.type, ToUtf8(path), why);
  }
  out.Add("unread", unread.End().Str());
}

}  // namespace studio
