#include "studio/steps/stage.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <ostream>
#include <set>

#include "host/files/file.h"
#include "sowfield/model/classids.h"
#include "sowfield/panels/editcontext.h"
#include "sowfield/plugin/entry.h"
#include "sowfield/proxy/moksetfile.h"
#include "studio/job/steptable.h"
#include "studio/steps/fileuses.h"

namespace studio {

ColorRef ColourOf(const std::string& text) {
  const long rgb = std::strtol(text.c_str() + 1, nullptr, 16);
  return PackColor(int(rgb >> 16), int(rgb >> 8 & 255), int(rgb & 255));
}

std::string InPrint(const std::string& path) {
  std::string shown;
  for (const char c : path)
    shown += c & 0x80 ? fmt::format("\\x{:02x}", static_cast<unsigned char>(c)) : std::string(1, c);
  return shown;
}

using sowfield::Sowfield;

Stage::Stage(std::string folder, std::ostream& notices)
    : folder_(std::move(folder)), notices_(notices) {
  Ip().Boxes().SetReporter([this](const host::ShownBox& box) {
    notices_ << "notice: [" << ToUtf8(box.title) << "] " << ToUtf8(box.text) << '\n';
  });
  Ip().SetListener([this](const WStr& text) { notices_ << ToUtf8(text); });
  std::string why;
  if (!host_.Classes().AddPlugin(sowfield::Entries(), why))
    throw StepFailure{{}, "the Sowfield object can't be registered: " + why};
}

Stage::~Stage() {
  LeavePaintMode();
  StopEditing();
}

INode* Stage::Node(const Value& name) {
  const WStr wide = FromUtf8(name.text);
  const std::vector<INode*> found = host_.GetScene().FindNodes(wide);
  if (found.size() == 1) return found.front();
  if (found.size() > 1)
    throw StepFailure{name.place,
                      fmt::format("{} nodes are named \"{}\"", found.size(), name.text)};
  std::set<std::string> names;
  for (const INode* n : host_.GetScene().AllNodes()) names.insert(ToUtf8(n->GetName()));
  const std::vector<std::string> list(names.begin(), names.end());
  throw StepFailure{
      name.place, fmt::format("no node is named \"{}\"{}", name.text, DidYouMean(name.text, list))};
}

void Stage::NeedNewName(const Value& name) {
  if (!host_.GetScene().FindNodes(FromUtf8(name.text)).empty())
    throw StepFailure{name.place, fmt::format("a node is named \"{}\" already", name.text)};
}

Sowfield* Stage::SowfieldOf(INode* node) {
  Object* object = node->GetObjectRef();
  return object && object->ClassID() == sowfield::kSowfieldClassID ? static_cast<Sowfield*>(object)
                                                                   : nullptr;
}

std::vector<INode*> Stage::SowfieldNodes() {
  std::vector<INode*> nodes = host_.GetScene().AllNodes();
  std::erase_if(nodes, [](INode* n) { return !SowfieldOf(n); });
  return nodes;
}

INode* Stage::SowfieldNode(const Value& name) {
  const auto named = [this](std::string_view text) {
    std::vector<INode*> found = SowfieldNodes();
    std::erase_if(found, [&](INode* n) { return ToUtf8(n->GetName()) != text; });
    return found;
  };
  const auto several = [&](size_t count, std::string_view text) {
    const std::string which =
        count == 1 ? fmt::format("1 Sowfield object is named \"{}\"", text)
                   : fmt::format(
                         "{0} Sowfield objects are named \"{1}\": tell which, \"{1}#1\" to "
                         "\"{1}#{0}\"",
                         count, text);
    return StepFailure{name.place, which};
  };
  const std::vector<INode*> found = named(name.text);
  if (found.size() == 1) return found.front();
  if (!found.empty()) throw several(found.size(), name.text);
  const std::string_view text = name.text;
  if (const size_t mark = text.rfind('#'); mark != text.npos) {
    size_t number = 0;
    const auto [end, code] =
        std::from_chars(text.data() + mark + 1, text.data() + text.size(), number);
    const std::vector<INode*> equal = named(text.substr(0, mark));
    if (code == std::errc() && end == text.data() + text.size() && !equal.empty()) {
      if (number > 0 && number <= equal.size()) return equal[number - 1];
      throw several(equal.size(), text.substr(0, mark));
    }
  }
  if (host_.GetScene().FindNodes(FromUtf8(name.text)).empty()) return Node(name);
  throw StepFailure{name.place, fmt::format("\"{}\" is no Sowfield object", name.text)};
}

Sowfield& Stage::Edited(Place place) {
  if (!edited_)
    throw StepFailure{place, "no Sowfield object is edited: create one, or select one by name"};
  return *SowfieldOf(edited_.get());
}

void Stage::Edit(INode* node) {
  StopEditing();
  edited_ = Pin<INode>(node);
  SowfieldOf(node)->BeginEditParams(&Ip(), sowfield::kEditModify, nullptr);
}

void Stage::StopEditing() {
  if (!edited_) return;
  if (Sowfield* object = SowfieldOf(edited_.get()))
    object->EndEditParams(&Ip(), sowfield::kEditModify, nullptr);
  edited_ = {};
}

void Stage::Settle() {
  if (edited_ && !edited_->InScene()) StopEditing();
}

bool Stage::Painting() const {
  const auto& painter = sowfield::TheEditContext().currentPainter;
  return painter && painter->InSession();
}

void Stage::LeavePaintMode() {
  if (Painting()) sowfield::PressToolButton(sowfield::kNoTool);
}

int Stage::TypeOf(Sowfield& object, const Value& type) {
  const sowfield::Distribution& d = object.distribution;
  if (type.IsNumber()) {
    if (type.number < d.TypeCount()) return int(type.number);
    throw StepFailure{type.place,
                      fmt::format("there is no type {}: the object has {}, counted from 0",
                                  type.number, d.TypeCount())};
  }
  const std::span<const WStr> names = d.block->Strings(sowfield::Geo_Names);
  std::vector<std::string> list;
  for (const WStr& n : names) list.push_back(ToUtf8(n));
  const auto count = std::count(list.begin(), list.end(), type.text);
  if (count == 1) return int(std::find(list.begin(), list.end(), type.text) - list.begin());
  throw StepFailure{
      type.place,
      count == 0
          ? fmt::format("no object type is named \"{}\"{}", type.text, DidYouMean(type.text, list))
          : fmt::format("{} object types are named \"{}\": tell the number", count, type.text)};
}

int Stage::RowOf(Sowfield& object, const Value& row) {
  if (row.IsText()) return row.text == "all" ? 0 : TypeOf(object, row) + 1;
  const int types = object.distribution.TypeCount();
  if (row.number <= types) return int(row.number);
  throw StepFailure{
      row.place,
      fmt::format("there is no row {}: 0 is all types, and the object has {}", row.number, types)};
}

std::string Stage::Resolve(const std::string& path) const {
  namespace fs = std::filesystem;
  // What a scene stores of it must hold wherever the scene is opened from.
  fs::path clean;
  for (const fs::path& part : fs::absolute(fs::path(folder_) / path)) {
    if (part == ".") continue;
    if (part != "..") {
      clean /= part;
      continue;
    }
    // Behind a link it leads out of the folder that the link points at, and behind one that points
    // nowhere nowhere.
    std::error_code code;
    const fs::path real = fs::is_symlink(clean, code) ? fs::canonical(clean, code) : clean;
    clean = code ? clean / ".." : real.parent_path();
  }
  return clean.string();
}

WStr Stage::ResolveToKeep(const Value& path) const {
  const std::string full = Resolve(path.text);
  const WStr wide = FromUtf8(full);
  if (ToUtf8(wide) == full) return wide;
  throw StepFailure{
      path.place, fmt::format("a scene can't keep the path \"{}\": it isn't UTF-8", InPrint(full))};
}

std::string Stage::MakeRoomFor(const Value& path) const {
  const std::filesystem::path full = Resolve(path.text);
  std::error_code code;
  if (full.has_parent_path()) std::filesystem::create_directories(full.parent_path(), code);
  if (code)
    throw StepFailure{path.place, fmt::format("the folder {} can't be made: {}",
                                              full.parent_path().string(), code.message())};
  return full.string();
}

void Stage::AddSource(const std::string& path, std::string what, bool ofScene) {
  (ofScene ? ofScene_ : sources_).push_back({path, std::move(what)});
}

void Stage::KeepForUndo(const WStr& file) { kept_.insert(sowfield::NativePathOf(file)); }

void Stage::ForgetScene() {
  ofScene_.clear();
  kept_.clear();
  warned_.clear();
}

std::vector<SourceFile> Stage::Sources() {
  std::vector<SourceFile> all = sources_;
  all.insert(all.end(), ofScene_.begin(), ofScene_.end());
  for (const FileUse& use : FilesOf(host_.GetScene()))
    all.push_back({sowfield::NativePathOf(use.path), "the file of " + use.who});
  for (const std::string& file : kept_)
    all.push_back({file, "a file that undo brings back into use"});
  return all;
}

std::vector<std::string> Stage::WarnOfMissing() {
  const std::vector<std::string> missing = MissingFiles(host_.GetScene());
  for (const std::string& line : missing)
    if (!warned_.contains(line)) notices_ << "warning: " << line << '\n';
  warned_ = {missing.begin(), missing.end()};
  return missing;
}

void Stage::Write(const Value& path, std::span<const std::byte> bytes) {
  std::string error;
  if (!host::WriteFileSafely(MakeRoomFor(path), bytes, error)) throw StepFailure{path.place, error};
}

void Stage::Write(const Value& path, std::string_view text) {
  Write(path, std::as_bytes(std::span(text)));
}

}  // namespace studio
