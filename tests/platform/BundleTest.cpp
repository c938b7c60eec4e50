#include <dmf/platform/Bundle.h>

#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <iostream>

#include <gmock/gmock.h>

#include "support/AccessList.h"
#include "support/HostFixture.h"
#include "support/TestPlugIns.h"

namespace fs = std::filesystem;
using dmf::Bundle;
using dmf::ClassRegistry;
using dmf::Dictionary;
using testing::HasSubstr;

namespace {

void overwrite(const fs::path& file, std::size_t at, std::uint16_t number)
{
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(static_cast<std::streamoff>(at));
    stream.write(reinterpret_cast<const char*>(&number), sizeof number);
}

} // namespace

TEST(Bundle, IsDescribedWithoutRunningItsCode)
{
    HostFixture host;
    const fs::path path = testplugins::make(host.path("/One.bundle"), "Refused", {{"Extra", "one"}});
    const auto bundle = Bundle::bundleAtPath(path.string());
    ASSERT_NE(bundle, nullptr);
    EXPECT_EQ(bundle->infoDictionary()["Extra"], "one");
    EXPECT_FALSE(bundle->isLoaded());
    EXPECT_EQ(ClassRegistry::shared().classNamed("RefusedProvider"), nullptr);
    fs::create_directories(host.path("/folder/deep"));
    fs::create_symlink(host.path("/folder/deep"), host.path("/link"));
    testplugins::make(host.path("/folder/One.bundle"), "Refused");
    EXPECT_EQ(Bundle::bundleAtPath((path / "../One.bundle/").string()), bundle); // one object per folder
    EXPECT_EQ(Bundle::bundleAtPath(host.path("/link/../../One.bundle").string()), bundle);
    EXPECT_NE(Bundle::bundleAtPath(host.path("/link/../One.bundle").string()), bundle);
    const fs::path before = fs::current_path();
    fs::current_path(host.path("/folder"));
    EXPECT_EQ(Bundle::bundleAtPath("../One.bundle"), bundle);
    fs::current_path(before);
    testplugins::writeInfo(path, testplugins::info({{"Extra", "another"}}));
    EXPECT_EQ(Bundle::bundleAtPath(path.string()), bundle);
    EXPECT_EQ(bundle->infoDictionary()["Extra"], "another");
}

TEST(Bundle, FoldersThatAreNoBundlesAreRefusedWithAReason)
{
    HostFixture host;
    const auto folder = [&](const char* name) {
        fs::create_directories(host.path(name));
        return host.path(name);
    };
    folder("/folder");
    folder("/bare.bundle");
    host.writeFile("/file.bundle", "");
    fs::create_symlink("/nowhere", host.path("/dangling.bundle"));
    host.writeFile("/malformed.bundle/Info.plist", "<plist><dict><key>a</key></dict></plist>");
    host.writeFile("/list.bundle/Info.plist", "<plist version=\"1.0\"><array/></plist>");
    host.writeFile("/large.bundle/Info.plist", std::string(2'000'000, ' '));
    testplugins::writeInfo(folder("/real.bundle"), {});
    fs::create_symlink(host.path("/real.bundle/Info.plist"), folder("/link.bundle") / "Info.plist");
    ASSERT_EQ(::mkfifo((folder("/pipe.bundle") / "Info.plist").c_str(), 0600), 0);

    const std::pair<const char*, const char*> cases[] = {
        {"/missing.bundle", "No such file"},     {"/folder", ".bundle"},         {"/file.bundle", "not a folder"},
        {"/dangling.bundle", "link to nothing"}, {"/bare.bundle", "Info.plist"}, {"/malformed.bundle", "malformed"},
        {"/list.bundle", "no dictionary"},       {"/large.bundle", "too large"}, {"/link.bundle", "is a link"},
        {"/pipe.bundle", "regular file"},
    };
    for (const auto& [name, reason] : cases) {
        std::string refusal;
        EXPECT_EQ(Bundle::bundleAtPath(host.path(name).string(), &refusal), nullptr) << name;
        EXPECT_THAT(refusal, HasSubstr(reason)) << name;
    }
    EXPECT_EQ(Bundle::bundleAtPath(std::string_view("/a\0.bundle", 10)), nullptr);
}

