/* The shared library is the static core linked whole; this unit only gives
   the library target a source of its own. */
int zorbus_library_marker = 1;
