# Puts a filled cache into a package. A recipe inherits this class and sets
#   OXCACHE_COMMANDS    a file of commands for "oxcache batch", as
#                         put http://example/logo ${WORKDIR}/logo.png --meta 'Content-Type: image/png'
#   OXCACHE_LIMITS      options of "oxcache init"
#   OXCACHE_DIRECTORY   where the cache is on the device
OXCACHE_DIRECTORY ?= "${localstatedir}/cache/oxfilecache"
OXCACHE_LIMITS ?= ""
DEPENDS += "oxfilecache-native"

do_install:append() {
    oxcache --dir "${D}${OXCACHE_DIRECTORY}" init ${OXCACHE_LIMITS}
    oxcache --dir "${D}${OXCACHE_DIRECTORY}" batch <"${OXCACHE_COMMANDS}"
    # Packages and images change the files' times.
    oxcache --dir "${D}${OXCACHE_DIRECTORY}" freeze
    rm "${D}${OXCACHE_DIRECTORY}/ox-session.lock"
    chown -R root:root "${D}${OXCACHE_DIRECTORY}"
}
FILES:${PN} += "${OXCACHE_DIRECTORY}"