TEST(Bundle, NothingRunsOfABundleThatIsNotTrustedOrDoesNotFit)
{
    HostFixture host;
    const fs::path path = host.path("/outer/holder/Refused.bundle");
    const fs::path object = path / "Object.so";
    fs::create_directories(host.path("/open"));
    fs::permissions(host.path("/open"), fs::perms::all);
    const auto describe = [&](const Dictionary& more) {
        return [&path, info = testplugins::info(more)] { testplugins::writeInfo(path, info); };
    };
    const auto linkTo = [&](const fs::path& target) {
        return [&object, target] {
            fs::remove(object);
            fs::create_symlink(target, object);
        };
    };
    const auto hide = [&] {
        fs::create_directory(path / "deep");
        fs::rename(object, path / "deep/Object.so");
        fs::permissions(path / "deep", fs::perms::all);
        fs::create_symlink("deep/Object.so", object);
    };
    const std::string executable(dmf::kBundleExecutableKey);
    const std::string number(dmf::kPlugInInterfaceNumberKey);
    const int own = dmf::kPlugInInterfaceNumber;
    const struct {
        std::string reason;
        std::function<void()> spoil;
    } cases[] = {
        {"by everybody", [&] { ::chmod(path.c_str(), 0777); }},
        {"holder can be written by everybody", [&] { ::chmod(path.parent_path().c_str(), 0777); }},
        {"holder can be written by everybody", [&] { ::chmod(path.parent_path().c_str(), 01777); }},
        {"outer can be written by everybody", [&] { ::chmod(path.parent_path().parent_path().c_str(), 0777); }},
        {"open can be written by everybody",
         [&] {
             fs::rename(path, host.path("/open/Real.bundle"));
             fs::create_symlink(host.path("/open/Real.bundle"), path);
         }},
        {"by everybody", [&] { ::chmod((path / "Info.plist").c_str(), 0666); }},
        {"by everybody", [&] { ::chmod(object.c_str(), 0757); }},
        {"by everybody", hide},
        {"interface number 1000", describe({{number, 1000}})},
        {"interface number " + std::to_string(own) + ",", describe({{number, std::to_string(own)}})}, // no number
        {"no plug-in interface number",
         [&] {
             testplugins::writeInfo(path, {{executable, "Object.so"}});
         }},
        {"names no object", describe({{executable, 5}})},
        {"cannot be found", describe({{executable, "Missing.so"}})},
        {"cannot be found", linkTo("nothing")},
        {"outside its folder", describe({{executable, "../../../outside.so"}})},
        {"outside its folder", linkTo(host.path("/outside.so"))},
        {"no shared object", [&] { host.writeFile("/outer/holder/Refused.bundle/Object.so", "no object at all"); }},
        {"Object.so: ",
         [&] { overwrite(object, offsetof(Elf64_Ehdr, e_machine), EM_SPARC); }}, // the loader's own words
        {"no regular file",
         [&] {
             fs::remove(object);
             ::mkfifo(object.c_str(), 0600);
         }},
        {"no regular file",
         [&] {
             fs::remove(object);
             fs::create_directory(object);
         }},
        {"cut short", [&] { fs::resize_file(object, sizeof(Elf64_Ehdr) + 10); }},
        {"cut short", [&] { fs::resize_file(object, 8192); }},
        {"cut short", [&] { overwrite(object, offsetof(Elf64_Ehdr, e_phnum), 0x7FFF); }},
        {"no shared object", [&] { overwrite(object, offsetof(Elf64_Ehdr, e_phentsize), 1); }},
        {"no shared object", [&] { overwrite(object, offsetof(Elf64_Ehdr, e_type), ET_EXEC); }},
    };
    for (const auto& [reason, spoil] : cases) {
        testplugins::make(path, "Refused");
        fs::copy_file(object, host.path("/outside.so"), fs::copy_options::overwrite_existing);
        const auto bundle = Bundle::bundleAtPath(path.string());
        ASSERT_NE(bundle, nullptr);
        spoil();
        std::string refusal;
        EXPECT_FALSE(bundle->load(&refusal)) << reason;
        EXPECT_THAT(refusal, HasSubstr(reason));
        EXPECT_EQ(ClassRegistry::shared().classNamed("RefusedProvider"), nullptr) << reason;
        fs::remove_all(host.path("/outer"));
        fs::remove_all(host.path("/open/Real.bundle"));
    }
}

