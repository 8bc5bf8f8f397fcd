# What an installation holds: the library with its headers, the packages for CMake and pkg-config, the program and
# its catalogues. Tests/Package installs it and builds consumers against it.
include(CMakePackageConfigHelpers)

install(TARGETS SorrelFramework EXPORT SorrelFrameworkTargets
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        FILE_SET umbrella DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/SorrelFramework")
install(EXPORT SorrelFrameworkTargets NAMESPACE Sorrel:: DESTINATION "${package_folder}")
configure_package_config_file(cmake/SorrelFrameworkConfig.cmake.in
                              "${PROJECT_BINARY_DIR}/package/SorrelFrameworkConfig.cmake"
                              INSTALL_DESTINATION "${package_folder}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/SorrelFrameworkConfigVersion.cmake"
                                 COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/package/SorrelFrameworkConfig.cmake"
              "${PROJECT_BINARY_DIR}/package/SorrelFrameworkConfigVersion.cmake"
        DESTINATION "${package_folder}")

# A consumer of a static library links what the library links, so nothing is private then.
get_target_property(library_type SorrelFramework TYPE)
# sdbus-c++ is named as a library: its .pc file asks for that of libsystemd, a package that nobody else here needs.
if(library_type STREQUAL "STATIC_LIBRARY")
  set(SORREL_PC_PRIVATE "")
  set(SORREL_PC_SDBUS " -lsdbus-c++")
else()
  set(SORREL_PC_PRIVATE ".private")
  set(SORREL_PC_SDBUS "")
endif()
# Relative to the file itself, so that an installation can be moved and `cmake --install --prefix` holds.
file(RELATIVE_PATH SORREL_PC_UP "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(cmake/SorrelFramework.pc.in "${PROJECT_BINARY_DIR}/package/SorrelFramework.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/package/SorrelFramework.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

if(TARGET sorrel)
  install(TARGETS sorrel RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
  install(TARGETS sorrel_mdfind sorrel_mdls RUNTIME DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/sorrel")
  install(DIRECTORY Catalogue DESTINATION "${CMAKE_INSTALL_DATADIR}/sorrel")
endif()

# The helper: with the program, as the bundle that install-helper installs from, and by itself for packages:
# `DESTDIR=... cmake --install build --component helper` puts it where the system looks, whatever the prefix is.
if(TARGET sorrel-helper)
  set(bundle "${CMAKE_INSTALL_DATADIR}/sorrel/Catalogue/Linux")
  install(PROGRAMS "${PROJECT_BINARY_DIR}/share/sorrel/Catalogue/Linux/install-helper" DESTINATION "${bundle}")
  install(PROGRAMS "$<TARGET_FILE:sorrel-helper>" DESTINATION "${bundle}/helper")
  foreach(place IN LISTS SORREL_HELPER_PLACES)
    string(REPLACE "|" ";" place "${place}")
    list(GET place 0 file)
    list(GET place 1 target)
    cmake_path(GET target PARENT_PATH folder)
    cmake_path(GET target FILENAME name)
    if(file STREQUAL "sorrel-helper")
      install(PROGRAMS "$<TARGET_FILE:sorrel-helper>" DESTINATION "${folder}" RENAME "${name}" COMPONENT helper
              EXCLUDE_FROM_ALL)
    else()
      set(file "${PROJECT_BINARY_DIR}/share/sorrel/Catalogue/Linux/helper/${file}")
      install(FILES "${file}" DESTINATION "${bundle}/helper")
      install(FILES "${file}" DESTINATION "${folder}" RENAME "${name}" COMPONENT helper EXCLUDE_FROM_ALL)
    endif()
  endforeach()
endif()
