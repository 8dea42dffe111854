#pragma once

#include <memory>
#include <span>
#include <variant>
#include <vector>

#include "host/core/control.h"
#include "host/core/hold.h"
#include "host/core/paramdesc.h"
#include "host/core/reference.h"
#include "host/math/point3.h"

class INode;
class Mtl;
namespace host {
class KeptValues;
}

// Nodes and materials as the reference system sees them; the scene knows how.
ReferenceTarget* TargetOf(INode* node);
ReferenceTarget* TargetOf(Mtl* material);
void FromTarget(ReferenceTarget* target, INode*& node);
void FromTarget(ReferenceTarget* target, Mtl*& material);

/// Is told of the entries that come to and leave a Point3 table, by edits, undo and redo alike, so
/// that a structure beside the table can follow it. Called before the table's message is sent.
class PointTableObserver {
 public:
  virtual ~PointTableObserver() = default;
  virtual void PointsAdded(std::span<const Point3> points) = 0;
  virtual void PointsRemoved(std::span<const Point3> points) = 0;
};

/// Typed values and tables by id: everything of an object that lasts.
///
/// Each write stores, records itself with the host's undo, and sends REFMSG_CHANGE at once, equal
/// values included; LastNotifyParamID names the parameter during the message. A scalar is a table
/// of one entry. Node and material entries are references: a node that goes leaves null entries.
///
/// An index or range outside the table, an undeclared id or the wrong type is the caller's fault:
/// an assert in debug builds; otherwise reads give 0, empty or null, and writes do nothing.
///
/// A scalar number that is declared animatable may have a controller, which then gives its value;
/// whole numbers are rounded. With keys, SetValue adds the key at its time or changes it. The span
/// of such a parameter holds the value from before.
class IParamBlock2 : public ReferenceTarget {
 public:
  IParamBlock2(ParamBlockDesc2& desc, ReferenceTarget* owner);
  ~IParamBlock2() override;

  SClass_ID SuperClassID() const override { return PARAMETER_BLOCK2_CLASS_ID; }
  ParamBlockDesc2* GetDesc() const { return desc_; }
  int ID() const { return desc_->ID(); }
  /// The object that holds the block; null for a block that has been let go.
  ReferenceTarget* GetOwner() const;

  int GetInt(ParamID id, TimeValue t = 0, int index = 0) const;
  float GetFloat(ParamID id, TimeValue t = 0, int index = 0) const;
  Point3 GetPoint3(ParamID id, TimeValue t = 0, int index = 0) const;
  /// Valid until that entry changes.
  const wchar_t* GetStr(ParamID id, TimeValue t = 0, int index = 0) const;
  INode* GetINode(ParamID id, TimeValue t = 0, int index = 0) const;
  Mtl* GetMtl(ParamID id, TimeValue t = 0, int index = 0) const;
  /// The value at t; the interval is narrowed to the time for which it holds.
  bool GetValue(ParamID id, TimeValue t, int& value, Interval& valid, int index = 0) const;
  bool GetValue(ParamID id, TimeValue t, float& value, Interval& valid, int index = 0) const;

  bool SetValue(ParamID id, TimeValue t, int value, int index = 0);
  bool SetValue(ParamID id, TimeValue t, float value, int index = 0);
  bool SetValue(ParamID id, TimeValue t, const Point3& value, int index = 0);
  bool SetValue(ParamID id, TimeValue t, const WStr& value, int index = 0);
  bool SetValue(ParamID id, TimeValue t, INode* value, int index = 0);
  bool SetValue(ParamID id, TimeValue t, Mtl* value, int index = 0);

  /// Sets a key at t, with a controller made for the first one. False for a parameter that isn't
  /// an animatable number.
  bool SetKey(ParamID id, TimeValue t, float value);
  /// Null without one.
  FloatControl* GetController(ParamID id) const;
  /// Null takes it away, and the value from before holds again. False as for SetKey.
  bool SetController(ParamID id, FloatControl* control);

