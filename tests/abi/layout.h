/* The layout of the public records as one compiler sees it. */
#ifndef TX_TEST_LAYOUT_H
#define TX_TEST_LAYOUT_H

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
    const char* record;
    const char* field;
    size_t offset;
    size_t size;
};

#ifdef __cplusplus
extern "C" {
#endif
extern const struct field_layout layout_in_c[];
extern const size_t layout_in_c_length;
extern const size_t record_sizes_in_c[2];
#ifdef __cplusplus
}
#endif

#endif
