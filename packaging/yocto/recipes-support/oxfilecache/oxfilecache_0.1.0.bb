SUMMARY = "Persistent file cache for embedded devices"
DESCRIPTION = "A loadable module that keeps files in one flat directory within limits, \
the Linux host and the session to build programs with, and the tools oxcache and oxhostcheck."
SECTION = "libs"
# No licence has been granted yet.
LICENSE = "Proprietary"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3e56452a064cdeb6f419aa3caaac042c"

inherit cmake externalsrc
EXTERNALSRC = "${OXFILECACHE_SOURCES}"

PACKAGECONFIG ??= "tools fetch"
PACKAGECONFIG:class-native ??= "tools"
PACKAGECONFIG[tools] = "-DOX_BUILD_TOOLS=ON,-DOX_BUILD_TOOLS=OFF,cli11 nlohmann-json"
PACKAGECONFIG[fetch] = "-DCMAKE_DISABLE_FIND_PACKAGE_CURL=OFF,-DCMAKE_DISABLE_FIND_PACKAGE_CURL=ON,curl"
EXTRA_OECMAKE = "-DOX_BUILD_TESTS=OFF -DOX_BUILD_EXAMPLES=OFF -DOX_WARNINGS_ARE_ERRORS=OFF"

# The module is in the main package, headers and static libraries in -dev and -staticdev.
PACKAGES =+ "${PN}-tools"
FILES:${PN} = "${libdir}/oxfilecache/libox_file_cache.so"
FILES:${PN}-tools = "${bindir} ${datadir}/bash-completion ${datadir}/zsh"
# Loaded at run time, so that no library tells of it.
RDEPENDS:${PN}-tools = "${PN}"

BBCLASSEXTEND = "native nativesdk"
