#include "sowfield/model/params.h"

#include <charconv>
#include <cmath>

#include "sowfield/model/typekind.h"

namespace sowfield {
namespace {

using enum ParamType;
using enum IndexForm;
using enum Refreshes;

constexpr Range kNone{};
constexpr Range kSwitch{0, 1};
constexpr Range kCount{0, kNoLimit};
constexpr Range kDegrees{-360, 360};
constexpr Range kScale{0, 10000};
constexpr Range kFrames{-10000, 10000};
constexpr Range kPercents{0, 100};
// Of the unit with the widest range; see InputRange.
constexpr Range kHeights{-5e6, 5e6};
// Random hits are worked out from the square of the radius, in single precision.
constexpr Range kRadius{0, 1e7};

constexpr ParamEntry Reserved(Param id, const wchar_t* name, ParamType type, IndexForm form,
                              double initial = 0, double newEntry = 0) {
  return {.id = id,
          .name = name,
          .type = type,
          .form = form,
          .role = Role::Reserved,
          .initial = initial,
          .newEntry = newEntry,
          .meaning = form == Type ? "reserved, follows the types" : "reserved"};
}

constexpr ParamEntry Kept(Param id, const wchar_t* name, ParamType type, IndexForm form, Range hard,
                          const char* unit, const char* meaning, double newEntry = 0) {
  return {.id = id,
          .name = name,
          .type = type,
          .form = form,
          .role = Role::Kept,
          .newEntry = newEntry,
          .hard = hard,
          .panel = hard == kFinite ? kNone : hard,
          .unit = unit,
          .meaning = meaning};
}

constexpr ParamEntry Mirror(Param id, const wchar_t* name, double initial, Param of,
                            const char* label, const char* meaning) {
  return {.id = id,
          .name = name,
          .type = Bool,
          .form = Scalar,
          .role = Role::Mirrored,
          .initial = initial,
          .panel = kSwitch,
          .label = label,
          .mirrors = of,
          .meaning = meaning};
}

// One end of a transform row.
constexpr ParamEntry Row(Param id, const wchar_t* name, Param upper, double initial,
                         double newEntry, Range panel, double step, const char* unit,
                         const char* label, const char* meaning) {
  return {.id = id,
          .name = name,
          .type = Float,
          .form = Slot,
          .initial = initial,
          .newEntry = newEntry,
          .hard = kFinite,
          .panel = panel,
          .step = step,
          .unit = unit,
          .label = label,
          .upper = upper,
          .refreshes = Object,
          .meaning = meaning};
}

// 0 is off, any other number on.
constexpr ParamEntry Switch(Param id, const wchar_t* name, double initial, Refreshes refreshes,
                            const char* label, const char* meaning) {
  return {.id = id,
          .name = name,
          .type = Bool,
          .form = Scalar,
          .initial = initial,
          .panel = kSwitch,
          .label = label,
          .refreshes = refreshes,
          .meaning = meaning};
}

constexpr ParamEntry Number(Param id, const wchar_t* name, ParamType type, double initial,
                            Range hard, Range panel, double step, const char* unit,
                            Refreshes refreshes, const char* label, const char* meaning) {
  return {.id = id,
          .name = name,
          .type = type,
          .form = Scalar,
          .initial = initial,
          .hard = hard,
          .panel = panel,
          .step = step,
          .unit = unit,
          .label = label,
          .refreshes = refreshes,
          .meaning = meaning};
}

// An entry of a type's row that has none for all types.
constexpr ParamEntry OfType(Param id, const wchar_t* name, double newEntry, Range hard, Range panel,
                            double step, const char* unit, Param upper, Refreshes refreshes,
                            const char* label, const char* meaning) {
  return {.id = id,
          .name = name,
          .type = Int,
          .form = Type,
          .newEntry = newEntry,
          .hard = hard,
          .panel = panel,
          .step = step,
          .unit = unit,
          .label = label,
          .upper = upper,
          .refreshes = refreshes,
          .meaning = meaning};
}

constexpr ParamEntry Things(Param id, const wchar_t* name, ParamType type, IndexForm form,
                            Refreshes refreshes, const char* label, const char* meaning) {
  return {.id = id,
          .name = name,
          .type = type,
          .form = form,
          .label = label,
          .refreshes = refreshes,
          .meaning = meaning};
}

constexpr ParamEntry Slider(Param id, const wchar_t* name, double most, const char* unit,
                            const char* label, const char* meaning) {
  return {.id = id,
          .name = name,
          .type = Float,
          .form = Scalar,
          .hard = kFinite,
          .panel = {0, most},
          .unit = unit,
          .label = label,
          .animatable = true,
          .refreshes = Shifts,
          .meaning = meaning};
}

constexpr const char* kUpper = "upper end of the same";
constexpr const char* kRandom = "stored random values, percent of a range";
constexpr const char* kUnits = "scene units";

constexpr ParamEntry kParams[] = {
    // clang-format off
    Kept(Geo_Nodes, L"Geo_Nodes", Node, NodeType, kNone, "",
         "source nodes of the types that live in the scene"),
    Reserved(Geo_Reserved_A, L"Geo_Reserved_A", Int, Scalar),
    Kept(Geo_Kind, L"Geo_Kind", Int, Type, {0, kTypeKinds - 1}, "",
         "source of the type: 0 a node, 1 a Mokset proxy object, 2 a Mokset file, 3 a V-Ray proxy"),
    Reserved(Geo_Reserved_B, L"Geo_Reserved_B", Int, Free),
    Reserved(Geo_Reserved_C, L"Geo_Reserved_C", Int, Type, 0, 100),
    Kept(Geo_BoxMax, L"Geo_BoxMax", Point3, Type, kNone, kUnits,
         "maximum corner of the source mesh, object space"),
    Kept(Geo_BoxMin, L"Geo_BoxMin", Point3, Type, kNone, kUnits,
         "minimum corner of the source mesh, object space"),
    Kept(Geo_PointCount, L"Geo_PointCount", Int, Type, kCount, "samples",
         "samples of the type in Geo_Points"),
    Kept(Geo_VertCount, L"Geo_VertCount", Int, Type, kCount, "vertices",
         "vertices of the source mesh, which display budgets sum"),
    Kept(Geo_FaceCount, L"Geo_FaceCount", Int, Type, kCount, "faces",
         "faces of the source mesh, which statistics sum"),
    Kept(Geo_Points, L"Geo_Points", Point3, Samples, kNone, kUnits,
         "samples of all types, one run per type, object space"),
    Kept(Geo_Names, L"Geo_Names", String, Type, kNone, "", "display name of the type"),
    Kept(Proxy_Nodes, L"Proxy_Nodes", Node, RendererProxyType, kNone, "",
         "original proxy node behind a kind 3 type"),
    Kept(Proxy_Files, L"Proxy_Files", Filename, FileType, kNone, "",
         "path of an external proxy file"),
    Kept(Proxy_Mtls, L"Proxy_Mtls", Mtl, Free, kNone, "", "materials of external proxies"),
    Kept(Proxy_MtlIndex, L"Proxy_MtlIndex", Int, FileType, {-1, kNoLimit}, "",
         "material of a proxy type in Proxy_Mtls, -1 for none", -1),
    {.id = Tr_Random, .name = L"Tr_Random", .type = Int, .form = Slot, .panel = kSwitch,
     .label = "Random Transform", .refreshes = Object,
     .meaning = "the row uses its range, not its lower end alone"},
    Row(Tr_ZPos_Min, L"Tr_ZPos_Min", Tr_ZPos_Max, 0, 0, kHeights, 0, kUnits, "Position Z",
        "offset along the placement's up axis"),
    Row(Tr_ZPos_Max, L"Tr_ZPos_Max", NoParam, 0, 0, kHeights, 0, kUnits, "Position Z", kUpper),
    Row(Tr_Normal_Min, L"Tr_Normal_Min", Tr_Normal_Max, 0, 100, {-30, 130}, 1, "percent",
        "Rotation N", "how far the placement follows its surface"),
    Row(Tr_Normal_Max, L"Tr_Normal_Max", NoParam, 0, 100, {-30, 130}, 1, "percent", "Rotation N",
        kUpper),
    Row(Tr_XRot_Min, L"Tr_XRot_Min", Tr_XRot_Max, 0, 0, kDegrees, 5, "degrees", "Rotation X",
        "rotation about X"),
    Row(Tr_XRot_Max, L"Tr_XRot_Max", NoParam, 0, 0, kDegrees, 5, "degrees", "Rotation X", kUpper),
    Row(Tr_YRot_Min, L"Tr_YRot_Min", Tr_YRot_Max, 0, 0, kDegrees, 5, "degrees", "Rotation Y",
        "rotation about Y"),
    Row(Tr_YRot_Max, L"Tr_YRot_Max", NoParam, 0, 0, kDegrees, 5, "degrees", "Rotation Y", kUpper),
    Row(Tr_ZRot_Min, L"Tr_ZRot_Min", Tr_ZRot_Max, 0, 0, kDegrees, 5, "degrees", "Rotation Z",
        "rotation about Z"),
    Row(Tr_ZRot_Max, L"Tr_ZRot_Max", NoParam, 0, 0, kDegrees, 5, "degrees", "Rotation Z", kUpper),
    {.id = Tr_Unify, .name = L"Tr_Unify", .type = Int, .form = Slot, .initial = 1, .newEntry = 1,
     .panel = kSwitch, .label = "Unify Scale", .refreshes = Object,
     .meaning = "the row's X scale stands for all three axes"},
    Row(Tr_XScale_Min, L"Tr_XScale_Min", Tr_XScale_Max, 100, 100, kScale, 1, "percent", "Scale X",
        "scale along X"),
    Row(Tr_XScale_Max, L"Tr_XScale_Max", NoParam, 100, 100, kScale, 1, "percent", "Scale X",
        kUpper),
    Row(Tr_YScale_Min, L"Tr_YScale_Min", Tr_YScale_Max, 100, 100, kScale, 1, "percent", "Scale Y",
        "scale along Y"),
    Row(Tr_YScale_Max, L"Tr_YScale_Max", NoParam, 100, 100, kScale, 1, "percent", "Scale Y",
        kUpper),
    Row(Tr_ZScale_Min, L"Tr_ZScale_Min", Tr_ZScale_Max, 100, 100, kScale, 1, "percent", "Scale Z",
        "scale along Z"),
    Row(Tr_ZScale_Max, L"Tr_ZScale_Max", NoParam, 100, 100, kScale, 1, "percent", "Scale Z",
        kUpper),
    OfType(Tr_AnimOn, L"Tr_AnimOn", 0, kNone, kSwitch, 0, "", NoParam, Object, "Animation Offset",
           "the type's placements run their animation with an offset"),
    OfType(Tr_AnimMin, L"Tr_AnimMin", 0, kNone, kFrames, 1, "frames", Tr_AnimMax, Object,
           "Animation Offset", "offset of the animation"),
    OfType(Tr_AnimMax, L"Tr_AnimMax", 0, kNone, kFrames, 1, "frames", NoParam, Object,
           "Animation Offset", kUpper),
    Kept(Rnd_ZPos, L"Rnd_ZPos", Float, RandomBlock, kPercents, "percent", kRandom),
    Kept(Rnd_Normal, L"Rnd_Normal", Float, RandomBlock, kPercents, "percent", kRandom),
    Kept(Rnd_XRot, L"Rnd_XRot", Float, RandomBlock, kPercents, "percent", kRandom),
    Kept(Rnd_YRot, L"Rnd_YRot", Float, RandomBlock, kPercents, "percent", kRandom),
    Kept(Rnd_ZRot, L"Rnd_ZRot", Float, RandomBlock, kPercents, "percent", kRandom),
    Kept(Rnd_XScale, L"Rnd_XScale", Float, RandomBlock, kPercents, "percent", kRandom),
    Kept(Rnd_YScale, L"Rnd_YScale", Float, RandomBlock, kPercents, "percent", kRandom),
    Kept(Rnd_ZScale, L"Rnd_ZScale", Float, RandomBlock, kPercents, "percent", kRandom),
    Kept(Rnd_Anim, L"Rnd_Anim", Float, Free, kPercents, "percent",
         "the same for animation offsets: 10000 values or none"),
    Kept(Ins_Pos, L"Ins_Pos", Point3, Placement, kFinite, kUnits, "position, world space"),
    Kept(Ins_Normal, L"Ins_Normal", Point3, Placement, kFinite, "radians",
         "surface orientation: Euler angles about X, Y and Z"),
    Kept(Ins_Type, L"Ins_Type", Int, Placement, kCount, "", "object type of the placement"),
    Kept(Ins_Rand, L"Ins_Rand", Int, Placement, {0, kBlockSize - 1}, "",
         "row of the random blocks"),
    Kept(Ins_AnimRand, L"Ins_AnimRand", Int, Placement, {0, kAnimTableSize - 1}, "",
         "index into Rnd_Anim"),
    Number(Display_Mode, L"Display_Mode", Int, 4, {0, 6}, {0, 6}, 0, "", ByItself, "display mode",
           "0 None, 1 Dot, 2 Bounding Box, 3 Point Cloud, 4 Pyramid, 5 Squirrel, 6 Original"),
    // Outside it the number of samples drawn lies outside the type's run.
    Number(PointCloud, L"PointCloud", Int, 1, {1, 100}, {1, 100}, 1, "percent", Object,
           "Point Cloud Vert %", "share of the samples that Point Cloud draws"),
    Switch(ForceDisplay, L"ForceDisplay", 0, Object, "Force Display Type",
           "switches the display budgets off"),
    Number(Display_Type, L"Display_Type", Int, 0, kCount, kCount, 0, "", Object, "type shown",
           "0 shows all types, n only type n - 1; it follows its type, and shows all without it"),
    Switch(Show_Logo, L"Show_Logo", 1, Object, "Show", "draws the logo"),
    // Creation starts it at 0; what is below 0.5 is drawn, and stored, as 0.5.
    Number(Logo_size, L"Logo_size", Float, 0.5, kFinite, {0.5, 1000}, 0.1, kUnits, Object,
           "Logo Size:", "size of the logo"),
    Number(Paint_ListExtra, L"Paint_ListExtra", Int, 0, {0, 1e6}, {0, 1e6}, 1, "rows", Nothing,
           "v, ^", "extra rows of the painter's list"),
    Switch(List_Locked, L"List_Locked", 0, Nothing, "L",
           "holds the list's height when types come and go"),
    // Below 0 the sums of the shares fall, and a draw finds a type that wasn't asked for.
    OfType(Geo_PaintPct, L"Geo_PaintPct", 100, kCount, {1, 100}, 1, "percent", NoParam, Nothing,
           "Obj Paint %", "share of the type when several are painted"),
    // An event casts ten rays for each: a million of them would take minutes.
    Number(Brush_Amount, L"Brush_Amount", Int, 10, {0, 10000}, {1, 500}, 1, "placements", Nothing,
           "Paint Amount", "placements per brush diameter of stroke"),
    Number(Brush_Snap, L"Brush_Snap", Int, 10, kNone, {0, 180}, 5, "degrees", Nothing,
           "Angle Snap", "angle snap of the line tool"),
    // Beyond it nearly every draw is refused, and draws go on until one isn't.
    Number(Brush_Falloff, L"Brush_Falloff", Int, 0, kPercents, kPercents, 0, "percent", Nothing,
           "Paint Falloff", "how far from the rim the brush begins to thin out"),
    Number(Brush_Erase, L"Brush_Erase", Int, 100, kNone, kPercents, 0, "percent", Nothing,
           "Erase Chance", "chance that the eraser removes a placement under it"),
    Number(Brush_Size, L"Brush_Size", Float, 20, kRadius, kRadius, 0.1, kUnits, Nothing,
           "Brush Size",
           "radius of the multi, erase and replace tools; the panel shows the diameter"),
    Number(Brush_LineSize, L"Brush_LineSize", Float, 20, kRadius, kRadius, 0.1, kUnits, Nothing,
           "Brush Size", "radius of the line tool; the panel shows the diameter"),
    Number(Brush_Collision, L"Brush_Collision", Float, 0, kFinite, {0, 1e6}, 0.1, kUnits, Nothing,
           "Collision Dist", "least distance between placements"),
    Switch(Paint_On_Self, L"Paint_On_Self", 0, Nothing, "Paint On Self",
           "the object's own placements are painted on"),
    Switch(Paint_Similar, L"Paint_Similar", 1, Nothing, "Similar",
           "replace in scene takes similar objects too"),
    Switch(Paint_Instances, L"Paint_Instances", 1, Nothing, "Instances",
           "replace in scene takes instances too"),
    Switch(Paint_Delete_Target, L"Paint_Delete_Target", 0, Nothing, "Delete Target",
           "replace in scene deletes the replaced nodes"),
    Switch(Excl_On, L"Excl_On", 0, Object, "Enable", "exclusion splines take effect"),
    Things(Excl_Splines, L"Excl_Splines", Node, Free, Object, "add, del",
           "the exclusion splines"),
    Number(Cam_Radio, L"Cam_Radio", Int, 0, kSwitch, kSwitch, 0, "", Nothing,
           "Active View Camera, Selected Camera", "0 the active view clips, 1 the picked camera"),
    Things(CamNode, L"CamNode", Node, Scalar, Nothing, "Pick Camera", "the picked camera"),
    Switch(CamClip, L"CamClip", 0, Nothing, "Enable",
           "placements that the camera can't see aren't rendered"),
    Number(FOV, L"FOV", Int, 0, kNone, {0, 500}, 1, "degrees", Nothing, "F.O.V Expansion",
           "widening of the clipping field of view"),
    Switch(ColorShift, L"Color Shift", 0, Variants, "Use Colour Shift",
           "renders and exports vary the colours of the materials"),
    // Each variant is a copy of every type's material.
    Number(ColorVariation, L"Color Variation", Int, 12, {1, 500}, {2, 500}, 1, "variants",
           Variants, "Variation Count", "colour variants per type, the unshifted one included"),
    Slider(HueShift, L"Hue Shift", 180, "degrees", "Hue Shift", "largest hue shift"),
    Slider(Saturation, L"Saturation", 100, "percent", "Saturation", "largest saturation shift"),
    Slider(Brightness, L"Brightness", 25, "percent", "Brightness", "largest brightness shift"),
    Slider(Contrast, L"Contrast", 25, "percent", "Contrast", "largest contrast shift"),
    Kept(HueRand, L"HueRand", Float, Variation, kFinite, "", "hue shift of each variant"),
    Kept(SatRand, L"SatRand", Float, Variation, kFinite, "", "saturation shift of each variant"),
    Kept(BriRand, L"BriRand", Float, Variation, kFinite, "", "brightness shift of each variant"),
    Kept(ConRand, L"ConRand", Float, Variation, kFinite, "", "contrast shift of each variant"),
    Switch(AdvanceShift, L"Advance Shift", 0, Variants, "Material Name Filtering",
           "names in Texture_Names choose the materials that shift"),
    Things(Texture_Names, L"Texture_Names", String, Free, Variants, "Texture Name",
           "the names; one that ends in * stands for all that begin so"),
    Number(Filter_Mode, L"Filter_Mode", Int, 0, kSwitch, kSwitch, 0, "", Variants,
           "Include, Exclude", "0 materials of these names shift, 1 all others"),
    Mirror(Random_Trans, L"Random_Trans", 0, Tr_Random, "Random Transform",
           "panel state of the selected row's Tr_Random"),
    Mirror(Unify_Scale, L"Unify_Scale", 1, Tr_Unify, "Unify Scale",
           "panel state of the selected row's Tr_Unify"),
    Mirror(AnimOffset, L"AnimOffset", 0, Tr_AnimOn, "Animation Offset",
           "panel state of the selected row's Tr_AnimOn"),
    Reserved(Geo_UserSpacing, L"Geo_UserSpacing", Bool, Scalar),
    Reserved(Z_Pos, L"Z_Pos", Float, Scalar),
    Reserved(Z_Pos_Random, L"Z_Pos_Random", Float, Scalar),
    Reserved(Pos_InOut, L"Pos_InOut", Float, Scalar),
    Reserved(Pos_InOut_Random, L"Pos_InOut_Random", Float, Scalar),
    Reserved(Z_Rot, L"Z_Rot", Float, Scalar),
    Reserved(Z_Rot_Random, L"Z_Rot_Random", Float, Scalar),
    Reserved(X_Scale, L"X_Scale", Float, Scalar, 100),
    Reserved(X_Scale_Random, L"X_Scale_Random", Float, Scalar, 100),
    // clang-format on
};
static_assert(std::size(kParams) == 102);

constexpr int kIds = 104;

// Where the entry of an id stands, -1 for an id that isn't declared.
constexpr std::array<int, kIds> kPlaces = [] {
  std::array<int, kIds> places{};
  places.fill(-1);
  for (size_t i = 0; i < std::size(kParams); ++i) places[size_t(kParams[i].id)] = int(i);
  return places;
}();

template <class T>
std::string TextOf(T value) {
  char text[32];
  const bool whole = std::fabs(value) < T(1e15) && value == std::trunc(value);
  const auto end = whole ? std::to_chars(text, text + sizeof text, (long long)(value)).ptr
                         : std::to_chars(text, text + sizeof text, value).ptr;
  return {text, end};
}

}  // namespace

std::span<const ParamEntry> AllParams() { return kParams; }

const ParamEntry* FindParam(ParamID id) {
  return id >= 0 && id < kIds && kPlaces[size_t(id)] >= 0 ? &kParams[kPlaces[size_t(id)]] : nullptr;
}

const ParamEntry* FindParam(std::wstring_view name) {
  for (const ParamEntry& e : kParams)
    if (name == e.name) return &e;
  return nullptr;
}

std::string NumberText(double value) { return TextOf(value); }
std::string NumberText(float value) { return TextOf(value); }

std::string RangeText(const Range& range) {
  if (range == kFinite) return "a finite number";
  if (range.high == kNoLimit)
    return range.low == -kNoLimit ? "any number" : "at least " + NumberText(range.low);
  if (range.low == -kNoLimit) return "at most " + NumberText(range.high);
  return NumberText(range.low) + " to " + NumberText(range.high);
}

std::unique_ptr<ParamBlockDesc2> MakeBlockDesc(ClassDesc2* owner) {
  std::vector<ParamDef> defs;
  for (const ParamEntry& e : kParams)
    defs.push_back({e.id, e.name, e.type, e.IsTable(), e.animatable, e.initial, UndoRank(e.id)});
  return std::make_unique<ParamBlockDesc2>(kBlockId, L"Title", owner, std::move(defs));
}

}  // namespace sowfield
