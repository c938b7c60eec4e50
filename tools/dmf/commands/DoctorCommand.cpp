#include <dmf/ADMLogger.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/DesktopServices.h>

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <filesystem>
#include <future>
#include <set>
#include <system_error>

#include "Interrupt.h"
#include "KeyringWords.h"
#include "ModelPack.h"
#include "Session.h"
#include "UsbAccess.h"

namespace dmf::tool {

namespace {

namespace fs = std::filesystem;

Json check(const char* name, bool isGood, const std::string& message, const std::string& advice = {})
{
    return {{"name", name},
            {"good", isGood},
            {"message", message},
            {"advice", advice.empty() ? Json(nullptr) : Json(advice)}};
}

/// Of the logs that are there, and of this program's: those that this user's programs do not write, and why.
std::string logsNotWritten(const fs::path& folder)
{
    std::set<std::string> files{folder / "DMF_dmf.log"};
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename();
        if (name.starts_with("DMF_") && name.ends_with(".log"))
            files.insert(entry.path());
    }
    std::string reasons;
    for (const auto& file : files)
        if (const auto reason = ADMLogger::reasonNotToLog(file); !reason.empty())
            reasons += (reasons.empty() ? "" : "; ") + reason;
    return reasons;
}

Json checkLog()
{
    const std::string folder = fs::path(kDMLogConfigPath).parent_path();
    const auto level = ADMLogger::environmentLogLevel();
    std::error_code error;
    if (!fs::is_directory(folder, error))
        return check("log", false, folder + " does not exist, so nothing is logged",
                     "make it as root: 'dmf log errors' does, and sets a level");
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
        return check("log", false, folder + " cannot be written to, so this user's programs log nothing",
                     "as root: chmod 1777 " + folder);
    if (const auto reasons = logsNotWritten(folder); !reasons.empty())
        return check("log", false, "this user's programs do not write all logs: " + reasons,
                     "as root: 'dmf log --shared PROGRAM' makes DMF_PROGRAM.log one for all users");
    return check("log", true, folder + " is there; the level is " + level.value_or("not set, so nothing is logged"));
}

Json checkModels()
{
    const std::string folder = ADMPrivateModelInfoManager::sharedManager()->modelInfoPathForTable(kDMFKey);
    const std::string advice = "install the model database, or make one: dmf modeldb pack";
    std::error_code error;
    if (!fs::is_directory(folder, error))
        return check("models", false, "there is no model database in " + folder, advice);
    const ModelListing listing = listModels(folder);
    if (!listing.problems.empty())
        return check("models", false,
                     std::to_string(listing.problems.size()) + " files in " + folder + " cannot be read",
                     "dmf modeldb verify '" + folder + "' tells which");
    if (listing.entries.empty())
        return check("models", false, "the model database in " + folder + " is empty", advice);
    return check("models", true, std::to_string(listing.entries.size()) + " files in " + folder);
}

Json checkBundles()
{
    std::size_t good = 0;
    std::string refused;
    for (const auto& report : ADMPlugInManager::sharedManager()->examineAllPlugIns()) {
        if (report.state == ADMPlugInReport::State::refused)
            refused += (refused.empty() ? "" : "; ") + fs::path(report.path).filename().string() + ": " + report.reason;
        else
            ++good;
    }
    if (!refused.empty())
        return check("bundles", false, "refused: " + refused, "dmf plugins tells more");
    if (good == 0)
        return check("bundles", false, "there are none: no device can be reached", "install the library's bundles");
    return check("bundles", true, std::to_string(good) + " can be used");
}

Json checkBus(const char* name, Bus bus, const char* use)
{
    switch (busServiceState(bus, "org.freedesktop.DBus")) {
    case BusServiceState::answers: return check(name, true, "answers");
    case BusServiceState::silent: return check(name, false, "does not answer", "look whether the bus's program hangs");
    default:
        return check(name, false, std::string("there is none: no ") + use,
                     bus == Bus::session ? "log in to a desktop session, or set DBUS_SESSION_BUS_ADDRESS"
                                         : "install and start dbus");
    }
}

Json checkAvahi()
{
    const char* const advice = "install and start avahi-daemon";
    switch (busServiceState(Bus::system, "org.freedesktop.Avahi")) {
    case BusServiceState::answers: return check("avahi", true, "answers");
    case BusServiceState::silent:
        return check("avahi", false, "does not answer", "look whether avahi-daemon hangs, and start it anew");
    case BusServiceState::noBus: return check("avahi", false, "cannot be reached without a system bus", advice);
    case BusServiceState::missing: break;
    }
    return check("avahi", false, "does not run: devices on the network are not found", advice);
}

Json checkKeyring()
{
    const auto state = keyringState();
    const auto [message, advice] = keyringWords(state);
    return check("keyring", state == KeyringState::ready, message, advice);
}

const char* adviceFor(UsbPrinter::Access access)
{
    switch (access) {
    case UsbPrinter::Access::open: break;
    case UsbPrinter::Access::noPermission:
        return "become a member of the group that owns the file, often lp, or open it by a udev rule "
               "(docs/usb.md has one)";
    case UsbPrinter::Access::noNode: return "in a container, hand /dev/bus/usb in";
    case UsbPrinter::Access::claimed: return "end the program that has it: fuser shows which";
    }
    return "";
}

Json checkUsb()
{
    if (!hasUsb())
        return check("usb", false, "this machine shows no tree of USB devices, so none is found",
                     "in a container, hand /sys and /dev/bus/usb in");
    const auto printers = usbPrinters();
    if (printers.empty())
        return check("usb", true, "no printer is plugged in");
    std::string list, advice;
    for (const auto& printer : printers) {
        const char* trouble = "";
        switch (printer.access) {
        case UsbPrinter::Access::open: break;
        case UsbPrinter::Access::noPermission: trouble = ", this user may not use it"; break;
        case UsbPrinter::Access::noNode: trouble = ", which is not there"; break;
        case UsbPrinter::Access::claimed: trouble = ", another program uses it"; break;
        }
        const auto driver = printer.access == UsbPrinter::Access::open && !printer.driver.empty()
                                ? ", driver " + printer.driver
                                : std::string();
        list += (list.empty() ? "" : "; ") + printer.name + " (" + printer.node + driver + trouble + ")";
        if (advice.empty())
            advice = adviceFor(printer.access);
    }
    return check("usb", advice.empty(), list, advice);
}

std::string forPeople(const Json& fields)
{
    std::string text;
    for (const auto& each : fields["checks"]) {
        text += (each["good"].get<bool>() ? "good     " : "trouble  ") + each["name"].get<std::string>() + ": " +
                printable(each["message"].get<std::string>()) + '\n';
        if (!each["advice"].is_null())
            text += "         -> " + printable(each["advice"].get<std::string>()) + '\n';
    }
    return text;
}

ExitCode examine(Session& session)
{
    const Interrupt::Scope scope({});
    // Each of these waits for somebody else's process: all at once, so that together they take no longer than one.
    auto sessionBus = std::async(std::launch::async, [] { return checkBus("session bus", Bus::session, "keyring"); });
    auto systemBus = std::async(std::launch::async, [] { return checkBus("system bus", Bus::system, "Avahi"); });
    auto avahi = std::async(std::launch::async, checkAvahi);
    auto keyring = std::async(std::launch::async, checkKeyring);

    Json fields;
    fields["checks"] = {checkLog(), checkModels(), checkBundles()};
    for (auto* const answer : {&sessionBus, &systemBus, &avahi, &keyring})
        fields["checks"].push_back(answer->get());
    fields["checks"].push_back(checkUsb());
    Interrupt::check();
    session.out.result(fields, &forPeople);
    return ExitCode::done;
}

} // namespace

void addDoctorCommand(CLI::App& root, Session& session)
{
    CLI::App* const command = addCommand(
        root, "doctor", "What of this machine the library can use, and what to do about the rest", "  dmf doctor",
        "Looks at the log folder, the model database, the bundles, the message buses, Avahi, the keyring and the\n"
        "access to USB printers. Takes a few seconds at most. Trouble is told and no failure: the exit status is 0.");
    onCommand(command, session, [&session] { return examine(session); });
}

} // namespace dmf::tool
