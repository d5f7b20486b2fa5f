/*
 * A C99 client of the main use, built against the public header and the
 * shared library only:
 *   main_use_client VOLUME OLDER_ID NEWER_ID FILE
 * It opens a handle with the error queue, asks for the bitmap's size, tries
 * a buffer one byte short, copies the bitmap, tries GetBlock with a short
 * buffer, walks every changed block to the end, checks that the walk served
 * exactly the set bits in order, asks for FILE's change map (a path inside
 * the volume), excludes FILE into a second handle and walks that one, drains
 * the error queue and frees the handles. One line per check, then
 * "N passed, N failed".
 */
#include <stdio.h>
#include <stdlib.h>
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

static int bit_is_set(const unsigned char* bitmap, uint64_t index) { return (bitmap[index / 8] >> (index % 8)) & 1; }

static uint64_t count_bits(const unsigned char* bitmap, uint64_t size) {
  uint64_t i;
  uint64_t bits = 0;
  for (i = 0; i < size * 8; ++i) bits += (uint64_t)bit_is_set(bitmap, i);
  return bits;
}

/* FILE's change map: the size query, a short buffer, the map, a missing path. */
static void check_change_map(TolvarHandle handle, const char* file) {
  uint64_t size = 0;
  uint64_t room;
  unsigned char* map;
  check(GetFileChangesMap(handle, file, NULL, &size) == TOLVAR_SIZE_RETURNED && size > 0,
        "GetFileChangesMap answers the size query");
  map = (unsigned char*)malloc((size_t)size + 1);
  room = size - 1;
  check(GetFileChangesMap(handle, file, map, &room) == TOLVAR_E_FAILED && room == size - 1,
        "GetFileChangesMap refuses a buffer one byte short");
  room = size + 1;
  check(GetFileChangesMap(handle, file, map, &room) == TOLVAR_OK && room == size + 1,
        "GetFileChangesMap writes the map and leaves the size");
  check(GetFileChangesMap(handle, "/no such file.bin", NULL, &size) == TOLVAR_E_NOT_FOUND,
        "GetFileChangesMap of a missing path answers not found");
  free(map);
}

/* Excludes FILE into a second handle, which walks its bits from block 0. */
static void check_exclusion(TolvarHandle handle, const char* file, uint64_t block_size, uint64_t bits_before) {
  const char* paths[2];
  const char* with_missing[3];
  TolvarHandle excluded = NULL;
  uint64_t size = 0;
  uint64_t other_size = 0;
  uint64_t served = 0;
  uint64_t index = 0;
  unsigned char* bitmap;
  unsigned char* source_bitmap;
  unsigned char* block;
  int status;

  with_missing[0] = file;
  with_missing[1] = "/no such file.bin";
  with_missing[2] = NULL;
  check(ExcludeFiles(handle, &excluded, with_missing) == TOLVAR_E_NOT_FOUND && excluded == NULL,
        "ExcludeFiles with a missing path answers not found and makes no handle");
  paths[0] = file;
  paths[1] = NULL;
  check(ExcludeFiles(handle, NULL, paths) == TOLVAR_E_FAILED, "ExcludeFiles refuses a null handle pointer");
  status = ExcludeFiles(handle, &excluded, paths);
  check(status == TOLVAR_OK && excluded != NULL, "ExcludeFiles makes a second handle");
  if (status != TOLVAR_OK) return;

  GetDiffBitmap(excluded, NULL, &size);
  bitmap = (unsigned char*)malloc((size_t)size);
  GetDiffBitmap(excluded, bitmap, &size);
  GetDiffBitmap(handle, NULL, &other_size);
  source_bitmap = (unsigned char*)malloc((size_t)other_size);
  GetDiffBitmap(handle, source_bitmap, &other_size);
  check(size == other_size && memcmp(bitmap, source_bitmap, (size_t)size) == 0, "both handles show the reduced bitmap");
  check(count_bits(bitmap, size) <= bits_before, "the reduced bitmap has no new bits");

  block = (unsigned char*)malloc((size_t)block_size);
  for (;;) {
    uint64_t room = block_size;
    status = GetBlock(excluded, block, &room, &index, 0);
    if (status != TOLVAR_OK) break;
    ++served;
  }
  check(status == TOLVAR_END_OF_BLOCKS && served == count_bits(bitmap, size),
        "the second handle walks its bits from block 0");
  printf("%lu of %lu blocks left after excluding %s\n", (unsigned long)served, (unsigned long)bits_before, file);
  FreeHandle(excluded);
  free(block);
  free(source_bitmap);
  free(bitmap);
}

