/// Which file a name stands for: behind symbolic links, and whether two names stand for the same.
/// Throws std::bad_alloc when memory runs out.

#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace nalveo {

/// Follows the symbolic links of a path's last component, also to a file that does not exist yet.
///
/// \param[in] path  file name
/// \return path of the file itself. The links of /proc stay as they are: they stand for an open
///         descriptor, which may have no path. What has too many links comes back as a link, too
std::string linktarget(const std::string &path);

/// A regular file, told from all others: one that exists by its device and inode, one that does not
/// by those of its folder and by its name there.
struct fileidentity {
    dev_t device = 0;
    ino_t inode = 0;
    std::string name;  // empty for a file that exists; a whole path where there is no folder either

    bool operator==(const fileidentity &) const = default;
};

/// The regular file that a name stands for, or will once it is written.
///
/// \param[in] path  file name
/// \return nothing for a device, a pipe, a terminal, a folder: what may be named more than once
std::optional<fileidentity> identify(const std::string &path);

/// The same without a look at the file, unless it is no regular one: all that differs is the name
/// itself. Links to one file are different places of it.
std::optional<fileidentity> identifyplace(const std::string &path);

}  // namespace nalveo
