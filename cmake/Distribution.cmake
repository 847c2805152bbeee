# What ships: the install tree, the CMake package, the MSVC import library and the zip.
#   bin/Wrenkits.dll  bin/wrenkit.exe  include/Wrenkits.h
#   lib/libWrenkits.dll.a (MinGW)  lib/Wrenkits.lib (MSVC)  lib/cmake/Wrenkits/*.cmake
include(CMakePackageConfigHelpers)

# Both binaries carry the one version of project(VERSION) in their version resource.
function(wrenkits_version_resource target file type description)
  set(WRENKITS_RC_NAME ${target})
  set(WRENKITS_RC_FILE ${file})
  set(WRENKITS_RC_TYPE ${type})
  set(WRENKITS_RC_DESCRIPTION ${description})
  configure_file(${CMAKE_SOURCE_DIR}/cmake/version.rc.in ${CMAKE_BINARY_DIR}/version/${target}.rc @ONLY)
  target_sources(${target} PRIVATE ${CMAKE_BINARY_DIR}/version/${target}.rc)
endfunction()
wrenkits_version_resource(Wrenkits Wrenkits.dll VFT_DLL "Wrenkits system-maintenance library")
wrenkits_version_resource(wrenkit wrenkit.exe VFT_APP "Wrenkits command-line host")

# MSVC links against an import library in its own format; llvm-dlltool writes one from
# the same export list the DLL is linked with, so the two cannot disagree.
find_program(WRENKITS_LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-16 llvm-dlltool-15 llvm-dlltool-14 REQUIRED)
set(WRENKITS_MSVC_IMPLIB ${CMAKE_BINARY_DIR}/lib/Wrenkits.lib)
add_custom_command(OUTPUT ${WRENKITS_MSVC_IMPLIB}
                   COMMAND ${WRENKITS_LLVM_DLLTOOL} -m i386:x86-64 -d ${CMAKE_SOURCE_DIR}/src/Wrenkits.def
                           -D Wrenkits.dll -l ${WRENKITS_MSVC_IMPLIB}
                   DEPENDS ${CMAKE_SOURCE_DIR}/src/Wrenkits.def
                   COMMENT "Writing the MSVC import library Wrenkits.lib")
add_custom_target(wrenkits_msvc_implib ALL DEPENDS ${WRENKITS_MSVC_IMPLIB})

write_basic_package_version_file(${CMAKE_BINARY_DIR}/WrenkitsConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)

install(TARGETS Wrenkits RUNTIME DESTINATION bin ARCHIVE DESTINATION lib)
install(TARGETS wrenkit RUNTIME DESTINATION bin)
install(FILES ${CMAKE_SOURCE_DIR}/include/Wrenkits.h DESTINATION include)
install(FILES ${WRENKITS_MSVC_IMPLIB} DESTINATION lib)
install(FILES ${CMAKE_SOURCE_DIR}/cmake/WrenkitsConfig.cmake ${CMAKE_BINARY_DIR}/WrenkitsConfigVersion.cmake
        DESTINATION lib/cmake/Wrenkits)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME Wrenkits)
set(CPACK_PACKAGE_VENDOR Wrenkits)
set(CPACK_PACKAGE_FILE_NAME Wrenkits-${PROJECT_VERSION}-win64)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
include(CPack)
