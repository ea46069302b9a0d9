################################################################################
#
# oxfilecache
#
################################################################################

OXFILECACHE_VERSION = 0.1.0
OXFILECACHE_SITE = $(realpath $(BR2_EXTERNAL_OXFILECACHE_PATH)/../..)
OXFILECACHE_SITE_METHOD = local
# No licence has been granted yet.
OXFILECACHE_LICENSE = PROPRIETARY
OXFILECACHE_LICENSE_FILES = LICENSE
OXFILECACHE_REDISTRIBUTE = NO
OXFILECACHE_INSTALL_STAGING = YES
OXFILECACHE_CONF_OPTS = \
	-DOX_BUILD_TESTS=OFF \
	-DOX_BUILD_EXAMPLES=OFF \
	-DOX_WARNINGS_ARE_ERRORS=OFF

ifeq ($(BR2_PACKAGE_OXFILECACHE_TOOLS),y)
OXFILECACHE_DEPENDENCIES += cli11 json-for-modern-cpp
OXFILECACHE_CONF_OPTS += -DOX_BUILD_TOOLS=ON
else
OXFILECACHE_CONF_OPTS += -DOX_BUILD_TOOLS=OFF
endif

ifeq ($(BR2_PACKAGE_LIBCURL),y)
OXFILECACHE_DEPENDENCIES += libcurl
OXFILECACHE_CONF_OPTS += -DCMAKE_DISABLE_FIND_PACKAGE_CURL=OFF
else
OXFILECACHE_CONF_OPTS += -DCMAKE_DISABLE_FIND_PACKAGE_CURL=ON
endif

# oxcache for the build machine fills a cache for the image. The header libraries of the target serve
# it as well.
HOST_OXFILECACHE_DEPENDENCIES = cli11 json-for-modern-cpp
HOST_OXFILECACHE_CONF_OPTS = \
	-DOX_BUILD_TESTS=OFF \
	-DOX_BUILD_EXAMPLES=OFF \
	-DOX_WARNINGS_ARE_ERRORS=OFF \
	-DOX_BUILD_TOOLS=ON \
	-DCMAKE_DISABLE_FIND_PACKAGE_CURL=ON \
	-DCLI11_ROOT=$(STAGING_DIR)/usr \
	-Dnlohmann_json_ROOT=$(STAGING_DIR)/usr

$(eval $(cmake-package))
$(eval $(host-cmake-package))
