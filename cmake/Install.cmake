# Installation of libprotorib for agents built outside this tree.
#
# What gets installed, relative to the prefix:
#   lib/libprotorib.so.X.Y.Z, its SONAME link libprotorib.so.X and the dev link libprotorib.so
#   include/protorib/<folder>/<Header>.h, so that "platform/kel/Text.h" reads the same inside and
#       outside the tree once include/protorib is on the include path
#   lib/cmake/protorib/  protoribConfig.cmake, its version file and the exported protorib::protorib
#   lib/pkgconfig/protorib.pc
#
# Both package descriptions must stay relocatable: `cmake --install build --prefix DIR` puts the
# same build anywhere (tests/install/run.sh does exactly that), so nothing here may bake the
# configure-time prefix into an installed file.

include(CMakePackageConfigHelpers)

set(PROTORIB_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/protorib)

# The headers keep their folder below the source dir; a file set checks that each one really is
# below it and carries the layout into the install step.
target_sources(protorib PUBLIC
  FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${PROTORIB_HEADERS})

install(TARGETS protorib EXPORT protoribTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/protorib)

install(EXPORT protoribTargets
  NAMESPACE protorib::
  FILE protoribTargets.cmake
  DESTINATION ${PROTORIB_CMAKE_DIR})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/protoribConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/protoribConfig.cmake
  INSTALL_DESTINATION ${PROTORIB_CMAKE_DIR})
# The SONAME carries only the major version, so a consumer may take any release of the same major.
# The version file also records the pointer size: a 64-bit consumer never picks a 32-bit install.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/protoribConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/protoribConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/protoribConfigVersion.cmake
  DESTINATION ${PROTORIB_CMAKE_DIR})

# pkg-config has no notion of a package's own location beyond ${pcfiledir}, which yields paths
# like lib/pkgconfig/../../include. Writing the .pc at install time instead lets it name the prefix
# actually installed to, including one given with `cmake --install --prefix`.
foreach(kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
    set(PROTORIB_PC_${kind} "${CMAKE_INSTALL_${kind}}")
  else()
    set(PROTORIB_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
  endif()
endforeach()
install(CODE "
  set(PROTORIB_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(PROTORIB_PC_LIBDIR [[${PROTORIB_PC_LIBDIR}]])
  set(PROTORIB_PC_INCLUDEDIR [[${PROTORIB_PC_INCLUDEDIR}]])
  set(PROTORIB_PC_VERSION [[${PROJECT_VERSION}]])
  configure_file([[${CMAKE_CURRENT_LIST_DIR}/protorib.pc.in]]
    [[${CMAKE_CURRENT_BINARY_DIR}/protorib.pc]] @ONLY)
")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/protorib.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
