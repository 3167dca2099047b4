// The applets: the commands that the program carries.
#pragma once

#include <span>

/// An applet's entry. argv[0] is its bare name. The result is not looked at.
using AppletHandler = int(int argc, char **argv);

struct Applet {
    const char *name;
    AppletHandler *handler;
};

/// The table's rows in the order of the listing.
std::span<const Applet> Applets();
