# velo_room(NAME SOURCES a.cpp ... DEPENDS Room ... [LIBRARIES ...]): one folder, one object library; a room without
# SOURCES has headers only. scripts/check_layering.py compares the lists of DEPENDS and LIBRARIES (of foreign ones)
# with the #include lines.
# velo_shared_platform(): every room so far, linked once into libvelo-platform.so, so that a process has one
# loader, one scheduler and one type registry however many plugins it opens.
# velo_rooms_together(NAME folder ...): the rooms in these folders, which are then compiled as one file where all files
# of a target are: what they have in common takes half of the time to compile them. Who links to one of them links to NAME.
# velo_program_rooms(NAME): every room since then, as a library for programs.
# velo_seldom_run(): under sanitizers the targets below this folder are compiled without optimisation, which takes a
# third of the time; what every packet goes through would take far longer to run then.
# velo_for_every_packet(NAME): a room that every packet goes through. Its functions may call each other directly and become
# part of each other, as those of programs may: nobody puts others in their places at run time.
# velo_at_leisure(LEVEL NAME ...): targets that serve people and not packets; optimised less (-O1, or -Og where no text is
# large), and without the places of their lines, they take two thirds of the time to compile. Under sanitizers nobody
# asks in them whether an address is aligned: what goes over octets as they come from a wire is in other rooms.

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
  # All files of a target as one take a gigabyte; to search for garbage before that is a sixth of the time. Half of the
  # machine's memory is enough for all processors at work.
  cmake_host_system_information(RESULT velo_memory QUERY TOTAL_PHYSICAL_MEMORY)
  cmake_host_system_information(RESULT velo_processors QUERY NUMBER_OF_LOGICAL_CORES)
  math(EXPR velo_heap "${velo_memory} * 1024 / 2 / ${velo_processors}")
  if(velo_heap GREATER 1048576)
    set(velo_heap 1048576)
  endif()
  if(velo_heap GREATER 131072)
    target_compile_options(velo-flags INTERFACE "SHELL:--param ggc-min-heapsize=${velo_heap}")
  endif()
endif()
# What tests themselves do is told by their assertions; their places in the program are a tenth of the time to compile.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" OR VELO_SANITIZE)
  target_compile_options(velo-flags INTERFACE $<$<BOOL:$<TARGET_PROPERTY:VELO_TEST_CODE>>:-g0>)
endif()
# Where there is a quicker linker than the system's.
find_program(VELO_LLD ld.lld)
if(VELO_LLD)
  target_link_options(velo-flags INTERFACE -fuse-ld=lld)
endif()
# False alarms of g++ 12 in instrumented code; the release build warns.
if((VELO_SANITIZE OR VELO_SANITIZE_THREADS) AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(velo-flags INTERFACE -Wno-maybe-uninitialized)
endif()
if(VELO_SANITIZE)
  # Tests are instrumented for addresses only: that what they test behaves as defined is checked where it is
  # compiled, and checking it in the tests once more takes a third of the time to build them. Null and
  # the end of an object are what the address sanitizer stops at anyway, and asking for them everywhere takes a third.
  # That a function is called as what it is, the compiler has seen to but for what comes out of a plugin's library.
  # What is left out stands behind what is asked for: the last word counts.
  set(undefined $<$<NOT:$<BOOL:$<TARGET_PROPERTY:VELO_TEST_CODE>>>:$<COMMA>undefined>)
  # Benches are only compiled, for the warnings, and the templates of the JSON library are its own.
  set(watched $<NOT:$<BOOL:$<TARGET_PROPERTY:VELO_UNWATCHED>>>)
  target_compile_options(velo-flags INTERFACE $<${watched}:-fsanitize=address${undefined}> -fno-sanitize=null,object-size$<$<CXX_COMPILER_ID:Clang>:$<COMMA>function>$<$<BOOL:$<TARGET_PROPERTY:VELO_AT_LEISURE>>:$<COMMA>alignment> -fno-sanitize-recover=all -fno-omit-frame-pointer)
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

# velo_precompiled(NAME HEADERS ... [LIBRARIES ...]): what targets share with velo_common_headers(TARGET) below a folder
# that says set(VELO_COMMON_HEADERS NAME). LIBRARIES: what is linked to them besides, for what the headers only declare.
function(velo_precompiled name)
  cmake_parse_arguments(P "" "" "HEADERS;LIBRARIES" ${ARGN})
  add_library(${name} OBJECT ${CMAKE_SOURCE_DIR}/cmake/pch.cpp)
  set_target_properties(${name} PROPERTIES VELO_LIBRARIES "${P_LIBRARIES}")
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC velo-flags fmt::fmt)
  target_precompile_headers(${name} PRIVATE ${P_HEADERS})
