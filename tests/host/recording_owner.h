#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/core/paramblock.h"
#include "host/core/session.h"

struct SeenMessage {
  RefMessage message;
  ParamID id;
  int restoring;

  std::string Text() const {
    const std::string name = message == REFMSG_CHANGE               ? "change "
                             : message == REFMSG_TAB_ELEMENT_NULLED ? "nulled "
                             : message == REFMSG_NODE_TABLE_SET     ? "set "
                                                                    : "other ";
    const char* way = restoring == 1 ? "undo:" : restoring == 4 ? "redo:" : "";
    return way + name + std::to_string(id);
  }
};

/// An object with one parameter block, as a plug-in's would be, that writes down all its messages.
class RecordingOwner : public ReferenceTarget {
 public:
  static constexpr ParamID kNodes = 0, kFirst = 1, kInts = 2, kFloats = 3, kPoints = 4,
                           kStrings = 5, kLast = 6, kCamera = 7, kNumber = 8, kMtls = 9,
                           kShift = 10, kCount = 11, kParamCount = 12;

  RecordingOwner() { ReplaceReference(0, new IParamBlock2(Desc(), this)); }
  ~RecordingOwner() override { DeleteAllRefsFromMe(); }

  static ParamBlockDesc2& Desc() {
    static ParamBlockDesc2 desc(0, L"Title", nullptr,
                                // The last number is the rank: the lowest is told first on redo.
                                {{kNodes, L"Nodes", ParamType::Node, true},
                                 {kFirst, L"First", ParamType::Int, true, false, 0, -2},
                                 {kInts, L"Ints", ParamType::Int, true},
                                 {kFloats, L"Floats", ParamType::Float, true},
                                 {kPoints, L"Points", ParamType::Point3, true, false, 0, -1},
                                 {kStrings, L"Some Strings", ParamType::String, true},
                                 {kLast, L"Last", ParamType::Float, true, false, 0, 5},
                                 {kCamera, L"Camera", ParamType::Node},
                                 {kNumber, L"Number", ParamType::Int, false, false, 7},
                                 {kMtls, L"Mtls", ParamType::Mtl, true},
                                 {kShift, L"Shift", ParamType::Float, false, true},
                                 {kCount, L"Count", ParamType::Int, false, true}});
    return desc;
  }

  IParamBlock2& Block() { return *block_; }
  int NumRefs() const override { return 1; }
  ReferenceTarget* GetReference(int) const override { return block_; }

  RefResult NotifyRefChanged(const Interval&, ReferenceTarget* target, PartID&,
                             RefMessage message) override {
    if (target != block_) return REF_SUCCEED;
    log.push_back({message, block_->LastNotifyParamID(), theHold.RestoreOrRedoing()});
    if (const auto handler = onMessage) handler(log.back());  // a copy: it may take itself out
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
