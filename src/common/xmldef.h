// The suite's XML vocabulary: element and attribute names and values.
// Each constant's text is its identifier without a trailing "_x".
#pragma once

namespace xmldef {
#define ZORBUS_XMLDEF(id) extern const char* const id;
#include "xmldef_list.h"
#undef ZORBUS_XMLDEF
}  // namespace xmldef
