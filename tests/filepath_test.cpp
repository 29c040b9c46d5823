#include "io/filepath.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "testfiles.h"

using namespace nalveo;

namespace fs = std::filesystem;

TEST(identify, findsonefileundermanynames) {
    const tempfolder folder;
    const std::string file = folder / "in/file";
    fs::create_directory(folder / "in");
    writefile(file, "");
    fs::create_hard_link(file, folder / "hard");
    fs::create_symlink("in", folder / "folder");
    fs::create_symlink("folder/file", folder / "soft");
    fs::create_symlink("in/none", folder / "nowhere");
    const auto same = [&](const std::string &a, const std::string &b) {
        return identify(folder / a) && identify(folder / a) == identify(folder / b);
    };
    for (const char *name : {"in/file", "hard", "soft", "folder/../in//./file"})
        EXPECT_TRUE(same("in/file", name)) << name;
    for (const char *name : {"in/none", "folder/none", "nowhere", "in/../folder/./none"})
        EXPECT_TRUE(same("in/none", name)) << name;
    EXPECT_TRUE(same("no/x/../y", "no/y") && same("no/y", "folder/../no/y"));
    for (const char *other : {"in/nine", "none", "no/none", "in/file"})
        EXPECT_FALSE(same("in/none", other)) << other;
    for (const std::string many : {"", "in", "no/", "no/.", "no/..", "/dev/null", "/dev/stdin/."})
        EXPECT_FALSE(identify(many) && identify(folder / many)) << many;
    EXPECT_FALSE(identify("/dev/null") || identifyplace("/dev/null"));
    EXPECT_EQ(identifyplace(folder / "in/file"), identifyplace(folder / "folder/file"));
    EXPECT_NE(identifyplace(folder / "hard"), identifyplace(folder / "in/file"));
}
