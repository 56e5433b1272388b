// What nearly every test of the C interface starts from.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "core/guards.hpp"
#include "files.hpp"
#include "handles.hpp"
#include "matrices.hpp"
#include "systems.hpp"
#include "tx.h"

using namespace testing_support;
using testing::ExitedWithCode;
using trajex::Temporarily;
