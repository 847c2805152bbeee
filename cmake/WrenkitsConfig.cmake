# The installed Wrenkits package: find_package(Wrenkits) gives the imported target
# Wrenkits::Wrenkits (64-bit Wrenkits.dll, include/Wrenkits.h, and the import library of
# the consumer's toolchain: Wrenkits.lib for MSVC and clang-cl, libWrenkits.dll.a for MinGW).
# WrenkitsConfigVersion.cmake has already refused a 32-bit consumer.
get_filename_component(_wrenkits_prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)

if(NOT TARGET Wrenkits::Wrenkits)
  if(MSVC)
    set(_wrenkits_implib "${_wrenkits_prefix}/lib/Wrenkits.lib")
  else()
    set(_wrenkits_implib "${_wrenkits_prefix}/lib/libWrenkits.dll.a")
  endif()
  add_library(Wrenkits::Wrenkits SHARED IMPORTED)
  set_target_properties(Wrenkits::Wrenkits PROPERTIES
    IMPORTED_LOCATION "${_wrenkits_prefix}/bin/Wrenkits.dll"
    IMPORTED_IMPLIB "${_wrenkits_implib}"
    INTERFACE_INCLUDE_DIRECTORIES "${_wrenkits_prefix}/include")
  unset(_wrenkits_implib)
endif()

foreach(_wrenkits_file "bin/Wrenkits.dll" "include/Wrenkits.h")
  if(NOT EXISTS "${_wrenkits_prefix}/${_wrenkits_file}")
    set(Wrenkits_FOUND FALSE)
    set(Wrenkits_NOT_FOUND_MESSAGE "The Wrenkits package in ${_wrenkits_prefix} has no ${_wrenkits_file}.")
  endif()
endforeach()
unset(_wrenkits_file)
unset(_wrenkits_prefix)
