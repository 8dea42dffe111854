// libsowfield.so, loaded and used as a host does: nothing of its code is linked here.

#include <gtest/gtest.h>

#include "host/core/paramblock.h"
#include "host/host.h"
#include "host/scene/triobject.h"

namespace {

constexpr Class_ID kSowfield{0x5ADA1D16, 0x0A7D61A6};

TEST(Plugin, IsLoadedOnceOrRefusedWithAReason) {
  host::Host host;
  host::ClassRegistry& classes = host.Classes();
  const size_t builtIn = classes.All().size();
  const auto expectRefused = [&](const char* path, const char* why) {
    std::string told;
    EXPECT_FALSE(classes.LoadPlugin(path, told));
    EXPECT_NE(told.find(why), std::string::npos) << told;
  };
  expectRefused("no/such/library.so", "library.so");
  expectRefused("libm.so.6", "Lib");  // it has no entry points
  std::string why;
  ASSERT_TRUE(classes.LoadPlugin(SOWFIELD_PLUGIN_PATH, why)) << why;
  expectRefused(SOWFIELD_PLUGIN_PATH, "already");
  EXPECT_EQ(classes.All().size(), builtIn + 1);
}

TEST(Plugin, ItsObjectWorksThroughItsParameterBlock) {
  // Twice: a library can be loaded again once its host is gone.
  for (int round = 0; round < 2; ++round) {
    host::Host host;
    std::string why;
    ASSERT_TRUE(host.Classes().LoadPlugin(SOWFIELD_PLUGIN_PATH, why)) << why;
    EXPECT_STREQ(host.Classes().All().back()->Category(), L"Vorn Software");
    auto* object = static_cast<GeomObject*>(CreateInstance(GEOMOBJECT_CLASS_ID, kSowfield));
    INode* node = host.Services().CreateObjectNode(object);
    IParamBlock2& b = *object->GetParamBlock(0);
    EXPECT_EQ(b.GetDesc()->Params().size(), 102u);
    EXPECT_EQ(EvalMesh(node, 0).mesh->getNumVerts(), 786) << "the logo";
    b.SetValue(50, 0, 2.0f), b.SetValue(29, 0, 0);
    EXPECT_NEAR(EvalMesh(node, 0).mesh->getBoundingBox().pmax.x, 2 * 0.722872f, 1e-6f);
  }
}

}  // namespace
