#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <istream>
#include <limits>
#include <new>
#include <optional>

#include "sowfield/model/sampleorder.h"
#include "sowfield/proxy/moksetfile.h"
#include "sowfield/proxy/moksetlayout.h"

namespace sowfield {
namespace {

constexpr size_t kChunkBytes = size_t(1) << 20;  // stays in the cache while it is decoded
// Above this a float doesn't hold every integer, so that products in one needn't divide any more.
constexpr std::int64_t kFloatExact = std::int64_t(1) << 24;

[[noreturn]] void Fail(std::uint64_t offset, const std::string& text) {
  throw MoksetFault{offset, text};
}

[[noreturn]] void FailRange(std::uint64_t offset, const std::string& field, std::int64_t found,
                            std::int64_t least, std::int64_t most) {
  const std::string is = field + " is " + std::to_string(found);
  if (most < least) Fail(offset, is + ", but there is nothing that it could stand for");
  Fail(offset, is + ", allowed are " + std::to_string(least) + " to " + std::to_string(most));
}

template <class T>
std::string Text(T number) {
  return std::to_string(number);
}

// The shortest digits that tell them from all others.
std::string Text(const Point3& p) {
  std::string text;
  for (const float value : {p.x, p.y, p.z}) {
    char digits[32];
    const auto end = std::to_chars(digits, std::end(digits), value).ptr;
    text.append(text.empty() ? "" : " ").append(digits, end);
  }
  return text;
}

template <class T>
T At(const std::byte* bytes, size_t offset = 0) {
  T value;
  std::memcpy(&value, bytes + offset, sizeof value);
  return value;
}

/// A file of known size. Every read names what is read.
class Source {
 public:
  explicit Source(std::istream& in) : in_(in) {
    in_.seekg(0, std::ios::end);
    const std::streamoff size = in_.tellg();
    if (!in_ || size < 0) Fail(0, "the size of the file can't be told");
    size_ = std::uint64_t(size);
  }

  std::uint64_t Size() const { return size_; }
  /// Bytes from an offset to the end.
  std::uint64_t Left(std::uint64_t offset) const { return offset < size_ ? size_ - offset : 0; }

  void Read(std::uint64_t offset, void* to, size_t bytes, const char* what) {
    if (bytes > Left(offset)) Fail(size_, std::string("the file ends before ") + what + " does");
    if (bytes == 0) return;
    in_.seekg(std::streamoff(offset));
    in_.read(static_cast<char*>(to), std::streamsize(bytes));
    if (!in_) Fail(offset, std::string("reading ") + what + " failed");
  }
  template <class T>
  T Value(std::uint64_t offset, const char* what) {
    T value;
    Read(offset, &value, sizeof value, what);
    return value;
  }

 private:
  std::istream& in_;
  std::uint64_t size_ = 0;
};

// The first line of the file, cut at 19 characters.
std::string FirstLine(std::istream& in) {
  char line[20] = {};
  in.clear();
  in.seekg(0);
  in.read(line, 19);
  std::string read(line, size_t(in.gcount()));
  in.clear();
  return read.substr(0, read.find('\n'));
}

int VersionOf(const std::string& line) {
  if (line.compare(0, kMoksetMagic.size(), kMoksetMagic) != 0) return 1;
  std::string text = line.substr(kMoksetMagic.size(), 3);
  // As the C library reads a number: blanks and a plus sign may lead.
  text.erase(0, text.find_first_not_of(" \t\v\f\r"));
  if (!text.empty() && text[0] == '+') text.erase(0, 1);
  double version = 0;
  std::from_chars(text.data(), text.data() + text.size(), version);
  return float(version) == 0.6f ? 3 : float(version) == 0.5f ? 2 : 0;
}

// A face record: products with M as they stand, and which edges are seen.
struct RawFace {
  std::int64_t vertex[3];
  bool seen[3];
  std::int32_t smoothing, material;
};

// -1 for what isn't an index.
std::int64_t Truncated(float value) {
  return value > -1 && value < float(1u << 31) ? std::int64_t(value) : -1;
}

RawFace WideFace(const std::byte* p) {
  return {{At<std::int64_t>(p, 0), At<std::int64_t>(p, 8), At<std::int64_t>(p, 16)},
          {At<int>(p, 24) != 0, At<int>(p, 28) != 0, At<int>(p, 32) != 0},
          At<std::int32_t>(p, 36),
          At<std::int32_t>(p, 40)};
}

RawFace NarrowFace(const std::byte* p) {
  return {{Truncated(At<float>(p, 0)), Truncated(At<float>(p, 4)), Truncated(At<float>(p, 8))},
          {At<float>(p, 12) != 0, At<float>(p, 16) != 0, At<float>(p, 20) != 0},
          At<std::int32_t>(p, 24),
          At<std::int32_t>(p, 28)};
}

// A field as it stands in the file.
std::string TimesM(const std::string& field, std::int64_t multiplier) {
  return multiplier == 1 ? field : field + " times " + std::to_string(multiplier);
}

std::string OfFace(const char* field, size_t i) { return field + std::to_string(i); }

/// Undoes M by plain division: a product needn't be a multiple of it. `most` is the largest value;
/// writers make only multiples up to `exact`.
struct Divider {
  std::int64_t multiplier, most, exact = INT_MAX;

