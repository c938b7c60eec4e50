// Goes to the folder that is given as its argument, then asks the library where its plug-ins lie and which it finds.
#include <dmf/ADMPlugInManager.h>
#include <dmf/platform/Bundle.h>

#include <iostream>

#include <unistd.h>

int main(int, char** arguments)
{
    if (::chdir(arguments[1]) != 0)
        return 1;
    const std::string folder = dmf::Bundle::libraryBundle()->builtInPlugInsPath();
    std::cout << folder << '\n';
    for (const auto& bundle : ADMPlugInManager::sharedManager()->pluginsFromBaseDir(folder, {}))
        std::cout << bundle->path() << '\n';
}
