# ixo_floor(<folder> [RECURSE] [HIDES <regex>] [LINKS <targets>])
#
# One floor of libixocamglue: the OBJECT library ixo_<folder> of all sources in <folder>, whose objects and headers become
# part of ixocamglue. HIDES are headers that are not installed. LINKS are the floors below and what other libraries the
# floor's sources need.
function(ixo_floor folder)
  cmake_parse_arguments(PARSE_ARGV 1 floor "RECURSE" "HIDES" "LINKS")
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
  target_include_directories(ixo_${folder} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(ixo_${folder} PRIVATE ixo_warnings Threads::Threads ${floor_LINKS})

  target_sources(ixocamglue
    PRIVATE $<TARGET_OBJECTS:ixo_${folder}>
    PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${headers})
endfunction()

# ixo_part(<target> FILES <sources and headers> [LINKS <targets>])
#
# A static library above libixocamglue. LINKS are passed on to whoever links it.
function(ixo_part target)
  cmake_parse_arguments(PARSE_ARGV 1 part "" "" "FILES;LINKS")
  add_library(${target} STATIC ${part_FILES})
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_link_libraries(${target} PUBLIC ixocamglue ${part_LINKS} PRIVATE ixo_warnings)
endfunction()
