# Installs the build into a fresh prefix, packs the zip, and checks that both hold exactly
# the shipped files.
set(expected
    bin/Wrenkits.dll
    bin/wrenkit.exe
    include/Wrenkits.h
    lib/Wrenkits.lib
    lib/cmake/Wrenkits/WrenkitsConfig.cmake
    lib/cmake/Wrenkits/WrenkitsConfigVersion.cmake
    lib/libWrenkits.dll.a)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${ARGN} failed (${code}):\n${out}")
  endif()
endfunction()

function(check what)
  list(SORT ARGN)
  if(NOT ARGN STREQUAL expected)
    string(REPLACE ";" "\n  " got "${ARGN}")
    string(REPLACE ";" "\n  " want "${expected}")
    message(FATAL_ERROR "${what} holds\n  ${got}\nbut should hold exactly\n  ${want}")
  endif()
  list(LENGTH ARGN count)
  message(STATUS "${what}: the ${count} shipped files, nothing else")
endfunction()

file(REMOVE_RECURSE ${PREFIX} ${PACKAGE})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX})
file(GLOB_RECURSE installed RELATIVE ${PREFIX} ${PREFIX}/*)
check("install tree" ${installed})

run(${CPACK} --config ${BUILD}/CPackConfig.cmake -B ${PACKAGE})
file(GLOB zips ${PACKAGE}/*.zip)
list(LENGTH zips count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "cpack made ${count} zips: ${zips}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E tar tf ${zips} OUTPUT_VARIABLE listing RESULT_VARIABLE code)
string(REGEX REPLACE "\n$" "" listing "${listing}")
string(REPLACE "\n" ";" listing "${listing}")
get_filename_component(top ${zips} NAME_WLE)
set(files)
foreach(entry ${listing})
  if(NOT entry MATCHES "^${top}/(.*[^/])$")
    if(entry MATCHES "/$")
      continue()  # a folder entry
    endif()
    message(FATAL_ERROR "zip entry ${entry} is outside the folder ${top}/")
  endif()
  list(APPEND files ${CMAKE_MATCH_1})
endforeach()
check("zip ${top}.zip" ${files})
