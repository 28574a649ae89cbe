# Precompiled headers only save time: every source includes what it uses, and -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON
# builds without. One set for the library's floors and the machines, one for what is above them.
set(ixo_common_headers <algorithm> <array> <atomic> <charconv> <cmath> <cstdint> <deque> <filesystem> <functional> <map>
  <memory> <optional> <span> <string> <string_view> <utility> <vector>)

# ixo_unite(<target> <n>): its sources are compiled as <n> of about the same length, which parses and instantiates what
# they share once. Names in anonymous namespaces differ therefore within a target. Without it each source stands for
# itself in compile_commands.json, as tools want them.
option(IXO_UNITE "Compile several sources as one, which saves time" ON)
function(ixo_unite target n)
  if(NOT IXO_UNITE)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  set(length 0)
  foreach(source IN LISTS sources)
    cmake_path(ABSOLUTE_PATH source OUTPUT_VARIABLE file)
    file(SIZE ${file} size)
    list(APPEND starts ${length})
    math(EXPR length "${length} + ${size}")
  endforeach()
  foreach(source start IN ZIP_LISTS sources starts)
    math(EXPR group "${start} * ${n} / ${length}")
    set_source_files_properties(${source} TARGET_DIRECTORY ${target} PROPERTIES UNITY_GROUP ${group})
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()

# ixo_lightly(<target>...): optimised less, which a third of the compiler's time goes into. For what waits for people,
# files and lines; what is fast stands in the library, the simulated machine and the controller's passes.
function(ixo_lightly)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
  endforeach()
endfunction()

# ixo_floor(<folder> <n> [RECURSE] [HIDES <regex>] [LINKS <targets>])
#
# One floor of libixocamglue: the OBJECT library ixo_<folder> of all sources in <folder>, compiled as <n>, whose objects
# and headers become part of ixocamglue. HIDES are headers that are not installed. LINKS are the floors below and what
# other libraries the floor's sources need.
function(ixo_floor folder n)
  cmake_parse_arguments(PARSE_ARGV 2 floor "RECURSE" "HIDES" "LINKS")
  set(glob GLOB)
  if(floor_RECURSE)
    set(glob GLOB_RECURSE)
  endif()
  file(${glob} files CONFIGURE_DEPENDS ${folder}/*.h ${folder}/*.cpp)
  set(headers ${files})
  list(FILTER headers INCLUDE REGEX "\\.h$")
  if(floor_HIDES)
    list(FILTER headers EXCLUDE REGEX "${floor_HIDES}")
  endif()

  add_library(ixo_${folder} OBJECT ${files})
  set_target_properties(ixo_${folder} PROPERTIES LINKER_LANGUAGE CXX POSITION_INDEPENDENT_CODE ON)
  ixo_unite(ixo_${folder} ${n})
  target_include_directories(ixo_${folder} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(ixo_${folder} PRIVATE ixo_warnings Threads::Threads ${floor_LINKS})
  if(folder STREQUAL "support")
    target_precompile_headers(ixo_${folder} PRIVATE ${ixo_common_headers})
  else()
    target_precompile_headers(ixo_${folder} REUSE_FROM ixo_support)
  endif()

  target_sources(ixocamglue
    PRIVATE $<TARGET_OBJECTS:ixo_${folder}>
    PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${headers})
endfunction()

# ixo_shared(<target>)
#
# What a library of the house is where BUILD_SHARED_LIBS makes it a shared one: its name tells which programs it serves,
# and it exports what cmake/<target>.map names. One number for both: they change together.
set(ixo_abi 1)
function(ixo_shared target)
  set_target_properties(${target} PROPERTIES
    VERSION ${ixo_abi}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH} SOVERSION ${ixo_abi} DEFINE_SYMBOL "")
  if(BUILD_SHARED_LIBS)
    set(map ${PROJECT_SOURCE_DIR}/cmake/${target}.map)
    target_link_options(${target} PRIVATE LINKER:--version-script=${map})
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
  endif()
endfunction()

# ixo_part(<target> [SHARED] FILES <sources and headers> [LINKS <targets>])
#
# A library above libixocamglue, a static one but for SHARED where BUILD_SHARED_LIBS says so. LINKS are passed on to
# whoever links it.
function(ixo_part target)
  cmake_parse_arguments(PARSE_ARGV 1 part "SHARED" "" "FILES;LINKS")
  if(part_SHARED)
    add_library(${target} ${part_FILES})
    ixo_shared(${target})
  else()
    add_library(${target} STATIC ${part_FILES})
  endif()
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_link_libraries(${target} PUBLIC ixocamglue ${part_LINKS} PRIVATE $<BUILD_INTERFACE:ixo_warnings>)
endfunction()

# ixo_install_part(<target> <folder> [<header>...])
#
# Installs it, and these headers of it, else all, below include/<folder>. Others link IxoCAMGlue::<target>, or its
# EXPORT_NAME.
function(ixo_install_part target folder)
  set(headers ${ARGN})
  if(NOT headers)
    get_target_property(headers ${target} SOURCES)
    list(FILTER headers INCLUDE REGEX "\\.h$")
  endif()
  target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${headers})
  cmake_path(APPEND CMAKE_INSTALL_INCLUDEDIR ${folder} OUTPUT_VARIABLE include)
  target_include_directories(${target} PUBLIC $<INSTALL_INTERFACE:${include}>)
  add_library(IxoCAMGlue::${target} ALIAS ${target})
  install(TARGETS ${target} EXPORT IxoCAMGlueTargets FILE_SET HEADERS DESTINATION ${include})
endfunction()
