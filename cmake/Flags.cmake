# Flags that every target shares.

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

# Asserts run in debug and sanitizer builds; a release build gives the documented default instead.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g -D_GLIBCXX_ASSERTIONS")

# Stored values have the same bits on any machine: no contraction, no -march, no -ffast-math.
# -fno-math-errno changes no result.
add_compile_options(-ffp-contract=off -fno-math-errno -Wall -Wextra -Wpedantic -Wshadow -Werror)

# GCC 12 packs two neighbouring roundings from double to float and then, where the floats are taken
# as doubles again, drops both: values come out unrounded. Loops are not touched by it.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-fno-tree-slp-vectorize)
endif()
include_directories("${PROJECT_SOURCE_DIR}")

if((SOWFIELD_SANITIZE AND SOWFIELD_FUZZ) OR (SOWFIELD_THREADS AND (SOWFIELD_SANITIZE OR SOWFIELD_FUZZ)))
  message(FATAL_ERROR "SOWFIELD_SANITIZE, SOWFIELD_THREADS and SOWFIELD_FUZZ each bring their own "
                      "sanitizers: set one.")
endif()

if(SOWFIELD_SANITIZE)
  set(sanitizers address,undefined)
elseif(SOWFIELD_THREADS)
  set(sanitizers thread)
  add_compile_definitions(SOWFIELD_STD_THREADS)
elseif(SOWFIELD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "SOWFIELD_FUZZ needs Clang, the compiler is ${CMAKE_CXX_COMPILER_ID}.")
  endif()
  # fuzzer-no-link adds the coverage counters everywhere; fuzz/ links the engine itself.
  set(sanitizers address,undefined,fuzzer-no-link)
endif()

if(DEFINED sanitizers)
  add_compile_options(-fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer
                      -D_GLIBCXX_ASSERTIONS)
  add_link_options(-fsanitize=${sanitizers})
endif()

# Clang leaves the sanitizer runtime to the executable, so its shared libraries have open symbols.
if(NOT DEFINED sanitizers OR CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  string(APPEND CMAKE_SHARED_LINKER_FLAGS " -Wl,-z,defs")
endif()

find_program(SOWFIELD_MOLD mold)
if(SOWFIELD_MOLD)
  add_link_options(-fuse-ld=mold)
endif()
