#pragma once

#include <cstdint>
#include <vector>

#include "host/core/ids.h"

class ClassDesc2;

using ParamID = std::int16_t;

enum class ParamType { Int, Bool, Float, Point3, String, Filename, Node, Mtl };

/// One parameter of a block.
struct ParamDef {
  ParamID id;
  const wchar_t* name;  // as stored; may hold spaces
  ParamType type;
  bool table = false;
  bool animatable = false;
  double defaultValue = 0;  // of a scalar of number type
  int undoRank = 0;         // see TableRecord::Rank
};

/// Describes a parameter block: ids from 0, holes allowed.
class ParamBlockDesc2 {
 public:
  ParamBlockDesc2(int blockId, const wchar_t* internalName, ClassDesc2* owner,
                  std::vector<ParamDef> params);

  int ID() const { return blockId_; }
  const wchar_t* InternalName() const { return internalName_; }
  const std::vector<ParamDef>& Params() const { return params_; }
  /// Null for an id that isn't declared.
  const ParamDef* Find(ParamID id) const;
  /// Refreshes the controls bound to the block's parameters; there are none without open panels.
  void InvalidateUI() {}

 private:
  int blockId_;
  const wchar_t* internalName_;
  std::vector<ParamDef> params_;
  std::vector<int> byId_;
};
