// The same program as C++.
#include "program.c"  // NOLINT(bugprone-suspicious-include)
