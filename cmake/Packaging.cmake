# `cpack` in the build directory: a .tar.gz to unpack into a game's folder (bin/, lib/, include/,
# share/ at its top) and a .deb for /usr (its generator's default prefix), each holding whatever the install() rules install (the
# library, its headers and CMake and pkg-config files, the tool, the host libraries built here),
# runtime and development files together.
set(CPACK_PACKAGE_NAME tavrel_sdk)
set(CPACK_PACKAGE_VENDOR "Tavrel")
set(CPACK_PACKAGE_CONTACT "Tavrel <sdk@tavrel.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Supervised gameplay sessions: watermark overlay, event recording and upload, session validation")
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_PACKAGE_FILE_NAME ${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})

set(CPACK_DEBIAN_PACKAGE_NAME tavrel-sdk)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
# Run-time dependencies as dpkg-shlibdeps finds them; the tool's and hosts' own library is ours.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)

include(CPack)
