#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace platform::FileSystem {

// Size of a regular file in bytes. Throws std::system_error carrying the path and the system's text;
// a directory is refused with EISDIR so that it never reaches a decoder.
std::uintmax_t fileSize(const std::filesystem::path& path);

// Reads a whole regular file. Throws std::system_error as above.
std::vector<std::uint8_t> readFile(const std::filesystem::path& path);

// Replaces the file at `path` whole or not at all: the bytes go to a new file in the same folder,
// are flushed to disk and renamed over the target. On any failure the temporary file is removed and
// std::system_error is thrown with the path and the system's text.
void writeAtomically(const std::filesystem::path& path, std::span<const std::uint8_t> bytes);

} // namespace platform::FileSystem
