// Changes of the lists as one step: what isn't accepted is taken back, nobody sees half of one.

#include "sowfield/model/listchange.h"

#include <new>

#include "tests/sowfield/typelist_fixture.h"

namespace sowfield {
namespace {

struct OneType : SowfieldScene {
  OneType() {
    AddAsType(AddBox(L"Box", 1, 1, 1));
    AppendPlacements({{{1, 0, 0}, {}, 0}, {{2, 0, 0}, {}, 0}});
    Undo().Clear(), log.Clear();
  }
};

TEST(ListChange, IsTakenBackUnlessAccepted) {
  OneType s;
  const Snapshot before = TakeSnapshot(s.Block());
  {
    ListChange change(s.D(), L"Half");
    const Point3 at(3, 0, 0);
    s.Block().Append(Ins_Pos, 1, &at);
    s.Block().Delete(Geo_PaintPct, 0, 1);
    EXPECT_EQ(s.D().ListReady(), 0);
  }
  EXPECT_EQ(Differences(before, TakeSnapshot(s.Block())), "");
  EXPECT_TRUE(s.D().ListReady() == 1 && !theHold.Holding() && s.Undo().UndoCount() == 0);
  EXPECT_GT(s.redraws, 0);
}

TEST(ListChange, EndsWhoeverFailsToHearOfIt) {
  struct Deaf : Listener {
    void OnEvent(Event) override { throw std::bad_alloc(); }
  } deaf;
  OneType s;
  s.D().AddListener(&deaf);
  {
    ListChange change(s.D(), L"Told");
    s.D().Tell(Event::StatsChanged);
    change.Accept();
  }
  s.D().RemoveListener(&deaf);
  EXPECT_TRUE(s.D().ListReady() == 1 && !theHold.Holding());
}

TEST(ListChange, ThatStandsInAnotherEndsWithIt) {
  OneType s;
  {
    ListChange outer(s.D(), L"Outer");
    s.Set(Geo_PaintPct, 50);
    {
      ListChange inner(s.D(), L"Inner");
      s.Set(Geo_PaintPct, 7);
    }
    s.D().Tell(Event::StatsChanged), s.D().Tell(Event::StatsChanged);
    EXPECT_TRUE(s.D().ListReady() == 0 && s.log.Count(Event::StatsChanged) == 0);
    outer.Accept();
  }
  EXPECT_TRUE(s.D().ListReady() == 1 && s.log.Count(Event::StatsChanged) == 1);
  EXPECT_EQ(s.Ints(Geo_PaintPct), std::vector<int>{50});
  EXPECT_EQ(s.Undo().UndoNames(), std::vector<WStr>{L"Outer"});
}

}  // namespace
}  // namespace sowfield
