# SPDX-License-Identifier: MIT
# What makes a target of this tree a library that others take: its version, its headers, its CMake
# component, its pkg-config file.
#
#   livetable_library(TARGET COMPONENT PKGCONFIG ROOT)  after all sources of TARGET are known
#   livetable_finish_package()                          once, after all libraries
#
# COMPONENT is the target's name behind LiveTable::, and that of the package's component; `LiveTable`
# is the one that is always there. PKGCONFIG names the .pc file. ROOT is the folder that the names of
# its headers start from. cmake/headers/COMPONENT.txt lists its classes and where they are declared.
#
# Headers name each other from ROOT ("table/table.h"). Where others use the library there may well be
# a file of that name of their own, in a folder that is searched earlier. So the headers in
# include/livetable name each other by relative paths, which no search path can misdirect: those of
# the build tree only lead to the sources, those that are installed are rewritten on the way.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Shared unless BUILD_SHARED_LIBS says no.
set(LIVETABLE_LIBRARY_TYPE SHARED)
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(LIVETABLE_LIBRARY_TYPE STATIC)
endif()

# Database::main, whose construction registers the value types.
set(LIVETABLE_STARTUP_SYMBOL _ZN8Database4mainE)
set(LIVETABLE_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/livetable)
set(LIVETABLE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/LiveTable)
set_property(GLOBAL PROPERTY LIVETABLE_COMPONENTS "")

# The public headers among the sources of a target, relative to ROOT.
function(livetable_public_headers result target root)
  get_target_property(sources ${target} SOURCES)
  get_target_property(folder ${target} SOURCE_DIR)
  set(headers "")
  foreach(source IN LISTS sources)
    if(source MATCHES "\\.h$" AND NOT source MATCHES "_p\\.h$")
      get_filename_component(source "${source}" ABSOLUTE BASE_DIR "${folder}")
      file(RELATIVE_PATH header "${root}" "${source}")
      list(APPEND headers "${header}")
    endif()
  endforeach()
  list(SORT headers)
  set(${result} "${headers}" PARENT_SCOPE)
endfunction()

