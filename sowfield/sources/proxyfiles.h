#pragma once

#include "sowfield/model/distribution.h"

namespace sowfield {

/// Whether there is such a file.
bool MoksetFileExists(const WStr& path);

/// Whether all files of Proxy_Files are there; true without any.
bool AllMoksetFilesExist(const Distribution& d);

}  // namespace sowfield
