#include "testfiles.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "io/binaryfile.h"

namespace {

template <class Value>
std::string bytesof(Value value) {
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

}  // namespace

tempfolder::tempfolder() : path_(std::filesystem::temp_directory_path() / "nalveo_XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder " + path_);
}

tempfolder::~tempfolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::optional<std::string> readfile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<double> readby(std::uint32_t (*reader)(const char *, double **),
                           const std::string &path) {
    double untouched = 0.0, *read = &untouched;
    const std::uint32_t count = reader(path.c_str(), &read);
    if ((count == 0) != (read == &untouched)) throw std::runtime_error("result of " + path);
    const nalveo::readerarray values(count == 0 ? nullptr : read);
    return {values.get(), values.get() + count};
}

void writefile(const std::string &path, const std::string &bytes) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << bytes << std::flush)) throw std::runtime_error("could not write " + path);
}

std::vector<std::string> namesin(const std::string &folder) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

unprivileged::unprivileged() : another_(geteuid() == 0) {
    constexpr uid_t nobody = 65534;
    if (another_ && seteuid(nobody) != 0) throw std::runtime_error("root cannot step down");
}

unprivileged::~unprivileged() {
    if (another_ && seteuid(0) != 0) std::abort();
}

std::string floatbytes(const std::vector<float> &values) {
    return {reinterpret_cast<const char *>(values.data()), values.size() * sizeof(float)};
}

std::vector<float> floatsof(const std::string &bytes) {
    std::vector<float> values(bytes.size() / sizeof(float));
    if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * sizeof(float));
    return values;
}

std::string wavbytes(const std::vector<std::int16_t> &samples, const wavheader &h) {
    std::string bytes;
    for (const std::int16_t sample : samples) bytes += bytesof(sample);
    const auto size = static_cast<std::uint32_t>(bytes.size());
    return h.riff + bytesof(36 + size) + h.wave + h.fmt + bytesof(h.fmtsize) + bytesof(h.format) +
           bytesof(h.channels) + bytesof(h.rate) + bytesof(h.byterate) + bytesof(h.align) +
           bytesof(h.bits) + h.rest + h.data + bytesof(h.datasize.value_or(size)) + bytes;
}

runresult runprogram(const std::string &program, std::vector<std::string> arguments,
                     const std::string &folder) {
    std::vector<char *> argv;
    for (std::string &argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        if (chdir(folder.c_str()) == 0 && dup2(ends[1], STDOUT_FILENO) >= 0 && close(ends[0]) == 0)
            execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(ends[1]);
    runresult result{{}, -1};
    char buffer[4096];
    for (ssize_t got; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
        result.out.append(buffer, static_cast<std::size_t>(got));
    close(ends[0]);
    int status = 0;
    if (waitpid(child, &status, 0) != child) throw std::runtime_error("no process");
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}