TEST(Bundle, AnAccessListThatLetsAnotherUserWriteIsNotTrusted)
{
    HostFixture host;
    const fs::path path = testplugins::make(host.path("/holder/Listed.bundle"), "Refused");
    const auto bundle = Bundle::bundleAtPath(path.string());
    for (const fs::path& opened : {path.parent_path(), path, path / "Object.so", path / "Info.plist"}) {
        if (!letUserWrite(opened, 12345))
            GTEST_SKIP() << "the file system keeps no access lists";
        std::string refusal;
        EXPECT_FALSE(bundle->load(&refusal)) << opened;
        EXPECT_THAT(refusal, HasSubstr("another user (12345)"));
        letUserWrite(opened, 12345, true);
    }
    EXPECT_EQ(ClassRegistry::shared().classNamed("RefusedProvider"), nullptr);
}

TEST(Bundle, WhatThrowsAsItAnnouncesItsClassesIsRefused)
{
    HostFixture host;
    const auto bundle = Bundle::bundleAtPath(testplugins::make(host.path("/T.bundle"), "ThrowingClass").string());
    for (int attempt = 0; attempt < 2; ++attempt) { // its code is not run again, which makes it no better
        std::string refusal;
        EXPECT_FALSE(bundle->load(&refusal));
        EXPECT_THAT(refusal, HasSubstr("no device library for ThrowingError"));
        EXPECT_THAT(refusal, HasSubstr("ThrowingNumber"));
    }
    EXPECT_EQ(ClassRegistry::shared().classNamed("ThrowingSound"), nullptr);
    const auto sound = Bundle::bundleAtPath(testplugins::make(host.path("/Gamma.bundle"), "Gamma").string());
    EXPECT_TRUE(sound->load());
}

TEST(BundleDeathTest, WhatIsThrownThroughTheLoaderEndsTheProgramAndNamesTheBundle)
{
    HostFixture host;
    host.host().systemLog = [](int, std::string_view line) { std::cerr << line << std::endl; };
    const auto bundle = Bundle::bundleAtPath(testplugins::make(host.path("/Wild.bundle"), "ThrowingObject").string());
    EXPECT_EXIT((void)bundle->load(), testing::KilledBySignal(SIGABRT), "Wild.bundle.*thrown past the announcement");
}

TEST(Bundle, WhatAnotherUserOrGroupCanChangeIsNotTrusted)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "giving files away takes root";
    HostFixture host;
    const fs::path path = testplugins::make(host.path("/Given.bundle"), "Refused");
    const auto bundle = Bundle::bundleAtPath(path.string());
    std::string refusal;

    ASSERT_EQ(::chown((path / "Object.so").c_str(), 12345, 0), 0);
    EXPECT_FALSE(bundle->load(&refusal));
    EXPECT_THAT(refusal, HasSubstr("another user (12345)"));

    ASSERT_EQ(::chown((path / "Object.so").c_str(), 0, 12345), 0);
    ASSERT_EQ(::chmod((path / "Object.so").c_str(), 0775), 0);
    EXPECT_FALSE(bundle->load(&refusal));
    EXPECT_THAT(refusal, HasSubstr("another group (12345)"));
    EXPECT_EQ(ClassRegistry::shared().classNamed("RefusedProvider"), nullptr);
}

TEST(Bundle, LoadsOnceItIsMendedAndKnowsItsClasses)
{
    HostFixture host;
    const fs::path path = testplugins::make(host.path("/Alpha.bundle"), "Alpha");
    const auto bundle = Bundle::bundleAtPath(path.string());
    fs::permissions(path, fs::perms::all);
    EXPECT_FALSE(bundle->load());
    fs::permissions(path, fs::perms::owner_all | fs::perms::group_all); // the user's own group may
    std::string refusal;
    ASSERT_TRUE(bundle->load(&refusal)) << refusal;
    EXPECT_TRUE(bundle->isLoaded());
    const auto provider = ClassRegistry::shared().classNamed("AlphaProvider");
    ASSERT_NE(provider, nullptr);
    EXPECT_EQ(Bundle::bundleForAddress(provider->anchor()), bundle);
    EXPECT_EQ(ClassRegistry::shared().classesInModuleOf(provider->anchor()).size(), 3u);
}

TEST(Bundle, TheLibrarysOwnLiesBesideItsFile)
{
    const auto bundle = Bundle::libraryBundle();
    EXPECT_EQ(fs::canonical(bundle->path()), fs::canonical(DMF_BUILD_FOLDER "/lib"));
    static const int inThisProgram = 0;
    EXPECT_EQ(Bundle::bundleForAddress(&inThisProgram), bundle);
    HostFixture host;
    host.host().libraryFolder = "/elsewhere";
    EXPECT_EQ(Bundle::libraryBundle()->builtInPlugInsPath(), "/elsewhere/dmf/PlugIns");
}
