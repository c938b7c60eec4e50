#include <algorithm>

#include <gmock/gmock.h>

#include "ToolFixture.h"
#include "support/TestPlugIns.h"

namespace fs = std::filesystem;
using dmf::Dictionary;

namespace {

class PlugIns : public ToolTest {};

} // namespace

TEST_F(PlugIns, OnesUnderDevelopmentAreShownWithWhatTheirDescriptionsSayAndMisspell)
{
    testplugins::make(folder / "one.bundle", "Alpha",
                      {{"DMServiceConnectionType", "A"},
                       {"DMChannelNames", dmf::Array{"Print", "Scan"}},
                       {"DMServiceConectionTypes", "B"},
                       {"OwnKey", "C"},
                       {"DMPlugInProtocol2ImplementorMap", Dictionary{{"IDMdevice", "Alpha"}}}});
    const Process::Environment environment{{"DMF_PLUGIN_PATH", folder.string()}};
    const auto result = json({"plugins"}, {}, environment);
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string home = fs::canonical(folder).string();
    EXPECT_EQ(result.json["folders"].back(), Json({{"path", home}, {"origin", "DMF_PLUGIN_PATH"}}));
    const auto& bundles = result.json["bundles"];
    const auto own = std::find_if(bundles.begin(), bundles.end(),
                                  [&](const Json& it) { return it["path"] == home + "/one.bundle"; });
    ASSERT_NE(own, bundles.end());
    EXPECT_EQ((*own)["state"], "loaded");
    EXPECT_EQ((*own)["types"], Json({"A"}));
    EXPECT_EQ((*own)["channels"], Json({"Print", "Scan"}));
    EXPECT_EQ((*own)["misspelt"], Json({{{"word", "DMServiceConectionTypes"}, {"meant", "DMServiceConnectionType"}},
                                        {{"word", "IDMdevice"}, {"meant", "IDMDevice"}}}));
    const auto text = dmf({"plugins"}, {}, environment).out;
    EXPECT_THAT(text, testing::HasSubstr("'IDMdevice' in its description: did you mean 'IDMDevice'?"));
    EXPECT_THAT(text, testing::HasSubstr("plug-ins of DMF_PLUGIN_PATH: " + home));
}

// That what is written builds and works is told by the test of the installed package.
TEST_F(PlugIns, ANewOneIsWrittenOnceAndOnlyUnderAUsableName)
{
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    const auto result = json({"plugin", "new", "Folder2"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.json["files"], Json({"CMakeLists.txt", "Info.plist", "Folder2Device.cpp", "Folder2Test.cpp"}));
    EXPECT_EQ(json({"plugin", "new", "Folder2"}).status, 1);
    for (const char* name : {"", "../up", "2nd", "a-b", "with blank"})
        EXPECT_EQ(json({"plugin", "new", name}).status, 2) << name;
    fs::current_path(before);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
}
