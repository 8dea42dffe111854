#pragma once

#include "host/scene/simpleobject.h"

/// Base of objects that stand for geometry which is kept in another form. All of them are told
/// apart by their class and described by parameter block 0, which is their reference 0; others read
/// and write it by id. The mesh follows each change of the block at once.
class ProxyObject : public SimpleObject2 {
 public:
  int NumRefs() const override { return 1; }
  ReferenceTarget* GetReference(int i) const override { return i == 0 ? pblock2 : nullptr; }
  RefResult NotifyRefChanged(const Interval& changeInt, ReferenceTarget* target, PartID& partID,
                             RefMessage message) override;
  ReferenceTarget* Clone(RemapDir& remap) override;
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock2 : nullptr; }
  IParamBlock2* GetParamBlockByID(int id) override { return GetParamBlock(id); }

 protected:
  virtual ProxyObject* MakeAnother() const = 0;
  void SetReference(int i, ReferenceTarget* t) override;
};

/// What others ask of a Mokset proxy object beside its block.
class MoksetProxyInterface {
 public:
  static constexpr Interface_ID kID{0x70de6ee5, 0x70ab16b7};
  virtual ~MoksetProxyInterface() = default;
  /// The mesh is that of a file from now on; box and samples stay.
  virtual void SetProxyFile(const WStr& path) = 0;
};

/// A mesh that is kept in the tables of its block, or in a Mokset file that the block names. The
/// host doesn't read the file: such an object converts to an empty mesh, and its box is the stored
/// one. The display option is kept for others; the mesh is always the whole one.
class MoksetProxyObject : public ProxyObject, public MoksetProxyInterface {
 public:
  static constexpr Class_ID kClassID{0x4a93d413, 0xc235d2b7};
  enum : ParamID {
    kBoxMax = 1,
    kBoxMin = 2,
    kVertices = 3,     // with kExternal: the samples themselves
    kTexVertices = 4,  // points, as many as the mesh has texture vertices
    kFaces = 5,        // points of three vertex indices
    kEdges = 6,        // points of three edges: not 0 is visible
    kSmoothing = 7,    // int, group mask a face
    kTexFaces = 8,     // points of three texture vertex indices; none or one a face
    kMaterialIds = 9,  // int, one a face
    kDisplay = 10,
    kSamples = 46,   // int, indices into kVertices
    kExternal = 50,  // 0: the mesh is in the tables; else in the file of kPath
    kPath = 51
  };
  MoksetProxyObject();
  ~MoksetProxyObject() override { DeleteAllRefsFromMe(); }

  /// Takes a mesh into the tables. Its vertices are the samples, evenly chosen above 3000.
  void SetMesh(const Mesh& mesh);
  void SetProxyFile(const WStr& path) override;
  using ProxyObject::GetInterface;
  void* GetInterface(Interface_ID id) override;

  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Mokset Proxy"; }
  const wchar_t* GetObjectName() override { return L"Mokset_"; }
  void GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) override;
  /// Empty as well if the tables don't fit each other.
  void BuildMesh(TimeValue t) override;

 protected:
  ProxyObject* MakeAnother() const override { return new MoksetProxyObject; }
};

/// A renderer's own kind of proxy, as far as others look at it: its display parameter tells whether
/// it shows, and converts to, its whole mesh or the box round it. The mesh is given to it; it is
/// reference 1.
class RendererProxyObject : public ProxyObject {
 public:
  ~RendererProxyObject() override { DeleteAllRefsFromMe(); }
  void SetMesh(const Mesh& mesh);

  int NumRefs() const override { return 2; }
  ReferenceTarget* GetReference(int i) const override;
  void BuildMesh(TimeValue t) override;

 protected:
  RendererProxyObject(ParamBlockDesc2& desc, ParamID display, int whole);
  void SetReference(int i, ReferenceTarget* t) override;

 private:
  TriObject* whole_ = nullptr;
  ParamID display_;
  int showsWhole_;
};

class VRayProxyObject : public RendererProxyObject {
 public:
  static constexpr Class_ID kClassID{0x6cf53873, 0x1ff85498};
  static constexpr ParamID kFile = 0, kDisplay = 1;
  static constexpr int kWholeMesh = 4;
  VRayProxyObject();
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"V-Ray Proxy"; }
  const wchar_t* GetObjectName() override { return L"VRayProxy_"; }

 protected:
  ProxyObject* MakeAnother() const override { return new VRayProxyObject; }
};

class CoronaProxyObject : public RendererProxyObject {
 public:
  static constexpr Class_ID kClassID{0x2b0264bc, 0x5ec07f5};
  static constexpr ParamID kDisplay = 2;
  static constexpr int kFullMesh = 3;
  CoronaProxyObject();
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Corona Proxy"; }
  const wchar_t* GetObjectName() override { return L"CoronaProxy_"; }

 protected:
  ProxyObject* MakeAnother() const override { return new CoronaProxyObject; }
};

namespace host {
class ClassRegistry;
void RegisterProxyClasses(ClassRegistry& classes);
}  // namespace host
