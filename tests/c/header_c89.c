/* The public header compiles as strict C89 and declares what it promises. */
#include "tolvar/tolvar.h"

typedef int32_t (*NextErrorFunction)(uint32_t*, char*, uint64_t);

static const NextErrorFunction kNextError = GetNextError;
static const int kStatuses[] = {TOLVAR_OK,       TOLVAR_SIZE_RETURNED, TOLVAR_END_OF_BLOCKS, TOLVAR_E_BLOCK,
                                TOLVAR_E_FAILED, TOLVAR_E_NOT_FOUND,   TOLVAR_E_RESERVED};

int tolvar_header_c89_check(void) {
  return (kNextError != 0) + (int)(sizeof kStatuses / sizeof kStatuses[0]) +
         (int)(TOLVAR_OPTION_NEWEST_PASS | TOLVAR_OPTION_ERROR_QUEUE) + ExtendedErrorsAvailable() + LoggingAvailable();
}
