/// Files that appear under their name only when they are whole. Needs io/filepath.

#pragma once

#include <cstddef>
#include <span>

namespace nalveo {

/// Creates or replaces a file, all or nothing.
///
/// The bytes go to a new file in the same folder, hidden and named ".nalveo16-..." after the
/// process, which then takes the name. Whoever looks sees the file of before or the new one;
/// a run that is killed leaves the one of before, and perhaps the hidden file. Symbolic links are
/// followed: the file they lead to is replaced, or made, and they stay. An existing file must be
/// writable, and keeps its permissions, those of an access control list too, and, as far as the
/// system lets, its owner and group; of its hard links, only this one gets the new bytes.
///
/// An existing file is written in place when its folder takes no new file or does not let it be
/// replaced. A full disk or a limit on file sizes leaves it as it was even then: what has been
/// overwritten is put back. Where that is not to be had, as the file may not be read or the disk
/// fails, it is left empty. A run that is killed in between, a loss of power then and a file system
/// that tells of an error only on closing leave a mixture. What is no regular file (device, pipe,
/// terminal, a descriptor below /proc) is opened and written.
///
/// The disk is not waited for: after a loss of power a file may be missing or empty.
///
/// \param[in] path   file name
/// \param[in] bytes  all that the file shall hold
/// \return whether the file now holds the bytes; else what was there before is still there, but for
///         the cases of writing in place above, and no other file. Throws std::bad_alloc; then
///         nothing has changed
[[nodiscard]] bool writewhole(const char *path, std::span<const std::byte> bytes);

}  // namespace nalveo
