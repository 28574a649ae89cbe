# ixo_floor(<name> FILES <sources and headers> [LINKS <targets>])
#
# One floor of libixocamglue: the OBJECT library ixo_<name>, whose objects and headers become part of ixocamglue. LINKS
# are the floors below and what other libraries the floor's sources need.
function(ixo_floor name)
  cmake_parse_arguments(PARSE_ARGV 1 floor "" "" "FILES;LINKS")
  if(NOT floor_FILES)
    message(STATUS "IxoCAMGlue: ${name}/ holds no sources, skipped")
    return()
  endif()
  list(TRANSFORM floor_FILES PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/" REGEX "^[^/]")
  set(headers ${floor_FILES})
  list(FILTER headers INCLUDE REGEX "\\.h$")

  add_library(ixo_${name} OBJECT ${floor_FILES})
  set_target_properties(ixo_${name} PROPERTIES LINKER_LANGUAGE CXX POSITION_INDEPENDENT_CODE ON)
  target_include_directories(ixo_${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(ixo_${name} PRIVATE ixo_warnings Threads::Threads ${floor_LINKS})

  target_sources(ixocamglue
    PRIVATE $<TARGET_OBJECTS:ixo_${name}>
    PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${headers})
endfunction()

# ixo_part(<target> FILES <sources and headers> [LINKS <targets>])
#
# A static library above libixocamglue that is not installed. LINKS are passed on to whoever links it.
function(ixo_part target)
  cmake_parse_arguments(PARSE_ARGV 1 part "" "" "FILES;LINKS")
  if(NOT part_FILES)
    message(STATUS "IxoCAMGlue: no sources for ${target}, skipped")
    return()
  endif()
  add_library(${target} STATIC ${part_FILES})
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PUBLIC ixocamglue ${part_LINKS} PRIVATE ixo_warnings)
endfunction()
