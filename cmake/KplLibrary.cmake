# The library: its sources are compiled once, as objects. The library is made of them, and so is the one
# test program that looks at what the shared library hides.
add_library(KplFrameworkObjects OBJECT)
set_target_properties(KplFrameworkObjects PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_compile_options(KplFrameworkObjects PRIVATE -fno-exceptions)
# Files beyond 2 GiB also where the C library's default offset is 32 bits.
target_compile_definitions(KplFrameworkObjects PRIVATE _FILE_OFFSET_BITS=64)
target_include_directories(KplFrameworkObjects
  PUBLIC "${PROJECT_SOURCE_DIR}/include"
  PRIVATE "${PROJECT_SOURCE_DIR}")
if(KPL_HAS_JNI)
  target_include_directories(KplFrameworkObjects SYSTEM PRIVATE ${KPL_JNI_INCLUDES})
  target_compile_definitions(KplFrameworkObjects PRIVATE KPL_HAS_JNI)
endif()
target_link_libraries(KplFrameworkObjects PUBLIC Threads::Threads PRIVATE $<BUILD_INTERFACE:kpl_warnings>)

foreach(kpl_folder os tools com os/android net/http ipc rpc net json io parser)
  add_subdirectory(${kpl_folder})
endforeach()
if(NOT ANDROID)
  add_subdirectory(host)
endif()

add_library(KplFramework $<TARGET_OBJECTS:KplFrameworkObjects>)
add_library(KplFramework::KplFramework ALIAS KplFramework)
set_target_properties(KplFramework PROPERTIES
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
target_compile_features(KplFramework PUBLIC cxx_std_17)
target_include_directories(KplFramework PUBLIC
  "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>"
  "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
target_link_libraries(KplFramework PUBLIC Threads::Threads)
if(BUILD_SHARED_LIBS)
  set(kpl_map "${PROJECT_SOURCE_DIR}/cmake/KplFramework.map")
  target_link_options(KplFramework PRIVATE "-Wl,--version-script,${kpl_map}")
  set_target_properties(KplFramework PROPERTIES LINK_DEPENDS "${kpl_map}")
  if(NOT KPL_SANITIZE)
    target_link_options(KplFramework PRIVATE -Wl,-z,defs)
  endif()
endif()
if(ANDROID)
  target_link_libraries(KplFramework PUBLIC log)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    # Devices with 16 KiB pages do not load a library that is aligned to 4 KiB.
    target_link_options(KplFramework PRIVATE -Wl,-z,max-page-size=16384)
  endif()
endif()
