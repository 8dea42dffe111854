#include "host/core/paramblock.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <functional>
#include <limits>

#include "host/core/classdesc.h"
#include "host/core/tablerecords.h"

namespace {

bool CanHaveKeys(const ParamDef& def) {
  return def.animatable && !def.table &&
         (def.type == ParamType::Int || def.type == ParamType::Bool ||
          def.type == ParamType::Float);
}

// Halves go up; what an int can't hold goes to its nearer end.
int Rounded(float value) {
  constexpr double kLow = std::numeric_limits<int>::min(), kHigh = std::numeric_limits<int>::max();
  return int(std::clamp(std::floor(double(value) + 0.5), kLow, kHigh));
}

}  // namespace

ParamBlockDesc2::ParamBlockDesc2(int blockId, const wchar_t* internalName, ClassDesc2* owner,
                                 std::vector<ParamDef> params)
    : blockId_(blockId), internalName_(internalName), params_(std::move(params)) {
  for (size_t i = 0; i < params_.size(); ++i) {
    const auto id = size_t(params_[i].id);
    if (byId_.size() <= id) byId_.resize(id + 1, -1);
    byId_[id] = int(i);
  }
  if (owner) owner->AddParamBlockDesc(this);
}

const ParamDef* ParamBlockDesc2::Find(ParamID id) const {
  if (id < 0 || size_t(id) >= byId_.size() || byId_[size_t(id)] < 0) return nullptr;
  return &params_[size_t(byId_[size_t(id)])];
}

IParamBlock2::IParamBlock2(ParamBlockDesc2& desc, ReferenceTarget* owner)
    : desc_(&desc), owner_(owner) {
  for (const ParamDef& def : desc.Params()) {
    const size_t n = def.table ? 0 : 1;
    Table table{&def, {}};
    switch (def.type) {
      case ParamType::Int:
      case ParamType::Bool:
        table.values = std::vector<int>(n, int(def.defaultValue));
        break;
      case ParamType::Float:
        table.values = std::vector<float>(n, float(def.defaultValue));
        break;
      case ParamType::Point3:
        table.values = std::vector<Point3>(n, Point3(0, 0, 0));
        break;
      case ParamType::String:
      case ParamType::Filename:
        table.values = std::vector<WStr>(n);
        break;
      case ParamType::Node:
        table.values = std::vector<INode*>(n, nullptr);
        break;
      case ParamType::Mtl:
        table.values = std::vector<Mtl*>(n, nullptr);
        break;
    }
    tables_.push_back(std::move(table));
  }
}

IParamBlock2::~IParamBlock2() { IParamBlock2::DeleteAllRefsFromMe(); }

IParamBlock2::Table* IParamBlock2::Find(ParamID id) {
  const ParamDef* def = desc_->Find(id);
  assert(def && "parameter id is not declared");
  return def ? &tables_[size_t(def - desc_->Params().data())] : nullptr;
}

const IParamBlock2::Table* IParamBlock2::Find(ParamID id) const {
  return const_cast<IParamBlock2*>(this)->Find(id);
}

template <class T>
const std::vector<T>* IParamBlock2::Typed(ParamID id) const {
  const Table* table = Find(id);
  return table ? std::get_if<std::vector<T>>(&table->values) : nullptr;
}

template <class T>
std::vector<T>* IParamBlock2::Writable(ParamID id) {
  return const_cast<std::vector<T>*>(Typed<T>(id));
}

template <class T>
T IParamBlock2::Read(ParamID id, int index, T otherwise) const {
  const std::vector<T>* values = Typed<T>(id);
  const bool inRange = values && index >= 0 && size_t(index) < values->size();
  assert(inRange && "parameter read with a wrong type or an index out of range");
  return inRange ? (*values)[size_t(index)] : otherwise;
}

int IParamBlock2::GetInt(ParamID id, TimeValue t, int index) const {
  int value;
  Interval valid = FOREVER;
  GetValue(id, t, value, valid, index);
  return value;
}

float IParamBlock2::GetFloat(ParamID id, TimeValue t, int index) const {
  float value;
  Interval valid = FOREVER;
  GetValue(id, t, value, valid, index);
  return value;
}

