# Installs the build tree into PREFIX, then builds and runs the consumer
# project twice: found through find_package, and compiled by hand with the
# flags that pkg-config reports.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${PREFIX} ${CONSUMER_BUILD})
run(${CMAKE_COMMAND} --install ${KESTREL_BUILD_DIR} --prefix ${PREFIX})

run(${CMAKE_COMMAND} -S ${CONSUMER_SOURCE} -B ${CONSUMER_BUILD} -G Ninja
    -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${EXTRA_FLAGS}")
run(${CMAKE_COMMAND} --build ${CONSUMER_BUILD})
run(${CONSUMER_BUILD}/consumer)

file(GLOB pc_dirs ${PREFIX}/lib*/pkgconfig ${PREFIX}/lib/*/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "${pc_dirs}")
run(pkg-config --cflags --libs kestrel)
separate_arguments(pc_flags UNIX_COMMAND "${last_output}")
separate_arguments(extra UNIX_COMMAND "${EXTRA_FLAGS}")
run(${CXX} ${extra} ${CONSUMER_SOURCE}/main.cpp ${pc_flags} -o ${CONSUMER_BUILD}/consumer_pc)
get_filename_component(libdir "${pc_dirs}" DIRECTORY)
set(ENV{LD_LIBRARY_PATH} "${libdir}")
run(${CONSUMER_BUILD}/consumer_pc)