# include/livetable of the build tree: each public header leads to the source, each class has a
# header of its name, and the component's name includes them all.
function(livetable_write_headers component root headers)
  set(folder "${PROJECT_BINARY_DIR}/include/livetable")
  set(all "")
  foreach(header IN LISTS headers)
    file(CONFIGURE OUTPUT "${folder}/${header}" CONTENT "#include \"${root}/${header}\"\n" @ONLY)
    if(NOT header MATCHES "-inl\\.h$")
      string(APPEND all "#include \"${header}\"\n")
    endif()
  endforeach()
  set(umbrella LiveTable)
  if(NOT component STREQUAL LiveTable)
    string(APPEND umbrella ${component})
  endif()
  file(CONFIGURE OUTPUT "${folder}/${umbrella}" CONTENT "// SPDX-License-Identifier: MIT\n${all}"
       @ONLY)

  set(classes "${PROJECT_SOURCE_DIR}/cmake/headers/${component}.txt")
  set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                                                                 "${classes}")
  file(STRINGS "${classes}" lines REGEX "^[^#]")
  set(names "${umbrella}")
  foreach(line IN LISTS lines)
    if(NOT line MATCHES "^([A-Za-z_]+) +([a-z]+/[a-z]+\\.h)$" OR NOT CMAKE_MATCH_2 IN_LIST headers)
      message(FATAL_ERROR "${classes}: no class and public header: ${line}")
    endif()
    file(CONFIGURE OUTPUT "${folder}/${CMAKE_MATCH_1}"
         CONTENT "// SPDX-License-Identifier: MIT\n#include \"${CMAKE_MATCH_2}\"\n" @ONLY)
    list(APPEND names "${CMAKE_MATCH_1}")
  endforeach()

  if(LIVETABLE_INSTALL)
    # Rewritten when they are installed, so that an edited header needs no new configuration.
    install(
      CODE "set(root \"${root}\")
set(headers \"${headers}\")
set(folder \"${PROJECT_BINARY_DIR}/installed\")
include(\"${PROJECT_SOURCE_DIR}/cmake/relativeheaders.cmake\")"
      COMPONENT Development)
    foreach(header IN LISTS headers)
      get_filename_component(subfolder "${header}" DIRECTORY)
      install(
        FILES "${PROJECT_BINARY_DIR}/installed/${header}"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/livetable/${subfolder}"
        COMPONENT Development)
    endforeach()
    list(TRANSFORM names PREPEND "${folder}/")
    install(
      FILES ${names}
      DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/livetable"
      COMPONENT Development)
  endif()
endfunction()

function(livetable_library target component pkgconfig root)
  set_target_properties(
    ${target}
    PROPERTIES VERSION ${PROJECT_VERSION}
               SOVERSION ${PROJECT_VERSION_MAJOR}
               EXPORT_NAME ${component})
  target_compile_features(${target} PUBLIC cxx_std_17)
  target_include_directories(
    ${target}
    PUBLIC $<BUILD_INTERFACE:${root}> $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
           # As <livetable/table/table.h>, and as "table/table.h" like in this tree.
           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/livetable>)
  if(LIVETABLE_LIBRARY_TYPE STREQUAL SHARED)
    set(script "${PROJECT_SOURCE_DIR}/src/database/exports.map")
    target_link_options(${target} PRIVATE "LINKER:--version-script=${script}")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${script}")
  endif()
  livetable_public_headers(headers ${target} "${root}")
  livetable_write_headers(${component} "${root}" "${headers}")
  set_property(GLOBAL APPEND PROPERTY LIVETABLE_COMPONENTS ${component})
  if(NOT LIVETABLE_INSTALL)
    return()
  endif()

  install(
    TARGETS ${target}
    EXPORT LiveTable_${component}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT Runtime
            NAMELINK_COMPONENT Development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
  install(
    EXPORT LiveTable_${component}
    NAMESPACE LiveTable::
    FILE LiveTable_${component}.cmake
    DESTINATION ${LIVETABLE_CMAKE_DIR}
    COMPONENT Development)
  export(
    EXPORT LiveTable_${component}
    NAMESPACE LiveTable::
    FILE "${PROJECT_BINARY_DIR}/LiveTable_${component}.cmake")

  # What pkg-config has to say beyond what the template does.
  set(name ${target})
  get_target_property(output_name ${target} OUTPUT_NAME)
  if(output_name)
    set(name ${output_name})
  endif()
  set(static_flags "")
  set(static_libs "")
  set(requires "Qt5Core >= 5.15")
  set(requires_private "")
  set(title LiveTable)
  if(NOT component STREQUAL LiveTable)
    set(title "LiveTable ${component}")
    string(APPEND requires ", livetable = ${PROJECT_VERSION}")
  endif()
  if(LIVETABLE_LIBRARY_TYPE STREQUAL STATIC)
    set(static_flags "-DLIVETABLE_STATIC ")
    if(component STREQUAL LiveTable)
      string(APPEND requires ", Qt5Concurrent, zlib")
      set(static_libs "-Wl,-u,${LIVETABLE_STARTUP_SYMBOL} ")
    endif()
  endif()
  file(RELATIVE_PATH to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" to_prefix "${to_prefix}")
  set(file "${PROJECT_BINARY_DIR}/${pkgconfig}.pc")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/livetable.pc.in" "${file}" @ONLY)
  install(
    FILES "${file}"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT Development)

  file(RELATIVE_PATH to_include "/${CMAKE_INSTALL_DATADIR}/livetable"
       "/${CMAKE_INSTALL_INCLUDEDIR}")
  file(RELATIVE_PATH to_lib "/${CMAKE_INSTALL_DATADIR}/livetable" "/${CMAKE_INSTALL_LIBDIR}")
  set(qt_modules core)
  set(more_defines "")
  set(more_libs "")
  if(NOT component STREQUAL LiveTable)
    # Behind this library on the linker's command line, as what it stands on.
    set(more_defines "include($$PWD/livetable.pri)\n")
    set(more_libs " $$LIBS")
  endif()
  if(LIVETABLE_LIBRARY_TYPE STREQUAL STATIC)
    string(APPEND qt_modules " concurrent")
    if(component STREQUAL LiveTable)
      set(more_defines "DEFINES += LIVETABLE_STATIC\n")
      set(more_libs " -lz")
    endif()
  endif()
  set(file "${PROJECT_BINARY_DIR}/${pkgconfig}.pri")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/livetable.pri.in" "${file}" @ONLY)
  install(
    FILES "${file}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/livetable"
    COMPONENT Development)
endfunction()

function(livetable_finish_package)
  if(NOT LIVETABLE_INSTALL)
    return()
  endif()
  get_property(components GLOBAL PROPERTY LIVETABLE_COMPONENTS)
  set(is_static OFF)
  if(LIVETABLE_LIBRARY_TYPE STREQUAL STATIC)
    set(is_static ON)
  endif()
  configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/LiveTableConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/LiveTableConfig.cmake"
    INSTALL_DESTINATION ${LIVETABLE_CMAKE_DIR}
    NO_SET_AND_CHECK_MACRO)
  write_basic_package_version_file("${PROJECT_BINARY_DIR}/LiveTableConfigVersion.cmake"
                                   COMPATIBILITY SameMajorVersion)
  install(
    FILES "${PROJECT_BINARY_DIR}/LiveTableConfig.cmake"
          "${PROJECT_BINARY_DIR}/LiveTableConfigVersion.cmake"
    DESTINATION ${LIVETABLE_CMAKE_DIR}
    COMPONENT Development)

  install(
    FILES README.md CHANGELOG.md LICENSE
    DESTINATION ${LIVETABLE_DOC_DIR}
    COMPONENT Documentation)
  install(
    DIRECTORY docs/
    DESTINATION ${LIVETABLE_DOC_DIR}/docs
    COMPONENT Documentation
    FILES_MATCHING
    PATTERN doxygen EXCLUDE
    PATTERN "*.md"
    PATTERN "*.svg"
    PATTERN "*.png")
  install(
    DIRECTORY examples/consumer
    DESTINATION ${LIVETABLE_DOC_DIR}/examples
    COMPONENT Documentation)
  # The reference, if scripts/docs.sh has written it.
  install(
    DIRECTORY "${PROJECT_BINARY_DIR}/docs/html"
    DESTINATION ${LIVETABLE_DOC_DIR}
    COMPONENT Documentation
    OPTIONAL)
  install(
    FILES "${PROJECT_BINARY_DIR}/docs/livetable.qch"
    DESTINATION ${LIVETABLE_DOC_DIR}
    COMPONENT Documentation
    OPTIONAL)
endfunction()
