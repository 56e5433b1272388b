/* The layout of the public records as the compiler sees it that compiles this, a C99 or a C++ one.
 * What does not have the listed type does not compile. */
#include <stddef.h>

#include "tx.h"

typedef double* double_pointer;
typedef double** double_rows;
typedef int* int_pointer;
typedef char* text;
typedef void (*right_hand_side)(double t, double* y, double* f);
typedef double (*cut_function)(double t, double* y);
typedef Trajex* handle;
typedef TrajexBif* record;
typedef int three_ints[3];
typedef char short_text[16];

struct field_layout {
    const char* name;
    size_t offset, size;
};

#define FIELD(record, type, name) {#record "." #name, offsetof(record, name), sizeof(type)},
static const struct field_layout layout[] = {
#include "fields.def"
    {"Trajex", 0, sizeof(Trajex)},
    {"TrajexBif", 0, sizeof(TrajexBif)},
};
#undef FIELD

#define FIELD(record, type, name)                                 \
    static inline type* address_of_##record##_##name(record* r) { \
        return &r->name;                                          \
    }
#include "fields.def"
#undef FIELD
