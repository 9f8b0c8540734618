# What `cmake --install` puts where:
#
#   include/zel/...                 the public headers, under the names by which they are included here
#   include/kernaldec/...           those of the decoder module that comes with the library
#   lib/zel/                        everything that runs; library and command find the rest in their own folder
#   bin/zel                         a link to the command
#   lib/cmake/, lib/pkgconfig/      find_package(Zel_AudioCompositor CONFIG) and pkg-config Zel_AudioCompositor
#
# No installed file knows an absolute path: the tree can be moved, packed or staged with DESTDIR.
include(CMakePackageConfigHelpers)

install(TARGETS AudioCompositor COMSupport MediaInfo Zel_Log
  EXPORT Zel_AudioCompositorTargets
  LIBRARY DESTINATION "${ZEL_INSTALL_APPDIR}"
  RUNTIME DESTINATION "${ZEL_INSTALL_APPDIR}")
if(ZEL_BUILD_TOOLS)
  foreach(target kernaldec zel)
    if(TARGET ${target})
      install(TARGETS ${target}
        LIBRARY DESTINATION "${ZEL_INSTALL_APPDIR}"
        RUNTIME DESTINATION "${ZEL_INSTALL_APPDIR}")
    endif()
  endforeach()
  if(TARGET zel)
    # A link, not a copy: the command looks for its library where its own, resolved, path leads.
    file(RELATIVE_PATH zel_link "/${CMAKE_INSTALL_BINDIR}" "/${ZEL_INSTALL_APPDIR}/zel")
    file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/install")
    file(CREATE_LINK "${zel_link}" "${PROJECT_BINARY_DIR}/install/zel" SYMBOLIC)
    install(FILES "${PROJECT_BINARY_DIR}/install/zel" DESTINATION "${CMAKE_INSTALL_BINDIR}")
  endif()
endif()

install(DIRECTORY "${PROJECT_SOURCE_DIR}/zel"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
  FILES_MATCHING PATTERN "*.h" PATTERN "detail" EXCLUDE)
install(FILES
  "${PROJECT_SOURCE_DIR}/kernaldec/DecodedAudio.h"
  "${PROJECT_SOURCE_DIR}/kernaldec/StreamExtras.h"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kernaldec")
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" DESTINATION "${CMAKE_INSTALL_DOCDIR}")

set(zel_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Zel_AudioCompositor")
install(EXPORT Zel_AudioCompositorTargets NAMESPACE Zel:: DESTINATION "${zel_package_dir}")
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/Zel_AudioCompositorConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/install/Zel_AudioCompositorConfig.cmake"
  INSTALL_DESTINATION "${zel_package_dir}"
  NO_SET_AND_CHECK_MACRO)
# While the version begins with 0, a new minor version may break a consumer.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/install/Zel_AudioCompositorConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/install/Zel_AudioCompositorConfig.cmake"
  "${PROJECT_BINARY_DIR}/install/Zel_AudioCompositorConfigVersion.cmake"
  DESTINATION "${zel_package_dir}")

file(RELATIVE_PATH zel_pc_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" zel_pc_prefix "${zel_pc_prefix}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/Zel_AudioCompositor.pc.in"
  "${PROJECT_BINARY_DIR}/install/Zel_AudioCompositor.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/install/Zel_AudioCompositor.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
