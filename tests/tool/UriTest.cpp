#include "ToolFixture.h"

using Uri = ToolTest;

TEST_F(Uri, MadeOnesStandAloneOnTheirLine)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"usb", "--product", "Model 100", "--vendor", "QL", "--serial", "CN12 34", "--scheme", "myapp"},
         "myapp://QLDMF/v=1&connectionType=USB&vendorName=QL&modelName=Model%20100&SerialNumber=CN12%2034"},
        {{"ip", "fe80::1%en0"}, "socket://[fe80::1%25en0]/?bidi"},
        {{"host", "printer1"}, "socket://printer1/?bidi"},
        {{"bonjour", "A", "--type", "_ipp._tcp.", "--domain", "example.org."},
         "dnssd://A._ipp._tcp.example.org./?bidi"},
    };
    for (const auto& [words, expected] : cases) {
        std::vector<std::string> arguments{"uri", "make"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const auto result = dmf(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, expected + '\n');
        EXPECT_EQ(result.err, "");
    }
    EXPECT_EQ(dmf({"uri", "make", "host", "two words"}).status, 1);
}

TEST_F(Uri, ParsedOnesShowTheirComponentsAndAreWrittenAnew)
{
    const auto result = json({"uri", "parse", "socket://printer1:9100/?vendor=QL&product=Model%209"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.json["standard"], true);
    EXPECT_EQ(result.json["components"], Json::parse(R"({
        "connectionType": "IP", "deviceName": "printer1", "modelName": "Model 9", "vendorName": "QL",
        "params": {"HostName": "printer1", "IPPort": "9100"}})"));
    EXPECT_EQ(json({"uri", "parse", "my://QLDMF/v=1&connectionType=Other&A=B"}).json["standard"], false);

    EXPECT_EQ(json({"uri", "generate", "socket://10.0.0.5:9100"}).json["uri"], "socket://10.0.0.5/?bidi");
    EXPECT_EQ(json({"uri", "generate", "usb://QL/M?serial=1", "--scheme", "my"}).json["uri"],
              "my://QLDMF/v=1&connectionType=USB&vendorName=QL&modelName=M&SerialNumber=1");
    EXPECT_EQ(json({"uri", "generate", "ipp://printer1"}).status, 1);
}

TEST_F(Uri, RefusalsSayWhy)
{
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "empty"},
        {"no uri at all", "no URI"},
        {"usb://QL/M%zz?serial=1", "no URI"},
        {"\xff\xfe://x", "no URI"},
        {"usb://acme/M?serial=1", "'acme' is not supported"},
        {"usb://QL", "not valid"},
        {"strange://host/path", "unknown connection type"},
        {"usb://QL/M%00", "escaped zero byte"},
        {"socket://" + std::string(100'000, 'x'), "too long"},
    };
    for (const auto& [uri, reason] : cases) {
        const auto result = json({"uri", "parse", uri});
        EXPECT_EQ(result.status, 1) << uri;
        EXPECT_EQ(result.json["error"]["code"], 1);
        EXPECT_NE(result.json["error"]["message"].get<std::string>().find(reason), std::string::npos) << result.json;
    }
    EXPECT_EQ(json({"uri", "generate", "usb://acme/M?serial=1"}).status, 1);
    const auto posing = dmf({"uri", "generate", "--scheme", "app",
                             "dnssd://X%26connectionType%3DIP%26HostName%3Devil.example%26._ipp._tcp.local./?bidi"});
    EXPECT_EQ(posing.status, 1);
    EXPECT_EQ(posing.out, "");
    EXPECT_NE(posing.err.find("reads back"), std::string::npos) << posing.err;
}

TEST_F(Uri, InfoTellsTheServiceWithoutItsDevice)
{
    const auto result = json({"info", "usb://QL/Some%20Model?serial=7", "--class", "scanner"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.json["deviceClass"], "com.ql.scanner");
    EXPECT_EQ(result.json["params"], Json::parse(R"({"SerialNumber": "7"})"));
    EXPECT_TRUE(result.json["hash"].is_number_unsigned());

    // The model is unknown: only the device could tell it, and a device there is none.
    const auto bare = json({"info", "socket://192.0.2.1"});
    EXPECT_EQ(bare.status, 0);
    EXPECT_TRUE(bare.json["modelName"].is_null());
    EXPECT_EQ(json({"info", "bluetooth://"}).status, 1);
}
