// Small text files of the kernel, and the numbers in them.
#ifndef QOR_CORE_TEXTFILE_H
#define QOR_CORE_TEXTFILE_H

#include <stddef.h>
#include <stdint.h>

namespace core {

// Reads the whole file whose name the format and its arguments make, as a string without the newline at its end.
// Returns false if it cannot be read or does not fit: half a list of processors would pass for a whole one.
bool readText(char* text, size_t room, const char* format, ...) __attribute__((format(printf, 3, 4)));

// Reads the decimal digits at *cursor and moves it behind them. Returns false, with the cursor where it was, if there
// are none or the number has no place in *value.
bool parseDigits(const char** cursor, int64_t* value);

}  // namespace core

#endif
