#include <algorithm>

#include "host/interface.h"
#include "sowfield/model/palette.h"
#include "sowfield/paint/painter.h"

namespace sowfield {

// A preview shares the source's object and starts from the source's own turn, so that it shows
// what the placement will.
void SowfieldPainter::ShowPreview(int type, int row, const Point3& position, const Point3& angles,
                                  const Matrix3* freeOrientation) {
  if (state_.renderHelperLoaded) return;
  INode* source = type < int(sourceNodes_.size()) ? sourceNodes_[size_t(type)] : nullptr;
  if (!source) return;

  const TimeValue t = d_.curTime;
  const PlacementForm form = PlacementEvaluator(*d_.block, t).Form(type, row);
  Matrix3 m = source->GetNodeTM(t);
  m.NoTrans();
  if (freeOrientation) {
    Matrix3 orientation = *freeOrientation;
    orientation.SetTrans(position);
    m = PlacementEvaluator::ApplyForm(m, form) * orientation;
  } else {
    m = PlacementEvaluator::Apply(m, form, angles, position);
  }

  // A preview is part of nobody's step: neither its making nor its deletion.
  theHold->Suspend();
  INode* node = GetCOREInterface()->CreateObjectNode(source->GetObjectRef());
  node->SetObjOffsetPos(source->GetObjOffsetPos());
  node->SetWireColor(TypeColor(type));
  node->SetNodeTM(t, m);
  theHold->Resume();
  strokeNodes_.push_back(node);
  isPreview_.insert(node);
}

void SowfieldPainter::DeletePreviews(bool redraw) {
  if (strokeNodes_.empty()) return;
  std::vector<INode*> nodes = std::move(strokeNodes_);
  strokeNodes_.clear();
  isPreview_.clear();
  // The newest first: they stand at the end of every list that holds them.
  std::reverse(nodes.begin(), nodes.end());
  Interface* ip = GetCOREInterface();
  theHold->Suspend();
  ip->DeleteNodes(nodes, false);
  theHold->Resume();
  if (redraw) ip->RedrawViews(ip->GetTime());
}

}  // namespace sowfield
