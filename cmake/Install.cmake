# cmake --install: headers, the static and shared library, a CMake package
# (find_package(NymbrelCore) gives NymbrelCore::NymbrelCore, the shared
# library, and NymbrelCore::NymbrelCore_static) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(DIRECTORY include/NymbrelCore DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Two export sets, so that the shared library's package needs nothing but
# Threads: the static one, with the libraries it links, is loaded only where
# they are found.
install(TARGETS NymbrelCore_shared EXPORT NymbrelCoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS NymbrelCore nyb_link_deps EXPORT NymbrelCoreStaticTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
set_target_properties(NymbrelCore PROPERTIES EXPORT_NAME NymbrelCore_static)
set_target_properties(NymbrelCore_shared PROPERTIES EXPORT_NAME NymbrelCore)

set(NYB_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/NymbrelCore)
install(EXPORT NymbrelCoreTargets NAMESPACE NymbrelCore:: DESTINATION ${NYB_CMAKE_DIR})
install(EXPORT NymbrelCoreStaticTargets NAMESPACE NymbrelCore:: DESTINATION ${NYB_CMAKE_DIR})
configure_package_config_file(cmake/NymbrelCoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/NymbrelCoreConfig.cmake INSTALL_DESTINATION ${NYB_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NymbrelCoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/NymbrelCoreConfig.cmake
  ${PROJECT_BINARY_DIR}/NymbrelCoreConfigVersion.cmake DESTINATION ${NYB_CMAKE_DIR})

# The pkg-config file finds its prefix from where it lies, so an installed tree
# can be moved.
file(RELATIVE_PATH NYB_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" NYB_PC_TO_PREFIX "${NYB_PC_TO_PREFIX}")
configure_file(cmake/NymbrelCore.pc.in ${PROJECT_BINARY_DIR}/NymbrelCore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/NymbrelCore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