  std::int64_t MostProduct() const {
    return std::min<std::int64_t>((most + 1) * multiplier - 1, INT_MAX);
  }
  bool Undo(std::int64_t product, std::int64_t mostProduct, std::uint32_t& value) const {
    if (product < 0 || product > mostProduct) return false;
    value = std::uint32_t(product) / std::uint32_t(multiplier);
    return true;
  }
  /// The fault of a product that Undo refused.
  [[noreturn]] void Refuse(std::uint64_t offset, const std::string& field,
                           std::int64_t product) const {
    FailRange(offset, TimesM(field, multiplier), product, 0, most * multiplier);
  }
  bool IsWritten(std::int64_t product) const {
    return product % multiplier == 0 || product > exact;
  }
  std::uint32_t Checked(std::uint64_t offset, const std::string& field,
                        std::int64_t product) const {
    std::uint32_t value = 0;
    if (!Undo(product, MostProduct(), value)) Refuse(offset, field, product);
    return value;
  }
};

/// One pass over a file: the head with its counts, then samples or the whole mesh.
class Reader {
 public:
  Reader(Source& source, MoksetInfo& info)
      : file_(source), info_(info), layout_(kMoksetLayouts[info.generation - 1]) {}

  void ReadHead() {
    std::uint64_t at = layout_.box;
    Point3 corners[2];
    file_.Read(at, corners, sizeof corners, "the box");
    for (int i = 0; i < 2; ++i)
      if (!IsFinite(corners[i])) Fail(at + 12u * unsigned(i), "a corner of the box isn't finite");
    info_.box = Box3(corners[1], corners[0]);
    at += sizeof corners;
    if (layout_.hasUnit) info_.unit = file_.Value<std::int32_t>(at, "the unit"), at += 4;

    vertsAt_ = at + 4;
    info_.vertices = PointCount(at, "the number of vertices");
    at = vertsAt_ + std::uint64_t(info_.vertices) * kMoksetPointBytes;
    texVertsAt_ = at + 4;
    info_.textureVertices = PointCount(at, "the number of texture vertices");
    at = texVertsAt_ + std::uint64_t(info_.textureVertices) * kMoksetPointBytes;

    if (layout_.hasMultiplier) {
      info_.multiplier = file_.Value<std::int32_t>(at, "the multiplier");
      if (info_.multiplier < 1) FailRange(at, "the multiplier", info_.multiplier, 1, INT_MAX);
      at += 4;
    }
    at = ReadSampleList(at);
    at += layout_.gapBytes;
    ReadFaceCount(at);
  }

  void ReadMesh(Mesh& mesh) {
    mesh.setNumVerts(info_.vertices);
    ReadPoints(vertsAt_, mesh.verts.data(), mesh.verts.size(), "the vertices");
    for (size_t i = 0; i < mesh.verts.size(); ++i)
      if (!IsFinite(mesh.verts[i])) FailVertex(std::uint32_t(i));
    for (const std::uint32_t i : samples_) info_.samples.push_back(mesh.verts[i]);

    // Not through setNumFaces: faces are written once.
    mesh.faces.resize(size_t(info_.faces));
    if (info_.generation == 3) {
      ReadFaces(mesh, WideFace);
    } else {
      ReadFaces(mesh, NarrowFace);
    }
    if (info_.textureVertices > 0) ReadTexture(mesh);
    mesh.InvalidateTopologyCache();
  }

