#pragma once

#include <string>
#include <string_view>

/// Texts of the host and of scenes are wide; UTF-8 stands only in files and on terminals.
using WStr = std::wstring;

std::string ToUtf8(std::wstring_view text);

/// Bytes that aren't UTF-8 become U+FFFD.
WStr FromUtf8(std::string_view text);
