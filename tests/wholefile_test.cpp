#include "io/wholefile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "testfiles.h"

using namespace nalveo;

namespace {

namespace fs = std::filesystem;

bool write(const std::string &path, const std::string &bytes) {
    return writewhole(path.c_str(), std::as_bytes(std::span(bytes)));
}

ino_t inodeof(const std::string &path) {
    struct stat found;
    return stat(path.c_str(), &found) == 0 ? found.st_ino : 0;
}

unsigned modeof(const std::string &path) {
    return static_cast<unsigned>(fs::status(path).permissions());
}

// The size beyond which no file of this process grows.
class sizelimit {
   public:
    explicit sizelimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~sizelimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

   private:
    rlimit before_{};
    void (*handler_)(int);
};

class wholefile : public testing::Test {
   protected:
    wholefile() {
        fs::create_directory(folder_ / "in");
        for (const char *name : {"", "in"}) fs::permissions(folder_ / name, fs::perms{0777});
    }

    tempfolder folder_;
    const std::string file_ = folder_ / "in/file";
    const std::vector<std::string> alone_{"file"};
};

}  // namespace

TEST_F(wholefile, takesthenameofwhatwasthere) {
    const mode_t mask = umask(027);
    EXPECT_TRUE(write(file_, "old"));
    umask(mask);
    EXPECT_EQ(modeof(file_), 0640U) << "of a new file";
    fs::permissions(file_, fs::perms{0604});
    fs::create_hard_link(file_, folder_ / "link");
    EXPECT_TRUE(write(file_, "new"));
    EXPECT_EQ(readfile(file_), "new");
    EXPECT_EQ(readfile(folder_ / "link"), "old") << "a file that is being read does not change";
    EXPECT_EQ(modeof(file_), 0604U);
    EXPECT_EQ(namesin(folder_ / "in"), alone_);
    const std::string longest = folder_ / "in/" + std::string(255, 'n');
    EXPECT_TRUE(write(longest, "1") && write(longest, "2"));
    EXPECT_EQ(readfile(longest), "2");
    for (const std::string never : {"", "/", "/.", "/..", "no/file", "file/", "file/."})
        EXPECT_FALSE(write(folder_ / "in" + never, "x") || write(folder_ / "in/" + never, "x"));
    EXPECT_EQ(namesin(folder_ / "in").size(), 2U);
}

TEST_F(wholefile, followslinkstothefile) {
    writefile(file_, "old");
    fs::create_symlink("in", folder_ / "folder");
    fs::create_symlink("../folder/file", folder_ / "in/1");
    fs::create_symlink(folder_ / "in/1", folder_ / "2");
    fs::create_symlink("folder/new", folder_ / "3");
    EXPECT_TRUE(write(folder_ / "2", "new") && write(folder_ / "3", "made"));
    EXPECT_EQ(readfile(file_), "new");
    EXPECT_EQ(readfile(folder_ / "in/new"), "made");
    for (const char *link : {"in/1", "2", "3"}) EXPECT_TRUE(fs::is_symlink(folder_ / link));
    fs::create_symlink("loop", folder_ / "loop");
    EXPECT_FALSE(write(folder_ / "loop", "x"));
    EXPECT_EQ(namesin(folder_ / "in"), (std::vector<std::string>{"1", "file", "new"}));
}

TEST_F(wholefile, needsleavetowrite) {
    writefile(file_, "old");
    fs::permissions(file_, fs::perms{0444});
    const unprivileged user;
    EXPECT_FALSE(write(file_, "new")) << "though the folder would let it be replaced";
    EXPECT_EQ(readfile(file_), "old");
    EXPECT_EQ(namesin(folder_ / "in"), alone_);
}

// Folders that take no new file, or do not let others' files be replaced.
TEST_F(wholefile, writesinplacewhereitcannotreplace) {
    for (const unsigned mode : {0555U, 01777U}) {
        writefile(file_, "old");
        fs::permissions(file_, fs::perms{0666});
        fs::permissions(folder_ / "in", fs::perms{mode});
        const unprivileged user;
        if (mode == 01777U && !user.isanother()) continue;
        const ino_t inode = inodeof(file_);
        for (const std::string bytes : {"longer", "new", "s"}) {
            EXPECT_TRUE(write(file_, bytes));
            EXPECT_EQ(readfile(file_), bytes) << mode;
        }
        EXPECT_EQ(inodeof(file_), inode);
        EXPECT_EQ(write(folder_ / "in/new", "x"), mode != 0555U);
        unlink((folder_ / "in/new").c_str());
        EXPECT_EQ(namesin(folder_ / "in"), alone_);
        writefile(file_, "of before");
        const sizelimit full(12);
        EXPECT_FALSE(write(file_, "more than fits"));
        EXPECT_EQ(readfile(file_), "of before") << mode;
    }
}

