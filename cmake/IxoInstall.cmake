# The package: find_package(IxoCAMGlue) gives IxoCAMGlue::ixocamglue with the headers <ixocamglue/motion/...> and
# IxoCAMGlue::ixocontroller with <controller/...>.
include(CMakePackageConfigHelpers)

set_target_properties(ixocamglue PROPERTIES
  LINKER_LANGUAGE CXX
  VERIFY_INTERFACE_HEADER_SETS ON)
ixo_shared(ixocamglue)
target_include_directories(ixocamglue PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(ixocamglue PUBLIC cxx_std_20)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/IxoCAMGlue)
install(TARGETS ixocamglue EXPORT IxoCAMGlueTargets
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT IxoCAMGlueTargets NAMESPACE IxoCAMGlue:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/IxoCAMGlueConfig.cmake.in
  ${PROJECT_BINARY_DIR}/IxoCAMGlueConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/IxoCAMGlueConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/IxoCAMGlueConfig.cmake ${PROJECT_BINARY_DIR}/IxoCAMGlueConfigVersion.cmake
  DESTINATION ${package_dir})

# For whoever builds without CMake.
file(RELATIVE_PATH ixo_up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ixo_up "${ixo_up}")
function(ixo_install_pkgconfig name)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
ixo_install_pkgconfig(ixocamglue)

install(DIRECTORY share/ DESTINATION ${CMAKE_INSTALL_DATADIR}/ixocamglue USE_SOURCE_PERMISSIONS)
