# cmake -DTEXT=FILE -DLAYOUT=FILE -DHEADER=FILE -P write_interface_version.cmake: writes the header, when that changes
# it, with a digest of the preprocessed text and of the sizes in the assembly. Optimised or not, those are the same,
# but in another order or twice.
file(READ ${TEXT} text)
file(READ ${LAYOUT} assembly)
string(REGEX MATCHALL "velo-layout [0-9 ]+" sizes "${assembly}")
if(NOT sizes)
  message(FATAL_ERROR "${LAYOUT} tells no sizes")
endif()
list(SORT sizes)
list(REMOVE_DUPLICATES sizes)
string(APPEND text " ${sizes}")
string(REGEX REPLACE "[ \t\r\n]+" " " text "${text}")
string(SHA256 digest "${text}")
string(SUBSTRING ${digest} 0 16 digest)
file(CONFIGURE OUTPUT ${HEADER} CONTENT "// Made by the build; see cmake/InterfaceVersion.cmake.
#pragma once
#define VELO_INTERFACE_VERSION \"${digest}\"
" @ONLY)
