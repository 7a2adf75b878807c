// Durable replacement of a file: temporary file in the same folder, fsync, rename, fsync of
// the folder. A crash leaves either the old file or the new one, never half of either.
#pragma once
#include <filesystem>
#include <string>
#include <string_view>

namespace vorlan {

// Throws std::system_error with the file system's own error; the target is untouched then.
void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes);
// The same for `name` inside an open folder, so that no link on the way to it is followed.
void writeFileAtomicallyAt(int dirfd, const std::string& name, std::string_view bytes);

// Flushes a file or folder to the drive (F_FULLFSYNC on macOS, where fsync does not).
// Throws std::system_error.
void syncPath(const std::filesystem::path& path);

}  // namespace vorlan
