// Included before all else: libstdc++'s headers were configured for glibc, and musl lacks a little.
#pragma once

#define __GLIBC_PREREQ(major, minor) 0
#define __locale_t locale_t
#include <bits/c++config.h>
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
