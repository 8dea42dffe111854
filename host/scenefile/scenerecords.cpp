#include "host/scenefile/scenerecords.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>
#include <new>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "host/scenefile/scenerecover.h"
#include "host/scenefile/scenevalues.h"

namespace host {

using nlohmann::json;

namespace {

// A text that packs better than this stands as it is: a small record can't fill the memory.
constexpr size_t kMostRatio = 64;

template <class Json, class Visit>
void EachView(Json& tree, const Visit& visit) {
  if (!tree.is_structured()) return;
  if (tree.is_object())
    if (const auto view = tree.find("view"); view != tree.end() && !view->is_structured())
      visit(*view);
  for (auto& child : tree) EachView(child, visit);
}

/// Parts a scene into the texts of its records.
class RecordTexts {
 public:
  explicit RecordTexts(const BinaryParts& parts) : parts_(parts) {}

  std::vector<std::string> Of(const json& scene) {
    json rest = json::object();
    for (const auto& [name, value] : scene.items())
      if (name != "nodes" && name != "things" && name != "jsonCrc") rest[name] = value;
    scene_ = "\"scene\":" + rest.dump() + ",";
    for (const json& node : scene.at("nodes")) Add(nodes_, node);
    for (const json& thing : scene.at("things")) Add(things_, thing);
    Flush();
    return std::move(texts_);
  }

 private:
  // Damage costs one record, but small ones pack badly.
  static constexpr size_t kMostText = size_t(1) << 14;

  void Add(std::string& list, const json& value) {
    const std::string text = value.dump();
    const size_t size = nodes_.size() + things_.size();
    if (size > 0 && size + text.size() > kMostText) Flush();
    list += (list.empty() ? "" : ",") + text;
    EachView(value, [&](const json& view) { views_.insert(view.get<size_t>()); });
  }
  void Flush() {
    std::string views;
    for (const size_t v : views_) {
      const BinaryParts::Part& part = parts_.All()[v];
      views += (views.empty() ? "[" : ",[") + std::to_string(v) + ',' +
               std::to_string(part.offset) + ',' + std::to_string(part.size) + ']';
    }
    texts_.push_back('{' + scene_ + "\"nodes\":[" + nodes_ + "],\"things\":[" + things_ +
                     "],\"views\":[" + views + "]}");
    for (std::string* text : {&scene_, &nodes_, &things_}) text->clear();
    views_.clear();
  }

  const BinaryParts& parts_;
  std::vector<std::string> texts_;
  std::string scene_, nodes_, things_;  // of the record that is being filled
  std::set<size_t> views_;
};

std::vector<std::byte> Packed(const std::string& text) {
  uLongf size = compressBound(uLong(text.size()));
  std::vector<std::byte> packed(size);
  const int done =
      compress2(reinterpret_cast<Bytef*>(packed.data()), &size,
                reinterpret_cast<const Bytef*>(text.data()), uLong(text.size()), Z_BEST_SPEED);
  if (done != Z_OK) throw std::bad_alloc();  // there is no other reason
  packed.resize(size);
  if (size < text.size() && text.size() <= kMostRatio * size) return packed;
  const auto plain = std::as_bytes(std::span(text));
  return {plain.begin(), plain.end()};
}

bool Unpack(std::span<const std::byte> packed, std::string& text) {
  uLongf size = uLong(text.size());
  if (packed.size() == text.size()) {
    std::memcpy(text.data(), packed.data(), packed.size());
    return true;
  }
  return uncompress(reinterpret_cast<Bytef*>(text.data()), &size,
                    reinterpret_cast<const Bytef*>(packed.data()), uLong(packed.size())) == Z_OK &&
         size == text.size();
}

struct Record {
  RecordHead head;
  std::int64_t base;  // where the bytes that it counts from begin in the source
  json content;
};

/// Finds all records that are whole.
class RecordScan {
 public:
  explicit RecordScan(const ByteSource& source)
      : source_(source), budget_(24 * source.Size() + (size_t(16) << 20)) {}

