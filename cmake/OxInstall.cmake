# What is installed and where. The component "module" is what a device needs, "tools" the programs for a
# shell, and "development" what one builds against. A further library joins "development".
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

foreach(directory BINDIR LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${directory}}")
    message(FATAL_ERROR "CMAKE_INSTALL_${directory} must be relative to CMAKE_INSTALL_PREFIX: "
                        "programs and packages find each other along relative paths")
  endif()
endforeach()

# Programs load the module, nothing links it, so it stays out of the linker's directories.
set(OX_MODULE_DIRECTORY ${CMAKE_INSTALL_LIBDIR}/oxfilecache)
set(OX_CONFIG_DIRECTORY ${CMAKE_INSTALL_LIBDIR}/cmake/OxFileCache)
set(OX_PKGCONFIG_DIRECTORY ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(OX_DOC_DIRECTORY ${CMAKE_INSTALL_DATAROOTDIR}/doc)
set(OX_ZSH_DIRECTORY ${CMAKE_INSTALL_DATAROOTDIR}/zsh/site-functions
    CACHE STRING "Where zsh looks for completions, relative to CMAKE_INSTALL_PREFIX")

install(TARGETS ox_file_cache LIBRARY DESTINATION ${OX_MODULE_DIRECTORY} COMPONENT module)
foreach(tool oxcache oxhostcheck)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/docs/man/${tool}.1
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/ox.bash RENAME ${tool}
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions
            COMPONENT tools)
  endif()
endforeach()
if(TARGET oxcache)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/_oxcache DESTINATION ${OX_ZSH_DIRECTORY}
          COMPONENT tools)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${OX_DOC_DIRECTORY}/oxfilecache-dev
        COMPONENT development FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN man EXCLUDE)

# What is not among these headers may change at any time.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/oxfilecache
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

install(TARGETS ox_runtime ox_host ox_session ox_hostcheck EXPORT OxFileCacheTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET ox_http)
  # By itself, since a program without libcurl can use all the rest.
  install(TARGETS ox_http EXPORT OxFileCacheHttpTargets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
          INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT OxFileCacheHttpTargets NAMESPACE OxFileCache:: DESTINATION ${OX_CONFIG_DIRECTORY}
          COMPONENT development)
endif()
install(EXPORT OxFileCacheTargets NAMESPACE OxFileCache:: DESTINATION ${OX_CONFIG_DIRECTORY}
        COMPONENT development)

set(OX_MODULE_FILE ${OX_MODULE_DIRECTORY}/libox_file_cache.so)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/OxFileCacheConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OxFileCacheConfig.cmake
  INSTALL_DESTINATION ${OX_CONFIG_DIRECTORY}
  PATH_VARS OX_MODULE_FILE)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OxFileCacheConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OxFileCacheConfig.cmake
              ${PROJECT_BINARY_DIR}/OxFileCacheConfigVersion.cmake
        DESTINATION ${OX_CONFIG_DIRECTORY} COMPONENT development)

# Relative, so that it holds for the prefix of a package too, which is not known yet.
file(RELATIVE_PATH OX_PREFIX_FROM_PKGCONFIG /prefix/${OX_PKGCONFIG_DIRECTORY} /prefix)
string(REGEX REPLACE "/$" "" OX_PREFIX_FROM_PKGCONFIG ${OX_PREFIX_FROM_PKGCONFIG})
configure_file(${PROJECT_SOURCE_DIR}/cmake/oxfilecache.pc.in
               ${PROJECT_BINARY_DIR}/oxfilecache.pc @ONLY)
if(TARGET ox_http)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/oxfilecache-http.pc.in
                 ${PROJECT_BINARY_DIR}/oxfilecache-http.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/oxfilecache-http.pc DESTINATION ${OX_PKGCONFIG_DIRECTORY}
          COMPONENT development)
endif()
install(FILES ${PROJECT_BINARY_DIR}/oxfilecache.pc DESTINATION ${OX_PKGCONFIG_DIRECTORY}
        COMPONENT development)

install(FILES ${PROJECT_SOURCE_DIR}/examples/http_get.cpp
              ${PROJECT_SOURCE_DIR}/examples/smallest_host.cpp
              ${PROJECT_SOURCE_DIR}/examples/session_threads.cpp
              ${PROJECT_SOURCE_DIR}/examples/posix_host_library.cpp
        DESTINATION ${OX_DOC_DIRECTORY}/oxfilecache-dev/examples COMPONENT development)

# The packages' copyright file: LICENSE in the form that Debian wants, beside what the licences of
# the libraries in the programs ask for.
set(OX_LICENSE_FILE ${PROJECT_SOURCE_DIR}/LICENSE)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${OX_LICENSE_FILE})
file(READ ${OX_LICENSE_FILE} OX_LICENSE)
string(STRIP "${OX_LICENSE}" OX_LICENSE)
string(REGEX REPLACE "\n[ \n]*\n" "\n.\n" OX_LICENSE " ${OX_LICENSE}")
string(REPLACE "\n" "\n " OX_LICENSE "${OX_LICENSE}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/OxInstallCopyright.txt.in
               ${PROJECT_BINARY_DIR}/copyright @ONLY)
foreach(package "oxfilecache;module" "oxfilecache-dev;development" "oxfilecache-tools;tools")
  list(GET package 0 name)
  list(GET package 1 component)
  install(FILES ${PROJECT_BINARY_DIR}/copyright
          DESTINATION ${OX_DOC_DIRECTORY}/${name} COMPONENT ${component})
endforeach()

if(OX_DEBIAN_PACKAGES)
  include(OxDebian)
endif()
