#pragma once

// An in-memory file for the fuzz targets: the readers take paths, and nothing may touch the disk.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

class MemoryFile {
public:
    MemoryFile(const std::uint8_t* data, std::size_t size) : fd_(::memfd_create("fuzz", MFD_CLOEXEC)) {
        std::size_t written = 0;
        while (fd_ >= 0 && written < size) {
            const ssize_t n = ::write(fd_, data + written, size - written);
            if (n <= 0) {
                break;
            }
            written += static_cast<std::size_t>(n);
        }
    }
    ~MemoryFile() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};
