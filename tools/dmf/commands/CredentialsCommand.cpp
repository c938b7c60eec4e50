#include <dmf/ADMServiceInfo.h>
#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>

#include <CLI/CLI.hpp>

#include <memory>

#include "Interrupt.h"
#include "KeyringWords.h"
#include "PasswordInput.h"
#include "Services.h"
#include "Session.h"

namespace dmf::tool {

namespace {

struct Options {
    std::string uri, username, deviceClass;
};

ExitCode store(Session& session, const Options& options)
{
    const auto service = serviceForURI(options.uri, options.deviceClass);
    constexpr std::int32_t persistence = 0; // nobody asks for it again
    const Secret password = readPassword();
    const auto credential =
        ADMAuthenticationInfo::authenticationInfoWithUsername(options.username, password.view(), persistence);

    const Interrupt::Scope scope({}); // the user may be asked to unlock the keyring
    const bool isStored = credential->storeInKeychainForServiceInfo(service);
    Interrupt::check();
    Json fields{{"username", options.username}, {"stored", isStored}};
    if (!isStored) {
        const auto state = keyringState();
        throw Failure(ExitCode::failed,
                      state == KeyringState::ready
                          ? "the keyring did not take it: it holds a password of this user for this service already"
                          : std::string("the password was not kept: ") + keyringWords(state).state,
                      fields);
    }
    session.out.result(
        fields, [](const Json& all) { return "stored for " + printable(all["username"].get<std::string>()) + '\n'; });
    return ExitCode::done;
}

ExitCode show(Session& session, const Options& options)
{
    const auto service = serviceForURI(options.uri, options.deviceClass);
    const Interrupt::Scope scope({});
    const auto credential = ADMUsernameAndPasswordAuthenticationInfo::initFromKeychainForServiceInfo(service);
    Interrupt::check();
    Json fields{{"username", credential ? Json(credential->username()) : Json(nullptr)},
                {"found", credential != nullptr}};
    if (!credential) {
        const auto state = keyringState();
        throw Failure(ExitCode::nothingFound,
                      state == KeyringState::ready ? "the keyring holds no password for this service"
                                                   : keyringWords(state).state,
                      fields);
    }
    session.out.result(fields);
    return ExitCode::done;
}

} // namespace

void addCredentialsCommand(CLI::App& root, Session& session)
{
    CLI::App* const command =
        addCommand(root, "credentials", "Keeps user names and passwords of devices in the keyring, and finds them",
                   "  dmf credentials store 'socket://printer1/?vendor=QL&product=Aurora%20450n' admin",
                   "Programs that use the library find what is stored here, and the other way round. A password is "
                   "never\nan argument and never shown.");
    command->require_subcommand(1);
    const auto options = std::make_shared<Options>();

    CLI::App* const storing = addCommand(*command, "store", "Stores a user name with its password",
                                         "  dmf credentials store socket://printer1 admin\n"
                                         "  pass show printer1 | dmf credentials store socket://printer1 admin",
                                         "The password is asked for on the terminal, or is the first line of standard "
                                         "input. A password that is\nstored already stays as it is. Where the keyring "
                                         "is locked its program asks for the keyring's own\npassword, for up to 30 "
                                         "seconds.");
    storing->add_option("URI", options->uri, "The service's URI")->required();
    storing->add_option("USER", options->username, "The user name")->required();
    addDeviceClassOption(storing, options->deviceClass);
    onCommand(storing, session, [&session, options] { return store(session, *options); });

    CLI::App* const showing = addCommand(*command, "show", "Whether there is a password for a service, and whose",
                                         "  dmf credentials show socket://printer1");
    showing->add_option("URI", options->uri, "The service's URI")->required();
    addDeviceClassOption(showing, options->deviceClass);
    onCommand(showing, session, [&session, options] { return show(session, *options); });
}

} // namespace dmf::tool
