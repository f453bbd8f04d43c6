# cmake -DTEXT=FILE -DHEADER=FILE -P write_interface_version.cmake: writes the header, when that changes it, with a
# digest of the preprocessed text.
file(READ ${TEXT} text)
string(REGEX REPLACE "[ \t\r\n]+" " " text "${text}")
string(SHA256 digest "${text}")
string(SUBSTRING ${digest} 0 16 digest)
file(CONFIGURE OUTPUT ${HEADER} CONTENT "// Made by the build; see cmake/InterfaceVersion.cmake.
#pragma once
#define VELO_INTERFACE_VERSION \"${digest}\"
" @ONLY)
