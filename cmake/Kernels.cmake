# SPDX-License-Identifier: Apache-2.0
# Sources that Highway compiles once for each vector extension. It builds on 128-bit vectors with byte
# shuffles; the least x86-64 has none.
function(qoz_kernels)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -mssse3)
  endif()
endfunction()
