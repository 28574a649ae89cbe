# The package: find_package(IxoCAMGlue) gives IxoCAMGlue::ixocamglue with the headers <ixocamglue/motion/...> and
# IxoCAMGlue::ixocontroller with <controller/...>.
include(CMakePackageConfigHelpers)

set_target_properties(ixocamglue PROPERTIES
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
  VERIFY_INTERFACE_HEADER_SETS ON)
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

install(DIRECTORY share/ DESTINATION ${CMAKE_INSTALL_DATADIR}/ixocamglue USE_SOURCE_PERMISSIONS)
