# What CPack makes from the install rules. On Windows: one zip archive,
# ovra-<version>-win64.zip, holding the whole installed tree under one folder
# of that name (bin/ovra.dll and bin/ovra.exe, lib/libovra.dll.a, the headers
# in include/ovra, the CMake package, ovra.pc, the manual page, the copyright
# notice), which a user unpacks anywhere: the CMake package and ovra.pc
# locate the tree from their own place, and ovra.exe finds ovra.dll beside
# it. Run `cpack` in the build folder; the install test does it and builds an
# outside program against the unpacked archive.

# What every package shares: its name, version, where CPack puts it, and
# installed binaries that lose their symbols (the build keeps its own copy).
set(CPACK_PACKAGE_NAME ovra)
set(CPACK_PACKAGE_VENDOR "Ovra developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)

if(WIN32)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/ovra COMPONENT runtime)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME ovra-${PROJECT_VERSION}-win64)
  include(CPack)
  return()
endif()

# Elsewhere, Debian packages from the install rules' three components:
#   runtime     -> libovra<major>  the shared library and its soname link
#   development -> libovra-dev     headers, libovra.so, the CMake package,
#                                  ovra.pc and the HTML API reference
#   tools       -> ovra-tools      the ovra program and its manual page
# Configure with -DCMAKE_INSTALL_PREFIX=/usr (so that the library lands in the
# multiarch directory), build, then run `cpack -G DEB` in the build folder.
# .ci/packages.sh does all of it and checks the result.

set(OVRA_PACKAGE_MAINTAINER "Ovra developers <ovra-dev@example.org>" CACHE STRING
    "Maintainer field of the Debian packages (name <address>)")
set(OVRA_PACKAGE_RELEASE 1 CACHE STRING "Debian revision of the packages")
set(OVRA_DEBIAN_VERSION ${PROJECT_VERSION}-${OVRA_PACKAGE_RELEASE})
set(OVRA_RUNTIME_PACKAGE libovra${PROJECT_VERSION_MAJOR})

# Every Debian package carries its copyright and changelog in
# /usr/share/doc/<package>, and here its lintian overrides. They are installed
# only when a component is installed on its own (as CPack does), not by a
# plain `cmake --install`.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  # The changelog's date is the last commit's, so that the same sources give
  # the same packages.
  execute_process(COMMAND git log -1 --format=%ct
                  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
                  OUTPUT_VARIABLE _ovra_commit_time OUTPUT_STRIP_TRAILING_WHITESPACE
                  RESULT_VARIABLE _ovra_git_result ERROR_QUIET)
  if(_ovra_git_result EQUAL 0 AND _ovra_commit_time)
    set(ENV{SOURCE_DATE_EPOCH} ${_ovra_commit_time})
  endif()
endif()
string(TIMESTAMP OVRA_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(_ovra_debian_dir ${CMAKE_CURRENT_BINARY_DIR}/debian)
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${_ovra_debian_dir}/changelog.Debian
               @ONLY)
find_program(OVRA_GZIP gzip)
if(OVRA_GZIP)
  execute_process(COMMAND ${OVRA_GZIP} -9nf ${_ovra_debian_dir}/changelog.Debian)
  foreach(_ovra_component_package IN ITEMS runtime:${OVRA_RUNTIME_PACKAGE}
                                           development:libovra-dev tools:ovra-tools)
    string(REPLACE ":" ";" _ovra_pair ${_ovra_component_package})
    list(GET _ovra_pair 0 _ovra_component)
    list(GET _ovra_pair 1 _ovra_package)
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright
                  ${_ovra_debian_dir}/changelog.Debian.gz
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${_ovra_package}
            PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
            COMPONENT ${_ovra_component} EXCLUDE_FROM_ALL)
    # The lintian warnings accepted for the package, each with its reason.
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/${_ovra_package}.lintian-overrides
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
            RENAME ${_ovra_package}
            PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
            COMPONENT ${_ovra_component} EXCLUDE_FROM_ALL)
  endforeach()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "${OVRA_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
# Manual pages are compressed in the staged files, as Debian wants them.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/compress-manpages.cmake)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${OVRA_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Dependencies on the C and C++ runtimes come from dpkg-shlibdeps, run for the
# two packages with binaries (CPack runs `file` on every file of a package it
# inspects, which is slow for the HTML reference and finds nothing there).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
# The library's shlibs entry: programs built against this version depend on
# it or any later one of the same soname.
file(WRITE ${_ovra_debian_dir}/shlibs
     "libovra ${PROJECT_VERSION_MAJOR} ${OVRA_RUNTIME_PACKAGE} (>= ${OVRA_DEBIAN_VERSION})\n")

set(_ovra_about
    "Ovra is a portability runtime for C++ applications: one shared library with
an interface shaped after a desktop operating system's facilities (16-bit
strings, pointer collections, a message queue, threads, files, directory
search, dynamic libraries, clocks) on top of POSIX, plus self-contained
services: UTF-8, HTML and entity text, Base64, BER, the Internet checksum,
DES, RC2, RC4, RSA public-key operations, MD4, MD5, SHA-1, HMAC and a
digest-based random generator.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${OVRA_RUNTIME_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "C++ portability runtime - shared library
${_ovra_about}

This package holds the shared library.")
# The loader's cache is refreshed through libc's ldconfig trigger.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers
                                               ${_ovra_debian_dir}/shlibs)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libovra-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${OVRA_RUNTIME_PACKAGE} (= ${OVRA_DEBIAN_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "C++ portability runtime - development files
${_ovra_about}

This package holds the headers, the link to the shared library, the CMake
package (find_package(Ovra) gives Ovra::ovra), the pkg-config file ovra.pc
and the HTML API reference in /usr/share/doc/libovra-dev/html.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ovra-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
# The program links the library of this very build, which dpkg-shlibdeps
# finds in the build folder but cannot tie to a package: the dependency is
# stated here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR})
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${OVRA_RUNTIME_PACKAGE} (= ${OVRA_DEBIAN_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "C++ portability runtime - command-line program
${_ovra_about}

This package holds the ovra program, which puts the library's digests, HMAC,
Base64, ciphers, file search and text conversions on the shell.")

include(CPack)
