// The entries of this folder's applets. Their rows are in app/applet_table.cpp.
#pragma once

int upgrade(int argc, char **argv);
int xupgrade(int argc, char **argv);
