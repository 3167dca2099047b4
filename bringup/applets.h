// The entries of this folder's applets. Their rows are in app/applet_table.cpp.
#pragma once

int get_boot_param(int argc, char **argv);
int load_drv(int argc, char **argv);
int tev_arp(int argc, char **argv);
int xfactorydefault(int argc, char **argv);
int xkill(int argc, char **argv);
int xtime(int argc, char **argv);
