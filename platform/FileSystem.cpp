#include "FileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <system_error>
#include <utility>

namespace platform::FileSystem {
namespace {

[[noreturn]] void throwErrno(int error, const std::filesystem::path& path) {
    throw std::system_error(error, std::generic_category(), path.string());
}

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const noexcept { return fd_; }
    int release() noexcept { return std::exchange(fd_, -1); }

private:
    int fd_;
};

Descriptor openForReading(const std::filesystem::path& path, struct stat& info) {
    Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) {
        throwErrno(errno, path);
    }
    if (::fstat(fd.get(), &info) != 0) {
        throwErrno(errno, path);
    }
    if (S_ISDIR(info.st_mode)) {
        throwErrno(EISDIR, path);
    }
    return fd;
}

std::string randomSuffix() {
    std::random_device device;
    static constexpr char alphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::string suffix(10, 'x');
    for (char& c : suffix) {
        c = alphabet[device() % (sizeof(alphabet) - 1)];
    }
    return suffix;
}

} // namespace

Attributes attributes(const std::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        throwErrno(errno, path);
    }
    return Attributes{static_cast<std::uintmax_t>(info.st_size), S_ISREG(info.st_mode)};
}

std::vector<std::uint8_t> readFile(const std::filesystem::path& path) {
    struct stat info {};
    Descriptor fd = openForReading(path, info);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(static_cast<std::size_t>(info.st_size));
    std::uint8_t buffer[1 << 16];
    for (;;) {
        const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            throwErrno(errno, path);
        }
        if (n == 0) {
            break;
        }
        bytes.insert(bytes.end(), buffer, buffer + n);
    }
    return bytes;
}

namespace {

// Writes every byte and makes it durable; false with errno set when the disk refuses.
bool writeAll(int fd, std::span<const std::uint8_t> bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        written += static_cast<std::size_t>(n);
    }
    return ::fsync(fd) == 0;
}

// Hidden files being written where unnamed ones are not available. A signal that ends the program
// (Ctrl-C, SIGTERM, a closed terminal, a file size limit) removes them first, so that an interrupted
// save leaves nothing. Writes beyond the slots' number still work, only unguarded.
struct PendingSlot {
    std::atomic<int> state{0}; // 0 free, 1 being filled, 2 holds a path to remove
    std::array<char, PATH_MAX> path{};
};
std::array<PendingSlot, 16> pendingSlots;

extern "C" void removePendingFiles(int signal) {
    for (PendingSlot& slot : pendingSlots) {
        if (slot.state.load() == 2) {
            ::unlink(slot.path.data());
        }
    }
    // The handler was installed to run once: the signal now takes its default course.
    ::raise(signal);
}

void guardAgainstSignals() {
    static std::once_flag once;
    std::call_once(once, [] {
        for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGXFSZ}) {
            struct sigaction current {};
            // A program that handles the signal itself keeps its handling.
            if (::sigaction(signal, nullptr, &current) != 0 || current.sa_handler != SIG_DFL) {
                continue;
            }
            struct sigaction action {};
            action.sa_handler = removePendingFiles;
            sigemptyset(&action.sa_mask);
            action.sa_flags = SA_RESETHAND;
            ::sigaction(signal, &action, nullptr);
        }
    });
}

class PendingFile {
public:
    explicit PendingFile(const std::filesystem::path& path) {
        guardAgainstSignals();
        const std::string& text = path.native();
        if (text.size() >= PATH_MAX) {
            return;
        }
        for (PendingSlot& candidate : pendingSlots) {
            int expected = 0;
            if (candidate.state.compare_exchange_strong(expected, 1)) {
                std::memcpy(candidate.path.data(), text.c_str(), text.size() + 1);
                candidate.state.store(2);
                slot_ = &candidate;
                return;
            }
        }
    }
    ~PendingFile() {
        if (slot_) {
            slot_->state.store(0);
        }
    }
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

private:
    PendingSlot* slot_ = nullptr;
};

std::filesystem::path hiddenName(const std::filesystem::path& folder, const std::filesystem::path& path) {
    // Appended in place: GCC 12 at -O3 warns falsely (-Wrestrict) on a chain of operator+.
    std::string name = ".";
    name += path.filename().string();
    name += ".quorvel-";
    name += randomSuffix();
    return folder / name;
}

// Gives the written unnamed file its name: linked straight to a path that does not exist yet, or
// linked under a hidden name beside it and renamed over the old file. Returns errno, or 0.
int publish(int fd, const std::filesystem::path& folder, const std::filesystem::path& path) {
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        return 0;
    }
    if (errno != EEXIST) {
        return errno;
    }
    for (int attempt = 0; attempt < 16; ++attempt) {
        const std::filesystem::path temporary = hiddenName(folder, path);
        if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, temporary.c_str(), AT_SYMLINK_FOLLOW) != 0) {
            if (errno == EEXIST) {
                continue;
            }
            return errno;
        }
        if (::rename(temporary.c_str(), path.c_str()) != 0) {
            const int error = errno;
            ::unlink(temporary.c_str());
            return error;
        }
        return 0;
    }
    return EEXIST;
}

} // namespace

void writeAtomically(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) {
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    // The file is written unnamed in the target's folder (so that nothing is left behind when the
    // program is killed while writing, and no rename crosses file systems), then named. Mode 0666 lets
    // the umask decide the final permissions, as for any newly created file.
    Descriptor unnamed(::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
    bool named = false;
    if (unnamed.get() >= 0) {
        if (!writeAll(unnamed.get(), bytes)) {
            throwErrno(errno, path);
        }
        const int error = publish(unnamed.get(), folder, path);
        // No /proc to name the file through: written again the other way.
        named = error == 0;
        if (error != 0 && error != ENOENT) {
            throwErrno(error, path);
        }
    } else if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
        throwErrno(errno, path);
    }
    if (!named) {
        // File systems without unnamed files: a hidden named one beside the target, removed on failure.
        std::filesystem::path temporary;
        // Guarded before it exists: a signal between the file's creation and its guarding would leave it.
        std::optional<PendingFile> pending;
        int fd = -1;
        for (int attempt = 0; attempt < 16 && fd < 0; ++attempt) {
            temporary = hiddenName(folder, path);
            pending.emplace(temporary);
            fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd < 0) {
                const int error = errno;
                pending.reset(); // the name is someone else's, or nothing was made
                if (error != EEXIST) {
                    throwErrno(error, path);
                }
            }
        }
        if (fd < 0) {
            throwErrno(EEXIST, path);
        }
        Descriptor guard(fd);
        if (!writeAll(fd, bytes) || ::close(guard.release()) != 0 ||
            ::rename(temporary.c_str(), path.c_str()) != 0) {
            const int error = errno;
            ::unlink(temporary.c_str());
            throwErrno(error, path);
        }
    }
    // Make the name itself durable; a folder that cannot be synced is no reason to fail.
    Descriptor dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.get() >= 0) {
        ::fsync(dir.get());
    }
}

} // namespace platform::FileSystem
