# velo_room(NAME SOURCES a.cpp ... DEPENDS Room ...): one folder, one object library. The DEPENDS lists are
# what scripts/check_layering.py holds the #include lines against.
# velo_shared_platform(): every room so far, linked once into libvelo-platform.so, so that a process has one
# loader, one scheduler and one type registry however many plugins it opens.

add_library(velo-flags INTERFACE)
target_compile_options(velo-flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual)
if(VELO_WERROR)
  target_compile_options(velo-flags INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A unique symbol pins its library in the process for good; plugins must be closable.
  target_compile_options(velo-flags INTERFACE -fno-gnu-unique)
  # Warns of searches in texts of unknown length, out of the standard library's own headers.
  target_compile_options(velo-flags INTERFACE -Wno-stringop-overread)
endif()
if(VELO_SANITIZE)
  # Tests are instrumented for addresses only: that what they test behaves as defined is checked where it is
  # compiled, and checking it in the tests once more takes a third of the time to build them. Null is what the
  # address sanitizer stops at anyway, and asking for it everywhere takes a quarter.
  set(undefined $<$<NOT:$<BOOL:$<TARGET_PROPERTY:VELO_TEST_CODE>>>:$<COMMA>undefined>)
  target_compile_options(velo-flags INTERFACE -fsanitize=address${undefined} -fno-sanitize=null -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velo-flags INTERFACE -fsanitize=address,undefined)
endif()
if(VELO_SANITIZE_THREADS)
  target_compile_options(velo-flags INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(velo-flags INTERFACE -fsanitize=thread)
endif()
if(VELO_FUZZ)
  # Tells the fuzzer which ways an input took through the rooms; not through a library that is closed while the
  # fuzzer runs, for it goes on to look there.
  target_compile_options(velo-flags INTERFACE -fsanitize=fuzzer-no-link)
  foreach(kind inline-8bit-counters pc-table indirect-calls trace-cmp)
    target_compile_options(velo-flags INTERFACE $<$<BOOL:$<TARGET_PROPERTY:VELO_CLOSED_AT_RUN_TIME>>:-fno-sanitize-coverage=${kind}>)
  endforeach()
endif()

# The large headers that nearly every file includes are parsed once.
set(velo_common_headers <fmt/format.h> <algorithm> <functional> <map> <memory> <optional> <set> <string> <variant> <vector>)

# velo_common_headers(NAME [WITH pch LIBRARIES ... HEADERS ...])
function(velo_common_headers name)
  if(NOT TARGET velo-pch)
    add_library(velo-pch OBJECT ${CMAKE_SOURCE_DIR}/cmake/pch.cpp)
    target_link_libraries(velo-pch PUBLIC velo-flags fmt::fmt)
    target_precompile_headers(velo-pch PRIVATE ${velo_common_headers})
  endif()
  target_precompile_headers(${name} REUSE_FROM velo-pch)
endfunction()

function(velo_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} OBJECT ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC velo-flags fmt::fmt ${ROOM_DEPENDS})
  set_property(GLOBAL APPEND PROPERTY VELO_ROOMS ${name})
  velo_common_headers(${name})
endfunction()

function(velo_shared_platform)
  get_property(rooms GLOBAL PROPERTY VELO_ROOMS)
  set(objects)
  foreach(room ${rooms})
    list(APPEND objects $<TARGET_OBJECTS:${room}>)
  endforeach()
  add_library(velo-platform SHARED ${objects})
  target_include_directories(velo-platform PUBLIC ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR}
    ${CMAKE_BINARY_DIR}/interface)
  target_link_libraries(velo-platform PUBLIC velo-flags fmt::fmt PRIVATE ${CMAKE_DL_LIBS})
endfunction()
