/*
 * A minimal backup client of the tolvar library: brings an image of the
 * older shadow copy up to date with the newer one by writing every changed
 * block into it.
 *
 *   restore_client VOLUME FROM TO IMAGE [BLOCK_SIZE]
 *
 * IMAGE is an image of the volume as it was at shadow copy FROM. On failure
 * the error queue's messages are printed, oldest first.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tolvar/tolvar.h>

#define MESSAGE_SIZE 10240
#define MAX_MESSAGES 64

/* GetNextError gives the newest message first; print them oldest first. */
static void print_errors(void) {
  static char messages[MAX_MESSAGES][MESSAGE_SIZE];
  static uint32_t codes[MAX_MESSAGES];
  int count = 0;
  while (count < MAX_MESSAGES) {
    memset(messages[count], 0, MESSAGE_SIZE);
    if (GetNextError(&codes[count], messages[count], MESSAGE_SIZE - 1) != 1) break;
    ++count;
  }
  while (count-- > 0) fprintf(stderr, "error %u: %s\n", (unsigned)codes[count], messages[count]);
}

int main(int argc, char** argv) {
  TolvarHandle handle = NULL;
  uint64_t block_size = 65536, size, index, written = 0;
  unsigned char* block;
  FILE* image;
  int32_t status;

  if (argc != 5 && argc != 6) {
    fprintf(stderr, "usage: %s VOLUME FROM TO IMAGE [BLOCK_SIZE]\n", argv[0]);
    return 2;
  }
  if (argc == 6) block_size = strtoull(argv[5], NULL, 10);

  status = Init(&handle, argv[1], argv[2], argv[3], block_size, TOLVAR_OPTION_ERROR_QUEUE);
  if (status != TOLVAR_OK) {
    print_errors();
    fprintf(stderr, "Init returned %d\n", (int)status);
    return 1;
  }
  image = fopen(argv[4], "r+b");
  block = malloc(block_size);
  if (image == NULL || block == NULL) {
    fprintf(stderr, "cannot open %s\n", argv[4]);
    FreeHandle(handle);
    return 1;
  }
  for (;;) {
    size = block_size;
    status = GetBlock(handle, block, &size, &index, 0);
    if (status != TOLVAR_OK) break;
    /* fseek takes a long: enough for this example's volumes. */
    if (fseek(image, (long)(index * block_size), SEEK_SET) != 0 || fwrite(block, 1, size, image) != size) {
      status = -100;
      break;
    }
    ++written;
  }
  free(block);
  FreeHandle(handle);
  if (fclose(image) != 0 || status != TOLVAR_END_OF_BLOCKS) {
    print_errors();
    fprintf(stderr, "the walk ended with %d\n", (int)status);
    return 1;
  }
  printf("%llu changed blocks written into %s\n", (unsigned long long)written, argv[4]);
  return 0;
}
