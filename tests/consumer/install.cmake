# Installs a build, and moves what was installed: nothing in it may know the first place.
# cmake -DBUILD=folder -DTO=folder -P install.cmake
file(REMOVE_RECURSE "${TO}" "${TO}.first")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${TO}.first"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME "${TO}.first" "${TO}")
