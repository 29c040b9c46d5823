/// What a fuzzer needs: a property that ends the run, programs run in process, files and folders
/// that live in memory.

#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

/// Ends the process with a message when a property does not hold.
inline void require(bool holds, const char *property) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", property);
    std::abort();
}

/// Runs a program with its messages thrown away; its exit status. The arguments that it marks as
/// read are a copy.
inline int runsilent(int (*program)(int, char **), std::vector<std::string> arguments) {
    static const bool silent = std::freopen("/dev/null", "w", stdout) != nullptr;
    require(silent, "messages can be thrown away");
    std::vector<char *> argv;
    for (std::string &argument : arguments) argv.push_back(argument.data());
    return program(static_cast<int>(argv.size()), argv.data());
}

/// A file in memory, with a path for those who open files by name.
class memoryfile {
   public:
    memoryfile() = default;
    ~memoryfile() { close(file_); }
    memoryfile(const memoryfile &) = delete;
    memoryfile &operator=(const memoryfile &) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

    /// Makes these bytes the file's contents. Returns the path.
    std::string put(const std::string &bytes) {
        const auto size = static_cast<ssize_t>(bytes.size());
        require(ftruncate(file_, 0) == 0 && pwrite(file_, bytes.data(), bytes.size(), 0) == size,
                "a file can be made");
        return path();
    }

    std::string get() const {
        std::string bytes(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), '\0');
        const auto size = static_cast<ssize_t>(bytes.size());
        require(pread(file_, bytes.data(), bytes.size(), 0) == size, "a file can be read");
        return bytes;
    }

   private:
    int file_ = memfd_create("fuzz", 0);
};

/// A folder in memory, removed at the end.
class memoryfolder {
   public:
    memoryfolder() { require(mkdtemp(path_.data()) != nullptr, "a folder can be made"); }
    ~memoryfolder() { std::filesystem::remove_all(path_); }
    memoryfolder(const memoryfolder &) = delete;
    memoryfolder &operator=(const memoryfolder &) = delete;

    std::string operator/(const std::string &name) const { return path_ + '/' + name; }

    void clear() const {
        for (const auto &entry : std::filesystem::directory_iterator(path_))
            std::filesystem::remove(entry.path());
    }

    void put(const std::string &name, const std::string &bytes) const {
        std::ofstream file(*this / name, std::ios::binary);
        require(bool(file << bytes << std::flush), "a file can be made");
    }

    /// Name and contents of all its files; a link is what it leads to.
    std::map<std::string, std::string> files() const {
        std::map<std::string, std::string> all;
        for (const auto &entry : std::filesystem::directory_iterator(path_)) {
            std::ifstream file(entry.path(), std::ios::binary);
            all[entry.path().filename().string()] = {std::istreambuf_iterator<char>(file), {}};
        }
        return all;
    }

   private:
    std::string path_ = "/dev/shm/fuzz_XXXXXX";
};
