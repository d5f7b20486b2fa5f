// The public header compiles as C++ and gives the exports C linkage.
#include "tolvar/tolvar.h"

static_assert(TOLVAR_E_RESERVED == -1000, "reserved status");
static_assert(TOLVAR_OPTION_ERROR_QUEUE == 0x20000000u, "error queue bit");

extern "C" int32_t (*const tolvar_header_cxx_check)(uint32_t*, char*, uint64_t) = &GetNextError;
