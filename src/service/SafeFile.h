#pragma once

#include <string>
#include <string_view>

/// Writing files under fixed names in a directory that everybody may write to (/tmp). Another user
/// may have planted something under the name: a symbolic link to a file that only this process may
/// write, a second name of such a file, a FIFO that nobody reads. None of these is written through
/// or waited for. Every function may be called from any thread and blocks for the file system only.
namespace orvane::RobotSdk::service {

/// Opens `path` for writing, close-on-exec, and creates it with mode 0644 when it doesn't exist.
/// Only a regular file that is no symbolic link is opened. Returns the descriptor, or an errno
/// value negated (ELOOP for a symbolic link).
[[nodiscard]] int openForWriting(const std::string& path) noexcept;

/// Makes `text` the whole content of the file at `path`, by the rules of openForWriting. An
/// existing file must moreover belong to this user (else EPERM) and have no second name (else
/// EMLINK). Returns 0 or an errno value; a refused file keeps its content.
[[nodiscard]] int replaceFileContent(const std::string& path, std::string_view text) noexcept;

/// The system's text for an errno value.
[[nodiscard]] std::string errorText(int error);

}  // namespace orvane::RobotSdk::service
