// Picks the applet by the name under which the program was started.
#pragma once

/// Runs the applet named by what follows the last '/' of argv[0], which becomes the bare name.
/// Under any other name prints the version and the list of the applets.
///
/// @return always 0
int Dispatch(int argc, char **argv);
