// Parameter blocks in scene files: by id, types by name, tables as their bytes.
#include "host/core/tablerecords.h"

#include <nlohmann/json.hpp>
#include "host/scene/node.h"
#include "host/scenefile/sceneclasses.h"

namespace host {

using nlohmann::json;

namespace {

constexpr const char* kTypeNames[] = {"int",    "bool",     "float", "point3",
                                      "string", "filename", "node",  "material"};

const char* TypeName(ParamType type) { return kTypeNames[size_t(type)]; }

// A path may stand as a text, as older files have it.
bool IsTypeName(const json& name, ParamType type) {
  return name == TypeName(type) ||
         (type == ParamType::Filename && name == TypeName(ParamType::String));
}

std::vector<WStr> Stored(SceneOut& out, std::span<const WStr> paths) {
  std::vector<WStr> stored;
  for (const WStr& path : paths) stored.push_back(out.paths.Stored(path));
  return stored;
}

std::vector<WStr> InMemory(const SceneIn& in, std::vector<WStr> paths) {
  for (WStr& path : paths) path = in.paths.InMemory(path);
  return paths;
}

template <class T>
json RefList(SceneOut& out, std::span<T* const> targets) {
  json list = json::array();
  for (T* t : targets) list.push_back(out.Ref(TargetOf(t)));
  return list;
}

json TableValue(SceneOut& out, const IParamBlock2& block, const ParamDef& def) {
  switch (def.type) {
    case ParamType::Int:
    case ParamType::Bool:
      return out.Table("int", block.Ints(def.id));
    case ParamType::Float:
      return out.Table("float", block.Floats(def.id));
    case ParamType::Point3:
      return out.Table("point3", block.Points(def.id));
    case ParamType::String:
      return out.Texts(block.Strings(def.id));
    case ParamType::Filename:
      return out.Texts(Stored(out, block.Strings(def.id)));
    case ParamType::Node:
      return RefList(out, block.Nodes(def.id));
    case ParamType::Mtl:
      return RefList(out, block.Mtls(def.id));
  }
  return nullptr;
}

// As stored: a controller's value is the controller's affair.
json ScalarValue(SceneOut& out, const IParamBlock2& block, const ParamDef& def) {
  switch (def.type) {
    case ParamType::Int:
    case ParamType::Bool:
      return block.Ints(def.id)[0];
    case ParamType::Float:
      return FloatValue(block.Floats(def.id)[0]);
    case ParamType::Point3: {
      const Point3& p = block.Points(def.id)[0];
      return FloatList(std::array{p.x, p.y, p.z});
    }
    case ParamType::String:
      return ToUtf8(block.Strings(def.id)[0]);
    case ParamType::Filename:
      return ToUtf8(out.paths.Stored(block.Strings(def.id)[0]));
    case ParamType::Node:
      return out.Ref(TargetOf(block.Nodes(def.id)[0]));
    case ParamType::Mtl:
      return out.Ref(TargetOf(block.Mtls(def.id)[0]));
  }
  return nullptr;
}

// The block is new: nobody hears of it, and nothing refers to what was there.
template <class T>
void Take(IParamBlock2& block, ParamID id, std::vector<T> values) {
  if constexpr (std::is_pointer_v<T>) {
    block.Append(id, int(values.size()), values.data());
  } else {
    TableAccess::Values<T>(block, id) = std::move(values);
  }
}

template <class T>
std::vector<T*> ReadRefs(const SceneIn& in, const json& list, const char* what) {
  if (!list.is_array()) throw SceneFault(std::string(what) + " is no list");
  std::vector<T*> targets;
  for (const json& r : list) {
    T* target = nullptr;
    in.Try([&] { target = in.RefTo<T>(r, what); });
    targets.push_back(target);
  }
  return targets;
}

void ReadTable(const SceneIn& in, IParamBlock2& block, const ParamDef& def, const json& table,
               const char* what) {
  switch (def.type) {
    case ParamType::Int:
    case ParamType::Bool:
      return Take(block, def.id, in.Table<std::vector<int>>(table, "int", what));
    case ParamType::Float:
      return Take(block, def.id, in.Table<std::vector<float>>(table, "float", what));
    case ParamType::Point3:
      return Take(block, def.id, in.Table<std::vector<Point3>>(table, "point3", what));
    case ParamType::String:
      return Take(block, def.id, in.Texts(table, what));
    case ParamType::Filename:
      return Take(block, def.id, InMemory(in, in.Texts(table, what)));
    case ParamType::Node:
      return Take(block, def.id, ReadRefs<INode>(in, table, what));
    case ParamType::Mtl:
      return Take(block, def.id, ReadRefs<Mtl>(in, table, what));
  }
}

void ReadScalar(const SceneIn& in, IParamBlock2& block, const ParamDef& def, const json& value,
                const char* what) {
  switch (def.type) {
    case ParamType::Int:
    case ParamType::Bool:
      block.SetValue(def.id, 0, IntOf(value, INT_MIN, INT_MAX, what));
      break;
    case ParamType::Float:
      block.SetValue(def.id, 0, FloatOf(value, what));
      break;
    case ParamType::Point3: {
      const std::vector<float> p = FloatsOf(value, 3, what);
      block.SetValue(def.id, 0, Point3(p[0], p[1], p[2]));
      break;
    }
    case ParamType::String:
      block.SetValue(def.id, 0, TextOf(value, what));
      break;
    case ParamType::Filename:
      block.SetValue(def.id, 0, in.paths.InMemory(TextOf(value, what)));
      break;
    case ParamType::Node:
      block.SetValue(def.id, 0, in.RefTo<INode>(value, what));
      break;
    case ParamType::Mtl:
      block.SetValue(def.id, 0, in.RefTo<Mtl>(value, what));
      break;
  }
}

void ReadParam(const SceneIn& in, IParamBlock2& block, const ParamDef& def, const json& value) {
  const std::string name = "parameter " + std::to_string(def.id) + " (" + ToUtf8(def.name) + ")";
  const json& type = MemberOf(value, "type");
  if (!IsTypeName(type, def.type) || value.contains("table") != def.table)
    throw SceneFault(name + " is a " + type.dump(-1, ' ', true) +
                     (value.contains("table") ? " table" : "") + ", expected a " +
                     TypeName(def.type) + (def.table ? " table" : ""));
  if (def.table) return ReadTable(in, block, def, value["table"], name.c_str());
  ReadScalar(in, block, def, MemberOf(value, "value"), name.c_str());
  if (!value.contains("control")) return;
  auto* control = in.RefTo<FloatControl>(value["control"], name.c_str());
  if (control && !block.SetController(def.id, control))
    throw SceneFault(name + " can't be animated");
}

}  // namespace

json BlockValue(SceneOut& out, IParamBlock2& block) {
  json params = json::array();
  for (const ParamDef& def : block.GetDesc()->Params()) {
    json param = {{"id", def.id}, {"name", ToUtf8(def.name)}, {"type", TypeName(def.type)}};
    if (def.table) {
      param["table"] = TableValue(out, block, def);
    } else {
      param["value"] = ScalarValue(out, block, def);
      if (FloatControl* control = block.GetController(def.id)) param["control"] = out.Ref(control);
    }
    params.push_back(std::move(param));
  }
  json value = {{"id", block.ID()}, {"params", std::move(params)}};
  if (block.Undeclared()) value["undeclared"] = out.Kept(*block.Undeclared());
  return value;
}

void ReadBlock(const SceneIn& in, IParamBlock2& block, const json& value) {
  const ParamBlockDesc2& desc = *block.GetDesc();
  std::vector<bool> seen(size_t(INT16_MAX) + 1);
  json undeclared = json::array();
  const auto read = [&](const json& param) {
    const int id = IntOf(MemberOf(param, "id"), 0, INT16_MAX, "the id of a parameter");
    if (seen[size_t(id)]) throw SceneFault("parameter " + std::to_string(id) + " is there twice");
    seen[size_t(id)] = true;
    if (const ParamDef* def = desc.Find(ParamID(id))) {
      ReadParam(in, block, *def, param);
    } else {
      undeclared.push_back(param);
    }
  };
  const auto readAll = [&](const char* list) {
    for (const json& param : ListOf(value, list)) in.Try([&] { read(param); });
  };
  in.Try([&] { readAll("params"); });
  if (value.contains("undeclared")) in.Try([&] { readAll("undeclared"); });
  if (!undeclared.empty()) in.Try([&] { block.SetUndeclared(in.Keep(undeclared)); });
}

}  // namespace host
