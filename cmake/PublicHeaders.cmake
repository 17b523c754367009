# The installed interface is the include/ tree, plus the headers generated into
# ${FEXO_GENERATED_INCLUDE_DIR}: what a host app may include, and nothing else. Every type these
# headers declare is exported from the shared library; the headers beside the sources are
# internal and are not installed.
configure_file(${PROJECT_SOURCE_DIR}/cmake/fexo_version.h.in
  ${FEXO_GENERATED_INCLUDE_DIR}/FeXONotificationService/fexo_version.h @ONLY)

file(GLOB_RECURSE FEXO_PUBLIC_HEADERS CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/include
  ${PROJECT_SOURCE_DIR}/include/*.hpp ${PROJECT_SOURCE_DIR}/include/*.h)
file(GLOB_RECURSE FEXO_GENERATED_HEADERS RELATIVE ${FEXO_GENERATED_INCLUDE_DIR}
  ${FEXO_GENERATED_INCLUDE_DIR}/*.h)
set(FEXO_INSTALLED_HEADERS ${FEXO_PUBLIC_HEADERS} ${FEXO_GENERATED_HEADERS})

# A public header that includes an internal one would install a header that cannot compile
# for a host app: refuse to configure instead.
foreach(header IN LISTS FEXO_PUBLIC_HEADERS)
  file(STRINGS ${PROJECT_SOURCE_DIR}/include/${header} includes REGEX "^#include <FeXO")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^#include <([^>]+)>.*" "\\1" included "${line}")
    if(NOT included IN_LIST FEXO_INSTALLED_HEADERS)
      message(FATAL_ERROR "include/${header} is public but includes ${included}, which is not: "
        "move it under include/ or drop the include")
    endif()
  endforeach()
endforeach()
