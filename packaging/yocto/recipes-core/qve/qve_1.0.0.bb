SUMMARY = "Board utility program of a network video server"
DESCRIPTION = "One executable with the commands that bring the board up, install its firmware \
and test it at the factory. The native package is fwpack, the host tool for firmware packages."
LICENSE = "CLOSED"

inherit cmake externalsrc

EXTERNALSRC = "${THISDIR}/../../../.."

EXTRA_OECMAKE = "-DQVE_TESTS=OFF"
EXTRA_OECMAKE:append:class-target = " -DQVE_STATIC=ON -DQVE_HOST_TOOLS=OFF"

# The board's scripts look for the commands in /bin.
do_install:class-target() {
    DESTDIR=${D} cmake --install ${B} --prefix /
}
do_install:class-native() {
    DESTDIR=${D} cmake --install ${B} --prefix ${prefix} --component tools
}

FILES:${PN} = "/bin"
BBCLASSEXTEND = "native"
