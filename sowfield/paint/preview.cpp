#include <algorithm>
#include <utility>

#include "host/core/classdesc.h"
#include "host/interface.h"
#include "host/scene/triobject.h"
#include "sowfield/display/figures.h"
#include "sowfield/model/palette.h"
#include "sowfield/paint/painter.h"
#include "sowfield/proxy/moksetfile.h"

namespace sowfield {

// The mesh of a type that lives in a file; beyond this many vertices its box as a pyramid stands
// for it, for a stroke shall not wait.
Mesh SowfieldPainter::MeshOfFileType(const TypeRef& type) const {
  constexpr int kMostVertices = 900000;
  const IParamBlock2& block = *d_.block;
  if (block.GetInt(Geo_VertCount, d_.curTime, type.type) < kMostVertices)
    return ReadMoksetMesh(block.GetStr(Proxy_Files, d_.curTime, type.file));
  return MakePyramidMesh(block.GetPoint3(Geo_BoxMax, d_.curTime, type.type),
                         block.GetPoint3(Geo_BoxMin, d_.curTime, type.type));
}

// A type that lives in a file gets a hidden node at its first preview.
INode* SowfieldPainter::SourceOfPreview(int type) {
  if (type >= int(sourceNodes_.size())) return nullptr;
  INode*& source = sourceNodes_[size_t(type)];
  if (source) return source;
  const TypeRef ref = d_.FindType(type);
  if (ref.HasNode()) return nullptr;
  auto* object = static_cast<TriObject*>(CreateInstance(GEOMOBJECT_CLASS_ID, triObjectClassID));
  object->mesh = MeshOfFileType(ref);
  theHold->Suspend();
  source = GetCOREInterface()->CreateObjectNode(object);
  source->Hide(true);
  theHold->Resume();
  fileNodes_.push_back(source);
  return source;
}

void SowfieldPainter::DropSourceNodes() {
  sourceNodes_.clear();
  if (fileNodes_.empty()) return;
  const std::vector<INode*> nodes = std::exchange(fileNodes_, {});
  theHold->Suspend();
  GetCOREInterface()->DeleteNodes(nodes, false);
  theHold->Resume();
}

// A preview shares the source's object and starts from the source's own turn, so that it shows
// what the placement will.
void SowfieldPainter::ShowPreview(int type, int row, const Point3& position, const Point3& angles,
                                  const Matrix3* freeOrientation) {
  if (state_.renderHelperLoaded) return;
  INode* source = SourceOfPreview(type);
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
  // The newest first: they stand at the end of every list that holds them.
  std::reverse(nodes.begin(), nodes.end());
  Interface* ip = GetCOREInterface();
  theHold->Suspend();
  ip->DeleteNodes(nodes, false);
  theHold->Resume();
  isPreview_.clear();
  if (redraw) ip->RedrawViews(ip->GetTime());
}

}  // namespace sowfield
