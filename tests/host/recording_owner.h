#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/core/paramblock.h"
#include "host/core/session.h"

/// One message as its receiver saw it: what it was, and how long each table was at that moment.
struct SeenMessage {
  RefMessage message;
  ParamID id;
  int restoring;
  std::vector<int> counts;  // by the order of RecordingOwner::Desc()

  std::string Text() const {
    const char* name = message == REFMSG_CHANGE               ? "change"
                       : message == REFMSG_TAB_ELEMENT_NULLED ? "nulled"
                       : message == REFMSG_NODE_TABLE_SET     ? "set"
                                                              : "other";
    const char* way = restoring == 1 ? "undo:" : restoring == 4 ? "redo:" : "";
    return way + std::string(name) + " " + std::to_string(id);
  }
};

/// An object with one parameter block, as a plug-in's would be, that writes down all its messages.
class RecordingOwner : public ReferenceTarget {
 public:
  enum : ParamID {
    kNodes,    // in the file's order, ranks in brackets
    kFirst,    // ints [-2], sent first on redo and last on undo
    kInts,     // [0]
    kFloats,   // [0]
    kPoints,   // [-1]
    kStrings,  // [0]
    kLast,     // floats [5]
    kCamera,   // one node
    kNumber,   // one int
    kMtls,
    kParamCount
  };

  RecordingOwner() {
    ++Alive();
    ReplaceReference(0, new IParamBlock2(Desc(), this));
  }
  ~RecordingOwner() override {
    --Alive();
    DeleteAllRefsFromMe();
  }
  static int& Alive() {
    static int alive = 0;
    return alive;
  }

  static ParamBlockDesc2& Desc() {
    static ParamBlockDesc2 desc(0, L"Title", nullptr,
                                {{kNodes, L"Nodes", ParamType::Node, true},
                                 {kFirst, L"First", ParamType::Int, true, false, 0, -2},
                                 {kInts, L"Ints", ParamType::Int, true},
                                 {kFloats, L"Floats", ParamType::Float, true},
                                 {kPoints, L"Points", ParamType::Point3, true, false, 0, -1},
                                 {kStrings, L"Some Strings", ParamType::String, true},
                                 {kLast, L"Last", ParamType::Float, true, false, 0, 5},
                                 {kCamera, L"Camera", ParamType::Node},
                                 {kNumber, L"Number", ParamType::Int, false, false, 7},
                                 {kMtls, L"Mtls", ParamType::Mtl, true}});
    return desc;
  }

  IParamBlock2& Block() { return *block_; }
  int NumRefs() const override { return 1; }
  ReferenceTarget* GetReference(int) const override { return block_; }

  RefResult NotifyRefChanged(const Interval&, ReferenceTarget* target, PartID&,
                             RefMessage message) override {
    if (target != block_) return REF_SUCCEED;
    SeenMessage seen{message, block_->LastNotifyParamID(), theHold.RestoreOrRedoing(), {}};
    for (ParamID id = 0; id < kParamCount; ++id) seen.counts.push_back(block_->Count(id));
    log.push_back(seen);
    if (const auto handler = onMessage) handler(log.back());  // a copy: handlers take themselves out
    return REF_SUCCEED;
  }

  std::vector<std::string> TakeLog() {
    std::vector<std::string> texts;
    for (const SeenMessage& m : log) texts.push_back(m.Text());
    log.clear();
    return texts;
  }

  std::vector<SeenMessage> log;
  std::function<void(SeenMessage)> onMessage;

 protected:
  void SetReference(int, ReferenceTarget* t) override { block_ = static_cast<IParamBlock2*>(t); }

 private:
  IParamBlock2* block_ = nullptr;
};
