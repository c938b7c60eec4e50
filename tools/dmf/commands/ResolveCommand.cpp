#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/RunLoop.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <memory>

#include "Attempts.h"
#include "Interrupt.h"
#include "Services.h"
#include "Session.h"

namespace dmf::tool {

namespace {

struct ResolveOptions {
    std::string uri, deviceClass;
    double timeout = 10.0;
};

const char* stateName(std::uint32_t state)
{
    static constexpr const char* kNames[] = {"not resolved", "resolved", "failed"};
    return state < std::size(kNames) ? kNames[state] : "unknown";
}

Json describeAttempts(const std::vector<Attempts::Attempt>& attempts)
{
    Json list = Json::array();
    for (const auto& attempt : attempts)
        list.push_back({{"seconds", rounded(attempt.seconds)}, {"found", attempt.found}});
    return list;
}

[[noreturn]] void failResolution(const Dictionary& error, const std::vector<Attempts::Attempt>& attempts,
                                 const Json& fields)
{
    if (error.empty()) // the device answered, but not as one of ours
        throw Failure(ExitCode::failed, "the device was reached, but the vendor that it tells is not supported",
                      fields);
    std::string reason = error.string(kDMErrorDescription).value_or("the device could not be resolved");
    const bool late = !attempts.empty() && attempts.back().found;
    reason += late ? " The device was found, but not at the first attempt, which alone counts: try again."
                   : " No device answered in " + std::to_string(attempts.size()) +
                         (attempts.size() == 1 ? " attempt." : " attempts.");
    throw Failure(ExitCode::timedOut, reason, fields);
}

ExitCode resolve(Session& session, const ResolveOptions& options)
{
    const auto service = serviceForURI(options.uri, options.deviceClass);
    requireTransport(*service);
    const auto runLoop = RunLoop::current();
    const Interrupt::Scope scope([runLoop] { runLoop->stop(); });

    Attempts attempts(runLoop, [&session](std::size_t number, const Attempts::Attempt& attempt) {
        session.out.note("attempt " + std::to_string(number) + ", " + decimal(attempt.seconds, 1) +
                         " s: " + (attempt.found ? "found" : "not found"));
    });
    attempts.observe(service->connectionType().value_or(""));

    Dictionary failure;
    const auto delegate = std::make_shared<ADMServiceInfoDelegate>();
    delegate->serviceInfoDidResolve = [&runLoop](ADMServiceInfo&) { runLoop->stop(); };
    delegate->serviceInfoDidNotResolve = [&](ADMServiceInfo&, const Dictionary& error) {
        failure = error;
        runLoop->stop();
    };
    service->setDelegate(delegate);
    service->scheduleInRunLoop(runLoop, kDefaultRunLoopMode);
    service->resolveWithTimeout(options.timeout);
    runLoop->run();
    service->stop();
    Interrupt::check();

    const double seconds = attempts.elapsed();
    const auto made = attempts.made();
    Json fields;
    fields["state"] = stateName(service->serviceState());
    fields["info"] = made.empty() ? Json(nullptr) : toJson(Value(made.back().info));
    fields["attempts"] = describeAttempts(made);
    fields["seconds"] = rounded(seconds);
    if (service->serviceState() != 1)
        failResolution(failure, made, fields);
    session.out.result(fields, [](const Json& all) {
        Json shown = all;
        shown.erase("attempts"); // told as they were made
        return describe(shown);
    });
    return ExitCode::done;
}

} // namespace

void addResolveCommand(CLI::App& root, Session& session)
{
    CLI::App* const command =
        addCommand(root, "resolve", "Looks for the device behind a URI, once a second, and asks it who it is",
                   "  dmf resolve 'socket://printer1/?vendor=QL&product=Aurora%20450n' --timeout 5");
    const auto options = std::make_shared<ResolveOptions>();
    command->add_option("URI", options->uri, "The service's URI")->required();
    addDeviceClassOption(command, options->deviceClass);
    addTimeoutOption(command, options->timeout, "How long to try");
    onCommand(command, session, [&session, options] { return resolve(session, *options); });
}

} // namespace dmf::tool
