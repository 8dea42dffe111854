#include "host/scene/texmap.h"

#include <gtest/gtest.h>

#include "host/host.h"
#include "host/scene/mtl.h"

TEST(Texmap, SlotsRollWithUndoAndCopiesShareOneCopyOfTheirPicture) {
  host::Host host;
  MultiMtl multi;
  auto* first = new BitmapTex;
  first->SetPicture(L"/a.png", std::make_shared<std::vector<std::byte>>(2));
  for (int i = 0; i < 2; ++i) {
    multi.SetSubMtl(i, new StdMtl);
    multi.GetSubMtl(i)->SetSubTexmap(StdMtl::kDiffuseMap, first);
  }
  const auto shown = [](MultiMtl& m, int i) {
    return dynamic_cast<BitmapTex*>(m.GetSubMtl(i)->GetSubTexmap(StdMtl::kDiffuseMap));
  };
  RemapDir remap;
  const std::unique_ptr<MultiMtl> copy(static_cast<MultiMtl*>(multi.Clone(remap)));
  ASSERT_TRUE(shown(*copy, 0) && shown(*copy, 0) != first);
  EXPECT_EQ(shown(*copy, 0), shown(*copy, 1));
  EXPECT_EQ(shown(*copy, 0)->GetBytes(), first->GetBytes());
  theHold.Begin();
  multi.GetSubMtl(0)->SetSubTexmap(StdMtl::kDiffuseMap, nullptr);
  first->SetPicture(L"/c.png");
  theHold.Accept(L"Picture");
  theHold->Undo();
  EXPECT_EQ(shown(multi, 0), first);
  EXPECT_EQ(first->GetMapName(), L"/a.png");
  theHold->Redo();
  EXPECT_EQ(shown(multi, 0), nullptr);
  EXPECT_EQ(first->GetBytes(), nullptr);
  theHold->Clear();  // it must not outlive the material
}
