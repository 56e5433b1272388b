// The same in C++.
#include "layout.c"  // NOLINT(bugprone-suspicious-include)
