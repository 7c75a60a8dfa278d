# cfm_install_library(<target> PACKAGE <name> NAMESPACE <ns> EXPORT_AS <name> [HEADERS <dir>] [REQUIRES <pkg-config>...]
#                     [PACKAGE_DEPENDS <cmake package>...])
#
# Gives a shared library its SONAME, the alias <ns>::<name> by which the tree and installed users know it, and installs it
# with its headers, a CMake package and a pkg-config file.
function(cfm_install_library target)
  cmake_parse_arguments(arg "" "PACKAGE;NAMESPACE;EXPORT_AS;HEADERS;DESCRIPTION" "REQUIRES;PACKAGE_DEPENDS" ${ARGN})
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME ${arg_EXPORT_AS})
  target_include_directories(${target} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  add_library(${arg_NAMESPACE}::${arg_EXPORT_AS} ALIAS ${target})

  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${arg_PACKAGE})
  install(TARGETS ${target} EXPORT ${arg_PACKAGE}-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
  install(EXPORT ${arg_PACKAGE}-targets NAMESPACE ${arg_NAMESPACE}:: DESTINATION ${package_dir} COMPONENT development)
  if(arg_HEADERS)
    install(DIRECTORY ${arg_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
  endif()

  set(config "include(CMakeFindDependencyMacro)\n")
  foreach(dependency IN LISTS arg_PACKAGE_DEPENDS)
    string(APPEND config "find_dependency(${dependency})\n")
  endforeach()
  string(APPEND config "include(\"\${CMAKE_CURRENT_LIST_DIR}/${arg_PACKAGE}-targets.cmake\")\n")
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${arg_PACKAGE}-config.cmake "${config}")
  write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/${arg_PACKAGE}-config-version.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${arg_PACKAGE}-config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/${arg_PACKAGE}-config-version.cmake
    DESTINATION ${package_dir} COMPONENT development)

  list(JOIN arg_REQUIRES " " requires)
  get_target_property(output ${target} OUTPUT_NAME)
  if(NOT output)
    set(output ${target})
  endif()
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${arg_PACKAGE}.pc
"libdir=${CMAKE_INSTALL_FULL_LIBDIR}
includedir=${CMAKE_INSTALL_FULL_INCLUDEDIR}

Name: ${arg_PACKAGE}
Description: ${arg_DESCRIPTION}
Version: ${PROJECT_VERSION}
Requires: ${requires}
Libs: -L\${libdir} -l${output}
Cflags: -I\${includedir}
")
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${arg_PACKAGE}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()
