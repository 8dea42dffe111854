#include "host/scenefile/scenevalues.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/scene/node.h"

namespace host {

using nlohmann::json;

namespace {

static_assert(sizeof(Point3) == 12, "tables hold points as memory does");

[[noreturn]] void Refuse(const std::string& what, const json& found, const std::string& expected) {
  std::string text = found.dump(-1, ' ', false, json::error_handler_t::replace);
  constexpr size_t kMost = 60;
  if (text.size() > kMost) text = text.substr(0, kMost) + "...";
  throw SceneFault(what + " is " + text + ", expected " + expected);
}

std::string HexText(std::uint32_t value) {
  char digits[8];
  const auto end = std::to_chars(digits, digits + 8, value, 16).ptr;
  return "0x" + std::string(digits, end);
}

bool ReadHex(const json& value, std::uint32_t& number) {
  if (!value.is_string()) return false;
  const std::string& text = value.get_ref<const std::string&>();
  if (text.size() <= 2 || text.size() > 10 || !text.starts_with("0x")) return false;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data() + 2, end, number, 16);
  return result.ec == std::errc() && result.ptr == end;
}

constexpr struct {
  std::string_view name;
  size_t size;
} kTableTypes[] = {{"byte", 1},   {"uint16", 2}, {"int", 4},
                   {"uint32", 4}, {"float", 4},  {"point3", 12}};

}  // namespace

KeptValues::KeptValues() : tree(std::make_unique<json>()) {}
KeptValues::~KeptValues() = default;

json FloatValue(float value) {
  if (std::isfinite(value)) return double(value);
  return HexText(std::bit_cast<std::uint32_t>(value));
}

json FloatList(std::span<const float> values) {
  json list = json::array();
  for (const float v : values) list.push_back(FloatValue(v));
  return list;
}

json MatrixValue(const Matrix3& m) {
  json list = json::array();
  for (int row = 0; row < 4; ++row)
    for (int k = 0; k < 3; ++k) list.push_back(FloatValue(m.GetRow(row)[k]));
  return list;
}

json HexValue(std::uint32_t value) { return HexText(value); }

json ClassValue(Class_ID id) { return json::array({HexText(id.a), HexText(id.b)}); }

float FloatOf(const json& value, const char* what) {
  if (value.is_string()) return std::bit_cast<float>(HexOf(value, what));
  if (!value.is_number()) Refuse(what, value, "a number");
  const double number = value.get<double>();
  if (!(std::fabs(number) <= double(std::numeric_limits<float>::max())))
    Refuse(what, value, "a number of single precision");
  return float(number);
}

std::vector<float> FloatsOf(const json& value, size_t count, const char* what) {
  if (!value.is_array() || value.size() != count)
    Refuse(what, value, std::to_string(count) + " numbers in a list");
  std::vector<float> numbers;
  for (const json& v : value) numbers.push_back(FloatOf(v, what));
  return numbers;
}

Matrix3 MatrixOf(const json& value, const char* what) {
  const std::vector<float> n = FloatsOf(value, 12, what);
  Matrix3 m;
  for (int row = 0; row < 4; ++row) {
    const float* r = &n[size_t(row) * 3];
    m.SetRow(row, {r[0], r[1], r[2]});
  }
  return m;
}

int IntOf(const json& value, int low, int high, const char* what) {
  const bool unsignedFits = value.is_number_unsigned() && value.get<std::uint64_t>() <= INT_MAX;
  const bool whole = unsignedFits || (value.is_number_integer() && !value.is_number_unsigned());
  const std::int64_t number = whole ? value.get<std::int64_t>() : 0;
  if (!whole || number < low || number > high)
    Refuse(what, value,
           "a whole number from " + std::to_string(low) + " to " + std::to_string(high));
  return int(number);
}

bool FlagOf(const json& value, const char* what) {
  if (!value.is_boolean()) Refuse(what, value, "true or false");
  return value.get<bool>();
}

WStr TextOf(const json& value, const char* what) {
  if (!value.is_string()) Refuse(what, value, "a text");
  return FromUtf8(value.get_ref<const std::string&>());
}

std::uint32_t HexOf(const json& value, const char* what) {
  std::uint32_t number = 0;
  if (ReadHex(value, number)) return number;
  Refuse(what, value, "a text such as \"0x1f\"");
}

