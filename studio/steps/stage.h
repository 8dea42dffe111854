#pragma once

#include <functional>
#include <iosfwd>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "host/core/errors.h"
#include "host/host.h"
#include "sowfield/plugin/sowfield.h"
#include "studio/job/job.h"
#include "studio/steps/outputs.h"

namespace studio {

/// Why a step couldn't be done. The place is that of the field at fault, or the step's.
struct StepFailure : host::Error {
  StepFailure(Place at, const std::string& text) : Error(text), place(at) {}
  Place place;
};

/// The colour of a "#rrggbb".
ColorRef ColourOf(const std::string& text);

/// A path that isn't UTF-8 as messages tell it: bytes beyond ASCII as \xe9.
std::string InPrint(const std::string& path);

/// An undo step that is taken back unless it is accepted.
class UndoStep {
 public:
  UndoStep() { theHold.Begin(); }
  UndoStep(const UndoStep&) = delete;
  UndoStep& operator=(const UndoStep&) = delete;
  ~UndoStep() {
    if (open_) theHold.Cancel();
  }
  void Accept(const WStr& name) {
    open_ = false;
    theHold.Accept(name);
  }

 private:
  bool open_ = true;
};

/// What a job works on: a host with its scene, and the Sowfield object whose panels are open.
class Stage {
 public:
  /// Files are named from `folder`. Message boxes and the listener go to `notices`.
  Stage(std::string folder, std::ostream& notices);
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  host::Host& TheHost() { return host_; }
  Interface& Ip() { return host_.Services(); }
  TimeValue Now() { return Ip().GetTime(); }

  /// The node of a name. Fails for none and for several.
  INode* Node(const Value& name);
  /// Fails if a node has that name already.
  void NeedNewName(const Value& name);

  /// Null for a node that holds no Sowfield object.
  static sowfield::Sowfield* SowfieldOf(INode* node);
  std::vector<INode*> SowfieldNodes();
  /// The Sowfield object of this name, whatever else is called so; of several of one name the one
  /// of "NAME#2", counted from 1 in the order of SowfieldNodes.
  INode* SowfieldNode(const Value& name);
  /// The edited object; fails without one.
  sowfield::Sowfield& Edited(Place place);
  INode* EditedNode() const { return edited_.get(); }
  /// Opens the panels of a Sowfield object's node and closes those that are open.
  void Edit(INode* node);
  void StopEditing();
  /// Closes the panels of an object that has left the scene.
  void Settle();

  bool Painting() const;
  void LeavePaintMode();

  /// A type of an object by its name or number; fails for none and for several.
  static int TypeOf(sowfield::Sowfield& object, const Value& type);
  /// A transform row: 0 for "all", t + 1 for type t.
  static int RowOf(sowfield::Sowfield& object, const Value& row);

  /// A path as it is opened: absolute, without `.` and without `..`.
  std::string Resolve(const std::string& path) const;
  /// The same as a scene keeps it; fails for one that isn't UTF-8.
  WStr ResolveToKeep(const Value& path) const;
  /// The same for a file that is going to be written: its folders are made.
  std::string MakeRoomFor(const Value& path) const;
  /// Writes a file whole, after its folders.
  void Write(const Value& path, std::span<const std::byte> bytes);
  void Write(const Value& path, std::string_view text);

  /// A file that is read, as long as the stage stands or as long as the scene does. `what` tells
  /// what it is, as in SourceFile.
  void AddSource(const std::string& path, std::string what, bool ofScene = false);
  /// A file that something lets go of, and that undo brings back into use.
  void KeepForUndo(const WStr& file);
  /// Another scene stands here: what belonged to the one before is forgotten.
  void ForgetScene();
  /// All files that no output takes the place of: those that were added, and those that the scene
  /// names.
  std::vector<SourceFile> Sources();
  /// Warns of Mokset files that aren't there, of each once until it has been there again. Gives all
  /// of them, as MissingFiles does.
  std::vector<std::string> WarnOfMissing();
  /// The user has said that Mokset files make way for others.
  bool force = false;
  /// Steps warn of missing files by themselves.
  bool tellsMissing = true;

  std::ostream& Notices() { return notices_; }

 private:
  std::string folder_;
  std::ostream& notices_;
  host::Host host_;
  Pin<INode> edited_;
  std::vector<SourceFile> sources_, ofScene_;
  std::set<std::string> kept_, warned_;
};

}  // namespace studio
