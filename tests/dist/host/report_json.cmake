# Runs "report" and "report --json" and checks that the JSON object holds the text
# report's facts: the library, its version, the system drive and the three abilities.
function(report name)
  execute_process(COMMAND ${WINE} ${HOST} report ${ARGN} RESULT_VARIABLE code OUTPUT_FILE ${WORK}/${name}
                  ERROR_VARIABLE ignored)
  file(READ ${WORK}/${name} text)
  string(REPLACE "\r" "" text "${text}")
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "report ${ARGN} exited ${code}:\n${text}")
  endif()
  set(${name} "${text}" PARENT_SCOPE)
endfunction()

file(MAKE_DIRECTORY ${WORK})
report(text)
report(json --json)
message(STATUS "text report:\n${text}\nJSON report:\n${json}")

string(JSON library GET "${json}" library)
string(JSON version GET "${json}" version)
string(JSON drive GET "${json}" systemDrive)
string(JSON size GET "${json}" systemDriveSize)
string(JSON free GET "${json}" systemDriveFree)
string(JSON bytes GET "${json}" systemDriveBytes)
string(JSON keys LENGTH "${json}")
set(expected "  library            ${library}\n  version            ${version}\n  system drive       ${drive} ${size}, ${free} free\n")
foreach(row "backupPrivileges|backup privileges  |can be enabled|cannot be enabled"
            "debugPrivilege|debug privilege    |can be enabled|cannot be enabled"
            "childProcesses|child processes    |run and report their exit code|do not run")
  string(REPLACE "|" ";" row "${row}")
  list(GET row 0 key)
  list(GET row 1 label)
  string(JSON value GET "${json}" ${key})
  if(value)
    list(GET row 2 said)
  else()
    list(GET row 3 said)
  endif()
  string(APPEND expected "  ${label}${said}\n")
endforeach()

# Free space is the one fact that may move between the two runs.
string(REGEX REPLACE ", [0-9.]+ [A-Z]* free" ", ${free} free" text "${text}")
if(NOT text STREQUAL "Wrenkits report\n${expected}")
  message(FATAL_ERROR "the JSON report tells other facts than the text report; from the JSON:\n${expected}")
endif()
if(NOT version STREQUAL VERSION OR NOT library MATCHES "\\\\Wrenkits\\.dll$" OR NOT bytes GREATER 0 OR NOT keys EQUAL 10)
  message(FATAL_ERROR "version ${version} (want ${VERSION}), library ${library}, ${bytes} bytes, ${keys} keys")
endif()
