/// Asks both buses who is there, and says whether it has more rights than the user who started it. The test looks whom
/// it has talked to.
#include <sys/auxv.h>

#include <iostream>

#include <dmf/platform/DesktopServices.h>

int main()
{
    (void)dmf::busServiceState(dmf::Bus::session, "org.freedesktop.DBus");
    (void)dmf::busServiceState(dmf::Bus::system, "org.freedesktop.DBus");
    std::cout << (::getauxval(AT_SECURE) != 0 ? "raised" : "ordinary") << std::endl;
}
