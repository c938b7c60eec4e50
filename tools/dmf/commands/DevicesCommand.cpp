#include <dmf/ADMBaseDiscovery.h>
#include <dmf/DMKeys.h>
#include <dmf/DeviceList.h>
#include <dmf/platform/RunLoop.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <memory>

#include "Interrupt.h"
#include "Session.h"

namespace dmf::tool {

namespace {

struct DevicesOptions {
    std::vector<std::string> types;
    std::string channel = "Print";
    double timeout = 5.0;
    bool hasTimeout = false, follow = false, why = false;
};

const char* kindName(DeviceEvidence::Kind kind)
{
    switch (kind) {
    case DeviceEvidence::Kind::serialNumber: return "serial number";
    case DeviceEvidence::Kind::macAddress: return "MAC address";
    case DeviceEvidence::Kind::uuid: return "UUID";
    }
    return "";
}

Json describeEvidence(const std::vector<DeviceEvidence>& evidence)
{
    Json list = Json::array();
    for (const auto& [kind, text] : evidence)
        list.push_back({{"kind", kindName(kind)}, {"value", text}});
    return list;
}

/// One run of the command.
class DeviceWatch {
    using Clock = std::chrono::steady_clock;

public:
    DeviceWatch(Session& session, const DevicesOptions& options)
        : session_(session), options_(options), list_(DeviceList::withChannelNames({options.channel}))
    {
        delegate_->deviceAdded = [this](DeviceList&, const Device& device) { tell("added", '+', device, {}); };
        delegate_->deviceChanged = [this](DeviceList&, const Device& device, const std::string& earlierName) {
            tell("changed", '*', device, earlierName);
        };
        delegate_->deviceRemoved = [this](DeviceList&, const Device& device) { tell("removed", '-', device, {}); };
    }

    ExitCode run()
    {
        const auto runLoop = RunLoop::current();
        const Interrupt::Scope scope([runLoop] { runLoop->stop(); });
        list_->setDelegate(delegate_);
        list_->scheduleInRunLoop(runLoop, kDefaultRunLoopMode);
        if (!list_->start(options_.types))
            throw Failure(ExitCode::failed, "the discovery did not start");
        while (!Interrupt::requested() && Clock::now() < end()) {
            const double left = std::chrono::duration<double>(end() - Clock::now()).count();
            runLoop->runMode(kDefaultRunLoopMode, Date::now().addingTimeInterval(std::min(left, 3600.0)), true);
        }
        for (const auto& source : list_->discovery()->sources()) {
            const auto reason = source.error.string(kDMErrorDescription).value_or("");
            if (source.state == ADMDiscoverySource::State::missing)
                session_.out.note(source.connectionType + ": no plug-in of this machine looks for such devices");
            else if (!reason.empty())
                session_.out.note(source.connectionType + ": " + reason);
        }
        list_->stop();
        return options_.follow ? endOfFollowing() : tellAll();
    }

private:
    [[nodiscard]] Clock::time_point end() const
    {
        if (options_.follow && !options_.hasTimeout)
            return Clock::time_point::max();
        const std::chrono::duration<double> limit(std::min(options_.timeout, 3.0e7));
        return (options_.follow ? start_ : lastChange_) + std::chrono::duration_cast<Clock::duration>(limit);
    }

    [[nodiscard]] Json describeDevice(const Device& device) const
    {
        Json fields;
        fields["name"] = device.name;
        fields["vendorName"] = device.vendor;
        fields["modelName"] = device.model;
        fields["serialNumber"] = device.serialNumber;
        fields["ways"] = Json::array();
        for (const auto& way : device.ways)
            fields["ways"].push_back({{"uri", way.uri},
                                      {"connectionType", way.connectionType},
                                      {"evidence", describeEvidence(way.evidence)}});
        if (const auto best = list_->bestWay(device, options_.channel))
            fields["best"] = {{"uri", best->way.uri}, {"reason", best->reason}};
        else
            fields["best"] = nullptr;
        fields["sharedEvidence"] = describeEvidence(device.sharedEvidence());
        fields["suspicion"] = device.suspicion.empty() ? Json(nullptr) : Json(device.suspicion);
        return fields;
    }

