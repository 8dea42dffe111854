#pragma once

#include <array>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "host/core/paramdesc.h"

namespace sowfield {

/// Ids of the object's parameters. Stored scenes depend on them: they never change, and 25 and 26
/// stay free.
enum Param : ParamID {
  NoParam = -1,
  Geo_Nodes = 0,
  Geo_Reserved_A = 1,
  Geo_Kind = 51,
  Geo_Reserved_B = 52,
  Geo_Reserved_C = 53,
  Geo_BoxMax = 2,
  Geo_BoxMin = 3,
  Geo_PointCount = 4,
  Geo_VertCount = 5,
  Geo_FaceCount = 99,
  Geo_Points = 6,
  Geo_Names = 75,
  Proxy_Nodes = 103,
  Proxy_Files = 95,
  Proxy_Mtls = 96,
  Proxy_MtlIndex = 97,
  Tr_Random = 11,
  Tr_ZPos_Min = 12,
  Tr_ZPos_Max = 13,
  Tr_Normal_Min = 101,
  Tr_Normal_Max = 102,
  Tr_XRot_Min = 58,
  Tr_XRot_Max = 59,
  Tr_YRot_Min = 60,
  Tr_YRot_Max = 61,
  Tr_ZRot_Min = 14,
  Tr_ZRot_Max = 15,
  Tr_Unify = 62,
  Tr_XScale_Min = 16,
  Tr_XScale_Max = 17,
  Tr_YScale_Min = 63,
  Tr_YScale_Max = 64,
  Tr_ZScale_Min = 65,
  Tr_ZScale_Max = 66,
  Tr_AnimOn = 70,
  Tr_AnimMin = 71,
  Tr_AnimMax = 72,
  Rnd_ZPos = 8,
  Rnd_Normal = 100,
  Rnd_XRot = 54,
  Rnd_YRot = 55,
  Rnd_ZRot = 9,
  Rnd_XScale = 10,
  Rnd_YScale = 56,
  Rnd_ZScale = 57,
  Rnd_Anim = 69,
  Ins_Pos = 87,
  Ins_Normal = 88,
  Ins_Type = 89,
  Ins_Rand = 90,
  Ins_AnimRand = 73,
  Display_Mode = 29,
  PointCloud = 30,
  ForceDisplay = 76,
  Display_Type = 98,
  Show_Logo = 74,
  Logo_size = 50,
  Paint_ListExtra = 77,
  List_Locked = 78,
  Geo_PaintPct = 79,
  Brush_Amount = 82,
  Brush_Snap = 84,
  Brush_Falloff = 85,
  Brush_Erase = 86,
  Brush_Size = 80,
  Brush_LineSize = 81,
  Brush_Collision = 83,
  Paint_On_Self = 91,
  Paint_Similar = 92,
  Paint_Instances = 93,
  Paint_Delete_Target = 94,
  Excl_On = 31,
  Excl_Splines = 32,
  Cam_Radio = 46,
  CamNode = 47,
  CamClip = 48,
  FOV = 49,
  ColorShift = 33,
  ColorVariation = 34,
  HueShift = 35,
  Saturation = 36,
  Brightness = 37,
  Contrast = 38,
  HueRand = 39,
  SatRand = 40,
  BriRand = 41,
  ConRand = 42,
  AdvanceShift = 43,
  Texture_Names = 44,
  Filter_Mode = 45,
  Random_Trans = 18,
  Unify_Scale = 67,
  AnimOffset = 68,
  Geo_UserSpacing = 7,
  Z_Pos = 19,
  Z_Pos_Random = 20,
  Pos_InOut = 21,
  Pos_InOut_Random = 22,
  Z_Rot = 23,
  Z_Rot_Random = 24,
  X_Scale = 27,
  X_Scale_Random = 28,
};

/// What an entry of a parameter belongs to. N is the number of object types, P of placements.
enum class IndexForm {
  Scalar,
  Type,               // N entries
  NodeType,           // one per type whose kind isn't 2, in type order
  FileType,           // one per type of kind 2
  RendererProxyType,  // one per type of kind 3
  Slot,               // N + 1 entries: slot 0 is the global row, slot t + 1 that of type t
  RandomBlock,        // (N + 1) * 100 entries: slot * 100 + r
  Placement,          // P entries, in painting order
  Samples,            // runs of Geo_PointCount entries, one per type
  Variation,          // as many as the other tables of this form, which all types share
  Free,               // any number
};

/// Who writes a parameter.
enum class Role {
  Editable,  // the user, through panels, jobs and scripts
  Kept,      // the object itself, with types, strokes and seeds
  Mirrored,  // a panel: it is the state of a check box that stands for an entry of another table
  Reserved,  // nobody: it is stored and given back, whatever it holds
};

/// What a new value asks for once it is stored.
enum class Refreshes {
  Nothing,   // it is read when it is needed, as at the start of a stroke
  Object,    // placements or the logo look different
  ByItself,  // the object answers the block's message
  Variants,  // colour variants that were made no longer fit
  Shifts,    // the shifts that were drawn no longer fit either
};

inline constexpr double kNoLimit = std::numeric_limits<double>::infinity();

/// Both ends are allowed; NaN lies in no range.
struct Range {
  double low = -kNoLimit, high = kNoLimit;
  constexpr bool Contains(double v) const { return v >= low && v <= high; }
  constexpr bool operator==(const Range&) const = default;
};
/// Every float but infinities and NaN, one of which would spread through all that is made from it.
inline constexpr Range kFinite{-double(std::numeric_limits<float>::max()),
                               double(std::numeric_limits<float>::max())};
/// "0 to 100", "at least 0", "a finite number".
std::string RangeText(const Range& range);
/// As short as it reads back; whole numbers without an exponent.
std::string NumberText(double value);
std::string NumberText(float value);
inline std::string NumberText(int value) { return NumberText(double(value)); }

/// One parameter: the block's descriptor, the invariants, the edits, the dumps, the jobs, the
/// panels and the documents are all made from this.
struct ParamEntry {
  Param id;
  const wchar_t* name;  // as stored
  ParamType type;
  IndexForm form;
  Role role = Role::Editable;
  double initial = 0;   // of a scalar, or of slot 0
  double newEntry = 0;  // of a table, when a type is added
  /// Outside it something would crash, hang or be looked up wrongly: no scene is opened with such
  /// a value. HardRangeIn narrows it to the block.
  Range hard = {};
  /// What input may give; a value outside it that a scene holds stands. InputRange narrows it to
  /// the object and the unit.
  Range panel = {};
  double step = 0;  // of a spinner; 0 where the spinner chooses it
  /// Empty for a choice, a switch and an index: such a number is no amount, and has no neighbours.
  const char* unit = "";
  const char* label = "";   // of the panel's control; empty for none
  Param upper = NoParam;    // of a lower end
  Param mirrors = NoParam;  // of a mirrored one, the table that the check box stands for
  bool animatable = false;
  Refreshes refreshes = Refreshes::Nothing;
  const char* meaning = "";  // one line

