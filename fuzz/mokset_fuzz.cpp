// Reads any bytes as a Mokset file. A mesh that is taken is sound, agrees with what the file tells
// without its faces, and comes of no more memory than the file has bytes.
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "sowfield/proxy/moksetfile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  Mesh mesh;
  const sowfield::MoksetInfo whole = sowfield::ReadMoksetStream(in, &mesh);
  const sowfield::MoksetInfo head = sowfield::ReadMoksetStream(in, nullptr);
  if (whole.fault) {
    if (!mesh.verts.empty() || !mesh.faces.empty()) std::abort();
    return 0;
  }
  if (head.fault || !mesh.FirstFault().empty() || head.samples != whole.samples) std::abort();
  if (mesh.getNumVerts() != whole.vertices || mesh.getNumFaces() != whole.faces) std::abort();
  if (whole.end > size || mesh.verts.size() * 12 + mesh.faces.size() * 32 > size) std::abort();
  return 0;
}