Class_ID ClassOf(const json& value, const char* what) {
  if (!value.is_array() || value.size() != 2) Refuse(what, value, "two hexadecimal texts");
  return {HexOf(value[0], what), HexOf(value[1], what)};
}

const json& MemberOf(const json& object, const char* name) {
  if (!object.is_object())
    Refuse("the thing around \"" + std::string(name) + "\"", object, "an object");
  const auto found = object.find(name);
  if (found == object.end())
    throw SceneFault("the member \"" + std::string(name) + "\" is missing");
  return *found;
}

const json& ListOf(const json& object, const char* name) {
  const json& list = MemberOf(object, name);
  if (!list.is_array()) Refuse(name, list, "a list");
  return list;
}

SceneOut::SceneOut(BinaryParts& parts, std::span<INode* const> nodes, const std::string& path)
    : paths(path), parts_(parts) {
  for (const INode* n : nodes) ids_.emplace(n, std::uint32_t(ids_.size() + 1));
}

json SceneOut::Ref(ReferenceTarget* target) {
  if (!target) return nullptr;
  auto found = ids_.find(target);
  if (found == ids_.end()) {
    if (target->SuperClassID() == BASENODE_CLASS_ID) return nullptr;
    found = ids_.emplace(target, std::uint32_t(ids_.size() + 1)).first;
    waiting_.push_back(target);
  }
  return {{"ref", HexText(found->second)}};
}

json SceneOut::Id(const ReferenceTarget* target) const { return HexText(ids_.at(target)); }

ReferenceTarget* SceneOut::NextThing() {
  if (waiting_.empty()) return nullptr;
  ReferenceTarget* next = waiting_.front();
  waiting_.pop_front();
  return next;
}

size_t SceneOut::ElementSize(std::string_view type) {
  for (const auto& t : kTableTypes)
    if (t.name == type) return t.size;
  return 0;
}

json SceneOut::Described(const char* type, size_t count, std::span<const std::byte> bytes) {
  json table = {{"type", type}, {"count", count}};
  if (bytes.empty()) return table;
  table["crc"] = CrcText(Crc32c(bytes));
  table["view"] = parts_.Borrow(bytes);
  return table;
}

json SceneOut::Texts(std::span<const WStr> values) {
  std::vector<std::byte> bytes;
  for (const WStr& v : values) {
    const std::string text = ToUtf8(v);
    const auto length = std::uint32_t(text.size());
    const auto head = std::as_bytes(std::span(&length, 1));
    const auto body = std::as_bytes(std::span(text));
    bytes.insert(bytes.end(), head.begin(), head.end());
    bytes.insert(bytes.end(), body.begin(), body.end());
  }
  json table = {{"type", "text"}, {"count", values.size()}};
  if (bytes.empty()) return table;
  table["crc"] = CrcText(Crc32c(bytes));
  table["view"] = parts_.Own(std::move(bytes));
  return table;
}

json SceneOut::Kept(const KeptValues& kept) { return Release(*kept.tree, kept); }

json SceneOut::Release(const json& tree, const KeptValues& kept) {
  if (!tree.is_structured()) return tree;
  if (tree.is_object() && tree.contains("ref"))
    return Ref(kept.targets[tree["ref"].get<size_t>()].get());
  json copy = tree;
  for (auto& item : copy.items())
    if (item.value().is_structured()) item.value() = Release(item.value(), kept);
  if (tree.is_object() && tree.contains("view"))
    copy["view"] = parts_.Borrow(kept.blobs[tree["view"].get<size_t>()]);
  return copy;
}

SceneIn::SceneIn(const ByteSource& source, const GlbContent& content, const json& root,
                 const std::string& path, Losses* losses)
    : paths(path), source_(source), content_(content), root_(root), losses_(losses) {}

void SceneIn::Fault(const std::string& text) const {
  if (!losses_) throw SceneFault(text);
  losses_->Add(text);
}

void SceneIn::Add(const json& id, ReferenceTarget* target) {
  const std::uint32_t number = HexOf(id, "the id");
  if (!things_.emplace(number, target).second) Fault("two things have the id " + HexText(number));
}

