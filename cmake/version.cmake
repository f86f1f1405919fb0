# Writes OUT, the program's version from the nearest tag vX.Y.Z: "1.2.0" at the tag, "1.2.0+3.g1a2b3c4" three
# commits behind it, "0.0.0+g1a2b3c4" before the first. Outside of a checkout FALLBACK is the version.
# Run at each build; the file is touched only when the version has changed.
function(version_of source fallback out)
  set(version ${fallback})
  find_package(Git QUIET)
  if(Git_FOUND AND EXISTS ${source}/.git)
    execute_process(COMMAND ${GIT_EXECUTABLE} -C ${source} describe --tags --long --match "v[0-9]*"
                    OUTPUT_VARIABLE said OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
    if(failed)
      execute_process(COMMAND ${GIT_EXECUTABLE} -C ${source} rev-parse --short HEAD
                      OUTPUT_VARIABLE hash OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
      if(NOT failed)
        set(version "${fallback}+g${hash}")
      endif()
    elseif(said MATCHES "^v(.*)-0-g[0-9a-f]+$")
      set(version ${CMAKE_MATCH_1})
    elseif(said MATCHES "^v(.*)-([0-9]+)-(g[0-9a-f]+)$")
      set(version "${CMAKE_MATCH_1}+${CMAKE_MATCH_2}.${CMAKE_MATCH_3}")
    endif()
  endif()
  set(${out} ${version} PARENT_SCOPE)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  version_of(${SOURCE} ${FALLBACK} version)
  file(CONFIGURE OUTPUT ${OUT} CONTENT [[#include "app/version.h"

namespace app {

const char* version() { return "@version@"; }

}  // namespace app
]] @ONLY)
endif()
