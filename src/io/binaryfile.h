/// Binary files as owned handles, and the one reading pattern that both readers share: a block of
/// small values that widens in place to doubles.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace nalveo {

struct fileclose {
    void operator()(std::FILE *file) const { static_cast<void>(std::fclose(file)); }
};
using filehandle = std::unique_ptr<std::FILE, fileclose>;

struct mallocfree {
    void operator()(void *block) const { std::free(block); }
};
/// Array that a reader hands out: made with malloc, released with free.
using readerarray = std::unique_ptr<double[], mallocfree>;

/// Reads values of a few bytes each into the start of an array of doubles of the same count.
///
/// The array grows with what has really been read: a count that a damaged header claims costs at
/// most twice the doubles that the file has values for.
///
/// \param[in]     file       opened for binary reading, at the first value
/// \param[in]     valuesize  bytes per value, at most the size of a double
/// \param[in,out] count      in: most values to read, at least 1; out: values read completely
/// \return array of at least count doubles whose first count valuesize bytes hold the values;
///         throws std::bad_alloc when there is no memory for them
readerarray readvalues(std::FILE *file, std::size_t valuesize, std::uint32_t *count);

}  // namespace nalveo