Point3 IParamBlock2::GetPoint3(ParamID id, TimeValue, int index) const {
  return Read<Point3>(id, index, Point3(0, 0, 0));
}
INode* IParamBlock2::GetINode(ParamID id, TimeValue, int index) const {
  return Read<INode*>(id, index, nullptr);
}
Mtl* IParamBlock2::GetMtl(ParamID id, TimeValue, int index) const {
  return Read<Mtl*>(id, index, nullptr);
}

const wchar_t* IParamBlock2::GetStr(ParamID id, TimeValue, int index) const {
  const std::vector<WStr>* values = Typed<WStr>(id);
  const bool inRange = values && index >= 0 && size_t(index) < values->size();
  assert(inRange && "parameter read with a wrong type or an index out of range");
  return inRange ? (*values)[size_t(index)].c_str() : L"";
}

bool IParamBlock2::GetValue(ParamID id, TimeValue t, int& value, Interval& valid, int index) const {
  value = Read<int>(id, index, 0);
  const FloatControl* control = GetController(id);
  if (control) value = Rounded(control->GetValue(t, valid));
  return true;
}

bool IParamBlock2::GetValue(ParamID id, TimeValue t, float& value, Interval& valid,
                            int index) const {
  value = Read<float>(id, index, 0.0f);
  const FloatControl* control = GetController(id);
  if (control) value = control->GetValue(t, valid);
  return true;
}

FloatControl* IParamBlock2::GetController(ParamID id) const {
  const Table* table = Find(id);
  return table ? table->control : nullptr;
}

bool IParamBlock2::SetController(ParamID id, FloatControl* control) {
  Table* table = Find(id);
  if (!table || !CanHaveKeys(*table->def)) return false;
  const Pin<IParamBlock2> alive(this);
  const Pin<FloatControl> kept(control);
  auto record = std::make_unique<host::ControlRecord>(this, id, table->control);
  TableAccess::ExchangeControl(*this, id, control);
  theHold->PutTable(std::move(record));
  SendChange(id, 0);
  return true;
}

bool IParamBlock2::SetKey(ParamID id, TimeValue t, float value) {
  if (FloatControl* control = GetController(id)) return control->SetKey(t, value), true;
  host::Track track({0});
  track.SetKey(t, {value});
  auto* made = new FloatControl;
  made->SetTrack(track);
  const std::unique_ptr<FloatControl, DeleteUnreferenced> unused(made);
  return SetController(id, made);
}

template <class T>
bool IParamBlock2::Write(ParamID id, const T& value, int index) {
  const std::vector<T>* values = Writable<T>(id);
  const bool inRange = values && index >= 0 && size_t(index) < values->size();
  assert(inRange && "parameter written with a wrong type or an index out of range");
  if (!inRange) return false;

  const Pin<IParamBlock2> alive(this);
  const std::vector<T> old = {TableAccess::Exchange<T>(*this, id, size_t(index), value)};
  theHold->PutTable(
      std::make_unique<host::SetRecord<T>>(this, id, size_t(index), old.front(), true));
  TableAccess::Release(*this, old);
  SendChange(id, index);
  if constexpr (std::is_pointer_v<T>) Send(id, index, REFMSG_NODE_TABLE_SET);
  return true;
}

// The controller's message tells of the change.
template <class T>
bool IParamBlock2::WriteNumber(ParamID id, TimeValue t, T value, int index) {
  FloatControl* control = Typed<T>(id) ? GetController(id) : nullptr;
  if (!control) return Write(id, value, index);
  control->SetValue(t, float(value));
  return true;
}

