#pragma once

#include <cstddef>
#include <string_view>
#include <system_error>

#include <dmf/platform/Export.h>

namespace dmf {

/// A write that ended early: the file took some of the bytes, or none.
class DMF_EXPORT ShortWrite : public std::system_error {
public:
    ShortWrite(int error, std::size_t written);
    ~ShortWrite() override;
    [[nodiscard]] std::size_t written() const noexcept { return written_; }

private:
    std::size_t written_;
};

/// An open file, written at its own position and closed at the end. A program may derive from it to receive what would
/// go to a file. Thread-safe; the bytes of one write stay together as far as the file itself keeps them so.
class DMF_EXPORT FileHandle {
public:
    /// Takes the descriptor over.
    explicit FileHandle(int descriptor) noexcept;
    virtual ~FileHandle();
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }

    /// Writes all the bytes; what one call to the system leaves over is written by further ones. Blocks as long as the
    /// file does (a regular file: not noticeably; a pipe, a socket or a non-blocking descriptor: up to a second without
    /// progress, whatever signals come). Throws dmf::ShortWrite when the file takes no more; the bytes before that stay
    /// written. A pipe or socket whose reader is gone raises no signal. A derived class need not be thread-safe for the
    /// sake of a logger, which writes one line at a time; it must not log to that logger, which would wait for itself.
    virtual void writeData(std::string_view bytes);

private:
    int descriptor_;
    bool canSignal_; // a pipe or socket: writing to a closed one raises SIGPIPE
};

} // namespace dmf
