# velo_describe(RESULT): the version by git: 0.2.0 at the tag v0.2.0, 0.2.0+5.g1a2b3c4 five commits behind it, and
# 0.1.0-dev.812+g1a2b3c4 in a history of 812 commits without a tag, where 0.1.0 is still to come. Without git what the file
# `VERSION.txt` says (scripts/package.sh; a file `version` would be taken for the header <version>), or that of the project.
# -DVELO_VERSION=... sets another one.
# velo_version_header(TARGET): TARGET makes version/velo-version.h at each build, and touches it when it changes.
# As a script (cmake [-DHEADER=FILE] -P VeloVersion.cmake) it writes that header, or prints the version.
set(VELO_VERSION "" CACHE STRING "The version that the program tells; empty: by git")
get_filename_component(velo_sources ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)

function(velo_git result)
  execute_process(COMMAND git -C ${velo_sources} ${ARGN} OUTPUT_VARIABLE told OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET
    RESULT_VARIABLE failed)
  if(failed)
    set(told "")
  endif()
  set(${result} "${told}" PARENT_SCOPE)
endfunction()

function(velo_describe result)
  file(STRINGS ${velo_sources}/CMakeLists.txt project REGEX "^project\\(velo VERSION")
  string(REGEX MATCH "[0-9.]+" version "${project}")
  if(VELO_VERSION)
    set(version ${VELO_VERSION})
  elseif(EXISTS ${velo_sources}/.git)
    velo_git(described describe --tags --match "v[0-9]*")
    velo_git(commit rev-parse --short HEAD)
    velo_git(commits rev-list --count HEAD)
    if(described MATCHES "^v([0-9.]+)(-([0-9]+)-(g[0-9a-f]+))?$")
      set(version ${CMAKE_MATCH_1})
      if(CMAKE_MATCH_2)
        string(APPEND version "+${CMAKE_MATCH_3}.${CMAKE_MATCH_4}")
      endif()
    elseif(commit)
      string(APPEND version "-dev.${commits}+g${commit}")
    endif()
  elseif(EXISTS ${velo_sources}/VERSION.txt)
    file(STRINGS ${velo_sources}/VERSION.txt version LIMIT_COUNT 1)
  endif()
  set(${result} ${version} PARENT_SCOPE)
endfunction()

function(velo_write_version_header file version)
  file(CONFIGURE OUTPUT ${file} CONTENT "// Made by the build; see cmake/VeloVersion.cmake.
#pragma once
#define VELO_VERSION \"${version}\"
" @ONLY)
endfunction()

function(velo_version_header target)
  set(header ${CMAKE_BINARY_DIR}/version/velo-version.h)
  add_custom_target(${target}
    COMMAND ${CMAKE_COMMAND} -DHEADER=${header} -DVELO_VERSION=${VELO_VERSION}
      -P ${CMAKE_SOURCE_DIR}/cmake/VeloVersion.cmake
    BYPRODUCTS ${header}
    COMMENT "Version"
    VERBATIM)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  velo_describe(version)
  if(HEADER)
    velo_write_version_header(${HEADER} ${version})
  else()
    execute_process(COMMAND ${CMAKE_COMMAND} -E echo ${version})
  endif()
endif()
