SUMMARY = "Support library for applications on embedded Linux devices"
DESCRIPTION = "Values and records, their messages to other processes, timers and waiting loops on \
GLib's main loop, Lua scripts and XML, which behave on a development host just as on the device."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=ea466734e8a57cce1a5c9dc28b9f49dd"

# There is no public place to fetch it from: ../README.md tells how this archive is made.
SRC_URI = "file://${BP}.tar.gz"

# The platform's libraries that have the logger and the system information, as the linker calls them;
# the recipes that they come from; and what stands before /feature/screen.width in the platform's keys.
# Where both lists are empty, stand-ins are built, which log to the standard error output.
OXIL_PLATFORM_LIBRARIES ?= "dlog;system_info"
OXIL_PLATFORM_RECIPES ?= "dlog system-info"
OXIL_FEATURE_NAMESPACE ?= ""

# Of the recipes for Lua it is LuaJIT's that has Lua 5.1; the one called lua is later.
DEPENDS = "glib-2.0 libxml2 libxslt luajit ${OXIL_PLATFORM_RECIPES}"

inherit cmake pkgconfig

EXTRA_OECMAKE = "\
    -DCMAKE_BUILD_TYPE=Release \
    -DOXIL_BUILD_TESTS=OFF \
    -DOXIL_BUILD_EXAMPLES=OFF \
    -DOXIL_CCACHE=OFF \
    -DOXIL_LUA=luajit \
    -DOXIL_PLATFORM_LIBRARIES='${OXIL_PLATFORM_LIBRARIES}' \
    -DOXIL_FEATURE_NAMESPACE='${OXIL_FEATURE_NAMESPACE}' \
"

# The package files find their prefix from where they lie. To what they find, a pkg-config that does not
# look whether a path is in the sysroot already would add the sysroot once more.
do_install:append() {
    sed -i 's|^prefix=.*|prefix=${prefix}|' ${D}${libdir}/pkgconfig/*.pc
}

# What GDB loads by itself belongs to what it needs for the library anyway.
FILES:${PN}-dbg += "${datadir}/gdb"

# CMake's package file names the archive for tests of applications, and insists on its being there.
RDEPENDS:${PN}-dev += "${PN}-staticdev"
