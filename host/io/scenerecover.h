#pragma once

#include <string>

#include "host/io/glb.h"

namespace host {

/// Finds the text and the bytes of a scene file whose container is damaged: cut off, or with wrong
/// lengths. The text goes from its first brace to the one that closes it, the bytes behind it to
/// the end of the file. False, with a reason, if there is no whole text.
bool FindDamagedParts(const ByteSource& source, GlbContent& content, std::string& why);

}  // namespace host
