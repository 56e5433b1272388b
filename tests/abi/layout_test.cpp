// Both public records have the listed fields, with the listed types, in the listed order, and
// nothing else; C and C++ agree on where they are.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "layout.h"

extern "C" const field_layout* const layout_in_c;

namespace {

TEST(Layout, FollowsTheListAndIsTheSameInC) {
    constexpr std::size_t fields = 48 + 29;
    ASSERT_EQ(std::size(layout), fields + 2);
    std::size_t end = 0;
    for (std::size_t i = 0; i < std::size(layout); ++i) {
        const auto& [name, offset, size] = layout[i];
        EXPECT_EQ(std::string(name), layout_in_c[i].name);
        EXPECT_TRUE(offset == layout_in_c[i].offset && size == layout_in_c[i].size) << name;
        if (i >= fields) continue;
        if (offset == 0) {  // a record begins; the one before it ends without another field
            EXPECT_TRUE(i == 0 || sizeof(Trajex) - end < alignof(double)) << name;
            end = 0;
        }
        EXPECT_TRUE(offset >= end && offset - end < alignof(double)) << name;
        EXPECT_TRUE(size > sizeof(int) || offset - end < sizeof(int)) << name;
        end = offset + size;
    }
    EXPECT_LT(sizeof(TrajexBif) - end, alignof(double));
}

}  // namespace
