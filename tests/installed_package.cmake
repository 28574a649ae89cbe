# Installs the build tree BUILD below WORK, builds the project SOURCE against it and runs its program.
set(run COMMAND_ERROR_IS_FATAL ANY)
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix OUTPUT_QUIET ${run})
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/build -G ${GENERATOR}
    -D CMAKE_PREFIX_PATH=${WORK}/prefix -D CMAKE_CXX_COMPILER=${COMPILER} -D CMAKE_BUILD_TYPE=Debug
  ${run})
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/build ${run})
execute_process(COMMAND ${WORK}/build/consumer ${run})
