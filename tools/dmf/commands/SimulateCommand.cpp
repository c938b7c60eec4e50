#include <dmf/DMStringExtension.h>

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>

#include "Interrupt.h"
#include "LoopbackDevice.h"
#include "Session.h"

namespace dmf::tool {

namespace {

struct SimulateOptions {
    LoopbackDevice::Behaviour behaviour;
    std::string vendor = "QL";
    std::string product = "Aurora 450n";
};

// "\n", "\r", "\t", "\\" and "\xHH": device languages are full of control characters.
std::string unescaped(const std::string& text)
{
    static constexpr std::pair<char, char> kLetters[] = {{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'\\', '\\'}};
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            result += text[i];
            continue;
        }
        const char kind = i + 1 < text.size() ? text[i + 1] : '\0';
        const auto* const letter = std::find_if(std::begin(kLetters), std::end(kLetters),
                                                [kind](const auto& entry) { return entry.first == kind; });
        if (letter != std::end(kLetters)) {
            result += letter->second;
            ++i;
            continue;
        }
        const auto byte = kind == 'x' && i + 3 < text.size()
                              ? com_ql_dmf_dataFromHexadecimalRepresentation(text.substr(i + 2, 2))
                              : std::nullopt;
        if (!byte)
            throw Failure(ExitCode::wrongCommandLine, "--answer: after \\ stands one of n, r, t, \\ and xHH");
        result += byte->text();
        i += 3;
    }
    return result;
}

ExitCode simulate(Session& session, const SimulateOptions& options)
{
    auto behaviour = options.behaviour;
    behaviour.answer = unescaped(behaviour.answer);
    const Interrupt::Scope scope({});
    LoopbackDevice device(std::move(behaviour), [&session](const std::string& text) { session.out.note(text); });
    Json fields;
    fields["uri"] = "socket://127.0.0.1:" + std::to_string(device.port()) +
                    "/?vendor=" + com_ql_dmf_stringByEncodingToURLNotation(options.vendor) +
                    "&product=" + com_ql_dmf_stringByEncodingToURLNotation(options.product);
    session.out.result(fields, [](const Json& all) { return all["uri"].get<std::string>() + '\n'; });
    if (!session.out.finish()) // whoever waits for the URI must not wait for ever
        throw Failure(ExitCode::failed, "cannot write the URI");
    device.run(Interrupt::descriptor());
    return ExitCode::interrupted;
}

} // namespace

void addSimulateCommand(CLI::App& root, Session& session)
{
    CLI::App* const command =
        addCommand(root, "simulate", "A raw-socket device on the loopback interface to try programs on",
                   "  dmf simulate --port 9100 --answer 'READY\\r\\n'",
                   "Prints its URI when it is ready, tells on standard error what clients do, and runs until it is "
                   "ended (Ctrl-C).");
    const auto options = std::make_shared<SimulateOptions>();
    auto& behaviour = options->behaviour;
    command->add_option("--port", behaviour.port, "The TCP port; any free one if not given")->type_name("P");
    command
        ->add_option("--answer", behaviour.answer,
                     "Sent once to each client, as soon as its first bytes have come; "
                     "\\n, \\r, \\t, \\\\ and \\xHH count")
        ->type_name("TEXT");
    command->add_option("--drop-after", behaviour.dropAfter, "Break the connection after this many bytes")
        ->type_name("N");
    command->add_flag("--never-read", behaviour.neverRead, "Take connections but read nothing");
    requirePositive(
        command->add_option("--slow", behaviour.bytesPerSecond, "Read no more than this many bytes a second")
            ->type_name("BYTES_PER_S"));
    command->add_option("--vendor", options->vendor, "The vendor that the URI tells")->capture_default_str();
    command->add_option("--product", options->product, "The model that the URI tells")->capture_default_str();
    onCommand(command, session, [&session, options] { return simulate(session, *options); });
}

} // namespace dmf::tool
