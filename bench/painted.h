#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/scene/primitives.h"
#include "sowfield/model/generator.h"
#include "sowfield/objects/typelist.h"
#include "sowfield/panels/editcontext.h"
#include "sowfield/plugin/entry.h"
#include "sowfield/plugin/sowfield.h"

namespace bench {

/// A host with one object under edit, boxes as its types, and placements scattered over a square of
/// 1000 units, budgets off, random rows on.
struct Painted {
  explicit Painted(int placements, int types = 4) {
    using namespace sowfield;
    std::string why;
    if (!host.Classes().AddPlugin(Entries(), why)) throw std::runtime_error(why);
    object = static_cast<Sowfield*>(CreateInstance(GEOMOBJECT_CLASS_ID, kSowfield));
    node = host.GetScene().CreateObjectNode(object);
    object->InitNewObject();
    for (int t = 0; t < types; ++t) {
      auto* box = new BoxObject;
      box->SetSize(1, 1, 1 + 0.1f * float(t));
      AddType(object->distribution, host.GetScene().CreateObjectNode(box));
    }
    Set(ForceDisplay, 1);
    Set(Display_Mode, 0);
    for (int slot = 0; slot <= types; ++slot) {
      Block().SetValue(Tr_Random, 0, 1, slot);
      for (const Param id : {Tr_XRot_Max, Tr_YRot_Max, Tr_ZRot_Max})
        Block().SetValue(id, 0, 90.0f, slot);
      Block().SetValue(Tr_XScale_Max, 0, 120.0f, slot);
    }
    Append(placements);
    object->BeginEditParams(&host.Services(), kEditModify, nullptr);
    host.Undo().Clear();
  }
  ~Painted() { object->EndEditParams(&host.Services(), 0, nullptr); }

  IParamBlock2& Block() { return *object->pblock2; }
  void Set(sowfield::Param id, auto value) { Block().SetValue(id, 0, value); }

  void Append(int n) {
    using namespace sowfield;
    std::vector<Point3> positions, angles;
    std::vector<int> types, rows, anims(size_t(n), 0);
    Generator rng;
    const int typeCount = object->distribution.TypeCount();
    for (int i = 0; i < n; ++i) {
      Point3 p(0, 0, 0), a(0.1f, 0.2f, 0);
      p.x = rng.Random(1000);
      p.y = rng.Random(1000);
      a.z = rng.Random(6);
      positions.push_back(p);
      angles.push_back(a);
      types.push_back(rng.RandomInt(typeCount - 1, 0));
      rows.push_back(i % 100);
    }
    IParamBlock2& b = Block();
    b.Append(Ins_Pos, n, positions.data());
    b.Append(Ins_Normal, n, angles.data());
    b.Append(Ins_Type, n, types.data());
    b.Append(Ins_Rand, n, rows.data());
    b.Append(Ins_AnimRand, n, anims.data());
  }

  static constexpr Class_ID kSowfield{0x5ADA1D16, 0x0A7D61A6};
  host::Host host;
  sowfield::Sowfield* object = nullptr;
  INode* node = nullptr;
};

/// One scene at a time: a process has one host in force. Made anew when another size is asked for.
Painted& SceneOf(int placements, int types = 4);
void DropScene();

}  // namespace bench
