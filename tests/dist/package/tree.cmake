# Installs the build into a fresh prefix, packs the zip, and checks that both hold exactly
# the shipped files.
set(expected bin/Wrenkits.dll bin/wrenkit.exe include/Wrenkits.h lib/Wrenkits.lib
    lib/cmake/Wrenkits/WrenkitsConfig.cmake lib/cmake/Wrenkits/WrenkitsConfigVersion.cmake lib/libWrenkits.dll.a)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${ARGN} failed (${code}):\n${out}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

function(check what)
  list(SORT ARGN)
  if(NOT ARGN STREQUAL expected)
    string(REPLACE ";" "\n  " got "${ARGN}")
    string(REPLACE ";" "\n  " want "${expected}")
    message(FATAL_ERROR "${what} holds\n  ${got}\nbut should hold exactly\n  ${want}")
  endif()
  message(STATUS "${what}: the shipped files, nothing else")
endfunction()

file(REMOVE_RECURSE ${PREFIX} ${PACKAGE})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX})
file(GLOB_RECURSE installed RELATIVE ${PREFIX} ${PREFIX}/*)
check("install tree" ${installed})

run(${CPACK} --config ${BUILD}/CPackConfig.cmake -B ${PACKAGE})
file(GLOB zip ${PACKAGE}/*.zip)
get_filename_component(top "${zip}" NAME_WLE)
run(${CMAKE_COMMAND} -E tar tf ${zip})
# Every entry lies in the one top folder; folder entries end with a slash.
string(REGEX MATCHALL "[^\n]*[^/\n]\n" files "${out}")
string(REPLACE "\n" "" files "${files}")
list(TRANSFORM files REPLACE "^${top}/" "" OUTPUT_VARIABLE inside)
check("zip ${top}.zip" ${inside})
