#include "sowfield/plugin/createcallback.h"

#include <cmath>

#include "host/interface.h"
#include "sowfield/panels/editcontext.h"
#include "sowfield/plugin/sowfield.h"

namespace sowfield {

int SowfieldCreateCallBack::proc(ViewExp* vpt, int msg, int point, int, IPoint2 m, Matrix3& mat) {
  if (!vpt || !vpt->IsAlive()) return CREATE_STOP;
  if (msg == MOUSE_ABORT) return CREATE_ABORT;
  if (msg == MOUSE_FREEMOVE) {
    vpt->SnapPreview(m);
    return CREATE_CONTINUE;
  }
  if (msg != MOUSE_POINT && msg != MOUSE_MOVE) return CREATE_CONTINUE;

  switch (point) {
    case 0: {
      ob_->suspendSnap = 1;
      sp0_ = m;
      p0_ = vpt->SnapPoint(m);
      mat.SetTrans(p0_);
      const TimeValue t = GetCOREInterface()->GetTime();
      ob_->pblock2->SetValue(Logo_size, t, 0.0f);
      if (EditedObject* current = TheEditContext().currentObject) current->InitNewObject();
      return CREATE_CONTINUE;
    }
    case 1: {
      ob_->suspendSnap = 1;
      const float r = vpt->SnapLength(vpt->GetCPDisp(p0_, Point3(1, 1, 0), sp0_, m, true));
      ob_->pblock2->SetValue(Logo_size, GetCOREInterface()->GetTime(), std::fabs(r));
      ob_->mesh.InvalidateGeomCache();
      ob_->BuildMesh(0);
      return msg == MOUSE_POINT ? CREATE_STOP : CREATE_CONTINUE;
    }
    default:
      return CREATE_STOP;
  }
}

}  // namespace sowfield
