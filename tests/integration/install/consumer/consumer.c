/* Uses the installed header and library: opens a volume that does not
 * exist and expects the library's own failure and message. */
#include <stdio.h>
#include <string.h>

#include <tolvar/tolvar.h>

int main(int argc, char** argv) {
  const char* volume = argc > 1 ? argv[1] : "/nonexistent/volume.img";
  char message[256];
  char expected[256];
  uint32_t code = 0;
  TolvarHandle handle = NULL;
  int32_t status = Init(&handle, volume, "a", "b", 65536, TOLVAR_OPTION_ERROR_QUEUE);
  if (status != TOLVAR_E_FAILED || handle != NULL) {
    printf("Init returned %d\n", (int)status);
    return 1;
  }
  memset(message, 0, sizeof message);
  if (GetNextError(&code, message, sizeof message - 1) != 1) {
    printf("no message on the queue\n");
    return 1;
  }
  snprintf(expected, sizeof expected, "Can't open volume %s", volume);
  if (code != TOLVAR_ERROR_IO || strcmp(message, expected) != 0) {
    printf("unexpected message %u: %s\n", (unsigned)code, message);
    return 1;
  }
  printf("consumer: Init failed as expected: %s\n", message);
  return ExtendedErrorsAvailable() == 1 && LoggingAvailable() == 0 ? 0 : 1;
}
