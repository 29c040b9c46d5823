#include "io/wholefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "io/filepath.h"

namespace nalveo {
namespace {

constexpr mode_t everybody = 0666;  // less the umask
constexpr mode_t owneronly = 0600;
constexpr mode_t permissions = 0777;
constexpr const char *accesslist = "system.posix_acl_access";

class descriptor {
   public:
    explicit descriptor(int file) : file_(file) {}
    ~descriptor() {
        if (file_ >= 0) ::close(file_);
    }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;

    int get() const { return file_; }
    bool isopen() const { return file_ >= 0; }

    // A full disk may show only here.
    bool close() {
        const int file = file_;
        file_ = -1;
        return ::close(file) == 0;
    }

   private:
    int file_;
};

// Returns how many bytes were written before one could not be.
std::size_t writesome(int file, std::span<const std::byte> bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = write(file, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        done += static_cast<std::size_t>(written);
    }
    return done;
}

bool writeall(int file, std::span<const std::byte> bytes) {
    return writesome(file, bytes) == bytes.size();
}

// The first bytes of a file, or none where they cannot be read.
std::vector<std::byte> readfirst(int file, std::size_t count) {
    std::vector<std::byte> bytes(count);
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got =
            pread(file, bytes.data() + done, count - done, static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return {};
        done += static_cast<std::size_t>(got);
    }
    return bytes;
}

// A file that exists, to be written and, where its permissions let us, read.
int openexisting(const char *path) {
    const int file = open(path, O_RDWR | O_CLOEXEC);
    return file >= 0 ? file : open(path, O_WRONLY | O_CLOEXEC);
}

// What is not a regular file: the name is opened as it is.
bool writestream(const char *path, std::span<const std::byte> bytes) {
    descriptor file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, everybody));
    return file.isopen() && writeall(file.get(), bytes) && file.close();
}

// Over what a file holds. The part behind its old end goes first: where there is no room for it, it
// is cut off again, and nothing has happened. Room for the rest is there, but a limit on file sizes
// may lie inside it, or the disk may fail: as many of the old bytes as were overwritten, which are
// kept until then, go back to where they just could be written.
bool writeinplace(descriptor &file, off_t oldsize, std::span<const std::byte> bytes) {
    const auto size = static_cast<off_t>(bytes.size());
    const std::size_t covered = std::min(bytes.size(), static_cast<std::size_t>(oldsize));
    const std::vector<std::byte> old = readfirst(file.get(), covered);
    if (lseek(file.get(), oldsize, SEEK_SET) != oldsize) return false;
    if (!writeall(file.get(), bytes.subspan(covered))) {
        static_cast<void>(ftruncate(file.get(), oldsize));
        return false;
    }
    if (lseek(file.get(), 0, SEEK_SET) != 0) return false;
    const std::size_t over = writesome(file.get(), bytes.first(covered));
    if (over == covered && ftruncate(file.get(), size) == 0) return file.close();
    const bool restored = over <= old.size() && lseek(file.get(), 0, SEEK_SET) == 0 &&
                          writeall(file.get(), std::span(old).first(over));
    // A mixture would pass for a track.
    static_cast<void>(ftruncate(file.get(), restored ? oldsize : 0));
    return false;
}

// A new file beside another, which either takes its name or vanishes. Its own name is short enough
// for any file system; a number tells it from those of other runs and threads.
class neighbour {
   public:
    neighbour(const std::string &path, mode_t mode)
        : path_(path.substr(0, path.rfind('/') + 1) + ".nalveo16-" + std::to_string(getpid()) +
                "-000"),
          file_(create(mode)) {}
    ~neighbour() {
        if (exists_) unlink(path_.c_str());
    }
    neighbour(const neighbour &) = delete;
    neighbour &operator=(const neighbour &) = delete;

    bool exists() const { return exists_; }

    // Owner and group where the system lets us; then the permissions, as the change of an owner may
    // take some away. With an access control list, the mode alone would be wider than the file was:
    // its middle digit is then no group's, but the most that anyone in the list gets.
    bool takeaccess(int from, const struct stat &status) const {
        if (fchown(file_.get(), status.st_uid, status.st_gid) != 0)
            static_cast<void>(fchown(file_.get(), static_cast<uid_t>(-1), status.st_gid));
        const ssize_t size = fgetxattr(from, accesslist, nullptr, 0);
        if (size > 0) {
            std::vector<char> list(static_cast<std::size_t>(size));
            return fgetxattr(from, accesslist, list.data(), list.size()) == size &&
                   fsetxattr(file_.get(), accesslist, list.data(), list.size(), 0) == 0;
        }
        if (size < 0 && errno != ENODATA && errno != ENOTSUP) return false;
        // The folder may have given this file a list that the other has not.
        if (fremovexattr(file_.get(), accesslist) != 0 && errno != ENODATA && errno != ENOTSUP)
            return false;
        return fchmod(file_.get(), status.st_mode & permissions) == 0;
    }

    bool fill(std::span<const std::byte> bytes) {
        return writeall(file_.get(), bytes) && file_.close();
    }

    bool takename(const std::string &name) {
        exists_ = std::rename(path_.c_str(), name.c_str()) != 0;
        return !exists_;
    }

   private:
    int create(mode_t mode) {
        constexpr int attempts = 1000;
        for (int i = 0; i < attempts; ++i) {
            path_.replace(path_.size() - 3, 3, std::to_string(1000 + i), 1, 3);  // i in 3 digits
            const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
            exists_ = file >= 0;
            if (exists_ || errno != EEXIST) return file;
        }
        return -1;
    }

    std::string path_;
    bool exists_ = false;
    descriptor file_;
};

}  // namespace

bool writewhole(const char *path, std::span<const std::byte> bytes) {
    const std::string target = linktarget(path);
    struct stat old, itself;
    if (stat(path, &old) != 0) {
        if (errno != ENOENT) return false;
        neighbour made(target, everybody);
        return made.exists() && made.fill(bytes) && made.takename(target);
    }
    // Behind a link of /proc there may be a file whose name is gone, or is another's.
    const bool regular = S_ISREG(old.st_mode) && lstat(target.c_str(), &itself) == 0 &&
                         itself.st_dev == old.st_dev && itself.st_ino == old.st_ino;
    if (!regular) return writestream(path, bytes);
    descriptor existing(openexisting(target.c_str()));
    if (!existing.isopen()) return false;
    neighbour made(target, owneronly);
    if (made.exists() && made.takeaccess(existing.get(), old)) {
        if (!made.fill(bytes)) return false;
        if (made.takename(target)) return true;
    }
    return writeinplace(existing, old.st_size, bytes);
}

}  // namespace nalveo
