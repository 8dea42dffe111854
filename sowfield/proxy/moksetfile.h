#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "host/math/wstr.h"
#include "host/scene/mesh.h"
#include "sowfield/model/generator.h"

namespace sowfield {

/// What is wrong with a file and where. An empty text means that nothing is.
struct MoksetFault {
  std::uint64_t offset = 0;  // bytes from the start of the file
  std::string text;          // the field, what was found and what is allowed
  explicit operator bool() const { return !text.empty(); }
};

/// What a Mokset file tells besides its faces. With a fault all but generation and bytes is as new.
struct MoksetInfo {
  int generation = 0;  // as ReadMoksetVersion
  int vertices = 0, textureVertices = 0, faces = 0;
  int multiplier = 1;           // of the products in the file; generation 1 has none
  int unit = -1;                // UnitType of the host that wrote it; -1 before generation 3
  Box3 box;                     // as stored, in the mesh's own space
  std::vector<Point3> samples;  // vertices, in the order of the sample list
  std::uint64_t bytes = 0;      // size of the file
  std::uint64_t end = 0;        // where its mesh ends; nothing should follow
  MoksetFault fault;
};

/// A path as this system takes it. Stored ones have either separator, and here a backslash may be
/// part of a name: what is there under the path as it stands comes first, then what is there with
/// all backslashes turned. If neither is, those of the folders that are there stay.
std::string NativePathOf(const WStr& path);

/// The generation of a file: 1 to 3; 0 for a version that isn't known, -1 if it can't be opened. A
/// file that doesn't begin like a Mokset file counts as generation 1, which begins with its box.
int ReadMoksetVersion(const WStr& path);

/// All but the mesh, read without its faces: a few short reads and one for each sample.
MoksetInfo ReadMoksetInfo(const WStr& path);

/// The same and the mesh, which is empty with a fault. A sound mesh has finite vertices, indices
/// inside, and no faces on its texture channel unless it has texture vertices. Texture coordinates
/// are taken as they stand.
MoksetInfo ReadMoksetFile(const WStr& path, Mesh& mesh);

/// The same from any stream that can seek; `mesh` may be null.
MoksetInfo ReadMoksetStream(std::istream& in, Mesh* mesh);

/// Reads a file whole and tells all that is wrong with it: what a reader refuses or else, in the
/// order of the file, what readers let pass but no writer makes. Of samples and edges at fault the
/// first one is told. `info` is that of ReadMoksetFile.
std::vector<MoksetFault> CheckMoksetFile(const WStr& path, MoksetInfo& info);
std::vector<MoksetFault> CheckMoksetStream(std::istream& in, MoksetInfo& info);

// The mesh alone. A file that can't be opened or is at fault gives an empty one, without a message.
Mesh ReadMoksetMesh(const WStr& path);
void ReadMoksetMeshInto(const WStr& path, Mesh& mesh);

/// Writes generation 3, whole or not at all. The multiplier is one draw of `random`, 1 to 100, and
/// is lowered as far as it takes to keep every product in 32 bits; the samples are chosen with the
/// system's `rand`. Map channel 1 is written if it has one face per face of the mesh.
///
/// False if the file can't be written or the mesh isn't sound (Mesh::FirstFault); an old file then
/// stays, the draw is taken all the same, and `error` tells why.
bool WriteMoksetFile(const Mesh& mesh, const WStr& path, Generator& random,
                     std::string* error = nullptr);

}  // namespace sowfield
