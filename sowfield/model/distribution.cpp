#include "sowfield/model/distribution.h"

#include <algorithm>
#include <array>

namespace sowfield {

void ListState::SelectObjectRows(std::vector<int> rows) {
  objectRows = std::move(rows);
  objectListCount = int(objectRows.size());
  // With several rows selected the one that was selected alone stays the one that is edited.
  if (objectListCount < 2) objectListFirst = objectRows.empty() ? -1 : objectRows.front();
}

void ListState::SelectPainterRows(std::vector<int> rows) {
  painterRows = std::move(rows);
  paintListCount = int(painterRows.size());
  paintListFirst = painterRows.empty() ? -1 : painterRows.front();
}

TypeRef Distribution::FindType(int type) const {
  for (const TypeRef& t : TypeWalk(*block))
    if (t.type == type) return t;
  return {};
}

TypeRef Distribution::LastType() const {
  TypeRef last;
  last.type = TypeCount() - 1;
  last.kind = block->GetInt(Geo_Kind, curTime, last.type);
  last.node = block->Count(Geo_Nodes) - last.HasNode();
  last.file = block->Count(Proxy_Files) - !last.HasNode();
  last.original = block->Count(Proxy_Nodes) - last.HasOriginal();
  return last;
}

void Distribution::SetListReady(int ready) {
  listReady_ = ready && changes_ == 0;
  if (!listReady_) return;
  const std::vector<Event> events = std::move(waiting_);
  waiting_.clear();
  for (const Event e : events) Deliver(e);
}

void Distribution::Tell(Event event) {
  if (listReady_ || !IsListEvent(event)) {
    Deliver(event);
  } else if (std::find(waiting_.begin(), waiting_.end(), event) == waiting_.end()) {
    waiting_.push_back(event);
  }
}

void Distribution::Deliver(Event event) {
  const std::vector<Listener*> list = listeners_;
  for (Listener* l : list)
    if (std::find(listeners_.begin(), listeners_.end(), l) != listeners_.end()) l->OnEvent(event);
}

namespace {

// `rows` rows of one value a table, drawn row by row, appended table by table.
void AppendRandomRows(Distribution& d, int rows) {
  std::array<std::vector<float>, kRandomTables.size()> values;
  for (auto& v : values) v.reserve(size_t(rows));
  for (int r = 0; r < rows; ++r)
    for (auto& v : values) v.push_back(d.rng.Random(100));
  for (size_t i = 0; i < values.size(); ++i)
    d.block->Append(kRandomTables[i], rows, values[i].data());
}

void DeleteAll(IParamBlock2& block, Param id) { block.Delete(id, 0, block.Count(id)); }

}  // namespace

void AppendRandomBlock(Distribution& d) { AppendRandomRows(d, kBlockSize); }

void ReseedRandomBlock(Distribution& d, int slot) {
  IParamBlock2& block = *d.block;
  if (slot == 0)
    for (const Param id : kRandomTables) DeleteAll(block, id);

  if (block.Count(Rnd_ZPos) == 0) {
    AppendRandomRows(d, (d.TypeCount() + 1) * kBlockSize);
    return;
  }
  for (int i = slot * kBlockSize; i < (slot + 1) * kBlockSize; ++i) {
    for (const Param id : kRandomTables) {
      const float value = d.rng.Random(100);
      block.Insert(id, i, 1, &value);
      block.Delete(id, i + 1, 1);
    }
  }
}

void EnsureAnimTable(Distribution& d) {
  if (d.block->Count(Rnd_Anim) != 0) return;
  std::vector<float> values(kAnimTableSize);
  for (float& v : values) v = d.rng.Random(100);
  d.block->Append(Rnd_Anim, kAnimTableSize, values.data());
}

void UpgradeNormalRows(Distribution& d) {
  IParamBlock2& block = *d.block;
  // An object that was never set up has no rows at all; InitNewObject gives it all of them.
  if (block.Count(Tr_Normal_Min) != 0 || block.Count(Tr_Random) == 0) return;
  const int types = d.TypeCount();
  for (int slot = 0; slot <= types; ++slot) {
    const float value = slot == 0 ? 0.0f : 100.0f;
    block.Append(Tr_Normal_Min, 1, &value);
    block.Append(Tr_Normal_Max, 1, &value);
  }
  std::vector<float> values(size_t(types + 1) * kBlockSize);
  for (float& v : values) v = d.rng.Random(100);
  block.Append(Rnd_Normal, int(values.size()), values.data());
  d.RefreshObject();
}

}  // namespace sowfield
