#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <vector>

#include "host/host.h"
#include "host/scene/camera.h"
#include "host/scene/primitives.h"
#include "host/scene/triobject.h"
#include "host/scenefile/scenefile.h"
#include "sowfield/model/invariants.h"
#include "sowfield/objects/typelist.h"
#include "sowfield/panels/editcontext.h"
#include "sowfield/plugin/entry.h"
#include "sowfield/plugin/sowfield.h"
#include "sowfield/resources/strings.h"
#include "tests/host/apart.h"

namespace sowfield {

struct MessageLog : Listener {
  void OnEvent(Event event) override { events.push_back(event); }
  int Count(Event event) const { return int(std::count(events.begin(), events.end(), event)); }
  void Clear() { events.clear(); }
  std::vector<Event> events;
};

/// One row of the five placement tables.
struct Placement {
  Point3 position{0, 0, 0}, angles{0, 0, 0};  // angles in radians
  int type = 0, rand = 0, animRand = 0;
};

/// All tables and scalars of a block by stored name, as raw bytes.
using Snapshot = std::map<std::string, std::string>;

inline Snapshot TakeSnapshot(const IParamBlock2& b) {
  Snapshot all;
  for (const ParamEntry& e : AllParams()) {
    std::string& s = all[ToUtf8(e.name)];
    const auto add = [&](const auto& span) {
      s.append(reinterpret_cast<const char*>(span.data()), span.size_bytes());
    };
    add(b.Ints(e.id)), add(b.Floats(e.id)), add(b.Points(e.id));
    add(b.Nodes(e.id)), add(b.Mtls(e.id));
    for (const WStr& text : b.Strings(e.id)) s += ToUtf8(text) + '\0';
  }
  return all;
}

/// Stored names of what differs, joined by blanks.
inline std::string Differences(const Snapshot& a, const Snapshot& b) {
  std::string names;
  for (const auto& [name, value] : a)
    if (b.at(name) != value) names += (names.empty() ? "" : " ") + name;
  return names;
}

/// A host with one Sowfield object, created as a user does and then selected in the modify panel.
/// The creation is the first undo step, named "Create".
struct SowfieldScene {
  SowfieldScene() {
    std::string why;
    if (!host.Classes().AddPlugin(Entries(), why)) throw std::runtime_error(why);
    host.Services().Boxes().SetReporter([](const host::ShownBox&) {});
    host.Services().SetListener([this](const WStr& text) { listener.push_back(text); });
    object = AddObject(), node = object->OwnNode();
    D().AddListener(&log);
    host.Views().SetPainter([this](TimeValue) { ++redraws; });
  }
  ~SowfieldScene() { CloseEdit(); }

  Distribution& D() { return object->distribution; }
  IParamBlock2& Block() { return *object->pblock2; }
  Hold& Undo() { return host.Undo(); }
  std::string Breach() { return FirstBreach(Block()); }
  const std::vector<host::ShownBox>& Boxes() { return host.Services().Boxes().Shown(); }

  Sowfield* AddObject() {
    CloseEdit();
    theHold.Begin();
    auto* made = static_cast<Sowfield*>(CreateInstance(GEOMOBJECT_CLASS_ID, kSowfieldClass));
    host.Services().CreateObjectNode(made);
    made->BeginEditParams(&host.Services(), kEditCreate, nullptr);
    made->InitNewObject();
    theHold.Accept(L"Create");
    made->EndEditParams(&host.Services(), 0, nullptr);
    made->BeginEditParams(&host.Services(), kEditModify, nullptr);
    return made;
  }
  void CloseEdit() {
    auto* current = static_cast<Sowfield*>(TheEditContext().currentObject);
    if (current && current->PanelsOpen()) current->EndEditParams(&host.Services(), 0, nullptr);
  }

  INode* AddNode(const WStr& name, Object* shown, const Point3& at = {0, 0, 0}) {
    INode* made = host.Services().CreateObjectNode(shown);
    made->SetName(name);
    made->SetNodeTM(0, TransMatrix(at));
    return made;
  }
  template <class T, class... Size>
  static T* Sized(Size... size) {
    T* made = new T;
    made->SetSize(size...);
    return made;
  }
  /// Width along X, length along Y, height along Z; it stands on `at`.
  INode* AddBox(const WStr& name, float w, float l, float h, const Point3& at = {0, 0, 0}) {
    return AddNode(name, Sized<BoxObject>(w, l, h), at);
  }
  INode* AddPlane(const WStr& name, float w, float l, int nx = 1, int ny = 1,
                  const Point3& at = {0, 0, 0}) {
    return AddNode(name, Sized<PlaneObject>(w, l, nx, ny), at);
  }
  INode* AddSphere(const WStr& name, float radius, int segments, const Point3& at = {0, 0, 0}) {
    return AddNode(name, Sized<SphereObject>(radius, segments), at);
  }
  INode* AddMesh(const WStr& name, const Mesh& mesh) {
    auto* tri = new TriObject;
    tri->mesh = mesh;
    return AddNode(name, tri);
  }
  bool AddAsType(INode* source) { return AddType(D(), source); }
  /// Straight into the five tables, in their order, as a stroke appends; no undo step of its own.
  void AppendPlacements(const std::vector<Placement>& rows) {
    for (const auto& [position, angles, type, rand, animRand] : rows) {
      Block().Append(Ins_Pos, 1, &position), Block().Append(Ins_Normal, 1, &angles);
      Block().Append(Ins_Type, 1, &type), Block().Append(Ins_Rand, 1, &rand);
      Block().Append(Ins_AnimRand, 1, &animRand);
    }
  }
  INode* Named(const WStr& name) {
    const auto found = host.GetScene().FindNodes(name);
    return found.size() == 1 ? found.front() : nullptr;
  }
  /// A copy of the object, without a node.
  Sowfield* Copied() {
    RemapDir remap;
    return static_cast<Sowfield*>(object->Clone(remap));
  }
  std::vector<std::byte> SaveBytes() {
    std::vector<std::byte> bytes;
    std::string why;
    // Beside no file, so that all paths stay whole.
    EXPECT_TRUE(host::SaveSceneBytes(host.Services(), "/beside no file/s.glb", bytes, why)) << why;
    return bytes;
  }
  /// As in scenes from before the rows of N.
  void DropNormalRows() {
    for (const Param id : {Tr_Normal_Min, Tr_Normal_Max, Rnd_Normal})
      Block().Delete(id, 0, Block().Count(id));
  }
  template <class T>
  void Set(Param id, T value, int index = 0) {
    Block().SetValue(id, 0, value, index);
  }
  std::vector<int> Ints(Param id) { return {Block().Ints(id).begin(), Block().Ints(id).end()}; }
  /// The display mesh as a reader finds it.
  const Mesh& Seen() {
    object->UpdateMesh(host.Services().GetTime());
    return object->mesh;
  }
  /// Vertices of the display mesh, built anew.
  int Shown() {
    D().RefreshObject();
    return Seen().getNumVerts();
  }

  static constexpr Class_ID kSowfieldClass{0x5ADA1D16, 0x0A7D61A6};

  MessageLog log;              // events of `object`
  std::vector<WStr> listener;  // lines of the host's listener
  int redraws = 0;             // each refresh asks for one
  host::Host host;             // after what it tells, so that it goes first
  Sowfield* object = nullptr;
  INode* node = nullptr;  // of `object`
};

}  // namespace sowfield
