# SPDX-License-Identifier: MIT
# Writes each of `headers`, named from `root`, below `folder`, with every #include of a header of the
# library by a relative path. See library.cmake.
foreach(header IN LISTS headers)
  file(READ "${root}/${header}" text)
  string(REGEX REPLACE "#include \"([a-z]+/[a-z_-]+\\.h)\"" "#include \"../\\1\"" text "${text}")
  file(WRITE "${folder}/${header}" "${text}")
endforeach()
