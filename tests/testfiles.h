/// Files and programs for tests: folders that vanish, whole files as bytes, WAV bytes with any
/// header, and a run of the program as a user sees it.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// A new empty folder, removed with all that is in it at the end of its life.
class tempfolder {
   public:
    tempfolder();
    ~tempfolder();
    tempfolder(const tempfolder &) = delete;
    tempfolder &operator=(const tempfolder &) = delete;
    std::string operator/(const std::string &name) const { return path_ + '/' + name; }

   private:
    std::string path_;
};

/// Contents of a file; nothing when it cannot be opened.
std::optional<std::string> readfile(const std::string &path);

/// What a reader of the library's returns for a file, whose result pointer a failure must leave as
/// it was.
std::vector<double> readby(std::uint32_t (*reader)(const char *, double **),
                           const std::string &path);

/// Creates or replaces a file. Throws when that fails: a test without its input tests nothing.
void writefile(const std::string &path, const std::string &bytes);

/// Names of all that a folder holds, hidden or not, in order.
std::vector<std::string> namesin(const std::string &folder);

/// While it lives, the process has no more rights to files than any user: root may do everything,
/// and would see no refusal.
class unprivileged {
   public:
    unprivileged();
    ~unprivileged();
    unprivileged(const unprivileged &) = delete;
    unprivileged &operator=(const unprivileged &) = delete;
    /// Whether this user is another than made the files before.
    bool isanother() const { return another_; }

   private:
    bool another_;
};

/// Bytes of a track file with these values, and back.
std::string floatbytes(const std::vector<float> &values);
std::vector<float> floatsof(const std::string &bytes);

/// What a WAV header can say, by default that of a good file.
struct wavheader {
    std::string riff = "RIFF", wave = "WAVE", fmt = "fmt ", data = "data";
    std::uint32_t fmtsize = 16;
    std::uint16_t format = 1, channels = 1;
    std::uint32_t rate = 16000, byterate = 32000;
    std::uint16_t align = 2, bits = 16;
    std::string rest = {};                       // of the "fmt " chunk, or chunks after it
    std::optional<std::uint32_t> datasize = {};  // when it is not that of the samples
};
std::string wavbytes(const std::vector<std::int16_t> &samples, const wavheader &header = {});

/// What a program printed and its exit status; -1 when it did not end by itself.
struct runresult {
    std::string out;
    int status;
};

/// Runs a program in a folder, with arguments of which the first is its own name, to its end.
runresult runprogram(const std::string &program, std::vector<std::string> arguments,
                     const std::string &folder);