endfunction()
velo_precompiled(velo-pch HEADERS ${velo_common_headers})
set(VELO_COMMON_HEADERS velo-pch)

function(velo_common_headers name)
  if(VELO_COMMON_HEADERS)
    velo_reuse_headers(${name} ${VELO_COMMON_HEADERS})
  endif()
endfunction()

function(velo_reuse_headers name from)
  target_precompile_headers(${name} REUSE_FROM ${from})
  get_target_property(libraries ${from} VELO_LIBRARIES)
  if(libraries)
    target_link_libraries(${name} PUBLIC ${libraries})
  endif()
endfunction()

function(velo_for_every_packet name)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${name} PRIVATE -fno-semantic-interposition)  # what clang does anyway
  endif()
endfunction()

function(velo_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;DEPENDS;LIBRARIES" ${ARGN})
  if(NOT ROOM_SOURCES)
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR})
    target_link_libraries(${name} INTERFACE ${ROOM_DEPENDS})
    return()
  endif()
  if(VELO_TOGETHER)
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${ROOM_DEPENDS} ${ROOM_LIBRARIES})
    list(TRANSFORM ROOM_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
    target_sources(${VELO_TOGETHER} PRIVATE ${ROOM_SOURCES})
    target_link_libraries(${VELO_TOGETHER} PUBLIC ${name})
    return()
  endif()
  add_library(${name} OBJECT ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC velo-flags fmt::fmt ${ROOM_DEPENDS} ${ROOM_LIBRARIES})
  set_property(GLOBAL APPEND PROPERTY VELO_ROOMS ${name})
  velo_common_headers(${name})
endfunction()

function(velo_rooms_together name)
  add_library(${name} OBJECT)
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC velo-flags fmt::fmt)
  set_property(GLOBAL APPEND PROPERTY VELO_ROOMS ${name})
  velo_common_headers(${name})
  set(VELO_TOGETHER ${name})
  foreach(folder ${ARGN})
    add_subdirectory(${folder})
  endforeach()
endfunction()

# Rooms that are in no library yet.
function(velo_take_rooms result)
  get_property(rooms GLOBAL PROPERTY VELO_ROOMS)
  set_property(GLOBAL PROPERTY VELO_ROOMS)
  set(${result} ${rooms} PARENT_SCOPE)
endfunction()

function(velo_shared_platform)
  velo_take_rooms(rooms)
  list(TRANSFORM rooms REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
  add_library(velo-platform SHARED ${objects})
  target_include_directories(velo-platform PUBLIC ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR}
    ${CMAKE_BINARY_DIR}/interface)
  target_link_libraries(velo-platform PUBLIC velo-flags fmt::fmt PRIVATE ${CMAKE_DL_LIBS})
endfunction()

function(velo_program_rooms name)
  velo_take_rooms(rooms)
  add_library(${name} STATIC)
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  # The objects of the rooms go into the library; what they need besides goes to its users.
  target_link_libraries(${name} PUBLIC ${rooms} velo-platform)
endfunction()

macro(velo_seldom_run)
  if((VELO_SANITIZE OR VELO_SANITIZE_THREADS) AND NOT VELO_FUZZ)
    add_compile_options(-O0)
    set(VELO_COMMON_HEADERS)  # which are parsed for other options
  endif()
endmacro()

function(velo_at_leisure level)
  foreach(name ${ARGN})
    set_target_properties(${name} PROPERTIES VELO_AT_LEISURE ON)
    if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" AND NOT VELO_SANITIZE_THREADS)
      target_compile_options(${name} PRIVATE ${level} -g0)
    endif()
  endforeach()
endfunction()
