# What `cmake --install` puts in place: the headers, the library, a pkg-config file and a CMake package; on a workstation
# also the stand-ins for the switch's two libraries, the sandbox server, the tools and the test kit.
include(CMakePackageConfigHelpers)

# A tree that stands on the test doubles, as the cross and fuzz builds do, has nothing to install.
if(NOT BRIDGE_WORKSTATION AND NOT BRIDGE_QV_THREAD_LIBRARY)
  return()
endif()

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/bridge_client")
set(installed bridge_client bridge_client_static bridge_host bridge_host_static)
set(static_libraries "-lqv_syslog") # what a daemon without shared libraries links, besides those of a shared one
set(python_dir "${CMAKE_INSTALL_DATADIR}/bridge_client/python")
install(DIRECTORY include/bridge TYPE INCLUDE)

# Manual pages, one an operation and one a header, from the headers' comments.
find_program(BRIDGE_AWK awk REQUIRED)
file(GLOB manual_headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/include/bridge/*.h")
list(FILTER manual_headers EXCLUDE REGEX "/bridge\\.h$")
set(manual_dir "${CMAKE_CURRENT_BINARY_DIR}/man3")
add_custom_command(
  OUTPUT "${manual_dir}/made" VERBATIM
  COMMAND "${CMAKE_COMMAND}" -E rm -rf "${manual_dir}"
  COMMAND "${CMAKE_COMMAND}" -E make_directory "${manual_dir}"
  COMMAND "${BRIDGE_AWK}" -v "into=${manual_dir}" -v "version=${PROJECT_VERSION}" -f
          "${PROJECT_SOURCE_DIR}/docs/man.awk" ${manual_headers}
  COMMAND "${CMAKE_COMMAND}" -E touch "${manual_dir}/made"
  DEPENDS ${manual_headers} "${PROJECT_SOURCE_DIR}/docs/man.awk")
add_custom_target(manual ALL DEPENDS "${manual_dir}/made")
install(DIRECTORY "${manual_dir}/" DESTINATION "${CMAKE_INSTALL_MANDIR}/man3" FILES_MATCHING PATTERN "*.3")
if(BRIDGE_WORKSTATION)
  list(APPEND installed qv-thread qv_syslog)
  install(TARGETS qv-thread_static qv_syslog_static)
  string(APPEND static_libraries " -levent_core") # the loop's stand-in is on it
  install(DIRECTORY platform/include/ TYPE INCLUDE)
  set(programs bridge-sandbox)
  set(examples port_watch mac_table vlan_guard vlan_follow) # the daemons of the scenarios
  if(BRIDGE_TOOLS)
    list(APPEND programs bridge-inspect bridge-monitor bridge-replay bridge-tap)
    install(FILES tools/dissector/bridge.lua DESTINATION "${CMAKE_INSTALL_DATADIR}/bridge_client")
  endif()
  install(TARGETS ${programs} bridge_testkit EXPORT bridge_client)
  foreach(program IN LISTS programs) # bash looks for a file of the command's name
    install(FILES completion/bridge.bash DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
            RENAME ${program})
  endforeach()
  install(TARGETS ef_bridge_sim)
  install(TARGETS ${examples} DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/bridge_client")
  install(DIRECTORY sandbox/scenarios DESTINATION "${CMAKE_INSTALL_DATADIR}/bridge_client")
  install(DIRECTORY kit/include/bridge TYPE INCLUDE)
  install(DIRECTORY kit/python/ DESTINATION "${python_dir}" FILES_MATCHING PATTERN "*.py")
  # Found side by side wherever they are installed; a switch has its own way to find libraries.
  set_target_properties(${installed} PROPERTIES INSTALL_RPATH "$ORIGIN")
  set_target_properties(${programs} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  set_target_properties(${examples} PROPERTIES INSTALL_RPATH "$ORIGIN/../../${CMAKE_INSTALL_LIBDIR}")
endif()
install(TARGETS ${installed} EXPORT bridge_client)
install(EXPORT bridge_client NAMESPACE bridge:: DESTINATION "${package_dir}" FILE bridge_client-targets.cmake)

configure_package_config_file(cmake/bridge_client-config.cmake.in bridge_client-config.cmake
                              INSTALL_DESTINATION "${package_dir}" PATH_VARS python_dir)
write_basic_package_version_file(bridge_client-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/bridge_client-config.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/bridge_client-config-version.cmake" DESTINATION "${package_dir}")

# The file finds its tree from where it lies, so that --prefix may name any place.
string(REGEX REPLACE "[^/]+" ".." up_from_libdir "${CMAKE_INSTALL_LIBDIR}")
foreach(description bridge_client.pc bridge-host.pc)
  configure_file(cmake/${description}.in ${description} @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${description}" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endforeach()
