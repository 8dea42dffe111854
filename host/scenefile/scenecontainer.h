#pragma once

#include <functional>
#include <memory>
#include <string>

#include "host/gltf/glb.h"

namespace host {

/// The two forms of a scene file. A .glb holds text and bytes (glb.h). What it can't hold is a
/// pair: a .gltf with the text alone, and beside it a file with the bytes, which is called after
/// what it holds: STEM.CHECKSUMS.bin, with 16 hexadecimal digits. A new pair leaves the bytes of
/// the old one alone until its .gltf has taken the place of the old .gltf, so that there is always
/// one whole pair.

/// The ending is .gltf, in capitals or not.
bool IsPairPath(const std::string& path);
/// The path with .gltf for its .glb, or behind it.
std::string PairPathFor(const std::string& path);

/// Writes a pair. `text` is the JSON text with PairUriFor(path) as the uri of its buffer; `seal` is
/// called when the checksums stand in it, to finish it. Without bytes there is no second file.
/// The bytes of the .gltf that is replaced go, as do those of saves that were killed, unless any
/// other file in the folder (a backup, a copy) names them or can't be read, or the file system
/// knows no locks. `written` is the size of both files. On failure the old pair is untouched and
/// `error` names the path and the reason; one is that another program holds a lock on the folder.
bool WritePair(const std::string& path, std::string text, const BinaryParts& parts, bool backup,
               const std::function<void(std::string&)>& seal, size_t& written, std::string& error);
/// With zeros in the place of the checksums.
std::string PairUriFor(const std::string& path);

/// Opens a scene file of either form, for ReadContainer. Null on failure, and `error` names the
/// file and the reason. A pair that is replaced meanwhile is the old or the new one.
std::unique_ptr<ByteSource> OpenContainer(const std::string& path, std::string& error);
/// Opens the bytes of a pair whose text doesn't tell which they are: those that it still names, or
/// those that were written last. Null if there are none.
std::unique_ptr<ByteSource> OpenBytesBeside(const std::string& path, std::string& name);
/// As ReadGlb, of what OpenContainer gave; any other source is a .glb. Offsets are those of the
/// source. `content` is filled as well where only the size of a pair's bytes is wrong.
bool ReadContainer(const ByteSource& source, GlbContent& content, std::string& why);

}  // namespace host
