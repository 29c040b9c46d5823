#include "io/filepath.h"

#include <sys/stat.h>

#include <filesystem>
#include <system_error>

namespace nalveo {
namespace {

namespace fs = std::filesystem;

constexpr int mostlinks = 40;  // as many as the kernel follows

// Folder and name of a file that need not exist. A folder that does not exist either has no inode,
// and its path with all dots and links taken out must do.
std::optional<fileidentity> placeof(const fs::path &path) {
    const std::string name = path.filename().string();
    if (name.empty() || name == "." || name == "..") return std::nullopt;  // never a file
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    struct stat found;
    if (stat(folder.c_str(), &found) == 0) return fileidentity{found.st_dev, found.st_ino, name};
    std::error_code error;
    fs::path whole = fs::weakly_canonical(fs::absolute(path, error), error);
    if (error) whole = fs::absolute(path, error).lexically_normal();
    return fileidentity{0, 0, whole.string()};
}

}  // namespace

std::string linktarget(const std::string &path) {
    fs::path file(path);
    for (int links = 0; links < mostlinks; ++links) {
        if (file.native().starts_with("/proc/")) break;
        std::error_code nolink;
        const fs::path next = fs::read_symlink(file, nolink);
        if (nolink) break;
        file = file.parent_path() / next;  // which is next alone where that begins with "/"
    }
    return file.string();
}

std::optional<fileidentity> identify(const std::string &path) {
    struct stat found;
    if (stat(path.c_str(), &found) != 0) return placeof(linktarget(path));
    if (!S_ISREG(found.st_mode)) return std::nullopt;
    return fileidentity{found.st_dev, found.st_ino, {}};
}

std::optional<fileidentity> identifyplace(const std::string &path) {
    struct stat found;
    if (stat(path.c_str(), &found) == 0 && !S_ISREG(found.st_mode)) return std::nullopt;
    return placeof(path);
}

}  // namespace nalveo
