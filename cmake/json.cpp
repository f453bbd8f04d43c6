#define VELO_COMPILES_JSON
#include <cmake/json.h>
