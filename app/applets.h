// The entries of this folder's applets. Their rows are in app/applet_table.cpp.
#pragma once

int no_op(int argc, char **argv);
int xbootenv(int argc, char **argv);