void SceneIn::Drop(const json& id, const ReferenceTarget* target) {
  std::uint32_t number;
  if (!ReadHex(id, number)) return;
  const auto [found, isNew] = things_.emplace(number, nullptr);
  if (!isNew && found->second == target) found->second = nullptr;
}

ReferenceTarget* SceneIn::Ref(const json& value) const {
  if (value.is_null()) return nullptr;
  const std::uint32_t id = HexOf(MemberOf(value, "ref"), "a reference");
  const auto found = things_.find(id);
  if (found == things_.end()) {
    Fault("nothing has the id " + HexText(id));
    return nullptr;
  }
  if (!found->second) Fault("a reference to " + HexText(id) + ", which was dropped, is none now");
  return found->second;
}

ReferenceTarget* SceneIn::Find(const json& value) const {
  std::uint32_t id;
  if (!value.is_object() || !value.contains("ref") || !ReadHex(value["ref"], id)) return nullptr;
  const auto found = things_.find(id);
  return found == things_.end() ? nullptr : found->second;
}

SceneIn::View SceneIn::ViewOf(const json& table, const char* what) const {
  if (!table.contains("view")) return {};
  const json& views = ListOf(root_, "bufferViews");
  const int index = IntOf(MemberOf(table, "view"), 0, INT_MAX, what);
  if (size_t(index) >= views.size())
    throw SceneFault(std::string(what) + " lies in buffer view " + std::to_string(index) +
                     ", but there are only " + std::to_string(views.size()));
  const json& view = views[size_t(index)];
  const auto number = [&](const char* name) {
    const json& value = MemberOf(view, name);
    if (!value.is_number_unsigned()) Refuse(what, value, "a " + std::string(name));
    return value.get<std::uint64_t>();
  };
  const std::uint64_t start = number("byteOffset"), told = number("byteLength");
  const std::uint64_t rest = content_.binSize - std::min<std::uint64_t>(start, content_.binSize);
  if (!losses_ && (told > rest || start > content_.binSize))
    throw SceneFault(std::string(what) + " has " + std::to_string(told) + " bytes from byte " +
                     std::to_string(start) + " on, but the file holds " +
                     std::to_string(content_.binSize));
  return {content_.binOffset + size_t(std::min<std::uint64_t>(start, content_.binSize)),
          size_t(std::min(told, rest)), size_t(told)};
}

size_t SceneIn::Count(const json& table, const char* type, const char* what) const {
  const json& found = MemberOf(table, "type");
  if (found != type) Refuse(what, found, "a table of \"" + std::string(type) + "\"");
  const auto count = size_t(IntOf(MemberOf(table, "count"), 0, INT_MAX, what));
  const View view = ViewOf(table, what);
  const size_t element = SceneOut::ElementSize(type);
  if (element == 0) return count;
  if (view.told != count * element)
    Fault(std::string(what) + " has " + std::to_string(view.told) + " bytes, expected " +
          std::to_string(count * element));
  return std::min(count, view.size / element);
}

void SceneIn::Pour(const json& table, size_t entry, size_t entries, const char* what,
                   const ByteSink& sink) const {
  constexpr size_t kPiece = size_t(1) << 18;
  if (!table.contains("view")) return;
  const View view = ViewOf(table, what);
  size_t offset = view.offset, left = std::min(view.size / entry, entries) * entry;
  // A file in which many tables share their bytes would fill the memory.
  if (left > content_.binSize - taken_)
    return Fault(std::string(what) + " shares its bytes with other tables");
  taken_ += left;
  std::vector<std::byte> buffer(std::min(left, kPiece / entry * entry));
  std::uint32_t sum = 0;
  for (size_t n; left > 0; left -= n, offset += n) {
    n = std::min(left, buffer.size());
    const auto piece = std::span(buffer).first(n);
    errno = 0;
    if (!source_.Read(offset, piece))
      return Fault(std::string(what) + " can't be read from byte " +
                   std::to_string(offset - view.offset) +
                   " on: " + std::strerror(errno ? errno : EIO));
    sum = Crc32c(piece, sum);
    sink(piece);
  }
  if (view.size < view.told)
    return Fault(std::string(what) + " ends with the file: " + std::to_string(view.size / entry) +
                 " of " + std::to_string(view.told / entry) +
                 (entry == 1 ? " bytes are there" : " entries are there"));
  CheckSum(table, sum, what);
}