  bool IsTable() const { return form != IndexForm::Scalar; }
  bool IsNumber() const {
    return type == ParamType::Int || type == ParamType::Bool || type == ParamType::Float;
  }
  bool IsWhole() const { return type == ParamType::Int || type == ParamType::Bool; }
  /// What an entry holds before anybody sets it.
  double Default(int index = 0) const {
    return !IsTable() || (form == IndexForm::Slot && index == 0) ? initial : newEntry;
  }
};

/// All 102 parameters, in the order of the documents.
std::span<const ParamEntry> AllParams();
/// Null for an id that isn't declared.
const ParamEntry* FindParam(ParamID id);
/// By stored name; null for an unknown one.
const ParamEntry* FindParam(std::wstring_view name);

inline constexpr int kBlockId = 0;
/// The block's descriptor, registered with the class.
std::unique_ptr<ParamBlockDesc2> MakeBlockDesc(ClassDesc2* owner);

// Orders that are a contract: messages after undo and redo rely on what comes first and last.

/// Random block tables in the order in which their values are drawn.
inline constexpr std::array kRandomTables = {Rnd_ZPos, Rnd_Normal, Rnd_XRot,   Rnd_YRot,
                                             Rnd_ZRot, Rnd_XScale, Rnd_YScale, Rnd_ZScale};
inline constexpr int kBlockSize = 100;
inline constexpr int kAnimTableSize = 10000;

/// Placement tables: Ins_Pos first, Ins_AnimRand last.
inline constexpr std::array kPlacementTables = {Ins_Pos, Ins_Normal, Ins_Type, Ins_Rand,
                                                Ins_AnimRand};

/// Rows that a new type gets, in this order; the slot tables among them make up slot 0 too.
inline constexpr std::array kRowsOfNewType = {
    Geo_Reserved_C, Geo_PaintPct,  Tr_Random,     Tr_ZPos_Min,   Tr_ZPos_Max,   Tr_Normal_Min,
    Tr_Normal_Max,  Tr_XRot_Min,   Tr_XRot_Max,   Tr_YRot_Min,   Tr_YRot_Max,   Tr_ZRot_Min,
    Tr_ZRot_Max,    Tr_Unify,      Tr_XScale_Min, Tr_XScale_Max, Tr_YScale_Min, Tr_YScale_Max,
    Tr_ZScale_Min,  Tr_ZScale_Max, Tr_AnimOn,     Tr_AnimMin,    Tr_AnimMax};

/// Slot tables in the order in which a type's row is deleted.
inline constexpr std::array kSlotTables = {
    Tr_Random,     Tr_ZPos_Min,   Tr_Normal_Min, Tr_XRot_Min,   Tr_YRot_Min,   Tr_ZRot_Min,
    Tr_XScale_Min, Tr_YScale_Min, Tr_ZScale_Min, Tr_ZPos_Max,   Tr_Normal_Max, Tr_XRot_Max,
    Tr_YRot_Max,   Tr_ZRot_Max,   Tr_XScale_Max, Tr_YScale_Max, Tr_ZScale_Max, Tr_Unify};
inline constexpr std::array kAnimRows = {Tr_AnimOn, Tr_AnimMin, Tr_AnimMax};

/// Whether a parameter is shown and edited by the row of a list: slots, and what only types have.
constexpr bool IsRow(const ParamEntry& e) {
  return e.form == IndexForm::Slot || e.id == Tr_AnimOn || e.id == Tr_AnimMin || e.id == Tr_AnimMax;
}

/// Shifts of the colour variants, in the order in which they are drawn.
inline constexpr std::array kShiftTables = {HueRand, SatRand, BriRand, ConRand};

/// Place of a table's message after undo and redo; see TableRecord::Rank. Geo_Kind opens and
/// Geo_Names closes a change of the type list, Ins_Pos and Ins_AnimRand one of the placements.
constexpr int UndoRank(Param id) {
  switch (id) {
    case Geo_Kind:
      return 0;
    case Ins_Pos:
      return 1;
    case Ins_AnimRand:
      return 3;
    case Geo_Names:
      return 4;
    default:
      return 2;
  }
}

}  // namespace sowfield
