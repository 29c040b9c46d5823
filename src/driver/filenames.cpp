#include "driver/filenames.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>

#include "driver/indexlist.h"
#include "io/filepath.h"

namespace nalveo {
namespace {

constexpr std::size_t mostnames = 4;

// `identity` tells a name's file, and is nothing for a file that may be named twice.
template <class Identity>
bool checkdistinctby(const filenames &names, Identity identity) {
    const std::array<const char *, mostnames> all{names.wave, names.f0, names.cc, names.fv};
    std::array<std::optional<fileidentity>, mostnames> files;
    for (std::size_t i = 0; i < all.size() && all[i] != nullptr; ++i) {
        files[i] = identity(all[i]);
        for (std::size_t k = 0; files[i] && k < i; ++k) {
            if (files[k] != files[i]) continue;
            std::printf("Error: %s and %s are the same file.\n", all[k], all[i]);
            return false;
        }
    }
    return true;
}

}  // namespace

bool checkindexfields(const filenames &names) {
    for (const char *name : {names.wave, names.f0, names.cc, names.fv}) {
        if (name == nullptr || getfileindex(name) != nullptr) continue;
        std::printf("Error: no index field in %s.\n", name);
        return false;
    }
    return true;
}

bool checkdistinct(const filenames &names) { return checkdistinctby(names, identify); }

// Index fields of one width in the same place of the same text get the same digits as long as an
// index fits. Indices grow, so the first fits if any does, and what holds for it holds for all.
bool checkseriesdistinct(const filenames &names, std::uint32_t first) {
    return checkdistinctby(names, [first](std::string name) {
        replacefileindex(name.data(), first);
        return identifyplace(name);
    });
}

void setindex(const filenames &names, std::uint32_t index) {
    std::array<const char *, mostnames> narrow{};
    std::size_t nnarrow = 0;
    for (char *name : {names.wave, names.f0, names.cc, names.fv})
        if (name != nullptr && replacefileindex(name, index) != 0) narrow[nnarrow++] = name;
    std::puts(names.wave);
    for (std::size_t i = 0; i < nnarrow; ++i)
        std::printf("Warning: %u does not fit the index field of %s.\n", index, narrow[i]);
}

}  // namespace nalveo
