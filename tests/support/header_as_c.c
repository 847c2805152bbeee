/* The public header must serve C callers too: this unit only has to compile. */
#include "Wrenkits.h"

int wrenkits_header_compiles_as_c(void) { return (int)sizeof(AdapterInfo); }
