// What edits cost the display mesh: vertices wait for a reader, and what hasn't changed stays. The
// judge is the mesh made from nothing.

#include <cmath>
#include <cstring>

#include "host/viewport/renderitems.h"
#include "host/viewport/viewexp.h"
#include "sowfield/display/listedits.h"
#include "sowfield/model/displaymode.h"
#include "tests/sowfield/placement_twin.h"

namespace sowfield {
namespace {

template <class List>
bool SameBytes(const List& a, const List& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof a[0]) == 0;
}

struct Shown : SowfieldScene {
  Shown() {
    Set(ForceDisplay, 1);
    AddAsType(AddBox(L"box", 1, 2, 3)), AddAsType(AddSphere(L"ball", 2, 5));
    ScrambleRows(*this, draw, 2), ScatterPlacements(*this, draw, 2, 300);
    Set(Display_Mode, int(kShowOriginal));
  }
  /// Keeps about one in `n` of the placements, or about all but one in `n`.
  void Erase(int n, bool most = false) {
    std::vector<unsigned char> keep;
    for (int p = 0; p < D().PlacementCount(); ++p) keep.push_back((draw.Int(1, n) == 1) == most);
    for (const Param id : kPlacementTables) Block().KeepEntries(id, keep);
  }
  Draws draw{5};
};

/// Of the mesh as it was, what the splices leave, at its new place; what came is marked.
Mesh Followed(Mesh mesh, std::span<const MeshSplice> splices) {
  const auto splice = [](auto& list, const MeshSplice::Run& run, const auto& mark) {
    const auto at = list.begin() + std::ptrdiff_t(run.first);
    list.insert(list.erase(at, at + std::ptrdiff_t(run.removed)), run.added, mark);
  };
  for (const MeshSplice& s : splices) {
    for (size_t f = s.faces.first + s.faces.removed; f < mesh.faces.size(); ++f)
      for (std::uint32_t& v : mesh.faces[f].v) v += std::uint32_t(s.verts.added - s.verts.removed);
    splice(mesh.verts, s.verts, Point3(NAN, 0, 0)), splice(mesh.faces, s.faces, Face{{}, 0, ~0u});
  }
  return mesh;
}

TEST(DisplayMesh, AnEditGivesTheBitsOfAFullRebuildAndTellsWhatChanged) {
  Shown s;
  enum { kErase, kAppend, kUndo, kMove, kRow, kLogo, kNode, kType, kKinds };
  int told[kKinds] = {};
  int step = 0, count = 0;
  const std::function<void()> edits[] = {
      [&] { s.Erase(step % 3 == 0 ? 2 : 30); },
      [&] { ScatterPlacements(s, s.draw, 2, count); },
      [&] { s.Undo().Undo(); },
      [&] { s.Set(Ins_Pos, s.draw.Point(-9, 9), s.draw.Int(0, s.D().PlacementCount() - 1)); },
      [&] { s.Set(Tr_ZPos_Min, s.draw.Float(-5, 5), s.draw.Int(0, 2)); },
      [&] { s.Set(Show_Logo, step / kKinds % 2); },
      [&] { s.node->SetNodeTM(0, TransMatrix(s.draw.Point(-9, 9))); },
      [&] { s.Set(Display_Type, step / kKinds % 3); }};
  for (; step < 400; ++step) {
    const int kind = step % kKinds;
    count = s.draw.Int(1, 40);
    if (kind == kUndo) theHold.Begin(), s.Erase(9), theHold.Accept(L"Erase"), s.D().RefreshObject();
    const Mesh before = s.Seen();
    edits[kind]();
    s.D().RefreshObject();
    const Mesh now = s.Seen();
    SCOPED_TRACE(testing::Message() << "step " << step);
    if (const auto splices = now.SplicesSince(before.Stamp())) {
      ++told[kind];
      const Mesh left = Followed(before, *splices);
      ASSERT_TRUE(left.verts.size() == now.verts.size() && left.faces.size() == now.faces.size());
      for (size_t v = 0; v < left.verts.size(); ++v)
        ASSERT_TRUE(std::isnan(left.verts[v].x) || left.verts[v] == now.verts[v]) << v;
      for (size_t f = 0; f < left.faces.size(); ++f)
        ASSERT_TRUE(left.faces[f].flags == ~0u || left.faces[f] == now.faces[f]) << f;
      for (const MeshSplice& splice : *splices) {
        EXPECT_TRUE(kind != kErase || splice.verts.added + splice.faces.added == 0);
        EXPECT_TRUE((kind != kAppend && kind != kUndo) || splice.verts.removed == 0);
      }
    }
    s.object->mesh = Mesh();
    s.D().RefreshObject();
    ASSERT_TRUE(SameBytes(s.Seen().verts, now.verts) && SameBytes(now.faces, s.Seen().faces));
  }
  for (const int kind : {kErase, kAppend, kUndo, kMove}) EXPECT_EQ(told[kind], 50) << kind;
  for (const int kind : {kLogo, kNode}) EXPECT_EQ(told[kind], 0) << kind;
}

TEST(DisplayMesh, OfManyScatteredEditsTellsOneThatReachesOverAll) {
  Shown s;
  ScatterPlacements(s, s.draw, 2, 3000), s.D().RefreshObject();
  const Mesh before = s.Seen();
  s.Erase(5), s.D().RefreshObject();
  const auto splices = s.Seen().SplicesSince(before.Stamp());
  EXPECT_TRUE(splices && splices->size() == 1);
}

TEST(DisplayMesh, VerticesWaitForAReader) {
  Shown s;
  ViewExp view = ViewExp::Orthographic({0, 0, 100}, {0, 0, 0}, 100, 100, 100);
  IPoint2 at{50, 50};
  Box3 box;
  UpdateDisplayContext context{0, &view};
  UpdateNodeContext ofNode(s.node);
  RenderItemContainer items;
  const std::function<void()> readers[] = {
      [&] { s.object->Display(0, s.node, &view, 0); },
      [&] { s.object->HitTest(0, s.node, HITTYPE_POINT, 0, 0, &at, &view); },
      [&] { EvalMesh(s.node, 0); },
      [&] { s.object->GetLocalBoundBox(0, s.node, &view, box); },
      [&] { s.object->PrepareDisplay(context); },
      [&] { s.object->UpdatePerNodeItems(context, ofNode, items); },
  };
  for (const auto& read : readers) {
    s.Seen();
    const auto stamp = s.object->mesh.Stamp();
    s.AppendPlacements({{}}), s.D().RefreshObject();
    EXPECT_EQ(s.object->mesh.Stamp(), stamp);
    read();
    EXPECT_NE(s.object->mesh.Stamp(), stamp);
    // A reader among edits that aren't finished, and in the middle of a change, keeps the mesh.
    const auto filled = s.object->mesh.Stamp();
    const Point3 first = s.Block().GetPoint3(Ins_Pos);
    s.D().RefreshObject(), s.Block().Delete(Ins_Pos, 0, 1), read();
    EXPECT_EQ(s.object->mesh.Stamp(), filled);
    s.Block().Insert(Ins_Pos, 0, 1, &first);
    s.D().SetListReady(0), s.Set(Ins_Pos, Point3(9, 9, 9)), read(), s.D().SetListReady(1);
    EXPECT_EQ(s.object->mesh.Stamp(), filled);
  }
}

TEST(ListEdits, LeadFromOneListToAnother) {
  Draws draw{3};
  for (int run = 0; run < 3000; ++run) {
    std::vector<int> lists[2];
    for (auto& list : lists)
      for (int i = draw.Int(0, 12); i-- > 0;) list.push_back(draw.Int(0, run % 2 ? 2 : 99));
    const auto& [before, after] = lists;
    const auto edits = EditsBetween(before.size(), after.size(),
                                    [&](size_t i, size_t j) { return before[i] == after[j]; });
    std::vector<int> moved = before;
    ApplyEdits(moved, edits);
    ASSERT_EQ(moved.size(), after.size());
    for (size_t k = 0, by = 0; k < edits.size(); by += edits[k].added - edits[k].removed, ++k)
      for (size_t i = 0; i < edits[k].added; ++i)
        moved[edits[k].at + by + i] = after[edits[k].at + by + i];
    ASSERT_EQ(moved, after);
  }
}

}  // namespace
}  // namespace sowfield
