// Picks the applet by the name under which the program was started.
#pragma once

/// Cuts argv[0] to what follows its last '/' and runs the applet of that name. If there is none,
/// prints the version and the list of the applets.
///
/// @return always 0
int Dispatch(int argc, char **argv);
