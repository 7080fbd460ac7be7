# Installs this build into a scratch prefix, then configures, builds and runs the consumer
# project against it through find_package(ncds CONFIG), and imports the installed Python package.
# Arguments: -DNCDS_BINARY_DIR=... -DCONSUMER_SOURCE_DIR=... -DWORK_DIR=... -DGENERATOR=...
#            -DPYTHON=... (the Python the package is built for)
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${NCDS_BINARY_DIR} --prefix ${WORK_DIR}/prefix
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed: ${rc}")
endif()
# Where the Python package was built, it imports from the prefix alone (its extension finds the
# installed library), outside the source and build trees.
set(package_dir ${WORK_DIR}/prefix/lib/python3/dist-packages)
set(check "import sys, ncds, ncds.dask\nassert ncds.__file__.startswith(sys.argv[1])")
string(APPEND check "\nprint(ncds.Project())")
if(EXISTS ${package_dir}/ncds)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PYTHONPATH=${package_dir} ${PYTHON} -c
                          ${check} ${package_dir}
                  WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE rc)
  if(rc)
    message(FATAL_ERROR "the installed Python package does not import: ${rc}")
  endif()
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_SOURCE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
                        -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=Release
                RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configuring the consumer failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "building the consumer failed: ${rc}")
endif()
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "the consumer failed: ${rc}")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
