/*
 * A C99 client of the shared library: only the public header, the exports
 * reached through the dynamic linker. It prints one line per check and a
 * closing "N passed, N failed" line, and exits non-zero on any failure.
 */
#include <stdio.h>
#include <string.h>

#include "tolvar/tolvar.h"

static int passed = 0;
static int failed = 0;

static void check(int ok, const char* what) {
  printf("%s: %s\n", ok ? "ok" : "FAILED", what);
  if (ok) {
    ++passed;
  } else {
    ++failed;
  }
}

int main(void) {
  uint32_t code = 77;
  char buffer[16];

  memset(buffer, 'x', sizeof buffer);
  check(ExtendedErrorsAvailable() == 1, "ExtendedErrorsAvailable returns 1");
  check(LoggingAvailable() == 0, "LoggingAvailable returns 0");
  check(GetNextError(&code, buffer, sizeof buffer) == 0, "GetNextError without a queue returns 0");
  check(code == 77 && buffer[0] == 'x', "GetNextError without a queue writes nothing");

  printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
