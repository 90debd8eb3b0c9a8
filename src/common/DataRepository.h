// The host's data repository is opaque to this module: it stores the
// provider the host gives and hands it on.
#pragma once

class DataRepository;
typedef DataRepository* (*DataRepositoryProvider)();

void setDataRepositoryProvider(DataRepositoryProvider provider);
DataRepositoryProvider getDataRepositoryProvider();

// Category value that USB devices pass on with their identification.
extern const char* const xafTechnical;
