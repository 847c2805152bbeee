# Builds the consumer project against the installed package, as a customer's MinGW build
# would, and runs its C and C++ programs under Wine.
file(REMOVE_RECURSE ${WORK})
foreach(step "configure;-S;${SOURCE};-B;${WORK};-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN};-DCMAKE_PREFIX_PATH=${PREFIX}"
             "build;--build;${WORK}")
  list(POP_FRONT step name)
  execute_process(COMMAND ${CMAKE_COMMAND} ${step} RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "the consumer's ${name} failed (${code}):\n${out}")
  endif()
endforeach()

foreach(program "consumer_c|C consumer: 3.00 G, -1" "consumer_cpp|C\\+\\+ consumer: 1, 1")
  string(REPLACE "|" ";" program "${program}")
  list(GET program 0 name)
  list(GET program 1 expected)
  # Output to a file: a Wine child that outlives the program must not hold a pipe open.
  execute_process(COMMAND ${WINE} ${WORK}/${name}.exe WORKING_DIRECTORY ${WORK} RESULT_VARIABLE code
                  OUTPUT_FILE ${WORK}/${name}.out ERROR_VARIABLE ignored)
  file(READ ${WORK}/${name}.out out)
  message(STATUS "${name}: exit ${code}, ${out}")
  if(NOT code EQUAL 0 OR NOT out MATCHES "^${expected}\r?\n$")
    message(FATAL_ERROR "${name} exited ${code} printing '${out}'; expected 0 and '${expected}'")
  endif()
endforeach()
