# sowfield_sources(OUT FOLDER...) lists all *.cpp below the folders; a missing folder adds nothing.
function(sowfield_sources out)
  set(patterns)
  foreach(folder IN LISTS ARGN)
    list(APPEND patterns "${folder}/*.cpp")
  endforeach()
  file(GLOB_RECURSE found CONFIGURE_DEPENDS ${patterns})
  set(${out} ${found} PARENT_SCOPE)
endfunction()
