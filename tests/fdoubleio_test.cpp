#include "io/fdoubleio.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <limits>

#include "io/binaryfile.h"
#include "testfiles.h"

using namespace nalveo;

namespace {

using doubles = std::vector<double>;

doubles readtrack(const std::string &path) { return readby(fdoubleread, path); }

}  // namespace

TEST(fdoublewrite, writeslittleendianfloats) {
    const tempfolder folder;
    const doubles values = {1.0, 2.5, -1e10, 0.1};
    // IEEE: sign, 8 bits of exponent, 23 of fraction, lowest byte first; 0.1 rounds up.
    const std::string bytes("\0\0\x80\x3f\0\0\x20\x40\xf9\x02\x15\xd0\xcd\xcc\xcc\x3d", 16);
    for (const auto copy : {std::int8_t{0}, std::int8_t{1}, std::int8_t{2}}) {
        doubles track = values;
        writefile(folder / "track", "more than there will be afterwards");
        ASSERT_EQ(fdoublewrite((folder / "track").c_str(), track.data(), 4, copy), 4U);
        EXPECT_EQ(readfile(folder / "track"), bytes);
        if (copy == 1)
            EXPECT_EQ(track, values);
        else
            EXPECT_EQ(std::memcmp(track.data(), bytes.data(), 16), 0) << "the floats, packed";
    }
}

TEST(fdoublewrite, saysthatithasfailed) {
    const tempfolder folder;
    doubles values(100000);
    EXPECT_EQ(fdoublewrite(nullptr, values.data(), 1, 0), 0U);
    EXPECT_EQ(fdoublewrite((folder / "no/track").c_str(), values.data(), 1, 0), 0U);
    EXPECT_EQ(fdoublewrite((folder / "none").c_str(), values.data(), 0, 0), 0U);
    EXPECT_FALSE(readfile(folder / "none"));
    // A few values leave the buffer only when the file is closed, many before that.
    for (const std::uint32_t count : {1U, 100000U})
        EXPECT_EQ(fdoublewrite("/dev/full", values.data(), count, 1), 0U) << count;
}

TEST(fdoubleread, readswholevaluesofanynumber) {
    const tempfolder folder;
    const std::string path = folder / "track";
    constexpr float most = std::numeric_limits<float>::max();
    // Around 65536 values the reader's array grows.
    for (const std::size_t count : {1U, 65536U, 65537U, 200000U}) {
        std::vector<float> floats = {0.1F, -most, std::numeric_limits<float>::denorm_min()};
        while (floats.size() < count) floats.push_back(static_cast<float>(floats.size()) - 0.5F);
        floats.resize(count);
        writefile(path, floatbytes(floats) + std::string(count % 4, 'x'));  // a bit of a value
        EXPECT_TRUE(readtrack(path) == doubles(floats.begin(), floats.end())) << count;
    }
    for (const char *few : {"", "a", "abc"}) {
        writefile(path, few);
        EXPECT_TRUE(readtrack(path).empty()) << few;
    }
    for (const char *none : {"", "none"}) EXPECT_TRUE(readtrack(folder / none).empty()) << none;
    double *unset = nullptr;
    EXPECT_EQ(fdoubleread(nullptr, &unset), 0U);
}

TEST(readtrack, sayswhythereisnone) {
    const tempfolder folder;
    const auto state = [&](const std::string &path) {
        readerarray values;
        std::uint32_t count = 7;
        const trackstate result = readtrack(path.c_str(), &values, &count);
        EXPECT_EQ(result == trackstate::good, values && count == 1) << path;
        return result;
    };
    writefile(folder / "track", floatbytes({1.0F}) + "abc");
    writefile(folder / "few", "abc");
    EXPECT_EQ(state(folder / "track"), trackstate::good);
    for (const char *missing : {"none", "none/none", "track/none"})
        EXPECT_EQ(state(folder / missing), trackstate::missing) << missing;
    EXPECT_EQ(state(folder / "few"), trackstate::empty);
    EXPECT_EQ(state("/dev/null"), trackstate::empty);
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0666), 0);
    alarm(10);  // a hang ends the test
    EXPECT_EQ(state(folder / "pipe"), trackstate::unreadable);
    alarm(0);
    std::filesystem::create_symlink("loop", folder / "loop");
    std::filesystem::permissions(folder / "", std::filesystem::perms{0755});
    std::filesystem::permissions(folder / "track", std::filesystem::perms{0});
    std::filesystem::resize_file(folder / "few", std::uintmax_t{1} << 35);  // and a hole
    const unprivileged user;
    for (const char *name : {"track", "few", "loop", ""})
        EXPECT_EQ(state(folder / name), trackstate::unreadable) << name;
    EXPECT_EQ(state("/proc/self/mem"), trackstate::unreadable) << "has no end";
}
