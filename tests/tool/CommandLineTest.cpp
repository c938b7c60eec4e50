#include <regex>

#include "ToolFixture.h"

namespace {

const std::vector<std::vector<std::string>> kCommands{{"uri"},
                                                      {"uri", "parse"},
                                                      {"uri", "make"},
                                                      {"uri", "make", "usb"},
                                                      {"uri", "make", "ip"},
                                                      {"uri", "make", "host"},
                                                      {"uri", "make", "bonjour"},
                                                      {"uri", "generate"},
                                                      {"info"},
                                                      {"model"},
                                                      {"model", "list"},
                                                      {"model", "show"},
                                                      {"model", "value"},
                                                      {"modeldb"},
                                                      {"modeldb", "pack"},
                                                      {"modeldb", "unpack"},
                                                      {"modeldb", "list"},
                                                      {"modeldb", "verify"},
                                                      {"resolve"},
                                                      {"send"},
                                                      {"plugins"},
                                                      {"simulate"},
                                                      {"log"}};

class CommandLine : public ToolTest {
protected:
    static std::string joined(const std::vector<std::string>& words)
    {
        std::string text;
        for (const auto& word : words)
            text += (text.empty() ? "" : " ") + word;
        return text;
    }
    static std::string withoutFontMarks(std::string page)
    {
        page = std::regex_replace(page, std::regex(R"(\\f[A-Z])"), "");
        return std::regex_replace(page, std::regex(R"(\\-)"), "-");
    }
    // What completion offers after these words, the last of which is being typed.
    static std::string completions(const std::vector<std::string>& words)
    {
        std::vector<std::string> command{
            "/bin/bash", "-c",
            "source \"$0\"; COMP_WORDS=(dmf \"$@\"); COMP_CWORD=$#; _dmf; echo \" ${COMPREPLY[*]} \"",
            DMF_SOURCE_FOLDER "/tools/dmf/completion/dmf.bash"};
        command.insert(command.end(), words.begin(), words.end());
        return Process::run(command).out;
    }
};

} // namespace

TEST_F(CommandLine, HelpManualAndCompletionKnowEveryCommandAndOption)
{
    const std::string page = withoutFontMarks(read(DMF_SOURCE_FOLDER "/tools/dmf/dmf.1"));
    const std::regex option(R"(\n  (?:-., ?)?(--[a-z-]+))");
    for (const auto& words : kCommands) {
        SCOPED_TRACE(joined(words));
        auto arguments = words;
        arguments.push_back("--help");
        const auto help = dmf(arguments);
        EXPECT_EQ(help.status, 0);
        EXPECT_NE(help.out.find("Example:\n  "), std::string::npos);
        EXPECT_EQ(help.err, "");
        EXPECT_NE(page.find(".SS " + words.front()), std::string::npos);

        auto before = words;
        before.back().pop_back(); // completes the command's own name ...
        EXPECT_NE(completions(words).find(' ' + words.back() + ' '), std::string::npos);
        auto after = words;
        after.push_back("-"); // ... and its options
        const std::string offered = completions(after);
        for (std::sregex_iterator match(help.out.begin(), help.out.end(), option), end; match != end; ++match) {
            EXPECT_NE(offered.find(' ' + (*match)[1].str() + ' '), std::string::npos) << (*match)[1];
            EXPECT_NE(page.find((*match)[1].str()), std::string::npos) << (*match)[1];
        }
    }
    EXPECT_EQ(dmf({"--version"}).out, "dmf 1.0.0\n");
}

TEST_F(CommandLine, AWrongOneIsToldWithStatus2InWordsAndInJson)
{
    const std::vector<std::vector<std::string>> wrong{
        {},
        {"fly"},
        {"uri"},
        {"uri", "parse"},
        {"uri", "parse", "usb://QL/M?serial=1", "more"},
        {"uri", "make", "usb", "--vendor", "QL"},
        {"send"},
        {"send", "socket://127.0.0.1:1", "--timeout", "soon"},
        {"resolve", "socket://127.0.0.1:1", "--timeout", "-1"},
        {"simulate", "--port", "65536"},
        {"simulate", "--answer", "\\q"},
        {"simulate", "--slow", "0"},
        {"log", "loud"},
        {"model", "value", "M", "P", "--location", "/tmp"},
        {"--log-file"},
    };
    for (const auto& arguments : wrong) {
        SCOPED_TRACE(joined(arguments));
        const auto plain = dmf(arguments);
        EXPECT_EQ(plain.status, 2);
        EXPECT_EQ(plain.out, "");
        EXPECT_TRUE(plain.err.starts_with("dmf: ")) << plain.err;

        auto withJson = arguments;
        withJson.insert(withJson.begin(), "--json");
        const auto result = dmf(withJson);
        EXPECT_EQ(result.status, 2);
        const Json object = parseObject(result.out);
        EXPECT_EQ(object["error"]["code"], 2);
        EXPECT_NE(object["error"]["message"], "");
    }
}

TEST_F(CommandLine, ALogFileReceivesWhatTheLibraryLogs)
{
    const std::string log = folder / "run.log";
    EXPECT_EQ(dmf({"--log-file", log, "uri", "parse", "usb://acme/M?serial=1"}).status, 1);
    EXPECT_NE(read(log).find("vendor 'acme' is not supported"), std::string::npos) << read(log);
    EXPECT_EQ(read(log).substr(0, 4), "W  [");

    const auto refused = dmf({"--log-file", folder, "uri", "parse", "usb://QL/M?serial=1"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
}

TEST_F(CommandLine, OutputIsTheSameInEveryLocale)
{
    const std::vector<std::vector<std::string>> commands{
        {"uri", "parse", "usb://QL/Model%20100?serial=CN12"},
        {"info", "socket://10.0.0.5/?vendor=QL&product=Aurora%20450n", "--json"},
        {"send", "--help"}, // holds a number with a fraction or without
        {"uri", "parse", "nonsense"},
    };
    for (const auto& arguments : commands) {
        const auto plain = dmf(arguments, {}, {{"LC_ALL", "C"}});
        const auto german =
            dmf(arguments, {}, {{"LC_ALL", "de_DE.UTF-8"}, {"LANGUAGE", "de"}, {"LANG", "de_DE.UTF-8"}});
        EXPECT_EQ(plain.out, german.out);
        EXPECT_EQ(plain.err, german.err);
        EXPECT_EQ(plain.status, german.status);
    }
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsAFailure)
{
    const auto result =
        Process::run({"/bin/sh", "-c", "exec " DMF_BUILD_FOLDER "/bin/dmf uri make host printer1 >/dev/full"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err, "");
}
