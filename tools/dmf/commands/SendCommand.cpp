#include <dmf/ADMChannelFactoryImp.h>
#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/RunLoop.h>

#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <system_error>

#include "Interrupt.h"
#include "Services.h"
#include "Session.h"
#include "Transfer.h"

namespace dmf::tool {

namespace {

struct SendOptions {
    std::string uri, deviceClass, file = "-", channel;
    double timeout = 30.0;
    bool answer = false;
};

// The file, or standard input for "-".
class Input {
public:
    explicit Input(const std::string& name) : isFile_(name != "-")
    {
        if (isFile_)
            descriptor_ = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0)
            throw Failure(ExitCode::failed, "cannot read " + name + ": " + std::generic_category().message(errno));
        if (S_ISDIR(status.st_mode))
            throw Failure(ExitCode::failed, "cannot read " + name + ": it is a folder");
        if (S_ISREG(status.st_mode))
            size_ = static_cast<std::uint64_t>(status.st_size);
    }
    ~Input()
    {
        if (isFile_ && descriptor_ >= 0)
            ::close(descriptor_);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
    [[nodiscard]] std::optional<std::uint64_t> size() const noexcept { return size_; }

private:
    bool isFile_;
    int descriptor_ = STDIN_FILENO;
    std::optional<std::uint64_t> size_;
};

/// Ends the search for a device when it takes too long.
class GivenUp final : public IDMDeviceHandler {
public:
    void giveUp() noexcept { isGivenUp_ = true; }
    [[nodiscard]] bool isCanceledForDevice(const IDMDevice*) override { return isGivenUp_; }

private:
    std::atomic<bool> isGivenUp_{false};
};

/// Finds the device and connects, both within one time-out.
std::shared_ptr<ADMDuplexDataChannel> openChannel(const SendOptions& options)
{
    const auto service = serviceForURI(options.uri, options.deviceClass);
    requireTransport(*service);
    const auto channel = ADMDataChannelFactory::init()->newDuplexDataChannelWithServiceInfo(service, options.channel);
    if (!channel)
        throw Failure(ExitCode::nothingFound, "no plug-in of this machine makes data channels to this device");
    const auto givenUp = std::make_shared<GivenUp>();
    const Interrupt::Scope scope(
        [channel, givenUp] {
            givenUp->giveUp();
            channel->close();
        },
        options.timeout);
    const auto limit = " within " + decimal(options.timeout, 1) + " s";
    Interrupt::check();
    if (auto device = service->locateDeviceWithHandler(givenUp))
        service->setDevice(std::move(device));
    Interrupt::check();
    if (scope.timedOut())
        throw Failure(ExitCode::timedOut, "the device was not found" + limit);
    const bool opened = channel->open();
    Interrupt::check();
    if (opened && !scope.timedOut())
        return channel;
    if (scope.timedOut())
        throw Failure(ExitCode::timedOut, "the channel to the device was not open" + limit);
    throw Failure(ExitCode::failed, "the device cannot be reached: it refuses the connection, or does not exist");
}

std::string summary(const Json& fields)
{
    return "sent " + byteCount(fields["bytes"].get<std::uint64_t>()) + " in " +
           decimal(fields["seconds"].get<double>(), 2) + " s\n";
}

/// The document was sent, but the device did not say that it took it.
Failure unfinished(const Dictionary& error, Json fields)
{
    const Number* const code = error[kDMErrorCode].asNumber();
    if (code && code->int32Value() == static_cast<std::int32_t>(ChannelError::timedOut))
        return {ExitCode::timedOut, "the device did not say within the time-out that it has taken the document",
                fields};
    return {ExitCode::failed, "the device did not take the document", std::move(fields)};
}

ExitCode send(Session& session, const SendOptions& options)
{
    const auto start = std::chrono::steady_clock::now();
    const Input input(options.file);
    const auto channel = openChannel(options);

    const auto runLoop = RunLoop::current();
    const Interrupt::Scope scope([runLoop, channel] {
        runLoop->stop();
        channel->close();
    });
    Transfer transfer(session.out, channel, {options.timeout, options.answer, input.size()});
    const auto outcome = transfer.run(input.descriptor());
    Dictionary refusal;
    // A device that is to answer may take the end of the document for the end of the conversation.
    const bool isPrinted = outcome.code != ExitCode::done || options.answer || Interrupt::requested() ||
                           channel->finishWriting(options.timeout, &refusal);
    channel->close();
    session.out.progress({});

    Json fields;
    fields["bytes"] = outcome.bytes;
    fields["seconds"] = rounded(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    if (options.answer && session.out.json)
        fields["answer"] = outcome.answer;
    if (Interrupt::requested())
        throw Failure(ExitCode::interrupted, "interrupted after " + byteCount(outcome.bytes), fields);
    if (outcome.code != ExitCode::done)
        throw Failure(outcome.code, outcome.reason + " after " + byteCount(outcome.bytes), fields);
    if (!isPrinted)
        throw unfinished(refusal, fields);
    if (options.answer && !session.out.json) // standard output belongs to the device's answer
        session.out.note(summary(fields).substr(0, summary(fields).size() - 1));
    else
        session.out.result(fields, &summary);
    return ExitCode::done;
}

} // namespace

void addSendCommand(CLI::App& root, Session& session)
{
    CLI::App* const command =
        addCommand(root, "send", "Opens a data channel to a device and sends it a file or standard input",
                   "  dmf send 'socket://printer1:9100' page.prn\n"
                   "  printf '@PJL INFO ID\\r\\n' | dmf send 'socket://printer1' --answer --timeout 2");
    const auto options = std::make_shared<SendOptions>();
    options->channel = kDMPrintChannelName;
    command->add_option("URI", options->uri, "The service's URI")->required();
    command->add_option("FILE", options->file, "What to send; - or nothing for standard input");
    addDeviceClassOption(command, options->deviceClass);
    command->add_option("--channel", options->channel, "The channel's name")->type_name("NAME")->capture_default_str();
    addTimeoutOption(command, options->timeout, "How long opening and each block of data may take");
    command->add_flag("--answer", options->answer,
                      "Print what the device sends, until it ends or the time-out has "
                      "passed since the last byte was sent");
    onCommand(command, session, [&session, options] { return send(session, *options); });
}

} // namespace dmf::tool
