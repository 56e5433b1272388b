// Both public records have the listed fields, with the listed types, in the listed order, and
// nothing else; C and C++ agree on where they are.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <type_traits>

#include "layout.h"

namespace {

#define FIELD(record, type, name) static_assert(std::is_same_v<decltype(record::name), type>);
#include "fields.def"
#undef FIELD

struct Expected {
    field_layout here;
    std::size_t alignment;
};

const Expected listed[] = {
#define FIELD(record, type, name) \
    {{#record, #name, offsetof(record, name), sizeof(type)}, alignof(type)},
#include "fields.def"
#undef FIELD
};

std::size_t aligned(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

TEST(Layout, FollowsTheListAndIsTheSameInC) {
    ASSERT_EQ(std::size(listed), 48U + 29U);
    ASSERT_EQ(layout_in_c_length, std::size(listed));
    std::size_t end = 0;
    std::string previous = "Trajex";
    for (std::size_t i = 0; i < std::size(listed); ++i) {
        const auto& [here, alignment] = listed[i];
        SCOPED_TRACE(std::string(here.record) + "." + here.field);
        if (here.record != previous) {
            EXPECT_EQ(aligned(end, alignof(Trajex)), sizeof(Trajex));
            end = 0;
        }
        EXPECT_EQ(here.offset, aligned(end, alignment));
        EXPECT_EQ(layout_in_c[i].offset, here.offset);
        EXPECT_EQ(layout_in_c[i].size, here.size);
        end = here.offset + here.size;
        previous = here.record;
    }
    EXPECT_EQ(aligned(end, alignof(TrajexBif)), sizeof(TrajexBif));
    EXPECT_EQ(record_sizes_in_c[0], sizeof(Trajex));
    EXPECT_EQ(record_sizes_in_c[1], sizeof(TrajexBif));
}

}  // namespace
