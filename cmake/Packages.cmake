# Every package from outside. `scripts/setup run` installs those that are required, `scripts/setup
# test` the others too: tests and benchmarks are left out where theirs aren't there.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

find_package(embree 3 REQUIRED)
find_package(TBB REQUIRED)
find_package(PNG REQUIRED)
find_package(ZLIB REQUIRED)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(GTest QUIET)
find_package(benchmark QUIET)

# assimp's own CMake target drags in what its shared library already holds (Draco, minizip).
pkg_check_modules(assimp REQUIRED IMPORTED_TARGET assimp)
pkg_check_modules(epoxy REQUIRED IMPORTED_TARGET epoxy)

# Used as headers only: one of our sources holds the implementation. tiny_gltf.h includes
# <stb_image.h> by its bare name.
find_path(SOWFIELD_STB_DIR stb_image.h PATH_SUFFIXES stb REQUIRED)
find_path(SOWFIELD_TINYGLTF_DIR tiny_gltf.h REQUIRED)
add_library(header_packages INTERFACE)
target_include_directories(header_packages SYSTEM INTERFACE "${SOWFIELD_STB_DIR}"
                                                            "${SOWFIELD_TINYGLTF_DIR}")
