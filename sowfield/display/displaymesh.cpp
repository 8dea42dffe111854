#include "sowfield/display/displaymesh.h"

#include <algorithm>

#include "host/scene/node.h"
#include "sowfield/display/budgets.h"
#include "sowfield/display/figures.h"
#include "sowfield/model/displaymode.h"

namespace sowfield {

bool DisplayBuilder::ShowsLogo() const {
  const IParamBlock2& block = *d_.block;
  return d_.TypeCount() == 0 || block.GetInt(Show_Logo, d_.curTime) ||
         block.GetInt(Display_Mode, d_.curTime) == kShowNone;
}

float DisplayBuilder::LogoSize() {
  float size = 0;
  Interval valid = FOREVER;
  d_.block->GetValue(Logo_size, d_.curTime, size, valid);
  if (size < kSmallestLogo) {
    size = kSmallestLogo;
    d_.block->SetValue(Logo_size, d_.curTime, size);
  }
  return size;
}

void DisplayBuilder::Build(TimeValue t) {
  d_.curTime = t;
  // A lowered mode refreshes the object, which builds at the host's time inside this build. What
  // it left is what this one would make, unless the times differ.
  const unsigned before = builds_;
  if (!d_.block->GetInt(ForceDisplay, t)) ApplyBudgets(d_, t);
  d_.curTime = t;
  if (builds_ != before && lastBuilt_ == t) return;

  const int mode = d_.block->GetInt(Display_Mode, t);
  const bool heavy = !IsLightMode(mode) && d_.TypeCount() > 0;
  const INode* own = heavy ? d_.OwnNode() : nullptr;
  logo_ = ShowsLogo() ? LogoSize() : 0;
  placements_ = own != nullptr;
  waitsForNode_ = heavy && !own;
  task_ = {t, mode, own ? Inverse(own->GetNodeTM(t)) : Matrix3(), task_.base};
  pending_ = true;
  ++builds_;
  lastBuilt_ = t;
}

bool DisplayBuilder::TablesFit() const {
  const auto count = [&](Param id) { return d_.block->Count(id); };
  return std::all_of(kPlacementTables.begin(), kPlacementTables.end(),
                     [&](Param id) { return count(id) == count(Ins_Pos); });
}

void DisplayBuilder::MakeLogo(Mesh& mesh) {
  baked_.Forget();
  mesh.setNumTVerts(0);
  mesh.setNumTVFaces(0);
  if (logo_ > 0) {
    MakeLogoMesh(logo_, mesh);
  } else {
    mesh.setNumVerts(0);
    mesh.setNumFaces(0);
  }
  mesh.InvalidateGeomCache();
  mesh.InvalidateTopologyCache();
  task_.base = {mesh.verts.size(), mesh.faces.size()};
  filledLogo_ = logo_;
}

void DisplayBuilder::Fill(Mesh& mesh) {
  if (!pending_ || (placements_ && !TablesFit())) return;
  try {
    if (!placements_ || mesh.Stamp() != stamp_ || logo_ != filledLogo_) MakeLogo(mesh);
    if (placements_) baked_.Update(task_, mesh);
  } catch (...) {
    // Faces may be unset where memory was short: better none, until the next reader tries again.
    baked_.Forget();
    mesh.verts.clear();
    mesh.faces.clear();
    mesh.InvalidateTopologyCache();
    throw;
  }
  stamp_ = mesh.Stamp();
  pending_ = false;
}

}  // namespace sowfield
