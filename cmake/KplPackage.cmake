# Debian packages, made by cpack (scripts/deb): libkplframework1 has the component Runtime,
# libkplframework-dev everything else that is installed. The first one has the dynamic linker's cache
# renewed, by the scripts that cpack adds for a shared library.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libkplframework)
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_CONTACT "libKplFramework developers <developers@kplframework.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

get_cmake_property(CPACK_COMPONENTS_ALL COMPONENTS)
list(REMOVE_ITEM CPACK_COMPONENTS_ALL Unspecified) # nothing of ours is without a component
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Where the library lies that kpl-rpc is linked with.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkplframework${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "Framework library for the processes of a television and media device
Calls between processes by name over named FIFOs, TCP servers, datagrams and the
search for UPnP devices, an HTTP client over Java, JSON, a debug log, threads.
.
This package has the shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkplframework-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_DESCRIPTION
  "Framework library for the processes of a television and media device, development
Calls between processes by name over named FIFOs, TCP servers, datagrams and the
search for UPnP devices, an HTTP client over Java, JSON, a debug log, threads.
.
This package has the headers, the CMake package, the pkg-config file and the Java
half of the HTTP client.")
include(CPack)
foreach(kpl_component ${CPACK_COMPONENTS_ALL})
  if(kpl_component STREQUAL Runtime)
    cpack_add_component(${kpl_component} GROUP runtime)
  else()
    cpack_add_component(${kpl_component} GROUP dev)
  endif()
endforeach()
