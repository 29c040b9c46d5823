/// The files of a run by name: which they are for an index, and that no two are one. Uses indexlist
/// and io/filepath. What compares names throws std::bad_alloc.

#pragma once

#include <cstdint>

namespace nalveo {

/// The names as the user gave them. They are the argument strings themselves; in a series, each
/// index is written into them.
struct filenames {
    char *wave;  // filein
    char *f0;    // filef0
    char *cc;    // filecc
    char *fv;    // filefv; null when not wanted
};

/// Says in a line which name of a series has no index field, and returns false then: each index
/// would overwrite the files of the one before.
bool checkindexfields(const filenames &names);

/// Says in a line which two names stand for one regular file, if only through links, and returns
/// false then: an output would take the place of the recording or of another output. Devices,
/// pipes and terminals may be named more than once.
bool checkdistinct(const filenames &names);

/// The same for the names of a series, before any index is written into them: it finds those that
/// differ in nothing but the index, whatever the index.
///
/// \param[in] names  names with index fields
/// \param[in] first  first index of the series, which is its lowest
bool checkseriesdistinct(const filenames &names, std::uint32_t first);

/// Writes an index into every name and prints the input's. A name whose field is too narrow keeps
/// its text, so that its file is that of the index before: a line says so for each.
void setindex(const filenames &names, std::uint32_t index);

}  // namespace nalveo
