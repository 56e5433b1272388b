/* The layout of the public records as a strict C99 compiler sees it. */
#include "layout.h"

#define FIELD(record, type, name) {#record, #name, offsetof(record, name), sizeof(type)},
const struct field_layout layout_in_c[] = {
#include "fields.def"
};
#undef FIELD

const size_t layout_in_c_length = sizeof layout_in_c / sizeof layout_in_c[0];
const size_t record_sizes_in_c[2] = {sizeof(Trajex), sizeof(TrajexBif)};

/* Compiles only where every field has exactly the listed type: pointers to others do not convert.
 */
#define FIELD(record, type, name)                   \
    type* address_of_##record##_##name(record* r);  \
    type* address_of_##record##_##name(record* r) { \
        return &r->name;                            \
    }
#include "fields.def"
#undef FIELD
