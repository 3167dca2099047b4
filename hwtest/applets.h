// The entries of this folder's applets. Their rows are in app/applet_table.cpp.
#pragma once

int xgpio(int argc, char **argv);
int xi2c(int argc, char **argv);
int test_rs485(int argc, char **argv);
int test_rs232(int argc, char **argv);
int test_sdcard(int argc, char **argv);
int test_usb(int argc, char **argv);
int test_send_watchdog(int argc, char **argv);
int get_cb_cam_info(int argc, char **argv);
