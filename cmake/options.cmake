# SPDX-License-Identifier: MIT
# What every target of this tree is built with, beside the build type's own flags.

add_library(livetable_options INTERFACE)
target_compile_definitions(
  livetable_options INTERFACE QT_NO_KEYWORDS QT_NO_FOREACH
                              QT_DEPRECATED_WARNINGS)
if(LIVETABLE_WARNINGS)
  target_compile_options(
    livetable_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion
                                -Wnon-virtual-dtor -Woverloaded-virtual -Wundef -Werror
                                -Wcast-qual -Wdouble-promotion -Wextra-semi -Wformat=2
                                -Wimplicit-fallthrough -Wold-style-cast -Wredundant-decls
                                -Wsuggest-override)
  # Not -Wuseless-cast, which differs by platform, and not -Wnull-dereference, which knows nothing of
  # a QPointer that was asked before.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(
      livetable_options INTERFACE -Wduplicated-branches -Wduplicated-cond -Wlogical-op
                                  -Wmissing-declarations)
  else()
    target_compile_options(
      livetable_options INTERFACE -Wloop-analysis -Wmissing-variable-declarations
                                  -Wunreachable-code)
  endif()
  if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ takes the sources that are compiled together for headers.
    target_compile_options(livetable_options INTERFACE -Wno-subobject-linkage)
  endif()
endif()
if(LIVETABLE_SANITIZE)
  target_compile_options(
    livetable_options INTERFACE -fsanitize=${LIVETABLE_SANITIZE} -fno-sanitize-recover=all
                                -fno-omit-frame-pointer)
  target_link_options(livetable_options INTERFACE -fsanitize=${LIVETABLE_SANITIZE})
endif()
if(LIVETABLE_FUZZ)
  target_compile_options(livetable_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# The same for a library that is installed: what it is compiled with is nothing that its users link.
function(livetable_use_options target)
  foreach(kind DEFINITIONS OPTIONS)
    set_property(
      TARGET ${target} APPEND
      PROPERTY COMPILE_${kind} $<TARGET_PROPERTY:livetable_options,INTERFACE_COMPILE_${kind}>)
  endforeach()
  set_property(TARGET ${target} APPEND
               PROPERTY LINK_OPTIONS $<TARGET_PROPERTY:livetable_options,INTERFACE_LINK_OPTIONS>)
endfunction()
