#include "studio/job/steptable.h"

#include <algorithm>

namespace studio {
namespace {

using enum FieldType;

constexpr double kFar = 1e6;
constexpr double kSmall = 1e-6;
constexpr double kMost = 1e9;

#define SOWFIELD_VIEW_FIELDS(whatFor)                                                \
  {.name = "view",                                                                   \
   .type = View,                                                                     \
   .initial = "\"top\"",                                                             \
   .meaning = whatFor "; \"top\" looks straight down on all of the scene"},          \
  {                                                                                  \
    .name = "size", .type = Cells, .initial = "[960, 540]", .low = 16, .high = 8192, \
    .unit = "pixels", .meaning = "width and height of the view"                      \
  }

// How an object that is made stands, and its colour.
#define SOWFIELD_PLACE_FIELDS                                   \
  {.name = "scale",                                             \
   .type = Point3,                                              \
   .initial = "[1, 1, 1]",                                      \
   .low = -kFar,                                                \
   .high = kFar,                                                \
   .meaning = "first, along the three axes"},                   \
      {.name = "rotate",                                        \
       .type = Point3,                                          \
       .initial = "[0, 0, 0]",                                  \
       .low = -360,                                             \
       .high = 360,                                             \
       .unit = "degrees",                                       \
       .meaning = "then about X, Y and Z"},                     \
      {.name = "at",                                            \
       .type = Point3,                                          \
       .initial = "[0, 0, 0]",                                  \
       .low = -kFar,                                            \
       .high = kFar,                                            \
       .unit = "scene units",                                   \
       .meaning = "then moved there"},                          \
  {                                                             \
    .name = "colour", .type = Colour, .initial = "\"#808080\"", \
    .meaning = "as red, green and blue in hexadecimal"          \
  }

#define SOWFIELD_WHICH_ENTRY                                                                    \
  {.name = "index",                                                                             \
   .type = Integer,                                                                             \
   .low = 0,                                                                                    \
   .high = kMost,                                                                               \
   .meaning = "entry of a table, counted from 0"},                                              \
      {.name = "type",                                                                          \
       .type = Row,                                                                             \
       .low = 0,                                                                                \
       .high = kMost,                                                                           \
       .meaning = "instead of `index`: the entry of an object type, by name or number from 0"}, \
  {                                                                                             \
    .name = "row", .type = Row, .low = 0, .high = kMost,                                        \
    .meaning =                                                                                  \
        "instead of `index`: a transform row, \"all\" or 0 for all types, a type's name, "      \
        "or its number from 1"                                                                  \
  }

constexpr FieldDecl kJob[] = {
    {.name = "unit",
     .type = Choice,
     .initial = "\"metres\"",
     .choices = "inches|feet|miles|millimetres|centimetres|metres|kilometres",
     .meaning = "what a scene unit is"},
    {.name = "rand_seed",
     .type = Integer,
     .initial = "1",
     .low = 0,
     .high = 4294967295.0,
     .meaning = "start of the system's random numbers, which choose the sample points of a type"},
};

constexpr FieldDecl kView[] = {
    {.name = "eye",
     .type = Point3,
     .low = -kMost,
     .high = kMost,
     .meaning = "where the viewer stands, with `target`"},
    {.name = "target",
     .type = Point3,
     .low = -kMost,
     .high = kMost,
     .meaning = "the point in the middle of the view"},
    {.name = "fov",
     .type = Number,
     .initial = "45",
     .low = 1,
     .high = 179,
     .unit = "degrees",
     .meaning = "horizontal field of view of a perspective, with `eye` and `target`"},
    {.name = "camera", .type = Text, .meaning = "name of a camera to look through; alone"},
    {.name = "orthographic",
     .type = Choice,
     .choices = "top|bottom|front|back|left|right",
     .meaning = "a parallel view of all of the scene from that side; front looks along +Y"},
    {.name = "center",
     .type = Point3,
     .low = -kMost,
     .high = kMost,
     .meaning = "middle of an orthographic view; that of the scene without it"},
    {.name = "span",
     .type = Number,
     .low = kSmall,
     .high = kFar,
     .unit = "scene units",
     .meaning = "width shown by an orthographic view; all of the scene without it"},
};

constexpr FieldDecl kOpen[] = {
    {.name = "file",
     .type = Text,
     .required = true,
     .meaning = "a scene that was saved, which takes no other field but `recover`; or a model: "
                "glTF 2 (.gltf, .glb), .fbx, .dae, .obj, .blend, .3ds, .ply, .stl or another kind "
                "that assimp reads"},
    {.name = "up",
     .type = Choice,
     .choices = "y|z",
     .meaning = "which axis of the file points up; that of its format without it"},
    {.name = "scale",
     .type = Number,
     .initial = "1",
     .low = kSmall,
     .high = kFar,
     .meaning = "scene units per file unit, after the format's own unit"},
    {.name = "name",
     .type = Text,
     .meaning = "name of the node without a parent; put before the names, with an underscore, "
                "where there are several"},
    {.name = "join",
     .type = Text,
     .meaning =
         "makes one node of this name from all parts of the model, as a source of many parts "
         "needs it; instead of `name`"},
    {.name = "turn",
     .type = Number,
     .initial = "0",
     .low = -360,
     .high = 360,
     .unit = "degrees",
     .meaning = "turns about the world's Z axis"},
    {.name = "at",
     .type = Point3,
     .initial = "[0, 0, 0]",
     .low = -kFar,
     .high = kFar,
     .unit = "scene units",
     .meaning = "moves by this, after the turn"},
    {.name = "recover",
     .type = Flag,
     .initial = "false",
     .meaning = "of a damaged scene, open what can be read and tell what is lost"},
};

constexpr FieldDecl kMerge[] = {
    {.name = "file", .type = Text, .required = true, .meaning = "a scene that was saved"},
};

constexpr FieldDecl kSave[] = {
    {.name = "file", .type = Text, .required = true, .meaning = "the scene file, .glb"},
    {.name = "backup",
     .type = Flag,
     .initial = "false",
     .meaning = "keep the old file beside the new one, with .bak behind its name"},
};

constexpr FieldDecl kPrimitive[] = {
    {.name = "kind",
     .type = Choice,
     .required = true,
     .choices = "box|sphere|plane",
     .meaning = "a box stands on its base, a plane faces up, a sphere lies about its centre"},
    {.name = "name", .type = Text, .meaning = "name of the node; a numbered one without it"},
    {.name = "size",
     .type = Sizes,
     .low = 0,
     .high = kFar,
     .unit = "scene units",
     .meaning = "[width, length, height] of a box, [width, length] of a plane, [radius] of a "
                "sphere; 1 each without it"},
    {.name = "segments",
     .type = Integer,
     .initial = "32",
     .low = 3,
     .high = 1000,
     .meaning = "of a sphere, round its equator"},
    {.name = "cells",
     .type = Cells,
     .initial = "[1, 1]",
     .low = 1,
     .high = 1000,
     .meaning = "of a plane, along X and Y"},
    SOWFIELD_PLACE_FIELDS,
};

constexpr FieldDecl kSpline[] = {
    {.name = "name", .type = Text, .meaning = "name of the node; a numbered one without it"},
    {.name = "points",
     .type = Knots,
     .required = true,
     .low = -kFar,
     .high = kFar,
     .unit = "scene units",
     .meaning = "its knots, at least two; it runs straight from one to the next"},
    {.name = "closed",
     .type = Flag,
     .initial = "false",
     .meaning = "whether it also runs from the last back to the first"},
    SOWFIELD_PLACE_FIELDS,
};

constexpr FieldDecl kCamera[] = {
    {.name = "name", .type = Text, .required = true, .meaning = "name of the node"},
    {.name = "eye",
     .type = Point3,
     .required = true,
     .low = -kMost,
     .high = kMost,
     .meaning = "where it stands"},
    {.name = "target",
     .type = Point3,
     .required = true,
     .low = -kMost,
     .high = kMost,
     .meaning = "what it looks at"},
    {.name = "fov",
     .type = Number,
     .initial = "45",
     .low = 1,
     .high = 179,
     .unit = "degrees",
     .meaning = "horizontal field of view"},
};

constexpr FieldDecl kCreate[] = {
    {.name = "name", .type = Text, .meaning = "name of the node; a numbered one without it"},
    {.name = "at",
     .type = Point2,
     .initial = "[0, 0]",
     .low = -kFar,
     .high = kFar,
     .unit = "scene units",
     .meaning = "place on the ground"},
    {.name = "logo_size",
     .type = Number,
     .initial = "1",
     .low = 0.5,
     .high = 1000,
     .unit = "scene units",
     .meaning = "length of the drag that sizes the logo"},
};

constexpr FieldDecl kSelect[] = {
    {.name = "object",
     .type = Text,
     .required = true,
     .meaning = "name of a Sowfield object's node; of several of one name the second is `NAME#2`"},
};

constexpr FieldDecl kAdd[] = {
    {.name = "nodes",
     .type = Texts,
     .required = true,
     .meaning = "names of the source nodes, in the order of the types that they become"},
};

constexpr FieldDecl kOfType[] = {
    {.name = "type",
     .type = Row,
     .required = true,
     .low = 0,
     .high = kMost,
     .meaning = "object type, by name or number from 0"},
};

constexpr FieldDecl kReplace[] = {
    kOfType[0],
    {.name = "node", .type = Text, .required = true, .meaning = "name of its new source node"},
};

constexpr FieldDecl kFileOfType[] = {
    kOfType[0],
    {.name = "file", .type = Text, .required = true, .meaning = "the Mokset file, .Vorn"},
};

constexpr FieldDecl kConvert[] = {
    kFileOfType[0],
    kFileOfType[1],
    {.name = "replace",
     .type = Flag,
     .initial = "false",
     .meaning = "replace a Mokset file that is there already, unless something in use lives in it"},
};

constexpr FieldDecl kRemove[] = {
    {.name = "types",
     .type = Rows,
     .required = true,
     .low = 0,
     .high = kMost,
     .meaning = "object types, by name or number from 0"},
};

constexpr FieldDecl kProxy[] = {
    {.name = "kind",
     .type = Choice,
     .required = true,
     .choices = "mokset|vray|corona",
     .meaning = "whose proxy object; as an object type, a vray proxy gets a hidden node with its "
                "mesh, and the two go together"},
    {.name = "from",
     .type = Text,
     .required = true,
     .meaning = "name of the node whose mesh, place and material the proxy takes; the node stays"},
    {.name = "name", .type = Text, .meaning = "name of the new node; a numbered one without it"},
    {.name = "file",
     .type = Text,
     .meaning = "path that a mokset or vray proxy names; the mesh of a mokset proxy then lies in "
                "that file, and it keeps box and samples alone"},
};

constexpr FieldDecl kRows[] = {
    {.name = "list",
     .type = Choice,
     .initial = "\"painter\"",
     .choices = "painter|objects",
     .meaning = "which list"},
    {.name = "rows",
     .type = Rows,
     .required = true,
     .low = 0,
     .high = kMost,
     .meaning = "row numbers from 0, or names of types; row 0 of the object list, \"all\", is all "
                "types, which come behind it. None selected in the painter's list paints all"},
};

constexpr FieldDecl kSet[] = {
    {.name = "param", .type = Text, .meaning = "stored name, with `value`"},
    {.name = "value",
     .type = Scalar,
     .meaning = "the new value; `Display_Mode` also takes a mode's name, `Display_Type` a type's"},
    {.name = "values",
     .type = Scalars,
     .meaning = "instead of `param` and `value`: several by name, in one undo step"},
    SOWFIELD_WHICH_ENTRY,
};

constexpr FieldDecl kColour[] = {
    {.name = "type",
     .type = Row,
     .required = true,
     .low = 0,
     .high = kMost,
     .meaning = "object type, by name or number from 0"},
    {.name = "colour",
     .type = Colour,
     .required = true,
     .meaning = "as red, green and blue in hexadecimal"},
};

constexpr FieldDecl kGet[] = {
    {.name = "param", .type = Text, .required = true, .meaning = "stored name"},
    SOWFIELD_WHICH_ENTRY,
};

constexpr FieldDecl kSeed[] = {
    {.name = "row",
     .type = Row,
     .initial = "\"all\"",
     .low = 0,
     .high = kMost,
     .meaning = "the transform row; \"all\" or 0 renews those of all rows"},
};

constexpr FieldDecl kStroke[] = {
    {.name = "tool",
     .type = Choice,
     .required = true,
     .choices = "line|multi|erase",
     .meaning = "line lays placements one by one, multi scatters them in the brush, erase removes "
                "those in the brush"},
    SOWFIELD_VIEW_FIELDS("the view that the mouse moves in"),
    {.name = "mouse",
     .type = Mouse,
     .low = 0,
     .high = 8191,
     .unit = "pixels",
     .meaning = "the way of the mouse from the view's upper left corner; this or `points`"},
    {.name = "points",
     .type = Points,
     .low = -kMost,
     .high = kMost,
     .unit = "scene units",
     .meaning = "the way as world points, seen through the view; [x, y] with `on`"},
    {.name = "on",
     .type = Text,
     .meaning = "node onto whose uppermost surface the points are dropped"},
    {.name = "spacing",
     .type = Number,
     .initial = "8",
     .low = 1,
     .high = 10000,
     .unit = "pixels",
     .meaning = "way between two mouse events"},
    {.name = "events",
     .type = Integer,
     .low = 1,
     .high = 1000000,
     .meaning = "instead of `spacing`: number of mouse events, evenly along the way"},
    {.name = "keys", .type = Texts, .meaning = "keys held down: \"ctrl\", \"alt\", \"shift\""},
};

constexpr FieldDecl kPicture[] = {
    {.name = "file", .type = Text, .required = true, .meaning = "the picture, .png"},
    SOWFIELD_VIEW_FIELDS("what is looked at"),
    {.name = "mode",
     .type = Choice,
     .choices = "None|Dot|Bounding Box|Point Cloud|Pyramid|Squirrel|Original",
     .meaning = "display mode of all Sowfield objects for this picture alone"},
    {.name = "type",
     .type = Row,
     .low = 0,
     .high = kMost,
     .meaning = "for this picture the edited object shows this type alone, by name or number from "
                "0, or \"all\""},
    {.name = "grid", .type = Flag, .initial = "true", .meaning = "draw the ground grid"},
    {.name = "cursor",
     .type = Point2,
     .low = 0,
     .high = 8191,
     .unit = "pixels",
     .meaning = "show the brush with the mouse there; needs paint mode, as a stroke leaves it"},
};

constexpr FieldDecl kPick[] = {
    SOWFIELD_VIEW_FIELDS("what is looked at"),
    {.name = "at",
     .type = Point2,
     .low = 0,
     .high = 8191,
     .unit = "pixels",
     .meaning = "a click there, 4 pixels around count; this or `rect`"},
    {.name = "rect",
     .type = Rect,
     .low = 0,
     .high = 8191,
     .unit = "pixels",
     .meaning = "a rectangle between two corners"},
    {.name = "crossing",
     .type = Flag,
     .initial = "true",
     .meaning = "with `rect`: whatever touches it; false for what lies inside as a whole"},
};

constexpr FieldDecl kCount[] = {
    {.name = "count",
     .type = Integer,
     .initial = "1",
     .low = 1,
     .high = 1000000,
     .meaning = "how many"},
};

constexpr FieldDecl kDelete[] = {
    {.name = "nodes", .type = Texts, .required = true, .meaning = "names of the nodes"},
};

constexpr FieldDecl kSelection[] = {
    {.name = "nodes",
     .type = Texts,
     .meaning = "names of the nodes, in this order; without it nothing is selected"},
};

constexpr FieldDecl kTime[] = {
    {.name = "frame",
     .type = Number,
     .required = true,
     .low = -100000,
     .high = 100000,
     .meaning = "30 frames are a second"},
};

constexpr FieldDecl kKey[] = {
    {.name = "frame",
     .type = Number,
     .required = true,
     .low = -100000,
     .high = 100000,
     .meaning = "where the key stands; 30 frames are a second"},
    {.name = "node",
     .type = Text,
     .meaning = "name of a node that moves; its matrix is scale, then rotation, then position, "
                "under its parent"},
    {.name = "position",
     .type = Point3,
     .low = -kFar,
     .high = kFar,
     .unit = "scene units",
     .meaning = "of the node's pivot"},
    {.name = "rotation",
     .type = Point3,
     .low = -360,
     .high = 360,
     .unit = "degrees",
     .meaning = "of the node, about X, then Y, then Z; between keys it turns the shorter way"},
    {.name = "scale",
     .type = Point3,
     .low = kSmall,
     .high = kFar,
     .meaning = "of the node, along its three axes"},
    {.name = "param",
     .type = Text,
     .meaning = "instead of `node`: \"Hue Shift\", \"Saturation\", \"Brightness\" or "
                "\"Contrast\" of the edited object"},
    {.name = "value", .type = Number, .meaning = "of the parameter"},
};

constexpr FieldDecl kCheck[] = {
    {.name = "types",
     .type = Amount,
     .low = 0,
     .high = kMost,
     .meaning = "object types that the edited object must have"},
    {.name = "placements",
     .type = Amount,
     .low = 0,
     .high = kMost,
     .meaning = "placements that the edited object must have"},
};

constexpr FieldDecl kPlacements[] = {
    {.name = "file", .type = Text, .meaning = "where to; standard output without it"},
};

constexpr FieldDecl kParams[] = {
    {.name = "file", .type = Text, .meaning = "where to; standard output without it"},
    {.name = "tables",
     .type = Choice,
     .initial = "\"values\"",
     .choices = "values|counts",
     .meaning = "whether the entries of tables are written, or their number alone"},
};

constexpr StepDecl kSteps[] = {
    {"open", "adds the nodes of a model file to the scene, or opens a scene file in its place",
     false, kOpen},
    {"merge", "adds the nodes of a scene file to the scene; names that are taken get a number",
     false, kMerge},
    {"save", "saves the scene; \"open\" opens it again", false, kSave},
    {"primitive", "adds a box, a sphere or a plane", false, kPrimitive},
    {"spline", "adds a shape: one line through points", false, kSpline},
    {"camera", "adds a camera", false, kCamera},
    {"proxy", "adds a proxy object that holds a copy of a node's mesh", false, kProxy},
    {"create", "creates a Sowfield object, which is edited from then on", false, kCreate},
    {"select", "chooses the Sowfield object that is edited", false, kSelect},
    {"add", "makes scene nodes object types of the edited object", false, kAdd},
    {"replace", "gives an object type another source; placements and rows stay", false, kReplace},
    {"remove", "removes object types with their placements", false, kRemove},
    {"convert", "writes an object type to a Mokset file, and lets it live there", false, kConvert},
    {"load", "lets an object type that lives in a file show another one", false, kFileOfType},
    {"restore", "makes a scene node of an object type that lives in a file", false, kOfType},
    {"update",
     "takes boxes, counts and samples of all object types anew from their sources",
     false,
     {}},
    {"rows", "selects rows of a list; the painter paints the selected types", false, kRows},
    {"set", "sets parameters of the edited object", false, kSet},
    {"get", "prints a parameter, a whole table without an entry", true, kGet},
    {"colour", "gives a type another colour in the object's display material", false, kColour},
    {"seed", "renews the stored random values of a transform row", false, kSeed},
    {"stroke", "paints or erases with the mouse; paint mode goes on behind it", true, kStroke},
    {"leave", "leaves paint mode by a right click", true, {}},
    {"undo", "takes back what was done last", true, kCount},
    {"redo", "does again what was taken back last", true, kCount},
    {"delete", "deletes nodes from the scene; children stay", false, kDelete},
    {"selection", "selects scene nodes alone; the scene keeps the selection", false, kSelection},
    {"time", "moves the scene's time", false, kTime},
    {"key", "sets a key of a node's motion, or of a parameter that can be animated", false, kKey},
    {"view", "draws a picture of the scene", true, kPicture},
    {"pick", "prints the names of the nodes that are seen at a place of a view", true, kPick},
    {"check", "fails unless all objects are sound, and the edited one as large as told", true,
     kCheck},
    {"placements", "writes all placements of the edited object as JSON", true, kPlacements},
    {"params", "writes all parameters of the edited object as JSON", true, kParams},
    {"stats", "prints the edited object's types, placements, vertices and faces", true, {}},
};

constexpr StepDecl kJobDecl = {"job", "the job itself", true, kJob};
constexpr StepDecl kViewDecl = {"view", "a view", true, kView};

}  // namespace

const FieldDecl* StepDecl::Find(std::string_view field) const {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [&](const FieldDecl& f) { return field == f.name; });
  return found == fields.end() ? nullptr : &*found;
}

std::span<const StepDecl> AllSteps() { return kSteps; }

const StepDecl* FindStep(std::string_view name) {
  const auto found = std::find_if(std::begin(kSteps), std::end(kSteps),
                                  [&](const StepDecl& s) { return name == s.name; });
  return found == std::end(kSteps) ? nullptr : found;
}

const StepDecl& JobFields() { return kJobDecl; }
const StepDecl& ViewFields() { return kViewDecl; }

}  // namespace studio
