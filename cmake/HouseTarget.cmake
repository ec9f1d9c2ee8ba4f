# Everything one of our own targets has in common.
function(house_target target)
  cmake_path(RELATIVE_PATH PROJECT_SOURCE_DIR BASE_DIRECTORY "${CMAKE_BINARY_DIR}" OUTPUT_VARIABLE relative)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} PUBLIC "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>")
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wno-sign-conversion
    $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>   # fields and constructor arguments share names
    $<$<BOOL:${TESSADRIN_WERROR}>:-Werror>
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/="    # records and exceptions name Proc/..., not this machine
    "-fmacro-prefix-map=${relative}/=")            # also where ccache compiles by relative paths
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# A shared library that others link: its version, what it exports, and where its installed form finds the others.
function(house_library target exportName)
  house_target(${target})
  set(exports "${PROJECT_SOURCE_DIR}/cmake/exports.map")
  target_link_options(${target} PRIVATE "-Wl,--version-script=${exports}")
  set_property(TARGET ${target} PROPERTY LINK_DEPENDS "${exports}")
  add_library(Tessadrin::${exportName} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${exportName} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    INSTALL_RPATH "$ORIGIN"
    VERIFY_INTERFACE_HEADER_SETS ON INTERFACE_HEADER_SETS_TO_VERIFY HEADERS)   # every public header compiles on its own
endfunction()
