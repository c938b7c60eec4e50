#include "ToolFixture.h"

namespace {

constexpr const char* kModel = R"(<?xml version="1.0" encoding="UTF-8"?>
<Model>
  <Parent>modelname/base</Parent>
  <Information><ModelId>id-9</ModelId></Information>
</Model>
)";
constexpr const char* kBase = R"(<?xml version="1.0" encoding="UTF-8"?>
<Model>
  <Information><VendorName>QL</VendorName><ModelId>id-0</ModelId></Information>
</Model>
)";

class ModelDb : public ToolTest {
protected:
    std::string source() const { return folder / "source"; }
    std::string database() const { return folder / "database"; }
    JsonResult pack() const { return json({"modeldb", "pack", source(), database()}); }
    /// Whether nobody but its owner may write to anything in the folder.
    static bool isOnlyItsOwners(const std::filesystem::path& folder)
    {
        using std::filesystem::perms;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
            if ((entry.status().permissions() & (perms::group_write | perms::others_write)) != perms::none)
                return false;
        return !std::filesystem::is_empty(folder);
    }
};

} // namespace

TEST_F(ModelDb, PackedFilesAreEncipheredFoundAndComeOutAsTheyWere)
{
    write("source/MyTable/ModelName/Model 9.xml", kModel);
    write("source/MyTable/ModelName/base.xml", kBase);
    write("source/README.md", "not packed");
    write("source/MyTable/.hidden", "not packed");
    const auto packed = pack();
    ASSERT_EQ(packed.status, 0) << packed.err;
    EXPECT_EQ(packed.json["files"], 2);
    EXPECT_EQ(packed.json["tables"], 1);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(database()))
        if (entry.is_regular_file()) {
            EXPECT_EQ(read(entry.path()).find("Information"), std::string::npos);
            EXPECT_EQ(entry.path().filename().string().find("base"), std::string::npos);
        }

    EXPECT_EQ(json({"modeldb", "verify", database()}).status, 0);
    const auto listed = json({"modeldb", "list", database()});
    ASSERT_EQ(listed.json["files"].size(), 2u);
    EXPECT_EQ(listed.json["files"][0]["name"], "modelname/base");
    EXPECT_EQ(listed.json["files"][1]["name"], "modelname/model 9");

    const std::string target = folder / "target";
    ASSERT_EQ(json({"modeldb", "unpack", database(), target}).status, 0);
    EXPECT_EQ(read(folder / "target/MyTable/modelname/model 9.xml"), kModel);

    const auto value = [this](const std::string& name, const std::string& path) {
        return json({"model", "value", name, path, "--table", "MyTable", "--location", database()});
    };
    EXPECT_EQ(value("QL Model 9 (USB)", "Information/ModelId").json["value"], "id-9");
    EXPECT_EQ(value("Model 9", "Information/VendorName").json["value"], "QL"); // inherited
    EXPECT_EQ(value("Model 9", "Information/Nothing").status, 4);
    EXPECT_EQ(value("Model 8", "Information/ModelId").status, 4);
    EXPECT_EQ(value("Model 9", "][").status, 4);
}

TEST_F(ModelDb, FilesAreTheirOwnersToWriteWhateverTheUmask)
{
    write("source/MyTable/ModelName/base.xml", kBase);
    const auto withoutMask = [](const std::string& arguments) {
        return Process::run({"/bin/sh", "-c", "umask 0; exec " DMF_BUILD_FOLDER "/bin/dmf " + arguments}).status;
    };
    EXPECT_EQ(withoutMask("modeldb pack '" + source() + "' '" + database() + "'"), 0);
    EXPECT_TRUE(isOnlyItsOwners(database()));
    const std::string target = folder / "target";
    EXPECT_EQ(withoutMask("modeldb unpack '" + database() + "' '" + target + "'"), 0);
    EXPECT_TRUE(isOnlyItsOwners(target));
}

TEST_F(ModelDb, ProblemsAndBadFoldersAreToldAndMakeTheRunFail)
{
    write("source/T/ModelName/lonely.xml", R"(<?xml version="1.0"?><Model><Parent>modelname/gone</Parent></Model>)");
    write("source/T/ModelName/broken.xml", R"(<?xml version="1.0"?><Model><A></Model>)");
    (void)pack();
    const auto verified = json({"modeldb", "verify", database()});
    EXPECT_EQ(verified.status, 1);
    EXPECT_EQ(verified.json["error"]["code"], 1);
    EXPECT_NE(verified.json["problems"].dump().find("lonely"), std::string::npos);
    EXPECT_NE(verified.err.find("lonely"), std::string::npos);

    const std::string missing = folder / "missing";
    const std::string file = write("file", "x");
    std::filesystem::create_directory(folder / "empty");
    for (const auto* const command : {"list", "verify"}) {
        EXPECT_EQ(json({"modeldb", command, missing}).status, 1);
        EXPECT_EQ(json({"modeldb", command, file}).status, 1);
        EXPECT_EQ(json({"modeldb", command, folder / "empty"}).status, 4);
    }
    EXPECT_EQ(json({"modeldb", "pack", missing, database()}).status, 1);
    EXPECT_EQ(json({"modeldb", "pack", source(), file}).status, 1);
}

TEST_F(ModelDb, TheSampleModelsAreComplete)
{
    const auto listed = json({"model", "list"});
    ASSERT_EQ(listed.status, 0) << listed.err;
    EXPECT_EQ(listed.json["tables"][0]["name"], "DMF");
    EXPECT_GE(listed.json["tables"][0]["files"].size(), 4u);
    EXPECT_GE(listed.json["families"].size(), 2u);

    const auto model = json({"model", "show", "QL Aurora 450n (USB)"});
    ASSERT_EQ(model.status, 0) << model.err;
    EXPECT_EQ(model.json["normalized"], "Aurora 450n");
    EXPECT_EQ(model.json["family"], "aurora");
    EXPECT_EQ(model.json["information"]["vendorName"], "QL");
    ASSERT_FALSE(model.json["deviceClasses"].empty());
    EXPECT_FALSE(model.json["deviceClasses"][0]["interfaces"][0]["services"].empty());
    EXPECT_TRUE(model.json["transport"].is_object());
}
