#pragma once

#include <optional>
#include <string>

#include "sowfield/model/typedata.h"

namespace sowfield {

/// Why a node can't become an object type; empty if it can. A source is a geometry object other
/// than a Sowfield object whose mesh is sound and has a vertex, under a node matrix that can be
/// undone. A V-Ray proxy must convert to its whole mesh; a Mokset proxy needs no mesh of its own,
/// but sound tables.
std::string WhyNotASource(INode* node, TimeValue t);

/// Whether a parameter block still points at a node that lost a type: that of a copy, for example.
bool IsInUse(const INode* node);

/// A picked node as the source of a type. While it lives, a V-Ray proxy shows its whole mesh.
class Source {
 public:
  /// The node must pass WhyNotASource. For a V-Ray proxy a hidden node is made that holds its mesh,
  /// on the layer of all sources. `how` a mesh's samples are shuffled.
  Source(INode* picked, TimeValue t, SampleShuffle how = SampleShuffle::NewType);
  ~Source();
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  int kind;       // as in Geo_Kind
  INode* node;    // stands in Geo_Nodes: the picked one, or the one that was made
  INode* picked;  // stands in Proxy_Nodes, for a V-Ray proxy
  TypeData data;

  /// Moves the pivot to the bottom centre of what is seen, in the world, where a placement stands;
  /// the object stays. For a V-Ray proxy the pivots of both nodes move alike, after a reset to the
  /// object's own frame or to the centre.
  enum class Before { Reset, Center };
  void MovePivotToFloor(Before ofKind3) const;

 private:
  TimeValue t_;
  std::optional<int> shown_;  // what the V-Ray proxy showed before
};

}  // namespace sowfield
