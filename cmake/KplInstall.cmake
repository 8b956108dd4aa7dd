# Installed, in two components: Runtime, the shared library that programs need to run; Development, what
# they are built with: the public headers, a CMake package, a pkg-config file, the Java class.
include(CMakePackageConfigHelpers)

install(TARGETS KplFramework EXPORT KplFrameworkTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/kpl" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT Development FILES_MATCHING PATTERN "*.h")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/java" DESTINATION ${CMAKE_INSTALL_DATADIR}/KplFramework
  COMPONENT Development FILES_MATCHING PATTERN "*.java")
install(EXPORT KplFrameworkTargets NAMESPACE KplFramework::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KplFramework COMPONENT Development)

configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/KplFrameworkConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/KplFrameworkConfig.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KplFramework
  PATH_VARS CMAKE_INSTALL_BINDIR CMAKE_INSTALL_DATADIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/KplFrameworkConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/KplFrameworkConfig.cmake"
  "${PROJECT_BINARY_DIR}/KplFrameworkConfigVersion.cmake"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KplFramework COMPONENT Development)

# The prefix is found from where the file lies, so that a moved or staged tree works too.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(kpl_pc_prefix "${CMAKE_INSTALL_PREFIX}")
  set(kpl_pc_libdir "${CMAKE_INSTALL_LIBDIR}")
else()
  file(RELATIVE_PATH kpl_up "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" kpl_up "${kpl_up}")
  set(kpl_pc_prefix "\${pcfiledir}/${kpl_up}")
  set(kpl_pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(kpl_pc_includedir "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(kpl_pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
set(kpl_pc_private "${CMAKE_THREAD_LIBS_INIT}")
if(ANDROID)
  string(APPEND kpl_pc_private " -llog")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/KplFramework.pc.in"
  "${PROJECT_BINARY_DIR}/KplFramework.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/KplFramework.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
