# The Debian packages: oxfilecache (the module alone), oxfilecache-dev and oxfilecache-tools. cpack makes
# them; scripts/package sets what depends on the processor.
set(OX_DEBIAN_DIRECTORY ${PROJECT_SOURCE_DIR}/packaging/debian)
file(STRINGS ${OX_DEBIAN_DIRECTORY}/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^oxfilecache \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog does not begin with version ${PROJECT_VERSION}")
endif()
foreach(package "oxfilecache;module" "oxfilecache-dev;development" "oxfilecache-tools;tools")
  list(GET package 0 name)
  list(GET package 1 component)
  install(FILES ${OX_DEBIAN_DIRECTORY}/changelog
          DESTINATION ${OX_DOC_DIRECTORY}/${name} COMPONENT ${component})
endforeach()
install(FILES ${OX_DEBIAN_DIRECTORY}/oxfilecache.lintian-overrides RENAME oxfilecache
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides COMPONENT module)

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/OxDebianCompress.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL module development tools)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_NAME oxfilecache)
if(NOT DEFINED CPACK_PACKAGE_CONTACT)
  set(CPACK_PACKAGE_CONTACT "OxFileCache maintainers <maintainers@oxfilecache.invalid>")
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(about "The cache keeps what a device has loaded over a network, in one flat
directory and within limits of bytes and of entries. It finds the files again
after a restart.
.
")
set(CPACK_DEBIAN_MODULE_PACKAGE_NAME oxfilecache)
set(CPACK_DEBIAN_MODULE_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_MODULE_DESCRIPTION "persistent file cache for embedded devices: module
${about}This package has the module that programs load at run time.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME oxfilecache-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "oxfilecache (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "persistent file cache for embedded devices: development files
${about}This package has the headers, the static libraries of the Linux host and of
the session, a CMake package, a pkg-config file, examples and documentation.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME oxfilecache-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "oxfilecache (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "persistent file cache for embedded devices: tools
${about}This package has oxcache, which stores, fetches and inspects files in a
cache, and oxhostcheck, which checks a host that loads the module.")
include(CPack)
