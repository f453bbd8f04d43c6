# velo_interface_version(NAME ROOT folder INTO folder [DEPENDS file]): writes INTO/velo-interface-version.h with the
# interface version that plugins of the source tree at ROOT have in this build: a digest over all headers that a
# plugin may include, preprocessed, and over what else decides how their types lie in memory. Comments, line
# numbers and the place of the tree do not count. What includes the header depends on the target NAME. DEPENDS: the
# file whose making makes the tree.
#
# It is compiled like every room, so with the flags of this build and again when a header has changed; the
# "object" of NAME-text is the preprocessed text, that of NAME-layout is assembly that tells sizes.
function(velo_interface_version name)
  cmake_parse_arguments(I "" "ROOT;INTO;DEPENDS" "" ${ARGN})
  # The names are those of this tree: those of a copy are the same.
  set(VELO_PUBLIC_HEADERS)
  foreach(folder platform Acl Classify)
    file(GLOB_RECURSE headers RELATIVE ${CMAKE_SOURCE_DIR} CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.h)
    list(SORT headers)
    foreach(header ${headers})
      string(REGEX REPLACE "^platform/" "" header ${header})
      string(APPEND VELO_PUBLIC_HEADERS "#include <${header}>\n")
    endforeach()
  endforeach()
  configure_file(${CMAKE_SOURCE_DIR}/cmake/interface.cpp.in ${I_INTO}/interface.cpp @ONLY)
  set_source_files_properties(${I_INTO}/interface.cpp PROPERTIES OBJECT_DEPENDS "${I_DEPENDS}")

  add_library(${name}-text OBJECT ${I_INTO}/interface.cpp)
  target_include_directories(${name}-text PRIVATE ${I_ROOT}/platform ${I_ROOT})
  target_link_libraries(${name}-text PRIVATE velo-flags fmt::fmt)
  # Optimised the same everywhere, for the system's headers say something else when it is off.
  target_compile_options(${name}-text PRIVATE -E -P -w -O1 -D__FILE__=0 -D__LINE__=0)

  configure_file(${CMAKE_SOURCE_DIR}/cmake/layout.cpp.in ${I_INTO}/layout.cpp COPYONLY)
  add_library(${name}-layout OBJECT ${I_INTO}/layout.cpp)
  target_link_libraries(${name}-layout PRIVATE velo-flags)
  # Not put through the assembler, by either compiler.
  target_compile_options(${name}-layout PRIVATE -S -w -fno-lto $<$<CXX_COMPILER_ID:Clang>:-fno-integrated-as>)

  # A unity file does not depend on what its members depend on.
  set_target_properties(${name}-text ${name}-layout PROPERTIES UNITY_BUILD OFF)

  set(script ${CMAKE_SOURCE_DIR}/cmake/write_interface_version.cmake)
  set(header ${I_INTO}/velo-interface-version.h)
  add_custom_command(OUTPUT ${header}
    COMMAND ${CMAKE_COMMAND} -DTEXT=$<TARGET_OBJECTS:${name}-text> -DLAYOUT=$<TARGET_OBJECTS:${name}-layout> -DHEADER=${header} -P ${script}
    DEPENDS $<TARGET_OBJECTS:${name}-text> $<TARGET_OBJECTS:${name}-layout> ${script}
    COMMENT "Interface version in ${header}"
    VERBATIM)
  add_custom_target(${name} DEPENDS ${header})
endfunction()
