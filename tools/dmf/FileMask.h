#pragma once

#include <sys/stat.h>

namespace dmf::tool {

/// While it lives, nobody but their owner may write to the files and folders that this program makes, whatever umask it
/// was started with; a command that it runs later has that umask again. Not thread-safe.
class FileMask {
public:
    FileMask() : before_(::umask(S_IWGRP | S_IWOTH)) { ::umask(before_ | S_IWGRP | S_IWOTH); }
    ~FileMask() { ::umask(before_); }
    FileMask(const FileMask&) = delete;
    FileMask& operator=(const FileMask&) = delete;

private:
    const mode_t before_;
};

} // namespace dmf::tool
