#include <dmf/ADMBaseDiscovery.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/RunLoop.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <optional>

#include "Interrupt.h"
#include "Session.h"

namespace dmf::tool {

namespace {

using Clock = std::chrono::steady_clock;

struct DiscoverOptions {
    std::vector<std::string> types;
    std::string channel = "Print";
    double timeout = 5.0;
    bool hasTimeout = false, follow = false;
};

/// Stands in for the device of a service that is only to be shown: a service that does not know its model would look
/// for its device and ask it, and that takes seconds.
class NobodyToAsk final : public IDMDevice {
public:
    [[nodiscard]] bool isReachable() override { return false; }
    [[nodiscard]] Dictionary retrieveParameters(const Dictionary&, std::shared_ptr<IDMDeviceHandler>) override
    {
        return {};
    }
};

Json describeService(ADMServiceInfo& service)
{
    const auto shown = service.copy();
    Json fields;
    fields["uri"] = toJson(service.uri());
    fields["deviceClass"] = toJson(service.deviceClass());
    fields["connectionType"] = toJson(service.connectionType());
    if (shown) {
        shown->setDevice(std::make_shared<NobodyToAsk>());
        fields["vendorName"] = toJson(shown->vendorName());
        fields["modelName"] = toJson(shown->modelName());
        fields["deviceName"] = toJson(shown->deviceName());
    }
    fields["serviceName"] = toJson(service.serviceName());
    fields["params"] = toJson(Value(service.connectionParams()));
    return fields;
}

/// "dnssd://Office._ipp._tcp.local./?bidi  (QL Model 9)"
std::string serviceLine(const Json& service)
{
    const auto text = [&](const char* key) {
        const auto found = service.find(key);
        return found != service.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    const auto vendor = text("vendorName");
    const auto name = vendor + (vendor.empty() || text("modelName").empty() ? "" : " ") + text("modelName");
    return printable(text("uri") + (name.empty() ? "" : "  (" + name + ")"));
}

/// Why a source finds nothing; empty when nothing is in the way.
std::string reasonOf(const ADMDiscoverySource& source)
{
    auto reason = source.error.string(kDMErrorDescription).value_or("");
    switch (source.state) {
    case ADMDiscoverySource::State::missing:
        return "no plug-in of this machine looks for such devices (see dmf plugins)";
    case ADMDiscoverySource::State::starting: return "it has not started yet";
    case ADMDiscoverySource::State::failed: return reason.empty() ? "it did not start" : reason;
    case ADMDiscoverySource::State::running:
    case ADMDiscoverySource::State::stopping:
    case ADMDiscoverySource::State::stopped: break;
    }
    return reason;
}

const char* stateName(ADMDiscoverySource::State state)
{
    switch (state) {
    case ADMDiscoverySource::State::missing: return "missing";
    case ADMDiscoverySource::State::failed: return "failed";
    case ADMDiscoverySource::State::starting: return "starting";
    case ADMDiscoverySource::State::running:
    case ADMDiscoverySource::State::stopping:
    case ADMDiscoverySource::State::stopped: break;
    }
    return "finished";
}

Json describeSource(const ADMDiscoverySource& source, const char* state)
{
    const auto reason = reasonOf(source);
    Json fields;
    fields["type"] = source.connectionType;
    fields["channel"] = source.channelName;
    fields["state"] = state;
    fields["reason"] = reason.empty() ? Json(nullptr) : Json(reason);
    fields["code"] = toJson(source.error[kDMErrorCode]);
    fields["finds"] = source.finds;
    return fields;
}

/// One run of the command.
class Watch {
public:
    Watch(Session& session, const DiscoverOptions& options) : session_(session), options_(options)
    {
        delegate_->discoveryDidFindService = [this](ADMDiscovery&, const auto& service) { found(*service); };
        delegate_->discoveryDidRemoveService = [this](ADMDiscovery&, const auto& service) { lost(*service); };
        delegate_->discoveryDidNotDiscover = [this](ADMDiscovery&, const Dictionary& error) {
            refusal_ = error.string(kDMErrorDescription).value_or("the discovery did not start");
        };
        delegate_->discoveryDidStop = [this](ADMDiscovery&) { hasStopped_ = true; };
    }

    ExitCode run()
    {
        const auto runLoop = RunLoop::current();
        const Interrupt::Scope scope([runLoop] { runLoop->stop(); });
        const auto discovery = ADMBaseDiscovery::initWithChannelNames({options_.channel});
        discovery->setDelegate(delegate_);
        discovery->scheduleInRunLoop(runLoop, kDefaultRunLoopMode);
        discovery->scheduleDiscoveryForConnectionTypes(options_.types);
        while (!Interrupt::requested() && refusal_.empty() && Clock::now() < end()) {
            const double left = std::chrono::duration<double>(end() - Clock::now()).count();
            // Sources tell nobody of their troubles: they are looked at now and then.
            runLoop->runMode(kDefaultRunLoopMode, Date::now().addingTimeInterval(std::min(left, 0.25)), true);
            if (options_.follow)
                tellChanges(discovery->sources());
        }
        const auto sources = discovery->sources(); // before they are stopped
        const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
        discovery->stop();
        for (const auto limit = Clock::now() + std::chrono::seconds(1); !hasStopped_ && Clock::now() < limit;)
            runLoop->runMode(kDefaultRunLoopMode, Date::now().addingTimeInterval(0.1), true);
        if (!refusal_.empty())
            throw Failure(ExitCode::failed, refusal_);
        return tellResult(sources, seconds);
    }

private:
    /// When there is nothing left to wait for: so long after the last find, or, when following, after the start.
    [[nodiscard]] Clock::time_point end() const
    {
        if (options_.follow && !options_.hasTimeout)
            return Clock::time_point::max();
        const std::chrono::duration<double> limit(std::min(options_.timeout, 3.0e7));
        return (options_.follow ? start_ : lastFind_) + std::chrono::duration_cast<Clock::duration>(limit);
    }

    void found(ADMServiceInfo& service)
    {
        lastFind_ = Clock::now();
        auto fields = describeService(service);
        tell("found", "+ ", fields);
        services_.insert_or_assign(service.uri().value_or(""), std::move(fields));
    }
    void lost(ADMServiceInfo& service)
    {
        const auto fields = describeService(service);
        if (options_.follow)
            tell("lost", "- ", fields);
        else
            session_.out.note("lost: " + serviceLine(fields));
        services_.erase(service.uri().value_or(""));
    }
    void tell(const char* event, const std::string& sign, const Json& service)
    {
        if (!session_.out.json)
            session_.out.bytes((options_.follow ? sign : "") + serviceLine(service) + '\n');
        else if (options_.follow)
            session_.out.result({{"event", event}, {"service", service}});
    }

    void tellChanges(const std::vector<ADMDiscoverySource>& sources)
    {
        for (const auto& source : sources) {
            if (source.state == ADMDiscoverySource::State::starting)
                continue;
            const auto reason = reasonOf(source);
            auto& told = toldReasons_.try_emplace(source.connectionType, "").first->second;
            if (told == reason)
                continue;
            told = reason;
            session_.out.note(source.connectionType + ": " + (reason.empty() ? "works again" : reason));
            if (session_.out.json)
                session_.out.result({{"event", "source"}, {"source", describeSource(source, "running")}});
        }
    }

    ExitCode tellResult(const std::vector<ADMDiscoverySource>& sources, double seconds)
    {
        Json fields;
        if (options_.follow)
            fields["event"] = "end";
        fields["services"] = Json::array();
        for (const auto& [uri, service] : services_)
            fields["services"].push_back(service);
        fields["sources"] = Json::array();
        for (const auto& source : sources) {
            fields["sources"].push_back(describeSource(source, stateName(source.state)));
            const auto reason = reasonOf(source);
            const auto finds = std::to_string(source.finds) + (source.finds == 1 ? " find" : " finds");
            session_.out.note(source.connectionType + ": " + (reason.empty() ? finds : reason));
        }
        fields["seconds"] = rounded(seconds);
        if (options_.follow) {
            if (session_.out.json)
                session_.out.result(fields);
            if (Interrupt::requested())
                return ExitCode::interrupted;
            fields = Json::object(); // told already
        } else if (Interrupt::requested()) {
            throw Failure(ExitCode::interrupted, "interrupted", fields);
        }
        if (services_.empty())
            throw Failure(ExitCode::nothingFound, "no service is there", fields);
        if (!options_.follow && session_.out.json)
            session_.out.result(fields);
        return ExitCode::done;
    }

    Session& session_;
    const DiscoverOptions& options_;
    const std::shared_ptr<ADMDiscoveryDelegate> delegate_ = std::make_shared<ADMDiscoveryDelegate>();
    const Clock::time_point start_ = Clock::now();
    Clock::time_point lastFind_ = start_;
    std::map<std::string, Json> services_; // by URI
    std::map<std::string, std::string> toldReasons_;
    std::string refusal_;
    bool hasStopped_ = false;
};

} // namespace

void addDiscoverCommand(CLI::App& root, Session& session)
{
    CLI::App* const command = addCommand(
        root, "discover", "Looks for services, and tells each as it is found",
        "  dmf discover --types Rendezvous --timeout 3",
        "In the end it tells what became of each source. Types are USB, Rendezvous, IP and Bluetooth, all of "
        "them if not given, and those of further plug-ins, such as Simulated.");
    const auto options = std::make_shared<DiscoverOptions>();
    command->add_option("--types", options->types, "The connection types, with commas between them")
        ->delimiter(',')
        ->type_name("T,...");
    command->add_option("--channel", options->channel, "The channel whose services are looked for")
        ->type_name("NAME")
        ->capture_default_str();
    addTimeoutOption(
        command, options->timeout,
        "End when nothing has been found for so long; with --follow, after so long, or never if not given");
    command->add_flag("--follow", options->follow,
                      "Go on, and tell what is lost and what is in the way, too; in JSON, one object a line");
    onCommand(command, session, [&session, options, command] {
        options->hasTimeout = command->get_option("--timeout")->count() > 0;
        session.out.oneLine = options->follow;
        return Watch(session, *options).run();
    });
}

} // namespace dmf::tool
