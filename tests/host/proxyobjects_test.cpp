// The proxy classes as others find them: by class, block 0 and conversion.

#include "host/scene/proxyobjects.h"

#include <gtest/gtest.h>

#include "host/host.h"
#include "tests/host/proxies.h"

namespace {

bool Same(const Mesh& a, const Mesh& b) {
  return std::equal(a.verts.begin(), a.verts.end(), b.verts.begin(), b.verts.end()) &&
         a.faces == b.faces && a.maps == b.maps;
}
template <class Proxy>
Proxy* Made(Class_ID id) {
  auto* proxy = dynamic_cast<Proxy*>(CreateInstance(GEOMOBJECT_CLASS_ID, id));
  EXPECT_TRUE(proxy && proxy->ClassID() == id && proxy->SuperClassID() == 16);
  return proxy;
}
Mesh Converted(Object* object) { return *MeshOf(object, 0).mesh; }

TEST(MoksetProxy, HoldsAMeshInItsTables) {
  host::Host host;
  auto* proxy = Made<MoksetProxyObject>({0x4a93d413, 0xc235d2b7});
  host.Services().CreateObjectNode(proxy);
  Mesh mesh = BoxMeshOf(2, 4, 6);
  mesh.faces[3].smGroup = 0x80000001u;
  proxy->SetMesh(mesh);
  IParamBlock2& b = *proxy->GetParamBlock(0);
  EXPECT_TRUE(b.GetPoint3(1) == Point3(1, 2, 6) && b.GetPoint3(2) == Point3(-1, -2, 0));
  EXPECT_TRUE(Same(Converted(proxy), mesh));
  for (const Point3& p : {Point3(0, 1, 8), Point3(-1, 0, 1), Point3(0, NAN, 1), Point3(0, 1, 7)}) {
    b.SetValue(5, 0, p, 2);
    EXPECT_EQ(Converted(proxy).getNumVerts(), p.z == 7 ? 8 : 0);
  }
  b.Delete(8, 0, 1);
  EXPECT_EQ(Converted(proxy).getNumVerts(), 0) << "texture faces don't fit";
  mesh.setNumVerts(7000, true);
  proxy->SetMesh(mesh);
  ASSERT_EQ(b.Count(46), 3000);
  for (int i = 1; i < 3000; ++i) EXPECT_LT(b.GetInt(46, 0, i - 1), b.GetInt(46, 0, i));
  void* asked = proxy->GetInterface(Interface_ID{0x70de6ee5, 0x70ab16b7});
  ASSERT_TRUE(asked && !proxy->GetInterface(Interface_ID{0x70de6ee5, 0}));
  static_cast<MoksetProxyInterface*>(asked)->SetProxyFile(L"x.Vorn");
  EXPECT_TRUE(b.GetInt(50) == 1 && b.GetStr(51) == WStr(L"x.Vorn") && b.Count(3) == 3000);
  EXPECT_EQ(Converted(proxy).getNumVerts(), 0);
}

template <class Proxy>
void ExpectDisplay(Class_ID id, ParamID display, int whole) {
  host::Host host;
  auto* proxy = Made<Proxy>(id);
  host.Services().CreateObjectNode(proxy);
  Mesh mesh = BoxMeshOf(2, 3, 4);
  mesh.setNumVerts(9, true), mesh.setVert(8, {0, 9, 5});
  theHold.Begin(), proxy->SetMesh(mesh), theHold.Accept(L"Mesh");
  for (const int shown : {0, 1, 2, 3, 4, whole}) {
    proxy->GetParamBlock(0)->SetValue(display, 0, shown);
    EXPECT_EQ(Converted(proxy).getNumVerts(), shown == whole ? 9 : 8);
    EXPECT_EQ(Converted(proxy).getBoundingBox(), mesh.getBoundingBox());
  }
  RemapDir remap;
  INode* copy = host.Services().CreateObjectNode(static_cast<Object*>(proxy->Clone(remap)));
  theHold->Undo();
  EXPECT_EQ(Converted(proxy).getNumVerts(), 0);
  EXPECT_TRUE(Same(*EvalMesh(copy, 0).mesh, mesh)) << "a life of its own";
}

TEST(RendererProxies, ShowWhatTheirDisplayParameterTells) {
  ExpectDisplay<VRayProxyObject>({0x6cf53873, 0x1ff85498}, 1, 4);
  ExpectDisplay<CoronaProxyObject>({0x2b0264bc, 0x5ec07f5}, 2, 3);
}

}  // namespace
