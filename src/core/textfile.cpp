// Small text files of the kernel, and the numbers in them.
#include "core/textfile.h"

#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace core {

bool readText(char* text, size_t room, const char* format, ...) {
  char path[PATH_MAX];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(path, sizeof path, format, arguments);
  va_end(arguments);
  if (length < 0 || static_cast<size_t>(length) >= sizeof path) return false;

  FILE* file = fopen(path, "re");
  if (!file) return false;
  const size_t count = fread(text, 1, room, file);
  const bool failed = ferror(file) != 0;
  fclose(file);
  if (failed || count == room) return false;

  text[count] = '\0';
  char* newline = strrchr(text, '\n');
  if (newline && newline[1] == '\0') *newline = '\0';
  return true;
}

bool parseDigits(const char** cursor, int64_t* value) {
  const char* at = *cursor;
  int64_t number = 0;
  for (; *at >= '0' && *at <= '9'; ++at) {
    if (__builtin_mul_overflow(number, 10, &number) || __builtin_add_overflow(number, *at - '0', &number)) return false;
  }
  if (at == *cursor) return false;
  *cursor = at;
  *value = number;
  return true;
}

}  // namespace core
