#include <fmt/format.h>

#include <cmath>
#include <optional>

#include "sowfield/model/paramedit.h"
#include "studio/job/paramrules.h"
#include "studio/steps/steps.h"

namespace studio {

using sowfield::IndexForm;
using sowfield::ParamEntry;
using sowfield::Sowfield;

namespace {

// The entry of a parameter that "index", "type" or "row" tells; nothing without one of them.
std::optional<int> EntryOf(Sowfield& object, const ParamEntry& param, const Args& args) {
  const bool slots = param.form == IndexForm::Slot;
  if (const Value* type = args.Given("type")) return Stage::TypeOf(object, *type) + (slots ? 1 : 0);
  if (const Value* row = args.Given("row")) {
    const int slot = Stage::RowOf(object, *row);
    if (!slots && slot == 0)
      throw StepFailure{row->place,
                        fmt::format("\"{}\" has no entry for all types", ToUtf8(param.name))};
    return slots ? slot : slot - 1;
  }
  if (const Value* index = args.Given("index")) {
    const int count = object.distribution.block->Count(param.id);
    if (index->number < count) return int(index->number);
    throw StepFailure{index->place,
                      fmt::format("\"{}\" has {} entries, counted from 0: there is no {}",
                                  ToUtf8(param.name), count, index->number)};
  }
  return std::nullopt;
}

using sowfield::ParamWrite;

ParamWrite PlanWrite(Sowfield& object, const Args& args, const std::string& name, Place place,
                     const Value& value) {
  std::string why;
  const ParamEntry* param = FindParamByName(name, why);
  double number = 0;
  if (!param || !NumberToStore(*param, value, number, why)) throw StepFailure{place, why};
  if (std::isnan(number)) number = value.text == "all" ? 0 : Stage::TypeOf(object, value) + 1;
  const ParamWrite write{param, EntryOf(object, *param, args).value_or(0), number};
  if (why = WhyNotWritable(object.distribution, write); !why.empty())
    throw StepFailure{value.place, why};
  return write;
}

// At the present time, where a parameter is animated.
void WriteEntry(JsonOut& json, const IParamBlock2& block, const ParamEntry& param, int index) {
  const TimeValue t = GetCOREInterface()->GetTime();
  const auto name = [&](const WStr* text) { text ? json.Text(ToUtf8(*text)) : json.Null(); };
  switch (param.type) {
    case ParamType::Int:
    case ParamType::Bool:
      json.Int(block.GetInt(param.id, t, index));
      break;
    case ParamType::Float:
      json.Float(block.GetFloat(param.id, t, index));
      break;
    case ParamType::Point3:
      json.Point(block.GetPoint3(param.id, t, index));
      break;
    case ParamType::String:
    case ParamType::Filename: {
      const wchar_t* text = block.GetStr(param.id, t, index);
      json.Text(text ? ToUtf8(text) : std::string());
      break;
    }
    case ParamType::Node: {
      const INode* node = block.GetINode(param.id, t, index);
      name(node ? &node->GetName() : nullptr);
      break;
    }
    case ParamType::Mtl: {
      const Mtl* material = block.GetMtl(param.id, t, index);
      name(material ? &material->GetName() : nullptr);
      break;
    }
  }
}

void WriteTable(JsonOut& json, const IParamBlock2& block, const ParamEntry& param) {
  json.BeginList();
  for (int i = 0; i < block.Count(param.id); ++i) WriteEntry(json, block, param, i);
  json.End();
}

}  // namespace

void Set(Stage& stage, const Call& call, Outcome& out) {
  Sowfield& object = stage.Edited(call.place);
  const TimeValue t = stage.Now();
  // Everything is settled before the first write.
  std::vector<ParamWrite> writes;
  if (const Value* values = call.args.Given("values")) {
    for (const Member& m : values->members)
      writes.push_back(PlanWrite(object, call.args, m.key, m.place, m.value));
  } else {
    const Value& param = *call.args.Given("param");
    writes.push_back(
        PlanWrite(object, call.args, param.text, param.place, *call.args.Given("value")));
  }

  std::string names;
  for (const ParamWrite& w : writes) names += (names.empty() ? "" : ", ") + ToUtf8(w.param->name);
  UndoStep step;
  WriteParams(object.distribution, t, writes);
  step.Accept(FromUtf8("Set " + names));

  JsonOut json;
  json.BeginObject();
  for (const ParamWrite& w : writes) {
    JsonOut value;
    WriteEntry(value, *object.pblock2, *w.param, w.index);
    const std::string name = ToUtf8(w.param->name);
    json.Key(name).Raw(value.Str());
    out.text += fmt::format("{}{}{} = {}", out.text.empty() ? "" : ", ", name,
                            w.param->IsTable() ? fmt::format("[{}]", w.index) : "", value.Str());
  }
  out.Add("values", json.End().Str());
  for (const ParamWrite& w : writes)
    if (w.param->id == sowfield::Display_Mode &&
        object.pblock2->GetInt(sowfield::Display_Mode, t) != int(w.value))
      out.text += fmt::format("; a display budget lowered it to {}",
                              DisplayModeName(object.pblock2->GetInt(sowfield::Display_Mode, t)));
}

void Get(Stage& stage, const Call& call, Outcome& out) {
  Sowfield& object = stage.Edited(call.place);
  std::string why;
  const ParamEntry& param = *FindParamByName(call.args.Text("param"), why);
  const std::optional<int> index = EntryOf(object, param, call.args);
  std::string name = ToUtf8(param.name);
  JsonOut json;
  if (param.IsTable() && !index) {
    WriteTable(json, *object.pblock2, param);
  } else {
    if (index.value_or(0) >= object.pblock2->Count(param.id))
      throw StepFailure{call.place, fmt::format("\"{}\" has no entry {}", name, *index)};
    WriteEntry(json, *object.pblock2, param, index.value_or(0));
    if (index) name += fmt::format("[{}]", *index);
  }
  out.AddText("param", ToUtf8(param.name));
  if (index) out.Add("index", *index);
  out.Add("value", json.Str());
  out.answer = fmt::format("{} = {}", name, json.Str());
}

void DumpParams(Stage& stage, const Call& call, Outcome& out) {
  const Sowfield& object = stage.Edited(call.place);
  const IParamBlock2& block = *object.pblock2;
  const bool values = call.args.Text("tables") == "values";
  JsonOut json;
  json.BeginObject().Line().Key("object").Text(ToUtf8(stage.EditedNode()->GetName()));
  json.Line().Key("params").BeginList();
  for (const ParamEntry& param : sowfield::AllParams()) {
    json.Line().BeginObject().Key("id").Int(param.id).Key("name").Text(ToUtf8(param.name));
    if (!param.IsTable()) {
      json.Key("value");
      WriteEntry(json, block, param, 0);
    } else {
      json.Key("count").Int(block.Count(param.id));
      if (values) {
        json.Key("values");
        WriteTable(json, block, param);
      }
    }
    json.End();
  }
  json.Line().End().Line().End();
  out.text = fmt::format("{} parameters", sowfield::AllParams().size());
  HandOut(stage, call, "params", json.Str(), out);
}

}  // namespace studio