  /// What a reader lets pass but no writer makes, in the order of the file; after ReadMesh.
  std::vector<MoksetFault> Oddities(const Mesh& mesh) {
    if (info_.vertices > 0) CheckBox(mesh.getBoundingBox());
    if (layout_.hasUnit && (info_.unit < 0 || info_.unit >= kMoksetUnits))
      Odd(layout_.box + 24,
          "the unit is " + Text(info_.unit) + ", expected 0 to " + Text(kMoksetUnits - 1));
    if (info_.multiplier > kMostMultiplier)
      Odd(samplesAt_ - 8, "the multiplier is " + Text(info_.multiplier) + ", expected 1 to " +
                              Text(kMostMultiplier));
    CheckSamples();
    CheckFaces();
    if (info_.end < info_.bytes)
      Odd(info_.end,
          Text(info_.bytes - info_.end) + " bytes follow the end of the mesh, expected 0");
    std::stable_sort(oddities_.begin(), oddities_.end(),
                     [](const auto& a, const auto& b) { return a.offset < b.offset; });
    return std::move(oddities_);
  }

  void ReadSamples() {
    for (const std::uint32_t i : samples_) {
      const auto p =
          file_.Value<Point3>(vertsAt_ + std::uint64_t(i) * kMoksetPointBytes, "a sample");
      if (!IsFinite(p)) FailVertex(i);
      info_.samples.push_back(p);
    }
  }

 private:
  int PointCount(std::uint64_t at, const char* field) {
    const auto count = file_.Value<std::int32_t>(at, field);
    const std::uint64_t room = file_.Left(at + 4) / kMoksetPointBytes;
    if (count < 0 || std::uint64_t(count) > room) FailRoom(at, field, count, room);
    return count;
  }

  [[noreturn]] void FailRoom(std::uint64_t at, const std::string& field, std::int64_t count,
                             std::uint64_t room) const {
    Fail(at, field + " is " + std::to_string(count) + ", but the file of " +
                 std::to_string(file_.Size()) + " bytes has room for 0 to " + std::to_string(room));
  }

  [[noreturn]] void FailVertex(std::uint32_t i) const {
    Fail(vertsAt_ + std::uint64_t(i) * kMoksetPointBytes,
         "vertex " + std::to_string(i) + " isn't finite");
  }

  // A number of entries times M.
  int ProductCount(std::uint64_t at, const char* field, std::int64_t product, std::uint64_t room) {
    const std::int64_t m = info_.multiplier;
    room = std::min<std::uint64_t>(room, INT_MAX / std::uint64_t(m));
    if (product < 0 || product / m > std::int64_t(room))
      FailRoom(at, TimesM(field, m), product, room * std::uint64_t(m));
    if (const Divider count{m, INT_MAX}; !count.IsWritten(product))
      OddProduct(count, at, field, product);
    return int(product / m);
  }

  // Returns where the list ends.
  std::uint64_t ReadSampleList(std::uint64_t at) {
    const std::uint64_t entries = samplesAt_ = at + 4;
    const int count = ProductCount(at, "the number of samples",
                                   file_.Value<std::int32_t>(at, "the number of samples"),
                                   file_.Left(entries) / layout_.sampleBytes);
    std::vector<std::byte> bytes(size_t(count) * layout_.sampleBytes);
    file_.Read(entries, bytes.data(), bytes.size(), "the samples");
    const Divider divider{info_.multiplier, info_.vertices - 1};
    bool odd = false;
    for (size_t i = 0; i < size_t(count); ++i) {
      const size_t in = i * layout_.sampleBytes;
      const std::int64_t product = layout_.sampleBytes == 8 ? At<std::int64_t>(bytes.data(), in)
                                                            : At<std::int32_t>(bytes.data(), in);
      samples_.push_back(divider.Checked(entries + in, OfFace("sample ", i), product));
      if (!odd && !divider.IsWritten(product))
        odd = OddProduct(divider, entries + in, OfFace("sample ", i), product);
    }
    return entries + bytes.size();
  }

  void ReadFaceCount(std::uint64_t at) {
    constexpr const char* kField = "the number of faces";
    const std::int64_t product = layout_.countBytes == 8 ? file_.Value<std::int64_t>(at, kField)
                                                         : file_.Value<std::int32_t>(at, kField);
    facesAt_ = at + layout_.countBytes;
    const std::uint32_t each =
        layout_.faceBytes + (info_.textureVertices > 0 ? kMoksetTexFaceBytes : 0);
    info_.faces = ProductCount(at, kField, product, file_.Left(facesAt_) / each);
    info_.end = facesAt_ + std::uint64_t(info_.faces) * each;
  }