int main(int argc, char** argv) {
  const uint64_t block_size = 65536;
  TolvarHandle handle = NULL;
  uint64_t size = 0;
  uint64_t short_size;
  uint64_t bits = 0;
  uint64_t served = 0;
  uint64_t next_bit = 0;
  uint64_t index = 0;
  int in_order = 1;
  int status;
  unsigned char* bitmap;
  unsigned char* block;
  uint32_t code = 0;
  char message[256];
  int records = 0;

  if (argc != 5) {
    fprintf(stderr, "usage: %s VOLUME OLDER_ID NEWER_ID FILE\n", argv[0]);
    return 2;
  }

  status = Init(&handle, argv[1], argv[2], argv[3], block_size, TOLVAR_OPTION_ERROR_QUEUE);
  check(status == TOLVAR_OK && handle != NULL, "Init opens the handle");
  if (status != TOLVAR_OK) {
    while (GetNextError(&code, message, sizeof message - 1) == 1) printf("error %u\n", (unsigned)code);
    printf("%d passed, %d failed\n", passed, failed + 1);
    return 1;
  }

  check(GetDiffBitmap(handle, NULL, &size) == TOLVAR_SIZE_RETURNED && size > 0, "GetDiffBitmap answers the size query");
  bitmap = (unsigned char*)malloc((size_t)size);
  short_size = size - 1;
  check(GetDiffBitmap(handle, bitmap, &short_size) == TOLVAR_E_FAILED && short_size == size - 1,
        "GetDiffBitmap refuses a buffer one byte short and leaves the size");
  check(GetDiffBitmap(handle, bitmap, &size) == TOLVAR_OK, "GetDiffBitmap copies the bitmap");

  block = (unsigned char*)malloc((size_t)block_size);
  short_size = block_size / 2;
  check(GetBlock(handle, block, &short_size, &index, 0) == TOLVAR_E_BLOCK && short_size == block_size,
        "GetBlock with a short buffer asks for the block size");

  bits = count_bits(bitmap, size);
  for (;;) {
    uint64_t room = block_size;
    status = GetBlock(handle, block, &room, &index, 0);
    if (status != TOLVAR_OK) break;
    while (next_bit < size * 8 && !bit_is_set(bitmap, next_bit)) ++next_bit;
    if (index != next_bit || room != block_size) in_order = 0;
    ++next_bit;
    ++served;
  }
  check(status == TOLVAR_END_OF_BLOCKS, "the walk ends with the end status");
  check(served == bits && in_order, "the walk serves exactly the set bits, in order");
  check(GetBlock(handle, block, &short_size, &index, 0) == TOLVAR_END_OF_BLOCKS, "GetBlock keeps answering the end");

  check_change_map(handle, argv[4]);
  check_exclusion(handle, argv[4], block_size, bits);

  memset(message, 0, sizeof message);
  while (GetNextError(&code, message, sizeof message - 1) == 1) ++records;
  check(records > 0 && GetNextError(&code, message, sizeof message) == 0, "GetNextError drains the queue");

  FreeHandle(handle);
  free(block);
  free(bitmap);
  printf("%lu blocks of %lu bytes served\n", (unsigned long)served, (unsigned long)block_size);
  printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
