// Error reports: texts character by character, the policy, the stream.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "tx.h"
