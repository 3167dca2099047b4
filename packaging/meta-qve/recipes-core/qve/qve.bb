SUMMARY = "Board utility program of a network video server"
DESCRIPTION = "One executable with the commands that bring the board up, install its firmware \
and test it at the factory. The native package is fwpack, the host tool for firmware packages."
LICENSE = "LicenseRef-QVE"
NO_GENERIC_LICENSE[QVE] = "COPYRIGHT"
# Older releases use the whole name.
NO_GENERIC_LICENSE[LicenseRef-QVE] = "COPYRIGHT"
LIC_FILES_CHKSUM = "file://COPYRIGHT;md5=${@bb.utils.md5_file('${QVE_SOURCE}/COPYRIGHT')}"

inherit cmake externalsrc

# The layer sets QVE_SOURCE. Without the layer this is no path, and externalsrc reports it.
EXTERNALSRC = "${QVE_SOURCE}"
# No links to the work folder in the source tree.
EXTERNALSRC_SYMLINKS = ""
PV = "${@bb.process.run('${QVE_SOURCE}/scripts/version.sh')[0].strip()}"
# The time in the banner and of all files. The newest file in the tree would be one that the build makes.
SOURCE_DATE_EPOCH = "${@bb.process.run('${QVE_SOURCE}/scripts/version.sh --time')[0].strip()}"

# The SHA-256 of 'fwpack info', missing without it: PACKAGECONFIG:pn-qve-native = "sha256".
PACKAGECONFIG ??= ""
PACKAGECONFIG[sha256] = "-DQVE_LIBCRYPTO=ON,-DQVE_LIBCRYPTO=OFF,openssl"

EXTRA_OECMAKE = "-DQVE_TESTS=OFF"
EXTRA_OECMAKE:append:class-target = " -DQVE_STATIC=ON -DQVE_HOST_TOOLS=OFF"

# The board's scripts look for the commands in /bin: with merged /usr that is a link to /usr/bin. Only documents are
# below usr.
do_install:class-target() {
    DESTDIR=${D} cmake --install ${B} --prefix ${root_prefix}/
    DESTDIR=${D} cmake --install ${B} --prefix ${root_prefix}/ --component integration
    rm -r ${D}${root_prefix}/usr
}
do_install:class-native() {
    DESTDIR=${D} cmake --install ${B} --prefix ${prefix} --component tools
}

# The scripts for safe upgrades: IMAGE_INSTALL:append = " qve-integration"
PACKAGES =+ "${PN}-integration"
FILES:${PN}-integration = "${base_sbindir}"
RDEPENDS:${PN}-integration = "${PN}"
FILES:${PN} = "${base_bindir}"
BBCLASSEXTEND = "native"