bool IParamBlock2::SetValue(ParamID id, TimeValue t, int value, int index) {
  return WriteNumber(id, t, value, index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, float value, int index) {
  return WriteNumber(id, t, value, index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue, const Point3& value, int index) {
  return Write(id, value, index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue, const WStr& value, int index) {
  return Write(id, value, index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue, INode* value, int index) {
  return Write(id, value, index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue, Mtl* value, int index) {
  return Write(id, value, index);
}

int IParamBlock2::Count(ParamID id) const {
  const Table* table = Find(id);
  if (!table) return 0;
  return std::visit([](const auto& v) { return int(v.size()); }, table->values);
}

bool IParamBlock2::Delete(ParamID id, int start, int count) {
  const int present = Count(id);
  const bool inRange = start >= 0 && count >= 0 && start <= present && count <= present - start;
  assert(inRange && "table range out of range");
  if (!inRange) return false;

  std::visit(
      [&]<class T>(std::vector<T>&) {
        const auto removed = TableAccess::Remove<T>(*this, id, size_t(start), size_t(count));
        theHold->PutTable(std::make_unique<host::RunRecord<T>>(this, id, size_t(start), removed));
        TableAccess::Release(*this, removed);
      },
      Find(id)->values);
  SendChange(id, -1);
  return true;
}

template <class T>
bool IParamBlock2::InsertValues(ParamID id, int start, int count, const T* values) {
  std::vector<T>* table = Writable<T>(id);
  const bool inRange = table && start >= 0 && count >= 0 && size_t(start) <= table->size();
  assert(inRange && "table insertion with a wrong type or out of range");
  if (!inRange) return false;

  const Pin<IParamBlock2> alive(this);
  std::vector<T> ownEntries;  // values that lie in the table move when it grows
  const std::less<const T*> before;
  if (count > 0 && !before(values, table->data()) &&
      before(values, table->data() + table->size())) {
    ownEntries.assign(values, values + count);
    values = ownEntries.data();
  }
  TableAccess::Insert<T>(*this, id, size_t(start), std::span<const T>(values, size_t(count)));
  theHold->PutTable(std::make_unique<host::RunRecord<T>>(this, id, size_t(start), size_t(count)));
  SendChange(id, -1);
  if constexpr (std::is_pointer_v<T>) Send(id, -1, REFMSG_NODE_TABLE_SET);
  return true;
}

bool IParamBlock2::Insert(ParamID id, int start, int count, const int* values) {
  return InsertValues(id, start, count, values);
}
bool IParamBlock2::Insert(ParamID id, int start, int count, const float* values) {
  return InsertValues(id, start, count, values);
}
bool IParamBlock2::Insert(ParamID id, int start, int count, const Point3* values) {
  return InsertValues(id, start, count, values);
}
bool IParamBlock2::Insert(ParamID id, int start, int count, const WStr* values) {
  return InsertValues(id, start, count, values);
}
bool IParamBlock2::Insert(ParamID id, int start, int count, INode* const* values) {
  return InsertValues(id, start, count, values);
}
bool IParamBlock2::Insert(ParamID id, int start, int count, Mtl* const* values) {
  return InsertValues(id, start, count, values);
}

bool IParamBlock2::KeepEntries(ParamID id, std::span<const unsigned char> mask) {
  const bool fits = mask.size() == size_t(Count(id));
  assert(fits && "the mask must have a place for each entry");
  if (!fits) return false;

  const Pin<IParamBlock2> alive(this);
  std::vector<size_t> places;
  for (size_t i = 0; i < mask.size(); ++i)
    if (!mask[i]) places.push_back(i);
  std::visit(
      [&]<class T>(std::vector<T>&) {
        const auto removed = TableAccess::TakeOut<T>(*this, id, places);
        theHold->PutTable(
            std::make_unique<host::KeepRecord<T>>(this, id, std::move(places), removed));
        TableAccess::Release(*this, removed);
      },
      Find(id)->values);
  SendChange(id, -1);
  SendChange(id, -1);
  return true;
}

namespace {

template <class T>
std::span<const T> SpanOf(const std::vector<T>* values) {
  return values ? std::span<const T>(*values) : std::span<const T>();
}

}  // namespace

std::span<const int> IParamBlock2::Ints(ParamID id) const { return SpanOf(Typed<int>(id)); }
std::span<const float> IParamBlock2::Floats(ParamID id) const { return SpanOf(Typed<float>(id)); }
std::span<const Point3> IParamBlock2::Points(ParamID id) const { return SpanOf(Typed<Point3>(id)); }
std::span<const WStr> IParamBlock2::Strings(ParamID id) const { return SpanOf(Typed<WStr>(id)); }
std::span<INode* const> IParamBlock2::Nodes(ParamID id) const { return SpanOf(Typed<INode*>(id)); }
std::span<Mtl* const> IParamBlock2::Mtls(ParamID id) const { return SpanOf(Typed<Mtl*>(id)); }

ReferenceTarget* IParamBlock2::GetOwner() const {
  const auto& holders = Dependents();
  return std::find(holders.begin(), holders.end(), owner_) != holders.end() ? owner_ : nullptr;
}

void IParamBlock2::SetObserver(ParamID id, PointTableObserver* observer) {
  if (Table* table = Find(id)) table->observer = observer;
}

void IParamBlock2::SendChange(ParamID id, int index) { Send(id, index, REFMSG_CHANGE); }

void IParamBlock2::SendRestored(ParamID id) {
  Send(id, -1, REFMSG_CHANGE);
  if (Typed<INode*>(id) || Typed<Mtl*>(id)) Send(id, -1, REFMSG_NODE_TABLE_SET);
}

void IParamBlock2::Send(ParamID id, int index, RefMessage message) {
  const Pin<IParamBlock2> alive(this);
  const ParamID outerId = std::exchange(lastId_, id);
  const int outerIndex = std::exchange(lastIndex_, index);
  NotifyDependents(FOREVER, PART_ALL, message);
  lastId_ = outerId;
  lastIndex_ = outerIndex;
}

RefResult IParamBlock2::NotifyRefChanged(const Interval&, ReferenceTarget* target, PartID&,
                                         RefMessage message) {
  // A change of a node reaches the owner under the name of each parameter that holds the node.
  // What comes back to the block by a ring of references ends here.
  const bool ring = std::find(passingOn_.begin(), passingOn_.end(), target) != passingOn_.end();
  if (message != REFMSG_CHANGE || ring) return REF_FAIL;
  passingOn_.push_back(target);
  for (const Table& table : tables_) {
    const auto holds = [&]<class T>(const std::vector<T>& values) {
      if constexpr (std::is_pointer_v<T>) {
        return std::any_of(values.begin(), values.end(),
                           [&](T v) { return v && TargetOf(v) == target; });
      } else {
        return false;
      }
    };
    if (table.control == target) Send(table.def->id, 0, REFMSG_CHANGE);
    if (std::visit(holds, table.values)) Send(table.def->id, -1, REFMSG_CHANGE);
  }
  passingOn_.pop_back();
  return REF_FAIL;  // told already
}

std::vector<ParamID> IParamBlock2::NullEntries(ReferenceTarget* target) {
  return MakeNull(target, true);
}

// A target that dies of itself can't come back: no record may keep it.
void IParamBlock2::ForgetTarget(ReferenceTarget* target) {
  for (const Table& table : tables_)
    if (table.control == target) TableAccess::ExchangeControl(*this, table.def->id, nullptr);
  MakeNull(target, false);
}

std::vector<ParamID> IParamBlock2::MakeNull(ReferenceTarget* target, bool recorded) {
  std::vector<ParamID> ids;
  for (Table& table : tables_) {
    std::visit(
        [&]<class T>(std::vector<T>& values) {
          if constexpr (std::is_pointer_v<T>) {
            const ParamID id = table.def->id;
            for (size_t i = 0; i < values.size(); ++i) {
              if (!values[i] || TargetOf(values[i]) != target) continue;
              const std::vector<T> old = {TableAccess::Exchange<T>(*this, id, i, nullptr)};
              if (recorded)
                theHold->PutTable(
                    std::make_unique<host::SetRecord<T>>(this, id, i, old.front(), false));
              TableAccess::Release(*this, old);
              if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
            }
          }
        },
        table.values);
  }
  return ids;
}

void IParamBlock2::SendNulled(ParamID id) { Send(id, -1, REFMSG_TAB_ELEMENT_NULLED); }

void IParamBlock2::DeleteAllRefsFromMe() {
  for (Table& table : tables_) {
    LetGo(std::exchange(table.control, nullptr));
    std::visit(
        [&]<class T>(std::vector<T>& values) {
          if constexpr (std::is_pointer_v<T>)
            TableAccess::Release(*this, std::exchange(values, {}));
        },
        table.values);
  }
}

ReferenceTarget* IParamBlock2::Clone(RemapDir& remap) {
  auto* copy = new IParamBlock2(*desc_, nullptr);
  copy->undeclared_ = undeclared_;
  for (size_t i = 0; i < tables_.size(); ++i) {
    copy->tables_[i].values = tables_[i].values;
    copy->tables_[i].control = static_cast<FloatControl*>(remap.CloneRef(tables_[i].control));
    copy->ReferTo(copy->tables_[i].control);
    std::visit(
        [&]<class T>(std::vector<T>& values) {
          if constexpr (std::is_pointer_v<T>) {
            for (T& v : values) {
              if (!v) continue;
              if (ReferenceTarget* mapped = remap.FindMapping(TargetOf(v))) FromTarget(mapped, v);
              copy->ReferTo(TargetOf(v));
            }
          }
        },
        copy->tables_[i].values);
  }
  return copy;
}