void SceneIn::CheckSum(const json& table, std::uint32_t sum, const char* what) const {
  const auto crc = table.find("crc");
  const bool told = crc != table.end() && crc->is_string();
  if (const std::string found = CrcText(sum); !told || *crc != found)
    Fault(std::string(what) + " is damaged: its checksum is " + found + ", expected " +
          (told ? crc->get<std::string>() : "a text"));
}

std::vector<std::byte> SceneIn::Bytes(const json& table, const char* what) const {
  std::vector<std::byte> bytes;
  const View view = ViewOf(table, what);
  bytes.reserve(std::min(view.size, content_.binSize - taken_));
  Pour(table, 1, view.size, what, [&](std::span<const std::byte> piece) {
    bytes.insert(bytes.end(), piece.begin(), piece.end());
    return true;
  });
  return bytes;
}

namespace {

// The length of the text at a place, -1 if it isn't there as a whole.
std::int64_t TextLength(std::span<const std::byte> bytes, size_t at) {
  std::uint32_t length = 0;
  if (bytes.size() - at < 4) return -1;
  std::memcpy(&length, &bytes[at], 4);
  return length > bytes.size() - at - 4 ? -1 : std::int64_t(length);
}

// What was recovered of a table is written back as a sound one.
void MendTable(json& table, std::vector<std::byte>& bytes) {
  const auto crc = table.find("crc"), type = table.find("type");
  if (crc != table.end() && *crc == CrcText(Crc32c(bytes))) return;
  if (type != table.end() && type->is_string()) {
    const size_t element = SceneOut::ElementSize(type->get<std::string>());
    size_t count = element > 0 ? bytes.size() / element : 0, end = count * element;
    if (*type == "text")
      for (; TextLength(bytes, end) >= 0; ++count) end += 4 + size_t(TextLength(bytes, end));
    if (element > 0 || *type == "text") {
      bytes.resize(end);
      table["count"] = count;
    }
  }
  table["crc"] = CrcText(Crc32c(bytes));
}

}  // namespace

std::vector<WStr> SceneIn::Texts(const json& table, const char* what) const {
  const size_t count = Count(table, "text", what);
  const std::vector<std::byte> bytes = Bytes(table, what);
  std::vector<WStr> texts;
  size_t at = 0;
  for (size_t i = 0; i < count; ++i) {
    const std::int64_t length = TextLength(bytes, at);
    if (length < 0) {
      Fault(std::string(what) + " ends within entry " + std::to_string(i) + " of " +
            std::to_string(count));
      return texts;
    }
    const char* start = reinterpret_cast<const char*>(bytes.data()) + at + 4;
    texts.push_back(FromUtf8({start, size_t(length)}));
    at += 4 + size_t(length);
  }
  if (at != bytes.size())
    Fault(std::string(what) + " has " + std::to_string(bytes.size() - at) + " bytes behind its " +
          std::to_string(count) + " entries");
  return texts;
}

std::shared_ptr<const KeptValues> SceneIn::Keep(const json& tree) const {
  auto kept = std::make_shared<KeptValues>();
  *kept->tree = Capture(tree, *kept);
  return kept;
}

json SceneIn::Capture(const json& tree, KeptValues& kept) const {
  if (!tree.is_structured()) return tree;
  if (tree.is_object() && tree.contains("ref")) {
    ReferenceTarget* target = Ref(tree);
    if (!target) return nullptr;
    kept.targets.emplace_back(target);
    return {{"ref", kept.targets.size() - 1}};
  }
  json copy = tree;
  for (auto& item : copy.items())
    if (item.value().is_structured()) item.value() = Capture(item.value(), kept);
  if (tree.is_object() && tree.contains("view")) CaptureTable(copy, kept);
  return copy;
}

void SceneIn::CaptureTable(json& table, KeptValues& kept) const {
  std::vector<std::byte> bytes = Bytes(table, "an unknown value");
  if (losses_) MendTable(table, bytes);
  if (bytes.empty() && losses_) {
    table.erase("view");
    table.erase("crc");
    return;
  }
  table["view"] = kept.blobs.size();
  kept.blobs.push_back(std::move(bytes));
}

}  // namespace host
