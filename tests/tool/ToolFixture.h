#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/Process.h"

/// Runs the tool that was built, and gives each test a folder of its own.
class ToolTest : public testing::Test {
protected:
    using Json = nlohmann::json;
    struct JsonResult {
        int status;
        Json json; ///< null when standard output was not exactly one object
        std::string err;
    };

    ToolTest()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "dmf-tool-XXXXXX").string();
        folder = ::mkdtemp(pattern.data());
    }
    ~ToolTest() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    static std::vector<std::string> command(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), DMF_BUILD_FOLDER "/bin/dmf");
        return arguments;
    }
    /// The words between blanks.
    static std::vector<std::string> words(const std::string& text)
    {
        std::istringstream stream(text);
        return {std::istream_iterator<std::string>(stream), {}};
    }
    static Process::Result dmf(const std::vector<std::string>& arguments, const std::string& input = {},
                               const Process::Environment& environment = {})
    {
        return Process::run(command(arguments), input, environment);
    }
    /// With --json: the object, which must be all of standard output and carry the schema.
    static JsonResult json(std::vector<std::string> arguments, const std::string& input = {},
                           const Process::Environment& environment = {})
    {
        arguments.push_back("--json");
        const auto result = dmf(arguments, input, environment);
        return {result.status, parseObject(result.out), result.err};
    }
    static Json parseObject(const std::string& text)
    {
        Json object = Json::parse(text, nullptr, false);
        EXPECT_TRUE(object.is_object()) << text;
        if (!object.is_object())
            return nullptr;
        EXPECT_EQ(object.value("schema", ""), "dmf/1");
        return object;
    }

    std::filesystem::path write(const std::string& name, const std::string& content) const
    {
        const auto path = folder / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    static std::string read(const std::filesystem::path& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::filesystem::path folder;
};
