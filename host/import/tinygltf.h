#pragma once

// The one way to include tinygltf: it parses the JSON, and touches no file and no image.
#define TINYGLTF_NO_FS
#define TINYGLTF_NO_STB_IMAGE
#define TINYGLTF_NO_STB_IMAGE_WRITE
#define TINYGLTF_NO_EXTERNAL_IMAGE
// Its writers use streams without including them.
#include <fstream>

#include <tiny_gltf.h>