  std::vector<Record> Run() {
    std::string piece;
    for (size_t at = 0; at < source_.Size();) {
      piece.resize(std::min(kPiece, source_.Size() - at));
      const bool read = source_.Read(at, std::as_writable_bytes(std::span(piece)));
      const size_t start = at, end = at + piece.size();
      if (read)
        for (size_t mark; (mark = piece.find(kRecordMark, at - start)) != std::string::npos;) {
          at = Take(start + mark);
          if (at > end) break;
        }
      if (end == source_.Size()) break;
      at = std::max(at, end - kRecordMark.size() + 1);  // a mark may begin before the end
    }
    return std::move(records_);
  }

 private:
  static constexpr size_t kPiece = size_t(1) << 20;

  // Where to go on.
  size_t Take(size_t at) {
    const size_t next = at + 1;
    Record r;
    if (source_.Size() - at < sizeof r.head ||
        !source_.Read(at, std::as_writable_bytes(std::span(&r.head, 1))))
      return next;
    const RecordHead& head = r.head;
    if (head.packed > source_.Size() - at - sizeof head || head.index >= head.count ||
        head.size > kMostRatio * head.packed || size_t(head.packed) + head.size > budget_)
      return next;
    budget_ -= size_t(head.packed) + head.size;
    std::vector<std::byte> packed(head.packed);
    if (!source_.Read(at + sizeof head, packed) || RecordCrc(head, packed) != head.crc) return next;
    std::string text(head.size, '\0');
    if (!Unpack(packed, text) || LiesTooDeep(text)) return next;
    r.content = json::parse(text, nullptr, false);
    if (!r.content.is_object()) return next;
    r.base = std::int64_t(at) - std::int64_t(head.offset);
    records_.push_back(std::move(r));
    return at + sizeof head + head.packed;
  }

  const ByteSource& source_;
  size_t budget_;  // bytes that may still be unpacked: damage can tell of no end of them
  std::vector<Record> records_;
};

/// Puts the records of one scene together.
class Assembly {
 public:
  explicit Assembly(size_t size) : size_(size) {}

  json Run(const std::map<std::uint32_t, Record*>& records) {
    json scene = json::object();
    for (const auto& [index, r] : records) {
      numbers_.clear();
      for (const json& view : ListIn(r->content, "views")) AddView(view, r->base);
      for (json& node : ListIn(r->content, "nodes")) Add(nodes_, node);
      for (json& thing : ListIn(r->content, "things")) Add(things_, thing);
      if (const auto own = r->content.find("scene"); own != r->content.end() && own->is_object())
        scene.update(*own);
    }
    return scene;
  }
  /// Makes up nodes in place of those that no record tells of. Gives their number.
  size_t StandIn(size_t nodes) {
    std::map<std::uint32_t, json> byId;
    json others = json::array();  // without an id to go by
    for (json& node : nodes_) {
      const std::uint32_t id = IdOf(node);
      if (id == 0 || !byId.emplace(id, node).second) others.push_back(std::move(node));
    }
    size_t made = 0;
    for (std::uint32_t id = 1; id <= nodes; ++id)
      if (const auto [at, isNew] = byId.emplace(id, json()); isNew)
        at->second = StandInFor(id), ++made;
    nodes_ = json::array();
    for (auto& [id, node] : byId) nodes_.push_back(std::move(node));
    for (json& node : others) nodes_.push_back(std::move(node));
    return made;
  }
  json Root(json scene) {
    scene["nodes"] = std::move(nodes_);
    scene["things"] = std::move(things_);
    json root = {{"bufferViews", std::move(views_)}};
    root["extensions"][kSceneExtension] = std::move(scene);
    return root;
  }

 private:
  json& ListIn(json& content, const char* name) {
    const auto list = content.find(name);
    return list != content.end() && list->is_array() ? *list : none_;
  }
  static std::uint32_t IdOf(const json& node) {
    try {
      return HexOf(MemberOf(node, "id"), "the id");
    } catch (const SceneFault&) {
      return 0;
    }
  }
  static json StandInFor(std::uint32_t id) {
    const json still = MatrixValue(Matrix3());
    return {{"id", HexValue(id)},  {"name", "Lost node " + std::to_string(id)},
            {"wire", HexValue(0)}, {"hidden", false},
            {"renderable", true},  {"matrix", still},
            {"offset", still}};
  }

