# Installs the build tree BUILD below WORK, builds the projects of the folder EXAMPLES against it and runs their programs.
set(run COMMAND_ERROR_IS_FATAL ANY)
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix OUTPUT_QUIET ${run})
foreach(example IN ITEMS consumer machine)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -S ${EXAMPLES}/${example} -B ${WORK}/${example} -G ${GENERATOR}
      -D CMAKE_PREFIX_PATH=${WORK}/prefix -D CMAKE_CXX_COMPILER=${COMPILER} -D CMAKE_BUILD_TYPE=Debug
      -D CMAKE_RUNTIME_OUTPUT_DIRECTORY=${WORK}/bin
    ${run})
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/${example} ${run})
  file(GLOB program ${WORK}/bin/*)
  execute_process(COMMAND ${program} ${run})
  file(REMOVE ${program})
endforeach()
# A consumer's include path shows the names of this project and no others.
file(GLOB found RELATIVE ${WORK}/prefix/include ${WORK}/prefix/include/*)
if(NOT found STREQUAL "ixocamglue;ixocontroller")
  message(FATAL_ERROR "the install puts on the include path: ${found}")
endif()
