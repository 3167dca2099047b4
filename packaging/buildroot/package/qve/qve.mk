################################################################################
#
# qve
#
################################################################################

ifeq ($(BR2_PACKAGE_QVE_ARCHIVE),y)
QVE_VERSION = $(call qstrip,$(BR2_PACKAGE_QVE_ARCHIVE_VERSION))
QVE_SITE = $(call qstrip,$(BR2_PACKAGE_QVE_ARCHIVE_SITE))
else
QVE_SITE = $(realpath $(BR2_EXTERNAL_QVE_PATH)/../..)
QVE_SITE_METHOD = local
QVE_VERSION = $(shell $(QVE_SITE)/scripts/version.sh)
# Set, though empty: else the version of host-qve is 'custom', and a new commit does not build fwpack again.
HOST_QVE_OVERRIDE_SRCDIR ?=
endif
QVE_LICENSE = PROPRIETARY
QVE_LICENSE_FILES = COPYRIGHT
QVE_REDISTRIBUTE = NO

# Files that builds leave in the source tree.
QVE_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build --exclude /.cache
HOST_QVE_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = $(QVE_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS)

QVE_CONF_OPTS = -DQVE_STATIC=ON -DQVE_HOST_TOOLS=OFF -DQVE_TESTS=OFF
HOST_QVE_CONF_OPTS = -DQVE_TESTS=OFF

ifeq ($(BR2_PACKAGE_HOST_QVE_SHA256),y)
HOST_QVE_DEPENDENCIES += host-openssl
HOST_QVE_CONF_OPTS += -DQVE_LIBCRYPTO=ON
else
HOST_QVE_CONF_OPTS += -DQVE_LIBCRYPTO=OFF
endif

# The board's scripts look for the commands in /bin.
define QVE_INSTALL_TARGET_CMDS
	DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) --install $(QVE_BUILDDIR) --prefix /
	$(if $(BR2_PACKAGE_QVE_INTEGRATION),
		DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) --install $(QVE_BUILDDIR) --prefix / --component integration)
endef

define HOST_QVE_INSTALL_CMDS
	$(BR2_CMAKE) --install $(HOST_QVE_BUILDDIR) --prefix $(HOST_DIR) --component tools
endef

$(eval $(cmake-package))
$(eval $(host-cmake-package))