  // Views are numbered anew, in the order in which they were written.
  void AddView(const json& view, std::int64_t base) {
    if (!view.is_array() || view.size() != 3) return;
    for (const json& number : view)
      if (!number.is_number_unsigned()) return;
    const auto offset = view[1].get<std::uint64_t>();
    const bool there = offset <= size_ && std::int64_t(offset) + base >= 0;
    const size_t at = there ? size_t(std::int64_t(offset) + base) : size_;
    numbers_.emplace(view[0].get<std::uint64_t>(), views_.size());
    views_.push_back({{"buffer", 0}, {"byteOffset", at}, {"byteLength", view[2]}});
  }
  void Add(json& list, json& value) {
    EachView(value, [&](json& view) {
      const auto found =
          view.is_number_unsigned() ? numbers_.find(view.get<std::uint64_t>()) : numbers_.end();
      view = found != numbers_.end() ? json(found->second) : json(INT_MAX);  // one that isn't there
    });
    list.push_back(std::move(value));
  }

  size_t size_;  // of the source
  json none_ = json::array();
  json views_ = json::array(), nodes_ = json::array(), things_ = json::array();
  std::map<std::uint64_t, size_t> numbers_;  // of the record's views, there and here
};

}  // namespace

std::uint32_t RecordCrc(RecordHead head, std::span<const std::byte> packed) {
  head.crc = 0;
  return Crc32c(packed, Crc32c(std::as_bytes(std::span(&head, 1))));
}

void AddRecords(const json& scene, BinaryParts& parts) {
  const std::vector<std::string> texts = RecordTexts(parts).Of(scene);
  RecordHead head{};
  std::memcpy(head.mark, kRecordMark.data(), sizeof head.mark);
  head.count = std::uint32_t(texts.size());
  head.nodes = std::uint32_t(scene.at("nodes").size());
  for (const std::string& text : texts) head.tag = Crc32c(std::as_bytes(std::span(text)), head.tag);
  for (; head.index < head.count; ++head.index) {
    const std::string& text = texts[head.index];
    const std::vector<std::byte> packed = Packed(text);
    head.size = std::uint32_t(text.size());
    head.packed = std::uint32_t(packed.size());
    head.offset = parts.Size();
    head.crc = RecordCrc(head, packed);
    std::vector<std::byte> record(sizeof head);
    std::memcpy(record.data(), &head, sizeof head);
    record.insert(record.end(), packed.begin(), packed.end());
    parts.OwnUnseen(std::move(record));
  }
}

bool HasRecords(const ByteSource& source) { return !RecordScan(source).Run().empty(); }

RecordedScene FindRecords(const ByteSource& source) {
  std::vector<Record> records = RecordScan(source).Run();
  RecordedScene scene;
  if (records.empty()) return scene;
  // A scene may hold another one in a table: the outer one begins earlier.
  const Record& outer =
      *std::min_element(records.begin(), records.end(),
                        [](const Record& a, const Record& b) { return a.base < b.base; });
  std::map<std::uint32_t, Record*> its;
  for (Record& r : records)
    if (r.head.tag == outer.head.tag && r.head.count == outer.head.count)
      its.emplace(r.head.index, &r);
  const size_t count = outer.head.count, nodes = outer.head.nodes;
  Assembly assembly(source.Size());
  json rest = assembly.Run(its);
  if (its.size() < count) {
    constexpr size_t kLeastNode = 16;  // bytes, packed
    const size_t made = assembly.StandIn(std::min(nodes, source.Size() / kLeastNode));
    scene.lack = std::to_string(count - its.size()) + " of its " + std::to_string(count) +
                 " records are damaged";
    if (made > 0)
      scene.lack +=
          ": empty nodes stand for " + std::to_string(made) + " of " + std::to_string(nodes);
  }
  scene.root = std::make_shared<nlohmann::json>(assembly.Root(std::move(rest)));
  return scene;
}

}  // namespace host
