#include "common/xmldef.h"

namespace xmldef {
#define ZORBUS_XMLDEF(id) const char* const id = #id;
#define ZORBUS_XMLDEF_TEXT(id, text) const char* const id = text;
#include "common/xmldef_list.h"
#undef ZORBUS_XMLDEF_TEXT
#undef ZORBUS_XMLDEF
}  // namespace xmldef
