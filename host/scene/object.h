#pragma once

#include "host/core/reference.h"
#include "host/math/box3.h"
#include "host/math/matrix3.h"
#include "host/math/ray.h"
#include "host/scene/mesh.h"

class INode;
class IParamBlock2;
class Interface;
class Object;
class RenderItemContainer;
class UpdateNodeContext;
class ViewExp;
struct IPoint2;
struct SnapInfo;
struct UpdateDisplayContext;
enum HitType : int;

inline constexpr Class_ID triObjectClassID{9, 0};
inline constexpr Class_ID polyObjectClassID{0x5d21369a, 0};

/// What a node shows at a time.
struct ObjectState {
  Object* obj = nullptr;
  Interval valid = FOREVER;
  explicit ObjectState(Object* o = nullptr, const Interval& v = FOREVER) : obj(o), valid(v) {}
};

/// Something that a node can hold.
class Object : public ReferenceTarget {
 public:
  virtual ObjectState Eval(TimeValue t) = 0;
  virtual Interval ObjectValidity(TimeValue) { return FOREVER; }
  /// Recorded classes that an object counts as, besides its own.
  virtual bool IsSubClassOf(Class_ID id) const { return id == ClassID(); }
  virtual bool CanConvertToType(Class_ID) { return false; }
  /// The same object, if it is of that type already; else a new one that belongs to the caller
  /// until something refers to it. Null if it can't be converted.
  virtual Object* ConvertToType(TimeValue, Class_ID) { return nullptr; }

  /// Box in object space; empty for an object without extent.
  virtual void GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) = 0;
  /// Box in world space, of the local box's corners under the node's object matrix.
  virtual void GetWorldBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box);

  /// The type that collapsing a stack on this object gives, and its name.
  virtual Class_ID GetCollapseTypes(WStr& name) {
    GetClassName(name);
    return ClassID();
  }
  /// Bits of what the object needs to be drawn with; 1 asks for Display at each redraw.
  virtual unsigned GetObjectDisplayRequirement() const { return 0; }
  // A redraw calls Display, PrepareDisplay and UpdatePerNodeItems in this order for each node
  // shown.
  /// Draws into the view's window what isn't in the mesh. 1 if it drew.
  virtual int Display(TimeValue, INode*, ViewExp*, int) { return 0; }
  /// False if there is nothing to make items of. By default whether the object has a mesh.
  virtual bool PrepareDisplay(UpdateDisplayContext& context);
  /// Adds what is to be drawn for the node. False if there is nothing. By default the evaluated
  /// mesh.
  virtual bool UpdatePerNodeItems(UpdateDisplayContext& context, UpdateNodeContext& nodeContext,
                                  RenderItemContainer& container);
  /// 1 if what the object shows at the node lies in the region of a pick: `p` is one point of the
  /// window or, for a rectangle, two. By default the evaluated mesh is tested.
  virtual int HitTest(TimeValue t, INode* node, HitType type, int crossing, int flags, IPoint2* p,
                      ViewExp* view);
  /// Looks for a snap point near the mouse at `p`, better than what `snap` holds, and puts it
  /// there; 1 if there is one. By default the evaluated mesh is asked, unless it is being created.
  virtual int Snap(TimeValue t, INode* node, SnapInfo* snap, IPoint2* p, ViewExp* view);

  /// 1 if a ray meets the object's own surface, `at` along it; 0 also where the object leaves the
  /// answer to its mesh.
  virtual int IntersectRay(TimeValue, const Ray&, float&, Point3&) { return 0; }
  /// Whether the object brings texture vertices of its own.
  virtual int HasUVW() { return 0; }
  virtual void SetGenUVW(bool) {}

  virtual IParamBlock2* GetParamBlock(int) { return nullptr; }
  virtual IParamBlock2* GetParamBlockByID(int) { return nullptr; }
  virtual void BeginEditParams(Interface*, unsigned, void*) {}
  virtual void EndEditParams(Interface*, unsigned, void*) {}
  virtual const wchar_t* GetObjectName() { return L""; }
  virtual void InitNodeName(WStr& name) { name = GetObjectName(); }
};

class GeomObject : public Object {
 public:
  SClass_ID SuperClassID() const override { return GEOMOBJECT_CLASS_ID; }
  /// The mesh to render at t. With needDelete set it belongs to the caller.
  virtual Mesh* GetRenderMesh(TimeValue t, INode* node, ViewExp* view, bool& needDelete) = 0;
};

/// The box of the eight corners of `box` under `tm`; empty stays empty.
Box3 TransformCorners(const Box3& box, const Matrix3& tm);