// A file beyond the limit, of which no more than the first bytes can be written and written back.
TEST_F(wholefile, putsbackwhatitcouldnotreplace) {
    const std::string before = "longer than the limit";
    for (const auto &[mode, room] :
         {std::pair(0666U, 12U), {0666U, 0U}, {0222U, 12U}, {0222U, 0U}}) {
        writefile(file_, before);
        fs::permissions(file_, fs::perms{mode});
        fs::permissions(folder_ / "in", fs::perms{0555});
        {
            const unprivileged user;
            const sizelimit full(room);
            for (const std::size_t size : {before.size() - 3, before.size(), before.size() + 3})
                EXPECT_FALSE(write(file_, std::string(size, 'x')));
        }
        fs::permissions(folder_ / "in", fs::perms{0777});
        fs::permissions(file_, fs::perms{0666});
        const std::string after = readfile(file_).value_or("none");
        EXPECT_EQ(after, mode == 0222U && room > 0 ? "" : before) << mode << ' ' << room;
    }
}

// Lists as the kernel keeps them: a version, then for each entry a tag, permissions and an id.
TEST_F(wholefile, keepsaccesscontrollists) {
    constexpr const char *access = "system.posix_acl_access";
    const auto entry = [](char tag, char rights, const std::string &id) {
        return std::string{tag, 0, rights, 0} + id;
    };
    const std::string any(4, '\xff'), user("\xd2\4\0\0", 4);
    const std::string list = std::string("\2\0\0\0", 4) + entry(1, 6, any) + entry(2, 6, user) +
                             entry(4, 4, any) + entry(16, 6, any) + entry(32, 0, any);
    const auto listof = [&] {
        std::string found(1000, '\0');
        const ssize_t size = getxattr(file_.c_str(), access, found.data(), found.size());
        return found.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size));
    };
    writefile(file_, "old");
    if (setxattr(file_.c_str(), access, list.data(), list.size(), 0) != 0)
        GTEST_SKIP() << "the file system has no access control lists";
    EXPECT_TRUE(write(file_, "new"));
    EXPECT_EQ(readfile(file_), "new");
    EXPECT_EQ(listof(), list) << "as it was, mode " << modeof(file_);
    EXPECT_EQ(modeof(file_), 0660U);
    // A folder that gives new files a list must not widen one that had none.
    ASSERT_EQ(removexattr(file_.c_str(), access), 0);
    fs::permissions(file_, fs::perms{0640});
    const std::string in = folder_ / "in";
    ASSERT_EQ(setxattr(in.c_str(), "system.posix_acl_default", list.data(), list.size(), 0), 0);
    EXPECT_TRUE(write(file_, "newer"));
    EXPECT_EQ(listof(), "");
    EXPECT_EQ(modeof(file_), 0640U);
}

TEST_F(wholefile, leavesnothingofwhatfails) {
    const sizelimit full(12);
    EXPECT_FALSE(write(file_, "more than fits"));
    EXPECT_TRUE(namesin(folder_ / "in").empty());
    writefile(file_, "of before");
    EXPECT_FALSE(write(file_, "more than fits"));
    EXPECT_EQ(readfile(file_), "of before");
    EXPECT_EQ(namesin(folder_ / "in"), alone_);
    EXPECT_TRUE(write(file_, "what fits"));
}

TEST_F(wholefile, writeswhathasnonameofitsown) {
    for (const bool deleted : {false, true}) {
        const int file =
            deleted ? open(file_.c_str(), O_RDWR | O_CREAT, 0600) : memfd_create("", 0);
        if (deleted) unlink(file_.c_str());
        const std::string path = "/proc/self/fd/" + std::to_string(file);
        EXPECT_TRUE(write(path, "first") && write(path, "new"));
        EXPECT_EQ(readfile(path), "new");
        close(file);
    }
    EXPECT_TRUE(write("/dev/null", "x"));
    EXPECT_FALSE(write("/dev/full", "x"));
    EXPECT_TRUE(namesin(folder_ / "in").empty());
}

TEST_F(wholefile, isneverseeninpart) {
    const auto all = [](char c) { return std::string(300000, c); };
    ASSERT_TRUE(write(file_, all('a')));
    {
        const auto rewrite = [&](char c) {
            for (int i = 0; i < 30; ++i) EXPECT_TRUE(write(file_, all(c)));
        };
        const std::jthread a(rewrite, 'a'), b(rewrite, 'b');
        for (int i = 0; i < 100; ++i) {
            const std::string seen = readfile(file_).value_or("");
            ASSERT_TRUE(seen == all('a') || seen == all('b'));
        }
    }
    EXPECT_EQ(namesin(folder_ / "in"), alone_);
}