  void ReadPoints(std::uint64_t at, Point3* to, size_t count, const char* what) {
    static_assert(sizeof(Point3) == kMoksetPointBytes);
    file_.Read(at, to, count * kMoksetPointBytes, what);
  }

  // Hands the entries of a list on, a chunk at a time: use(first entry, its number, its offset).
  template <class Use>
  void EachEntry(std::uint64_t at, size_t count, size_t bytes, const char* what, const Use& use) {
    host::Buffer<std::byte> chunk(std::min(count, kChunkBytes / bytes) * bytes);
    for (size_t done = 0; done < count;) {
      const size_t part = std::min(count - done, chunk.size() / bytes);
      file_.Read(at + done * bytes, chunk.data(), part * bytes, what);
      for (size_t i = 0; i < part; ++i) use(chunk.data() + i * bytes, done + i);
      done += part;
    }
  }

  Divider OfVertices() const {
    return {info_.multiplier, info_.vertices - 1, info_.generation == 3 ? INT_MAX : kFloatExact};
  }
  Divider OfMaterials() const { return {info_.multiplier, std::numeric_limits<MtlID>::max()}; }

  template <class Decode>
  void ReadFaces(Mesh& mesh, const Decode& decode) {
    const Divider vertex = OfVertices(), material = OfMaterials();
    const std::int64_t mostVertex = vertex.MostProduct(), mostMaterial = material.MostProduct();
    const auto use = [&](const std::byte* record, size_t i) {
      const RawFace raw = decode(record);
      Face& face = mesh.faces[i];
      std::uint32_t id = 0;
      const bool sound = vertex.Undo(raw.vertex[0], mostVertex, face.v[0]) &&
                         vertex.Undo(raw.vertex[1], mostVertex, face.v[1]) &&
                         vertex.Undo(raw.vertex[2], mostVertex, face.v[2]) &&
                         material.Undo(raw.material, mostMaterial, id);
      if (!sound) FailFace(raw, i, vertex, material);
      // A mask whose product had wrapped round when it was written isn't a multiple; no fault.
      face.smGroup = std::uint32_t(raw.smoothing / info_.multiplier);
      face.flags = id << 16 | (raw.seen[0] ? EDGE_A : 0) | (raw.seen[1] ? EDGE_B : 0) |
                   (raw.seen[2] ? EDGE_C : 0);
    };
    EachEntry(facesAt_, mesh.faces.size(), layout_.faceBytes, "the faces", use);
  }

  static constexpr const char* kCorners[] = {"vertex a of face ", "vertex b of face ",
                                             "vertex c of face "};
  static constexpr const char* kMaterial = "the material id of face ";

  [[noreturn]] void FailFace(const RawFace& raw, size_t i, const Divider& vertex,
                             const Divider& material) const {
    const std::uint64_t at = facesAt_ + std::uint64_t(i) * layout_.faceBytes;
    const std::uint32_t indexBytes = info_.generation == 3 ? 8 : 4;
    for (unsigned k = 0; k < 3; ++k)
      vertex.Checked(at + k * indexBytes, OfFace(kCorners[k], i), raw.vertex[k]);
    material.Refuse(at + layout_.faceBytes - 4, OfFace(kMaterial, i), raw.material);
  }

  void ReadTexture(Mesh& mesh) {
    MeshMap& map = mesh.maps[1];
    mesh.setNumTVerts(info_.textureVertices);
    ReadPoints(texVertsAt_, map.verts.data(), map.verts.size(), "the texture vertices");
    mesh.setNumTVFaces(info_.faces);
    const std::uint64_t at = facesAt_ + std::uint64_t(info_.faces) * layout_.faceBytes;
    const bool asFloats = info_.generation < 3;
    const auto most = std::uint32_t(info_.textureVertices - 1);
    const auto use = [&](const std::byte* record, size_t i) {
      for (size_t k = 0; k < 3; ++k) {
        const std::int64_t index =
            asFloats ? Truncated(At<float>(record, k * 4)) : At<std::int32_t>(record, k * 4);
        if (index < 0 || index > most)
          FailRange(at + i * kMoksetTexFaceBytes + k * 4, OfFace("a texture vertex of face ", i),
                    index, 0, most);
        map.faces[i].t[k] = std::uint32_t(index);
      }
    };
    EachEntry(at, map.faces.size(), kMoksetTexFaceBytes, "the texture faces", use);
  }

