// Things of plug-ins' classes in scene files: their parameter blocks, and what they refer to.
#include "host/scene/triobject.h"

#include <nlohmann/json.hpp>
#include "host/scenefile/sceneclasses.h"

namespace host {

using nlohmann::json;

namespace {

int SubMtls(const ReferenceTarget& thing) {
  const auto* mtl = dynamic_cast<const Mtl*>(&thing);
  return mtl ? mtl->NumSubMtls() : 0;
}

// Whether a material's own lists tell of the target.
bool IsSub(const MtlBase& base, const ReferenceTarget* target) {
  for (int i = 0; i < SubMtls(base); ++i)
    if (static_cast<const Mtl&>(base).GetSubMtl(i) == target) return true;
  for (int i = 0; i < base.NumSubTexmaps(); ++i)
    if (base.GetSubTexmap(i) == target) return true;
  return false;
}

void WriteSubs(SceneOut& out, const MtlBase& base, json& value) {
  json mtls = json::array(), maps = json::array();
  for (int i = 0; i < SubMtls(base); ++i)
    mtls.push_back(out.Ref(static_cast<const Mtl&>(base).GetSubMtl(i)));
  for (int i = 0; i < base.NumSubTexmaps(); ++i) maps.push_back(out.Ref(base.GetSubTexmap(i)));
  value["name"] = ToUtf8(base.GetName());
  value["subMtls"] = std::move(mtls);
  value["subTexmaps"] = std::move(maps);
}

template <class T, class Set>
void ReadSlots(const SceneIn& in, const json& list, int slots, const std::string& what, Set set) {
  if (list.size() != size_t(slots))
    in.Fault("it has " + std::to_string(list.size()) + " " + what + "s, expected " +
             std::to_string(slots));
  const std::string one = "a " + what;
  for (size_t i = 0; i < list.size() && i < size_t(slots); ++i)
    in.Try([&] { set(int(i), in.RefTo<T>(list[i], one.c_str())); });
}

void ReadSubs(const SceneIn& in, MtlBase& base, const json& value) {
  in.Try([&] { base.SetName(TextOf(MemberOf(value, "name"), "the name")); });
  if (auto* mtl = dynamic_cast<Mtl*>(&base))
    in.Try([&] {
      ReadSlots<Mtl>(in, ListOf(value, "subMtls"), mtl->NumSubMtls(), "sub-material",
                     [&](int i, Mtl* sub) { mtl->SetSubMtl(i, sub); });
    });
  in.Try([&] {
    ReadSlots<Texmap>(in, ListOf(value, "subTexmaps"), base.NumSubTexmaps(), "map",
                      [&](int i, Texmap* sub) { base.SetSubTexmap(i, sub); });
  });
}

// Which kinds of things another reference takes, only its class knows: one that holds a mesh gets
// one.
void ReadRef(const SceneIn& in, ReferenceTarget& thing, const json& value) {
  const int i = IntOf(MemberOf(value, "index"), 0, thing.NumRefs() - 1, "a reference's index");
  const ReferenceTarget* there = thing.GetReference(i);
  if (dynamic_cast<const IParamBlock2*>(there))
    throw SceneFault("reference " + std::to_string(i) + " is a parameter block");
  if (!dynamic_cast<Object*>(&thing) || (there && !dynamic_cast<const TriObject*>(there)))
    throw SceneFault("reference " + std::to_string(i) + " takes no mesh");
  thing.ReplaceReference(i, in.RefTo<TriObject>(MemberOf(value, "to"), "a reference"));
}

const json& BlockAt(const json& list, int index) {
  for (const json& block : list)
    if (MemberOf(block, "index") == index) return block;
  throw SceneFault("the parameter block at its reference " + std::to_string(index) + " is missing");
}

// The block is filled before the thing gets it: no message reaches a half-loaded object.
void ReadBlockAt(const SceneIn& in, ReferenceTarget& thing, int index, const json& list) {
  const auto& made = static_cast<const IParamBlock2&>(*thing.GetReference(index));
  const json& value = BlockAt(list, index);
  const int id = IntOf(MemberOf(value, "id"), 0, INT16_MAX, "the id of the block");
  if (id != made.ID())
    throw SceneFault("its block has the id " + std::to_string(id) + ", expected " +
                     std::to_string(made.ID()));
  std::unique_ptr<IParamBlock2, DeleteUnreferenced> block(
      new IParamBlock2(*made.GetDesc(), nullptr));
  ReadBlock(in, *block, value);
  thing.ReplaceReference(index, block.get());
  if (thing.GetReference(index) != block.get())
    throw SceneFault("its parameter block can't be exchanged");
}

}  // namespace

json PluginValue(SceneOut& out, const ReferenceTarget& thing) {
  const auto* base = dynamic_cast<const MtlBase*>(&thing);
  json blocks = json::array(), refs = json::array();
  for (int i = 0; i < thing.NumRefs(); ++i) {
    ReferenceTarget* target = thing.GetReference(i);
    if (!target || (base && IsSub(*base, target))) continue;
    if (auto* block = dynamic_cast<IParamBlock2*>(target)) {
      blocks.push_back(BlockValue(out, *block));
      blocks.back()["index"] = i;
    } else if (dynamic_cast<const Object*>(&thing) && dynamic_cast<const TriObject*>(target)) {
      refs.push_back({{"index", i}, {"to", out.Ref(target)}});
    } else {
      throw SceneFault("its reference " + std::to_string(i) + " can't be saved");
    }
  }
  json value = {{"blocks", std::move(blocks)}, {"refs", std::move(refs)}};
  if (base) WriteSubs(out, *base, value);
  return value;
}

void ReadPlugin(const SceneIn& in, ReferenceTarget& thing, const json& value) {
  const json& blocks = ListOf(value, "blocks");
  size_t known = 0;
  for (int i = 0; i < thing.NumRefs(); ++i)
    if (dynamic_cast<const IParamBlock2*>(thing.GetReference(i))) {
      ReadBlockAt(in, thing, i, blocks);
      ++known;
    }
  if (blocks.size() != known)
    in.Fault("it has " + std::to_string(blocks.size()) + " parameter blocks, expected " +
             std::to_string(known));
  in.Try([&] {
    for (const json& ref : ListOf(value, "refs")) in.Try([&] { ReadRef(in, thing, ref); });
  });
  if (auto* base = dynamic_cast<MtlBase*>(&thing)) ReadSubs(in, *base, value);
}

}  // namespace host
