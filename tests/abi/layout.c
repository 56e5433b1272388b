/* Both public records have the listed fields, with the listed types, in the listed order, and
 * nothing else, to a C99 and to a C++ compiler: what is otherwise does not compile. */
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

#define FIELD(record, type, name) IN_##record(type, name)
#define IN_Trajex(type, name) type name;
#define IN_TrajexBif(type, name)
struct listed_Trajex {
#include "fields.def"
};
#undef IN_Trajex
#undef IN_TrajexBif
#define IN_Trajex(type, name)
#define IN_TrajexBif(type, name) type name;
struct listed_TrajexBif {
#include "fields.def"
};
#undef FIELD

/* No array has a negative length. */
#define HOLDS(fact, condition) typedef char fact[(condition) ? 1 : -1];
#define FIELD(record, type, name)                                           \
    HOLDS(record##_##name##_is_in_its_place,                                \
          offsetof(record, name) == offsetof(struct listed_##record, name)) \
    static inline type* address_of_##record##_##name(record* r) {           \
        return &r->name;                                                    \
    }
#include "fields.def"
HOLDS(Trajex_has_no_other_field, sizeof(Trajex) == sizeof(struct listed_Trajex))
HOLDS(TrajexBif_has_no_other_field, sizeof(TrajexBif) == sizeof(struct listed_TrajexBif))
