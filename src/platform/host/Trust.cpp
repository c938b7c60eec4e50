#include "platform/host/Trust.h"

#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace dmf::internal {

std::string reasonNotToTrust(const std::string& path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return path + ": " + std::generic_category().message(errno);
    // Where a program runs with more rights than the user who started it has, that user is one of the others.
    const bool raised = ::getauxval(AT_SECURE) != 0;
    if (status.st_uid != 0 && (raised || status.st_uid != ::geteuid()))
        return path + " belongs to another user (" + std::to_string(status.st_uid) + ")";
    if (status.st_mode & S_IWOTH)
        return path + " can be written by everybody";
    // The group that is a user's alone has the user's own number; any other one may have more members.
    if (status.st_mode & S_IWGRP && status.st_gid != 0 && (raised || status.st_gid != ::geteuid()))
        return path + " can be written by another group (" + std::to_string(status.st_gid) + ")";
    return {};
}

} // namespace dmf::internal
