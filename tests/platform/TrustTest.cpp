#include "platform/host/Trust.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "support/AccessList.h"
#include "support/HostFixture.h"

namespace fs = std::filesystem;
using dmf::internal::reasonNotToTrust;
using dmf::internal::reasonNotToTrustWayTo;
using testing::HasSubstr;

TEST(Trust, AnAccessListThatLetsAnotherUserWriteSpeaksAgainstAFile)
{
    HostFixture host;
    host.writeFile("/file", "");
    const fs::path file = host.path("/file");
    if (!letUserWrite(file, 12345))
        GTEST_SKIP() << "the file system keeps no access lists";
    EXPECT_THAT(reasonNotToTrust(file.string()), HasSubstr("another user (12345), says its access list"));
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_THAT(reasonNotToTrust(descriptor, "it"), HasSubstr("it can be written by another user (12345)"));
    ::close(descriptor);

    letUserWrite(file, 12345, true); // the mask takes it back
    EXPECT_EQ(reasonNotToTrust(file.string()), "");
    letUserWrite(file, ::geteuid()); // the group bits are set, though nobody else may write
    EXPECT_EQ(reasonNotToTrust(file.string()), "");
}

TEST(Trust, TheWayToAFileLeavesNobodyElseTheChoice)
{
    HostFixture host;
    host.writeFile("/outer/inner/file", "");
    const std::string file = fs::canonical(host.path("/outer/inner/file")).string();
    const std::string outer = fs::path(file).parent_path().parent_path().string();
    EXPECT_EQ(reasonNotToTrustWayTo(file), "");
    ASSERT_EQ(::chmod(outer.c_str(), 0777), 0);
    EXPECT_EQ(reasonNotToTrustWayTo(file), outer + " can be written by everybody");
    EXPECT_EQ(reasonNotToTrustWayTo(outer), ""); // it is no matter what may be put into it
    ASSERT_EQ(::chmod(outer.c_str(), 01777), 0);
    EXPECT_EQ(reasonNotToTrustWayTo(file), "");

    ASSERT_EQ(::chmod(outer.c_str(), 0777), 0);
    EXPECT_EQ(reasonNotToTrustWayTo(file, outer), ""); // the caller depends on it anyway
    EXPECT_EQ(reasonNotToTrustWayTo(file, outer + "/else"), "");
    EXPECT_NE(reasonNotToTrustWayTo(file, outer + "else"), "");

    ASSERT_EQ(::chmod(outer.c_str(), 0755), 0);
    fs::rename(outer + "/inner", outer + "/moved");
    fs::create_symlink("moved", outer + "/inner");
    EXPECT_THAT(reasonNotToTrustWayTo(file), HasSubstr("inner is not a folder any more"));
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(outer.c_str(), 12345, 0), 0);
        EXPECT_THAT(reasonNotToTrustWayTo(file), HasSubstr("belongs to another user (12345)"));
    }
}
