#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace platform::FileSystem {

struct Attributes {
    std::uintmax_t size = 0;
    bool regularFile = false;
};

// What the file system says of a path, without opening it. Throws std::system_error carrying the path
// and the system's text.
Attributes attributes(const std::filesystem::path& path);

// Reads a whole regular file. Throws std::system_error as above (EISDIR for a folder).
std::vector<std::uint8_t> readFile(const std::filesystem::path& path);

// Replaces the file at `path` whole or not at all: the bytes go to a new file in the same folder,
// are flushed to disk and renamed over the target. On any failure the temporary file is removed and
// std::system_error is thrown with the path and the system's text.
void writeAtomically(const std::filesystem::path& path, std::span<const std::uint8_t> bytes);

} // namespace platform::FileSystem