  void Odd(std::uint64_t offset, std::string text) {
    oddities_.push_back({offset, std::move(text)});
  }

  // Notes a product that no writer makes.
  bool OddProduct(const Divider& divider, std::uint64_t at, const std::string& field,
                  std::int64_t product) {
    Odd(at,
        TimesM(field, divider.multiplier) + " is " + Text(product) + ", expected a multiple of it");
    return true;
  }

  void CheckBox(const Box3& mesh) {
    const auto check = [&](std::uint32_t at, const char* name, const Point3& found,
                           const Point3& expected) {
      if (!(found == expected))
        Odd(layout_.box + at, std::string("the ") + name + " corner of the box is " + Text(found) +
                                  ", expected that of the vertices, " + Text(expected));
    };
    check(0, "upper", info_.box.pmax, mesh.pmax);
    check(12, "lower", info_.box.pmin, mesh.pmin);
  }

  void CheckSamples() {
    const size_t expected = std::min<size_t>(size_t(info_.vertices), kMostSamples);
    if (samples_.size() != expected)
      Odd(samplesAt_ - 4, "the number of samples is " + Text(samples_.size()) + ", expected " +
                              Text(expected) + " of " + Text(info_.vertices) + " vertices");
    std::vector<bool> taken(size_t(info_.vertices));
    for (size_t i = 0; i < samples_.size(); ++i) {
      if (taken[samples_[i]]) {
        const auto first = std::find(samples_.begin(), samples_.end(), samples_[i]);
        return Odd(samplesAt_ + i * layout_.sampleBytes,
                   OfFace("sample ", i) + " is vertex " + Text(samples_[i]) +
                       ", expected another than sample " + Text(first - samples_.begin()));
      }
      taken[samples_[i]] = true;
    }
  }

  // The first product and the first edge that are odd. Before generation 3 any float but 0 makes an
  // edge visible. A smoothing mask's product may have wrapped round when it was written.
  void CheckFaces() {
    const bool wide = info_.generation == 3;
    const Divider vertex = OfVertices(), material = OfMaterials();
    bool oddEdge = !wide, oddProduct = info_.multiplier == 1;
    const auto use = [&](const std::byte* record, size_t i) {
      const std::uint64_t at = facesAt_ + i * layout_.faceBytes;
      for (size_t k = 0; k < 3 && !oddEdge; ++k) oddEdge = CheckEdge(record, at, i, k);
      if (oddProduct) return;
      const RawFace raw = wide ? WideFace(record) : NarrowFace(record);
      for (size_t k = 0; k < 3 && !oddProduct; ++k)
        if (!vertex.IsWritten(raw.vertex[k]))
          oddProduct =
              OddProduct(vertex, at + k * (wide ? 8 : 4), OfFace(kCorners[k], i), raw.vertex[k]);
      if (!oddProduct && !material.IsWritten(raw.material))
        oddProduct =
            OddProduct(material, at + layout_.faceBytes - 4, OfFace(kMaterial, i), raw.material);
    };
    EachEntry(facesAt_, size_t(info_.faces), layout_.faceBytes, "the faces", use);
  }

  bool CheckEdge(const std::byte* record, std::uint64_t at, size_t i, size_t k) {
    const auto value = At<std::int32_t>(record, 24 + 4 * k);
    const int bit = 1 << k;
    if (value == 0 || value == bit) return false;
    Odd(at + 24 + 4 * k, std::string("edge ") + "abc"[k] + " of face " + Text(i) + " is " +
                             Text(value) + ", expected 0 or " + Text(bit));
    return true;
  }

