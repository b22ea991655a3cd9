/* Every record that the public headers declare; what the compiler makes of them is in the debug information. */
#include "kv1905/kcfg.h"
#include "kv1905/kvMAP1905.h"
