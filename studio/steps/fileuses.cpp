#include "studio/steps/fileuses.h"

#include <fmt/format.h>

#include <filesystem>
#include <unordered_set>

#include "host/scene/node.h"
#include "host/scene/proxyobjects.h"
#include "sowfield/plugin/sowfield.h"
#include "sowfield/proxy/moksetfile.h"
#include "studio/steps/stage.h"

namespace studio {
namespace {

/// Goes through what a node shows and wears. Each thing is met once, with the first node's name.
class Collector {
 public:
  void Node(INode* node) {
    name_ = ToUtf8(node->GetName());
    Thing(node->GetObjectRef());
    Thing(node->GetMtl());
  }
  std::vector<FileUse> uses;

 private:
  void Thing(ReferenceTarget* thing) {
    if (!thing || dynamic_cast<INode*>(thing) || !seen_.insert(thing).second) return;
    if (auto* block = dynamic_cast<IParamBlock2*>(thing)) return Block(*block);
    if (auto* object = dynamic_cast<sowfield::Sowfield*>(thing)) Types(*object);
    if (auto* picture = dynamic_cast<BitmapTex*>(thing)) Picture(*picture);
    if (auto* object = dynamic_cast<Object*>(thing)) Blocks(*object);
    if (auto* material = dynamic_cast<MtlBase*>(thing)) Blocks(*material);
    for (int i = 0; i < thing->NumRefs(); ++i) Thing(thing->GetReference(i));
  }

  template <class T>
  void Blocks(T& owner) {
    // An object of one block may give it for every number.
    for (int i = 0; IParamBlock2* block = owner.GetParamBlock(i); ++i) {
      if (seen_.contains(block)) break;
      Thing(block);
    }
  }

  void Types(sowfield::Sowfield& object) {
    IParamBlock2& block = *object.pblock2;
    const std::span<const WStr> files = block.Strings(sowfield::Proxy_Files);
    const std::span<const WStr> names = block.Strings(sowfield::Geo_Names);
    if (files.empty()) return;
    for (const sowfield::TypeRef& type : sowfield::TypeWalk(block)) {
      if (type.HasNode() || size_t(type.file) >= files.size()) continue;
      FileUse use;
      use.kind = FileUse::Kind::Mokset, use.path = files[size_t(type.file)];
      const size_t t = size_t(type.type);
      use.who = fmt::format("type {} \"{}\" of \"{}\"", t, t < names.size() ? ToUtf8(names[t]) : "",
                            name_);
      use.object = &object, use.type = type.type;
      use.block = &block, use.id = sowfield::Proxy_Files, use.index = type.file;
      uses.push_back(std::move(use));
    }
  }

  void Block(IParamBlock2& block) {
    for (const ParamDef& def : block.GetDesc()->Params()) {
      if (def.type == ParamType::Mtl)
        for (Mtl* material : block.Mtls(def.id)) Thing(TargetOf(material));
      if (def.type == ParamType::Filename) Paths(block, def);
    }
  }

  void Paths(IParamBlock2& block, const ParamDef& def) {
    if (dynamic_cast<sowfield::Sowfield*>(block.GetOwner()) && def.id == sowfield::Proxy_Files)
      return;  // told as types
    const bool mokset = dynamic_cast<MoksetProxyObject*>(block.GetOwner()) != nullptr;
    if (mokset && block.GetInt(MoksetProxyObject::kExternal) == 0) return;
    const std::span<const WStr> paths = block.Strings(def.id);
    for (size_t i = 0; i < paths.size(); ++i) {
      if (paths[i].empty()) continue;
      FileUse use;
      use.kind = mokset ? FileUse::Kind::Mokset : FileUse::Kind::Other, use.path = paths[i];
      use.who = fmt::format("{} of \"{}\"", mokset ? "the proxy" : ToUtf8(def.name), name_);
      use.block = &block, use.id = def.id, use.index = int(i);
      uses.push_back(std::move(use));
    }
  }

  void Picture(BitmapTex& picture) {
    if (picture.GetBytes() || picture.GetMapName().empty()) return;
    FileUse use;
    use.kind = FileUse::Kind::Picture, use.path = picture.GetMapName();
    use.who = fmt::format("a material of \"{}\"", name_);
    use.picture = &picture;
    uses.push_back(std::move(use));
  }

  std::string name_;
  std::unordered_set<const ReferenceTarget*> seen_;
};

}  // namespace

void FileUse::Name(const WStr& other) const {
  if (picture) {
    picture->SetPicture(other);
  } else {
    block->SetValue(id, 0, other, index);
  }
}

std::vector<FileUse> FilesOf(std::span<INode* const> nodes) {
  Collector collector;
  for (INode* node : nodes) collector.Node(node);
  return std::move(collector.uses);
}

std::vector<FileUse> FilesOf(const Scene& scene) { return FilesOf(scene.AllNodes()); }

bool IsThere(const FileUse& use) {
  std::error_code code;
  return std::filesystem::is_regular_file(sowfield::NativePathOf(use.path), code);
}

std::vector<std::string> MissingFiles(const Scene& scene) {
  std::vector<std::string> missing;
  for (const FileUse& use : FilesOf(scene))
    if (use.kind == FileUse::Kind::Mokset && !IsThere(use))
      missing.push_back(fmt::format("{}: its file \"{}\" is missing", use.who, ToUtf8(use.path)));
  return missing;
}

}  // namespace studio
