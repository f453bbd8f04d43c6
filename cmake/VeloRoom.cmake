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
endif()
if(VELO_SANITIZE)
  target_compile_options(velo-flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velo-flags INTERFACE -fsanitize=address,undefined)
endif()

function(velo_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} OBJECT ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC velo-flags fmt::fmt ${ROOM_DEPENDS})
  set_property(GLOBAL APPEND PROPERTY VELO_ROOMS ${name})
endfunction()

function(velo_shared_platform)
  get_property(rooms GLOBAL PROPERTY VELO_ROOMS)
  set(objects)
  foreach(room ${rooms})
    list(APPEND objects $<TARGET_OBJECTS:${room}>)
  endforeach()
  add_library(velo-platform SHARED ${objects})
  target_include_directories(velo-platform PUBLIC ${CMAKE_SOURCE_DIR}/platform ${CMAKE_SOURCE_DIR})
  target_link_libraries(velo-platform PUBLIC velo-flags fmt::fmt PRIVATE ${CMAKE_DL_LIBS})
endfunction()
