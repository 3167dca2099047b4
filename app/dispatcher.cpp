#include "app/dispatcher.h"

#include <syslog.h>

#include <cstdio>
#include <cstring>

#include "app/applet_table.h"

namespace
{

// Scripts on the boards read the banner, so a release does not change it.
constexpr const char *kBannerVersion = "1.0.0";

void PrintListing()
{
    std::printf("QVE ver. %s (%s) multi-call binary\n", kBannerVersion, QVE_BUILD_STAMP);
    std::puts("usage : [function] [arguments]...");
    std::puts("");
    std::puts("currently defined functions:");
    const char *separator = "";
    for (const Applet *applet = Applets(); applet->name != nullptr; ++applet) {
        std::printf("%s%s", separator, applet->name);
        separator = ", ";
    }
    std::puts("");
}

AppletHandler *FindHandler(const char *name)
{
    const Applet *applet = Applets();
    while (applet->name != nullptr && std::strcmp(applet->name, name) != 0) {
        ++applet;
    }
    return applet->handler;
}

} // namespace

int Dispatch(int argc, char **argv)
{
    const char *name = "";
    if (argc > 0) {
        if (char *slash = std::strrchr(argv[0], '/'); slash != nullptr) {
            argv[0] = slash + 1;
        }
        name = argv[0];
    }
    if (AppletHandler *handler = FindHandler(name); handler != nullptr) {
        // Not every C library names the program in the log by itself.
        openlog(name, 0, LOG_USER);
        // The result is not the exit status. An applet that must fail visibly exits by itself.
        handler(argc, argv);
        return 0;
    }
    PrintListing();
    return 0;
}
