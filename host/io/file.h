#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace host {

/// Writes `bytes` to a temporary neighbour of `path`, syncs it, renames it into place and syncs the
/// folder, so that a reader or a crash sees the old file or the new one and never a part. A link
/// stays a link: the file that it points at is replaced. Permissions of an old file are kept. On
/// failure the old file is untouched, no neighbour is left, and `error` names the path and reason.
bool WriteFileSafely(const std::string& path, std::span<const std::byte> bytes, std::string& error);

/// Reads a whole regular file; folders, pipes and devices are refused. On failure `bytes` is
/// untouched and `error` names the path and the reason.
bool ReadFile(const std::string& path, std::vector<std::byte>& bytes, std::string& error);

/// Writes all of it, however many calls it takes; false with errno set.
bool WriteAll(int fd, std::span<const std::byte> bytes);

}  // namespace host
