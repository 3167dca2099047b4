// The applets: the commands that the program carries.
#pragma once

/// An applet's entry. argv[0] is its bare name. The result is ignored.
using AppletHandler = int(int argc, char **argv);

struct Applet {
    const char *name;
    AppletHandler *handler;
};

/// The first row of the applets, in the order of the listing. A row whose name is null ends them.
const Applet *Applets();
