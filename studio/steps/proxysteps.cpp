#include <fmt/format.h>

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

constexpr int kFromFile = 2;

}  // namespace

void ConvertType(Stage& stage, const Call& call, Outcome& out) {
  const AskedType asked(stage, call);
  sowfield::Distribution& d = asked.object.distribution;
  if (const std::string why = sowfield::WhyNotConvertible(d, asked.type); !why.empty())
    asked.Refuse("it can't become a Mokset: " + why);
  const Value& file = *call.args.Given("file");
  const std::string path = stage.Resolve(file.text);
  bool written = false;
  sowfield::ConvertType(d, asked.type, FromUtf8(path), written);
  d.RefreshObject();
  if (!written)
    throw StepFailure{file.place, fmt::format("\"{}\" can't be written; type {} points at it all "
                                              "the same: undo, or load a file into it",
                                              file.text, asked.type)};
  const sowfield::MoksetInfo info = sowfield::ReadMoksetInfo(FromUtf8(path));
  out.AddText("file", file.text);
  out.Add("vertices", info.vertices);
  out.Add("faces", info.faces);
  out.text = fmt::format("{}: {} vertices, {} faces", file.text, Grouped(info.vertices),
                         Grouped(info.faces));
}

void LoadType(Stage& stage, const Call& call, Outcome& out) {
  const AskedType asked(stage, call);
  if (asked.Kind() != kFromFile) asked.Refuse("it doesn't live in a file");
  const Value& file = *call.args.Given("file");
  const WStr path = FromUtf8(stage.Resolve(file.text));
  if (!sowfield::PointTypeAtFile(asked.object.distribution, asked.type, path)) {
    Mesh mesh;
    const sowfield::MoksetInfo info = sowfield::ReadMoksetFile(path, mesh);
    const std::string why = info.generation == -1 ? "it can't be opened"
                            : info.generation == 0
                                ? "its version isn't known"
                                : fmt::format("at byte {}: {}", info.fault.offset, info.fault.text);
    throw StepFailure{file.place, fmt::format("\"{}\": {}", file.text, why)};
  }
  out.AddText("file", file.text);
  out.text = fmt::format("type {} shows {}", asked.type, file.text);
}

void ExportType(Stage& stage, const Call& call, Outcome& out) {
  const AskedType asked(stage, call);
  if (asked.Kind() != kFromFile) asked.Refuse("it doesn't live in a file");
  sowfield::Distribution& d = asked.object.distribution;
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
  out.text = fmt::format("{} type{}", d.TypeCount(), d.TypeCount() == 1 ? "" : "s");
}

}  // namespace studio
