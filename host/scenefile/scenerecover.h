#pragma once

#include <string>
#include <string_view>

#include "host/gltf/glb.h"

namespace host {

/// Where the text that belongs at `at` begins: at its first brace, before which there may be a byte
/// order mark and a few blanks. npos if there is none.
size_t FindText(const ByteSource& source, size_t at);
/// The text from the brace that it begins with to the one that closes it; all if none does.
std::string_view WholeText(std::string_view text);

/// Whether lists and objects lie deeper in one another than kDeepestText. Parsing copes with any
/// depth; what walks the tree afterwards doesn't.
bool LiesTooDeep(std::string_view text);

/// Finds the text and the bytes of a scene file whose container is damaged: cut off, or with wrong
/// lengths. The text goes from its first brace to the one that closes it, the bytes behind it, and
/// behind the head of their chunk, to the end of the file. False, with a reason, if there is no
/// whole text.
bool FindDamagedParts(const ByteSource& source, GlbContent& content, std::string& why);

}  // namespace host