    /// "ql/aurora%20450n/SN77  (QL Aurora 450n)", then a line for each way, the best one marked.
    [[nodiscard]] std::string linesOf(const Device& device) const
    {
        const auto best = list_->bestWay(device, options_.channel);
        const auto title = device.vendor + (device.vendor.empty() || device.model.empty() ? "" : " ") + device.model;
        std::string text = printable(device.name + (title.empty() ? "" : "  (" + title + ")")) + '\n';
        for (const auto& way : device.ways) {
            const bool isBest = best && best->way.uri == way.uri;
            text += printable(std::string(isBest ? "  > " : "    ") + way.connectionType + "  " + way.uri) + '\n';
        }
        if (!device.suspicion.empty())
            text += printable("    doubtful: " + device.suspicion) + '\n';
        if (!options_.why)
            return text;
        for (const auto& [kind, value] : device.sharedEvidence())
            text += printable(std::string("    one device by its ") + kindName(kind) + ": " + value) + '\n';
        if (best)
            text += printable("    " + best->way.uri + ": " + best->reason) + '\n';
        return text;
    }

    void tell(const char* event, char sign, const Device& device, const std::string& earlierName)
    {
        lastChange_ = Clock::now();
        if (!options_.follow)
            return;
        if (!session_.out.json) {
            session_.out.bytes(std::string(1, sign) + ' ' + linesOf(device));
            return;
        }
        Json fields{{"event", event}, {"device", describeDevice(device)}};
        if (!earlierName.empty() && earlierName != device.name)
            fields["earlierName"] = earlierName;
        session_.out.result(fields);
    }

    ExitCode tellAll()
    {
        Json fields;
        fields["devices"] = Json::array();
        const auto devices = list_->devices();
        for (const auto& device : devices)
            fields["devices"].push_back(describeDevice(device));
        if (Interrupt::requested())
            throw Failure(ExitCode::interrupted, "interrupted", fields);
        if (devices.empty())
            throw Failure(ExitCode::nothingFound, "no device is there", fields);
        session_.out.result(fields, [&](const Json&) {
            std::string text;
            for (const auto& device : devices)
                text += linesOf(device);
            return text;
        });
        return ExitCode::done;
    }

    ExitCode endOfFollowing() const
    {
        if (Interrupt::requested())
            return ExitCode::interrupted;
        return list_->devices().empty() ? ExitCode::nothingFound : ExitCode::done;
    }

    Session& session_;
    const DevicesOptions& options_;
    const std::shared_ptr<DeviceList> list_;
    const std::shared_ptr<DeviceListDelegate> delegate_ = std::make_shared<DeviceListDelegate>();
    const Clock::time_point start_ = Clock::now();
    Clock::time_point lastChange_ = start_;
};

} // namespace

void addDevicesCommand(CLI::App& root, Session& session)
{
    CLI::App* const command = addCommand(
        root, "devices", "Lists devices, each with all the ways to reach it", "  dmf devices --why",
        "Services of all sources are brought together by device: by serial number with vendor and model, MAC address "
        "or UUID. The way to be preferred for the channel is marked with >.");
    const auto options = std::make_shared<DevicesOptions>();
    command->add_option("--types", options->types, "The connection types, with commas between them")
        ->delimiter(',')
        ->type_name("T,...");
    command->add_option("--channel", options->channel, "The channel whose devices are looked for")
        ->type_name("NAME")
        ->capture_default_str();
    addTimeoutOption(command, options->timeout,
                     "End when nothing has changed for so long; with --follow, after so long, or never if not given");
    command->add_flag("--follow", options->follow, "Go on, and tell what is added, changed and removed");
    command->add_flag("--why", options->why, "Tell what makes several services one device, and the choice of the way");
    onCommand(command, session, [&session, options, command] {
        options->hasTimeout = command->get_option("--timeout")->count() > 0;
        session.out.oneLine = options->follow;
        return DeviceWatch(session, *options).run();
    });
}

} // namespace dmf::tool