  int Count(ParamID id) const;
  bool Delete(ParamID id, int start, int count);
  template <class T>
  bool Append(ParamID id, int count, const T* values) {
    return Insert(id, Count(id), count, values);
  }
  bool Insert(ParamID id, int start, int count, const int* values);
  bool Insert(ParamID id, int start, int count, const float* values);
  bool Insert(ParamID id, int start, int count, const Point3* values);
  bool Insert(ParamID id, int start, int count, const WStr* values);
  bool Insert(ParamID id, int start, int count, INode* const* values);
  bool Insert(ParamID id, int start, int count, Mtl* const* values);
  /// Keeps the entries whose place in the mask isn't 0, in their order. The mask has Count(id)
  /// places. Sends the two messages of emptying and refilling the table; the record keeps the
  /// entries that went, nothing else.
  bool KeepEntries(ParamID id, std::span<const unsigned char> mask);

  /// A whole table, valid until it changes; empty for an id of another type.
  std::span<const int> Ints(ParamID id) const;
  std::span<const float> Floats(ParamID id) const;
  std::span<const Point3> Points(ParamID id) const;
  std::span<const WStr> Strings(ParamID id) const;
  std::span<INode* const> Nodes(ParamID id) const;
  std::span<Mtl* const> Mtls(ParamID id) const;

  /// The parameter behind the message that is being sent, -1 outside a message.
  ParamID LastNotifyParamID() const { return lastId_; }
  ParamID LastNotifyParamID(int& index) const {
    index = lastIndex_;
    return lastId_;
  }

  /// One observer a table; null takes it away.
  void SetObserver(ParamID id, PointTableObserver* observer);

  int NumRefs() const override { return 0; }  // entries aren't numbered references
  RefResult NotifyRefChanged(const Interval& changeInt, ReferenceTarget* target, PartID& partID,
                             RefMessage message) override;
  void ForgetTarget(ReferenceTarget* target) override;
  void DeleteAllRefsFromMe() override;
  /// A full copy without owner; entries keep their nodes unless the remap maps them.
  ReferenceTarget* Clone(RemapDir& remap) override;
  void SetOwner(ReferenceTarget* owner) { owner_ = owner; }

  /// What a scene file held for this block under ids that aren't declared: it is written back.
  void SetUndeclared(std::shared_ptr<const host::KeptValues> kept) {
    undeclared_ = std::move(kept);
  }
  const std::shared_ptr<const host::KeptValues>& Undeclared() const { return undeclared_; }

  // For the host's deletion of nodes. NullEntries makes the entries of `target` null and gives the
  // ids of their parameters; SendNulled tells the owner, once a parameter.
  std::vector<ParamID> NullEntries(ReferenceTarget* target);
  void SendNulled(ParamID id);

 private:
  friend struct TableAccess;
  using Values = std::variant<std::vector<int>, std::vector<float>, std::vector<Point3>,
                              std::vector<WStr>, std::vector<INode*>, std::vector<Mtl*>>;
  struct Table {
    const ParamDef* def;
    Values values;
    PointTableObserver* observer = nullptr;
    FloatControl* control = nullptr;
  };

  Table* Find(ParamID id);
  const Table* Find(ParamID id) const;
  template <class T>
  const std::vector<T>* Typed(ParamID id) const;
  template <class T>
  std::vector<T>* Writable(ParamID id);
  template <class T>
  T Read(ParamID id, int index, T otherwise) const;
  template <class T>
  bool Write(ParamID id, const T& value, int index);
  template <class T>
  bool WriteNumber(ParamID id, TimeValue t, T value, int index);
  template <class T>
  bool InsertValues(ParamID id, int start, int count, const T* values);
  std::vector<ParamID> MakeNull(ReferenceTarget* target, bool recorded);
  void SendChange(ParamID id, int index);
  void SendRestored(ParamID id);
  void Send(ParamID id, int index, RefMessage message);

  ParamBlockDesc2* desc_;
  ReferenceTarget* owner_;
  std::vector<Table> tables_;                      // in the order of the descriptor
  std::vector<const ReferenceTarget*> passingOn_;  // whose change is being told, innermost last
  std::shared_ptr<const host::KeptValues> undeclared_;
  ParamID lastId_ = -1;
  int lastIndex_ = -1;
};
