# The contents of an installation: the library with its headers, the packages for CMake and pkg-config, the program
# and its catalogues. Tests/Package installs it and builds consumers against it.
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
# sdbus-c++ is named as a library: its .pc file requires that of libsystemd, a package that is needed for nothing else
# here.
if(library_type STREQUAL "STATIC_LIBRARY")
  set(SORREL_PC_PRIVATE "")
  set(SORREL_PC_SDBUS " -lsdbus-c++")
else()
  set(SORREL_PC_PRIVATE ".private")
  set(SORREL_PC_SDBUS "")
endif()
# Relative to the file itself, so that an installation can be moved and `cmake --install --prefix` works.
file(RELATIVE_PATH SORREL_PC_UP "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(cmake/SorrelFramework.pc.in "${PROJECT_BINARY_DIR}/package/SorrelFramework.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/package/SorrelFramework.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

if(TARGET sorrel)
  install(TARGETS sorrel RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
  install(TARGETS sorrel_mdfind sorrel_mdls RUNTIME DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/sorrel")
  install(DIRECTORY Catalogue DESTINATION "${CMAKE_INSTALL_DATADIR}/sorrel")
endif()

# The helper, never by default. As a package does it, where the system looks, whatever the prefix is:
# `DESTDIR=... cmake --install build --component helper`. As what an application brings along, with the install-helper
# that puts it there: `cmake --install build --component helper-bundle`.
if(TARGET sorrel-helper)
  set(built "${PROJECT_BINARY_DIR}/libexec/sorrel")
  set(bundle "${CMAKE_INSTALL_LIBEXECDIR}/sorrel")
  install(PROGRAMS "${built}/install-helper" DESTINATION "${bundle}" COMPONENT helper-bundle EXCLUDE_FROM_ALL)
  foreach(place IN LISTS SORREL_HELPER_PLACES)
    string(REPLACE "|" ";" place "${place}")
    list(GET place 0 file)
    list(GET place 1 target)
    cmake_path(GET target PARENT_PATH folder)
    cmake_path(GET target FILENAME name)
    set(kind FILES)
    if(file STREQUAL "sorrel-helper")
      set(kind PROGRAMS)
    endif()
    install(${kind} "${built}/helper/${file}" DESTINATION "${bundle}/helper" COMPONENT helper-bundle EXCLUDE_FROM_ALL)
    install(${kind} "${built}/helper/${file}" DESTINATION "${folder}" RENAME "${name}" COMPONENT helper EXCLUDE_FROM_ALL)
  endforeach()
endif()
