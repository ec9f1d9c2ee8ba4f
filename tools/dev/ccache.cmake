# Included by the project() call of what `./dev` configures. Two checkouts shall share compiled files, so
# ccache turns paths below the checkout into paths relative to the build folder; the map takes that lead
# off again, which leaves __FILE__ as it is without ccache.
set(CMAKE_CXX_COMPILER_LAUNCHER ccache "base_dir=${CMAKE_SOURCE_DIR}" hash_dir=false)
cmake_path(RELATIVE_PATH CMAKE_SOURCE_DIR BASE_DIRECTORY "${CMAKE_BINARY_DIR}" OUTPUT_VARIABLE lead)
add_compile_options("-ffile-prefix-map=${lead}/=")
unset(lead)
