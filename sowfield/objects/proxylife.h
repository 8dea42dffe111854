#pragma once

#include <string>
#include <vector>

#include "host/math/wstr.h"
#include "sowfield/model/distribution.h"

namespace sowfield {

// Types that live in a Mokset file (kind 2): a type of the scene is written out and lets go of its
// node, is pointed at other files, and comes back as a scene object.

/// Why the type can't be converted; empty if it can: only scene types and Mokset proxies (kinds 0
/// and 1) can.
std::string WhyNotConvertible(const Distribution& d, int type);

/// Writes the type's mesh to a file and makes it a type of that file, "Save Mokset Out". The mesh
/// stands at the bottom centre of its box with the node's rotation and scale worked in; box, counts
/// and samples are those of the file. The node stays in the scene, no longer a source; its material
/// goes with the type.
///
/// False if the type isn't convertible, and nothing happens. The type is converted even if the file
/// can't be written, which `written` tells and `error` explains.
bool ConvertType(Distribution& d, int type, const WStr& path, bool& written,
                 std::string* error = nullptr);

/// Points a type of kind 2 at another file, "Load Mokset", takes its box, counts and samples from
/// there, raises the brush to its smallest size and refreshes. False, and nothing happens, for
/// another kind and for a file that ReadMoksetFile finds at fault.
bool PointTypeAtFile(Distribution& d, int type, const WStr& path);

/// Makes a type of kind 2 a scene type again, "Export Mokset Out": its file's mesh becomes an
/// editable mesh at the place of the object's node, with the type's material. False for another
/// kind; a missing file is told in a box and nothing happens.
bool ExportMoksetToObject(Distribution& d, int type);

/// Takes box, counts and samples of all types anew from their sources; a type whose source can't be
/// read keeps its own. The mesh nodes of V-Ray proxies are made anew; an old one that a copy of the
/// object uses stays. The object's node loses its rotation and scale, and the brush is raised to
/// its smallest size. One undo step, "Update All": nodes are exchanged, and half of that would be
/// left after undoing the steps before.
void UpdateAllTypes(Distribution& d);

/// One hidden node for each type of kind 2, in order, with the file's mesh and the type's material.
/// A file that can't be read gives an empty object.
std::vector<INode*> MakePreviewNodes(Distribution& d);

}  // namespace sowfield
