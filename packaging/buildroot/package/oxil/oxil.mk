################################################################################
#
# oxil
#
################################################################################

# The sources are those that this folder is a part of.
OXIL_SITE = $(BR2_EXTERNAL_OXIL_PATH)/../..
OXIL_SITE_METHOD = local
OXIL_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build --exclude=/build-*
OXIL_VERSION := $(shell sed -n 's/^project.oxil VERSION \([0-9.]*\).*/\1/p' $(OXIL_SITE)/CMakeLists.txt)
OXIL_LICENSE = MIT
OXIL_LICENSE_FILES = LICENSE
OXIL_INSTALL_STAGING = YES
OXIL_SUPPORTS_IN_SOURCE_BUILD = NO
OXIL_DEPENDENCIES = host-pkgconf libglib2 libxml2 libxslt luainterpreter \
	$(call qstrip,$(BR2_PACKAGE_OXIL_PLATFORM_PACKAGES))
# The settings are texts in quotation marks, which keep their semicolons from the shell.
OXIL_CONF_OPTS = \
	-DOXIL_BUILD_TESTS=OFF \
	-DOXIL_BUILD_EXAMPLES=OFF \
	-DOXIL_CCACHE=OFF \
	-DOXIL_LUA=$(if $(BR2_PACKAGE_LUAJIT),luajit,lua) \
	-DOXIL_PLATFORM_LIBRARIES=$(BR2_PACKAGE_OXIL_PLATFORM_LIBRARIES) \
	-DOXIL_FEATURE_NAMESPACE=$(BR2_PACKAGE_OXIL_FEATURE_NAMESPACE)

$(eval $(cmake-package))
