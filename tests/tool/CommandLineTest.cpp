#include <regex>
#include <sstream>

#include "ToolFixture.h"
#include "support/Pieces.h"

namespace {

const auto kCommands =
    pieces("uri|uri parse|uri make|uri make usb|uri make ip|uri make host|uri make bonjour|uri generate|info|model"
           "|model list|model show|model value|modeldb|modeldb pack|modeldb unpack|modeldb list|modeldb verify|resolve"
           "|send|plugins|plugin|plugin new|simulate|log|device-id|credentials|credentials store|credentials "
           "show|lock|doctor");

class CommandLine : public ToolTest {
protected:
    static std::string withoutFontMarks(std::string page)
    {
        page = std::regex_replace(page, std::regex(R"(\\f[A-Z])"), "");
        return std::regex_replace(page, std::regex(R"(\\-)"), "-");
    }
    // What completion offers after each of the lines, the last word of which is being typed: a line each.
    static std::vector<std::string> completions(const std::vector<std::string>& lines)
    {
        std::string input;
        for (const auto& line : lines)
            input += line + '\n';
        const std::string script = "source \"$0\"; while IFS= read -r line; do read -r -a words <<<\"$line\"; "
                                   "COMP_WORDS=(dmf \"${words[@]}\"); COMP_CWORD=${#words[@]}; _dmf; "
                                   "echo \" ${COMPREPLY[*]} \"; done";
        const auto result =
            Process::run({"/bin/bash", "-c", script, DMF_SOURCE_FOLDER "/tools/dmf/completion/dmf.bash"}, input);
        std::istringstream offered(result.out);
        std::vector<std::string> list;
        for (std::string line; std::getline(offered, line);)
            list.push_back(line);
        return list;
    }
};

} // namespace

TEST_F(CommandLine, HelpManualAndCompletionKnowEveryCommandAndOption)
{
    const std::string page = withoutFontMarks(read(DMF_SOURCE_FOLDER "/tools/dmf/dmf.1"));
    const std::regex option(R"(\n  (?:-., ?)?(--[a-z-]+))");
    std::vector<std::string> typed;
    for (const auto& command : kCommands) {
        typed.push_back(command.substr(0, command.size() - 1)); // the command's own name ...
        typed.push_back(command + " -");                        // ... and its options
    }
    const auto offered = completions(typed);
    ASSERT_EQ(offered.size(), 2 * kCommands.size());
    for (std::size_t i = 0; i < kCommands.size(); ++i) {
        SCOPED_TRACE(kCommands[i]);
        const auto help = dmf(words(kCommands[i] + " --help"));
        EXPECT_EQ(help.status, 0);
        EXPECT_NE(help.out.find("Example:\n  "), std::string::npos);
        EXPECT_EQ(help.err, "");
        EXPECT_NE(page.find(".SS " + words(kCommands[i]).front()), std::string::npos);
        EXPECT_NE(offered[2 * i].find(' ' + words(kCommands[i]).back() + ' '), std::string::npos);
        for (std::sregex_iterator match(help.out.begin(), help.out.end(), option), end; match != end; ++match) {
            EXPECT_NE(offered[2 * i + 1].find(' ' + (*match)[1].str() + ' '), std::string::npos) << (*match)[1];
            EXPECT_NE(page.find((*match)[1].str()), std::string::npos) << (*match)[1];
        }
    }
    EXPECT_EQ(dmf({"--version"}).out, "dmf 1.0.0\n");
}

TEST_F(CommandLine, AWrongOneIsToldWithStatus2InWordsAndInJson)
{
    for (const std::string& line :
         pieces("|fly|uri|uri parse|uri parse usb://QL/M?serial=1 more|uri make usb --vendor QL|send"
                "|send socket://127.0.0.1:1 --timeout soon|resolve socket://127.0.0.1:1 --timeout -1"
                "|simulate --port 65536|simulate --answer \\q|simulate --slow 0|log loud"
                "|model value M P --location /tmp|--log-file")) {
        SCOPED_TRACE(line);
        const auto result = dmf(words("--json " + line));
        EXPECT_EQ(result.status, 2);
        EXPECT_TRUE(result.err.starts_with("dmf: ")) << result.err;
        const Json object = parseObject(result.out);
        EXPECT_EQ(object["error"]["code"], 2);
        EXPECT_NE(object["error"]["message"], "");
    }
    const auto plain = dmf({"fly"});
    EXPECT_EQ(plain.status, 2);
    EXPECT_EQ(plain.out, "");
    EXPECT_NE(plain.err.find("'fly'"), std::string::npos);
}

TEST_F(CommandLine, ALogFileReceivesWhatTheLibraryLogsAndOutputThatCannotBeWrittenIsAFailure)
{
    const std::string log = folder / "run.log";
    EXPECT_EQ(dmf({"--log-file", log, "uri", "parse", "usb://acme/M?serial=1"}).status, 1);
    EXPECT_NE(read(log).find("vendor 'acme' is not supported"), std::string::npos) << read(log);
    EXPECT_EQ(read(log).substr(0, 4), "W  [");
    // What the library says of models only while logging is configured, too.
    const std::string models = folder / "models.log";
    (void)dmf({"--log-file", models, "model", "value", "No such model", "nothing/there", "--table", "NoSuchTable"});
    EXPECT_NE(read(models).find("ModelInfo: "), std::string::npos) << read(models);

    const auto refused = dmf({"--log-file", folder, "uri", "parse", "usb://QL/M?serial=1"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    const auto unwritten =
        Process::run({"/bin/sh", "-c", "exec " DMF_BUILD_FOLDER "/bin/dmf uri make host printer1 >/dev/full"});
    EXPECT_EQ(unwritten.status, 1);
    EXPECT_NE(unwritten.err, "");
}

TEST_F(CommandLine, OutputIsTheSameInEveryLocale)
{
    for (const auto& line : // one holds a number with a fraction or without
         pieces("uri parse usb://QL/Model%20100?serial=CN12|send --help|uri parse nonsense"
                "|info socket://10.0.0.5/?vendor=QL&product=Aurora%20450n --json")) {
        const auto plain = dmf(words(line), {}, {{"LC_ALL", "C"}});
        const auto german =
            dmf(words(line), {}, {{"LC_ALL", "de_DE.UTF-8"}, {"LANGUAGE", "de"}, {"LANG", "de_DE.UTF-8"}});
        EXPECT_EQ(plain.out, german.out);
        EXPECT_EQ(plain.err, german.err);
        EXPECT_EQ(plain.status, german.status);
    }
}