  Source& file_;
  MoksetInfo& info_;
  const MoksetLayout& layout_;
  std::uint64_t vertsAt_ = 0, texVertsAt_ = 0, samplesAt_ = 0, facesAt_ = 0;
  std::vector<std::uint32_t> samples_;
  std::vector<MoksetFault> oddities_;
};

// Folders and pipes can't be read with seeks; opening a pipe would wait for its writer.
std::optional<std::ifstream> OpenFile(const WStr& path) {
  const std::filesystem::path native(NativePathOf(path));
  std::error_code error;
  if (!std::filesystem::is_regular_file(native, error)) return std::nullopt;
  std::ifstream in;
  in.rdbuf()->pubsetbuf(nullptr, 0);  // reads are as long as they should be
  in.open(native, std::ios::binary);
  if (!in) return std::nullopt;
  return in;
}

// With `oddities` there must be a mesh.
MoksetInfo ReadStream(std::istream& in, Mesh* mesh, std::vector<MoksetFault>* oddities) {
  if (mesh) *mesh = {};
  MoksetInfo info;
  const auto failed = [&](MoksetFault fault) {
    if (mesh) *mesh = {};
    MoksetInfo bare;
    bare.generation = info.generation;
    bare.bytes = info.bytes;
    bare.fault = std::move(fault);
    return bare;
  };
  try {
    info.generation = VersionOf(FirstLine(in));
    Source source(in);
    info.bytes = source.Size();
    if (info.generation < 1) Fail(kMoksetMagic.size(), "the version isn't one of 0.5 and 0.6");
    Reader reader(source, info);
    reader.ReadHead();
    if (mesh) {
      reader.ReadMesh(*mesh);
      if (oddities) *oddities = reader.Oddities(*mesh);
    } else {
      reader.ReadSamples();
    }
  } catch (const MoksetFault& fault) {
    return failed(fault);
  } catch (const std::bad_alloc&) {
    return failed({0, "there isn't enough memory for its mesh"});
  }
  return info;
}

MoksetInfo ReadPath(const WStr& path, Mesh* mesh, std::vector<MoksetFault>* oddities = nullptr) {
  if (std::optional<std::ifstream> in = OpenFile(path)) return ReadStream(*in, mesh, oddities);
  if (mesh) *mesh = {};
  MoksetInfo info;
  info.generation = -1;
  info.fault.text = "the file can't be opened";
  return info;
}

// What makes a file unreadable, or else what is odd about it.
std::vector<MoksetFault> AllFaults(const MoksetInfo& info, std::vector<MoksetFault> oddities) {
  if (info.fault) return {info.fault};
  return oddities;
}

}  // namespace

std::string NativePathOf(const WStr& path) {
  const auto exists = [](const std::string& name) {
    std::error_code error;
    return std::filesystem::exists(name, error);
  };
  const std::string plain = ToUtf8(path);
  if (plain.find('\\') == std::string::npos || exists(plain)) return plain;
  const auto turnedFrom = [&](size_t first) {
    std::string turned = plain;
    std::replace(turned.begin() + std::ptrdiff_t(first), turned.end(), '\\', '/');
    return turned;
  };
  const std::string turned = turnedFrom(0);
  if (exists(turned)) return turned;
  size_t folder = plain.rfind('/');
  while (folder != std::string::npos && folder > 0 && !exists(plain.substr(0, folder)))
    folder = plain.rfind('/', folder - 1);
  return folder == std::string::npos ? turned : turnedFrom(folder);
}

int ReadMoksetVersion(const WStr& path) {
  std::optional<std::ifstream> in = OpenFile(path);
  return in ? VersionOf(FirstLine(*in)) : -1;
}

MoksetInfo ReadMoksetStream(std::istream& in, Mesh* mesh) { return ReadStream(in, mesh, nullptr); }

std::vector<MoksetFault> CheckMoksetStream(std::istream& in, MoksetInfo& info) {
  Mesh mesh;
  std::vector<MoksetFault> oddities;
  info = ReadStream(in, &mesh, &oddities);
  return AllFaults(info, std::move(oddities));
}

std::vector<MoksetFault> CheckMoksetFile(const WStr& path, MoksetInfo& info) {
  Mesh mesh;
  std::vector<MoksetFault> oddities;
  info = ReadPath(path, &mesh, &oddities);
  return AllFaults(info, std::move(oddities));
}

MoksetInfo ReadMoksetInfo(const WStr& path) { return ReadPath(path, nullptr); }
MoksetInfo ReadMoksetFile(const WStr& path, Mesh& mesh) { return ReadPath(path, &mesh); }
void ReadMoksetMeshInto(const WStr& path, Mesh& mesh) { ReadPath(path, &mesh); }

Mesh ReadMoksetMesh(const WStr& path) {
  Mesh mesh;
  ReadPath(path, &mesh);
  return mesh;
}

}  // namespace sowfield
