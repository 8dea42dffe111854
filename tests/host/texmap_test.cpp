#include "host/scene/texmap.h"

#include <gtest/gtest.h>

#include "host/core/hold.h"
#include "host/host.h"
#include "host/scene/mtl.h"

namespace {

TEST(Texmap, SlotsOfAMaterialRollWithUndo) {
  host::Host host;
  StdMtl material;
  auto* first = new BitmapTex;
  first->SetPicture(L"/a.png");
  material.SetSubTexmap(StdMtl::kDiffuseMap, first);
  material.SetSubTexmap(7, first);  // outside the slots

  Hold& hold = host.Undo();
  hold.Begin();
  auto* second = new BitmapTex;
  second->SetPicture(L"b.png", std::make_shared<std::vector<std::byte>>(3));
  material.SetSubTexmap(StdMtl::kDiffuseMap, second);
  first->SetPicture(L"/c.png");
  hold.Accept(L"Picture");
  EXPECT_EQ(material.GetSubTexmap(StdMtl::kDiffuseMap), second);
  ASSERT_TRUE(hold.Undo());
  EXPECT_EQ(material.GetSubTexmap(StdMtl::kDiffuseMap), first);
  EXPECT_EQ(first->GetMapName(), L"/a.png");
  ASSERT_TRUE(hold.Redo());
  EXPECT_EQ(material.GetSubTexmap(StdMtl::kDiffuseMap), second);
  EXPECT_EQ(second->GetBytes()->size(), 3u);
  EXPECT_EQ(first->GetMapName(), L"/c.png");
  EXPECT_EQ(material.GetSubTexmap(StdMtl::kAmbientMap), nullptr);
  hold.Clear();  // it must not outlive the material
}

TEST(Texmap, CopiesOfMaterialsShareOneCopyOfTheirPicture) {
  host::Host host;
  auto* picture = new BitmapTex;
  picture->SetName(L"leaf");
  picture->SetPicture(L"leaf.png", std::make_shared<std::vector<std::byte>>(2));
  MultiMtl multi;
  for (int i = 0; i < 2; ++i) {
    multi.SetSubMtl(i, new StdMtl);
    multi.GetSubMtl(i)->SetSubTexmap(StdMtl::kDiffuseMap, picture);
  }
  RemapDir remap;
  const std::unique_ptr<MultiMtl> copy(static_cast<MultiMtl*>(multi.Clone(remap)));
  auto* copied = dynamic_cast<BitmapTex*>(copy->GetSubMtl(0)->GetSubTexmap(StdMtl::kDiffuseMap));
  ASSERT_TRUE(copied);
  EXPECT_NE(copied, picture);
  EXPECT_EQ(copy->GetSubMtl(1)->GetSubTexmap(StdMtl::kDiffuseMap), copied);
  EXPECT_EQ(copied->GetName(), L"leaf");
  EXPECT_EQ(copied->GetBytes(), picture->GetBytes());
}

}  // namespace
