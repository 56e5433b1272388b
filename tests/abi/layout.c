#include "layout.h"

extern const struct field_layout* const layout_in_c;
const struct field_layout* const layout_in_c = layout;
